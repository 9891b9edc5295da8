// Memory that runs out: a small file system that is full, files that may not be so large, an
// address space without room, no more descriptors, no more maps. Each time: an error that names the
// table and says what was missing, the table as it was, nothing half-made and nothing kept; and the
// next call works once there is room.
//
// That no page is touched before it has been claimed shows here too: whoever touches one on a file
// system without a free page is killed by SIGBUS.
#include <fcntl.h>
#include <fmt/format.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Guard/Exception.h"
#include "platform/Shoal/SharedTable.h"
#include "platform/Shoal/TableCheck.h"
#include "torture/Entries.h"
#include "torture/Holdings.h"
#include "torture/SharedTally.h"
#include "torture/Watch.h"

namespace Torture {
namespace {

namespace fs = std::filesystem;
using Guard::MemoryResourceException;
using Shoal::AttachException;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool sanitized = true;  // the sanitizer itself needs addresses all the time, and ends
#else
constexpr bool sanitized = false;
#endif

constexpr uint64_t page = 4096;
constexpr std::chrono::seconds childLimit{900};
const std::string tableName = "a/table";

// --- Ground -------------------------------------------------------------------------------------

// Makes mounts of this process its own. Returns why it could not, or nothing.
std::optional<std::string> enterOwnNamespace() {
  const uid_t user = ::geteuid();
  const gid_t group = ::getegid();
  if (::unshare(user == 0 ? CLONE_NEWNS : CLONE_NEWNS | CLONE_NEWUSER) != 0) {
    return fmt::format("no mount namespace of its own: {}", std::strerror(errno));
  }
  dieWithParent(::getppid());
  if (user != 0) {
    std::ofstream("/proc/self/setgroups") << "deny";
    std::ofstream("/proc/self/uid_map") << fmt::format("0 {} 1", user);
    std::ofstream("/proc/self/gid_map") << fmt::format("0 {} 1", group);
  }
  if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
    return fmt::format("mounts would not stay its own: {}", std::strerror(errno));
  }
  return std::nullopt;
}

// A memory file system of so many pages. requires: enterOwnNamespace.
class SmallSystem {
 public:
  SmallSystem(const fs::path& at, uint64_t pages, const std::string& more = "") : at_(at) {
    const std::string options = fmt::format("mode=0755,size={}{}", pages * page, more);
    if (::mount("tmpfs", at_.c_str(), "tmpfs", 0, options.c_str()) != 0) {
      throw std::runtime_error(fmt::format("mount with {}: {}", options, std::strerror(errno)));
    }
  }
  ~SmallSystem() { ::umount2(at_.c_str(), MNT_DETACH); }
  SmallSystem(const SmallSystem&) = delete;
  SmallSystem& operator=(const SmallSystem&) = delete;

  fs::path root() const { return at_ / "tables"; }
  uint64_t freePages() const {
    struct statvfs system {};
    ::statvfs(at_.c_str(), &system);
    return system.f_bfree;
  }
  // Leaves so many pages free.
  void fill(uint64_t left = 0) const {
    const uint64_t now = freePages();
    if (now <= left) return;
    const int file = ::open((at_ / "filler").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    struct stat status {};
    ::fstat(file, &status);
    ::fallocate(file, 0, status.st_size, static_cast<off_t>((now - left) * page));
    ::close(file);
  }
  void empty() const { fs::remove(at_ / "filler"); }

 private:
  fs::path at_;
};

// Whether the text of an error tells the table, and what was missing.
bool isNamed(const std::string& text) {
  const auto has = [&](const char* part) { return text.find(part) != std::string::npos; };
  if (!text.starts_with("shared table \"" + tableName + "\"")) return false;
  return (has(": out of memory: ") && has(" bytes needed, ") &&
          (has(" free on its file system (") || has(" allowed to this process"))) ||
         (has(": cannot map ") && has(" bytes: Cannot allocate memory")) ||
         (has(": cannot ") && (has(": Too many open files") || has(": No space left on device")));
}

// --- One table and its model --------------------------------------------------------------------

class Round {
 public:
  Round(SharedTally& tally, std::string name) : tally_(tally), name_(std::move(name)) {
    doing("memory: " + name_);
    tally_.add(&Tally::rounds);
  }

  void finding(uint64_t Tally::*head, const std::string& what) {
    tally_.found(head, fmt::format("memory: {}: {}", name_, what));
  }
  void verified(uint64_t reads) { tally_.add(&Tally::reads, reads); }

  // Whether the call did what it was to do. Else it must have failed with a text that says what was
  // missing, and left this process with what it had.
  bool attempt(const Holdings& before, const std::function<void()>& call) {
    const auto text = errorOf(call);
    if (!text) return true;
    tally_.add(&Tally::faults);
    if (!isNamed(*text)) finding(&Tally::torn, "an error without a reason: " + *text);
    if (const std::string kept = before.changed(); !kept.empty()) {
      finding(&Tally::leaked, kept + " after: " + *text);
    }
    return false;
  }

  // No table, and nothing else but what may stay: directories and the lock file.
  void expectNothingHalfMade(const fs::path& root) {
    for (const std::string& file : filesBelow(root)) {
      if (!file.ends_with(".lock")) finding(&Tally::leaked, file + " is left behind");
    }
  }

 private:
  std::optional<std::string> errorOf(const std::function<void()>& call) {
    try {
      call();
      return std::nullopt;
    } catch (const MemoryResourceException& error) {
      return error.what();
    } catch (const AttachException& error) {
      return error.what();
    } catch (const std::exception& error) {
      return std::string("another exception: ") + error.what();
    }
  }

  SharedTally& tally_;
  std::string name_;
};

template <class Entry>
class Modelled {
 public:
  Modelled(Round& round, fs::path root, uint64_t capacity)
      : round_(round), root_(std::move(root)), capacity_(capacity) {}

  bool attach() {
    map_.storeIs(nullptr);
    const bool done = round_.attempt(Holdings::now(), [&] {
      map_.storeIs(Shoal::attachWriter(root_, tableName, Entry::layout(), capacity_));
    });
    held_ = Holdings::now();
    return done;
  }
  void detach() { map_.storeIs(nullptr); }

  // Adds or replaces, or fails and changes nothing.
  bool put(uint32_t number, uint32_t version) {
    const Entry entry = Entry::make(number, version);
    if (!round_.attempt(held_, [&] { map_.set(entry.id, entry); })) return false;
    model_[entry.id] = entry;
    return true;
  }
  bool erase(uint32_t number) {
    const auto key = Entry::keyOf(number);
    if (!round_.attempt(held_, [&] { map_.erase(key); })) return false;
    model_.erase(key);
    return true;
  }
  // New entries until there is no room for one, or `limit` of them.
  uint32_t putUntilFull(uint32_t limit) {
    for (uint32_t added = 0; added < limit; ++added) {
      if (!put(next_, 1)) return added;
      ++next_;
    }
    return limit;
  }
  uint32_t next() const { return next_; }

  // By every way of reading: as the model has it, by another attachment, and sound.
  void compare() {
    typename Entry::Map reader;
    reader.storeIs(Shoal::attachReader(root_, tableName, Entry::layout()));
    for (const auto& [key, entry] : model_) {
      bool found = false;
      if (!(reader.safeLookup(key, found) == entry) || !found) {
        round_.finding(found ? &Tally::torn : &Tally::lost, "an entry is not as it was");
      }
    }
    size_t walked = 0;
    Shoal::IterHint hint;
    Entry entry;
    for (bool more = reader.first(hint, entry); more; more = reader.next(entry.id, hint, entry)) {
      ++walked;
    }
    if (walked != model_.size() || reader.size() != model_.size()) {
      round_.finding(&Tally::lost, fmt::format("{} entries in a walk, {} counted, {} expected",
                                               walked, reader.size(), model_.size()));
    }
    const Shoal::TableCheck check = Shoal::checkTable(*reader.store());
    if (check.faultCount != 0 || check.isUnfinished) {
      round_.finding(&Tally::torn, "the table has faults: " +
                                       (check.faults.empty() ? "unfinished" : check.faults[0]));
    }
    round_.verified(model_.size() + walked);
  }

  // All memory that the table counts as claimed is there: as many bytes as its file holds.
  void compareClaims() {
    std::ifstream file(Shoal::tableFile(root_, tableName), std::ios::binary);
    const auto number = [&](std::streamoff at) {
      uint32_t value = 0;
      file.seekg(at).read(reinterpret_cast<char*>(&value), sizeof value);
      return uint64_t{value};
    };
    const uint64_t slots = number(392) * number(48), changes = number(396) * number(104);
    uint64_t index = 0;
    for (uint64_t level = 0, words = 1024; level <= number(320); ++level, words *= 4) {
      index += words * 4;
    }
    const uint64_t claimed = page + slots + index + changes;
    const uint64_t held = Shoal::tableStatus(root_, tableName).bytes;
    if (held < claimed) {
      round_.finding(&Tally::lost, fmt::format("{} bytes held, {} claimed", held, claimed));
    }
  }

 private:
  Round& round_;
  fs::path root_;
  uint64_t capacity_;
  typename Entry::Map map_;
  Holdings held_;  // while it is attached
  std::map<typename Entry::Key, Entry> model_;
  uint32_t next_ = 0;
};

// --- Full file systems --------------------------------------------------------------------------

// What goes on in a table whose file system has no page left: everything that needs none.
template <class Entry>
void goOnWithoutMemory(Modelled<Entry>& table) {
  for (uint32_t number = 0; number < table.next(); number += 1 + table.next() / 64) {
    table.put(number, 2);
    table.erase(number + 1);
    table.put(number + 1, 3);
  }
}

template <class Entry>
void fullSystem(SharedTally& tally, const fs::path& at, uint64_t pages, uint32_t most) {
  Round round(tally, fmt::format("{} pages, entries of {} bytes", pages, sizeof(Entry)));
  const SmallSystem system(at, 400);
  system.fill(pages);
  // As large as the addresses of 32 bits have room for.
  constexpr uint64_t capacity = std::min<uint64_t>(1u << 20, (1u << 28) / sizeof(Entry));
  Modelled<Entry> table(round, system.root(), capacity);
  if (!table.attach()) {
    round.expectNothingHalfMade(system.root());
    system.empty();
    if (!table.attach()) round.finding(&Tally::lost, "no table, with room for one");
    return;
  }
  // First what is left when it has had what it asked for; then not even that.
  for (const bool toTheLastPage : {false, true}) {
    if (toTheLastPage) system.fill();
    table.putUntilFull(most);
    table.compareClaims();
    goOnWithoutMemory(table);
    table.compare();
  }
  table.detach();
  const bool attached = table.attach();
  if (!attached) round.finding(&Tally::lost, "no writer where there was one");
  table.compare();
  system.empty();
  if (!attached && !table.attach()) return;
  if (table.putUntilFull(10) != 10) round.finding(&Tally::lost, "no entry, with room for one");
  table.compare();
}

// Files are limited in number too.
void noFilesLeft(SharedTally& tally, const fs::path& at) {
  for (uint64_t inodes = 2; inodes <= 8; ++inodes) {
    Round round(tally, fmt::format("{} files", inodes));
    const SmallSystem system(at, 400, fmt::format(",nr_inodes={}", inodes));
    Modelled<Tiny> table(round, system.root(), 100);
    if (table.attach()) {
      table.putUntilFull(10);
      table.compare();
    } else {
      round.expectNothingHalfMade(system.root());
    }
  }
}

// --- Limits of a process ------------------------------------------------------------------------

class Limit {
 public:
  Limit(decltype(RLIMIT_AS) what, uint64_t value) : what_(what) {
    ::getrlimit(what_, &before_);
    const rlimit now{static_cast<rlim_t>(value), before_.rlim_max};
    if (::setrlimit(what_, &now) != 0) throw std::runtime_error("cannot set a limit");
  }
  ~Limit() { ::setrlimit(what_, &before_); }
  Limit(const Limit&) = delete;
  Limit& operator=(const Limit&) = delete;

 private:
  decltype(RLIMIT_AS) what_;
  rlimit before_;
};

// Attaches in every way under each of the limits, from one that allows nothing on; then without.
// `limited` sets the n-th limit and keeps it as long as its answer lives.
template <class Limited>
void attachUnder(SharedTally& tally, const std::string& name, uint64_t steps, uint64_t stride,
                 Limited limited) {
  for (uint64_t step = 0; step < steps; step += stride) {
    const PrivateDirectory ground;
    Round round(tally, fmt::format("{}, step {}", name, step));
    // A table that is there, for readers, and one that is to be made.
    Modelled<Route> there(round, ground.path() / "there", 300);
    there.attach();
    there.putUntilFull(100);
    Modelled<Route> made(round, ground.path() / "made", 300);

    const Holdings before = Holdings::now();
    bool isMade = false;
    {
      std::vector<std::string> texts;
      texts.reserve(8);
      const auto call = [&](const std::function<void()>& attach) {
        try {
          const auto limit = limited(step);
          attach();
          return true;
        } catch (const std::exception& error) {
          texts.emplace_back(error.what());
          return false;
        }
      };
      // Judged when the limit is gone: judging needs memory and descriptors too.
      const auto judged = [&](const std::function<void()>& attach) {
        const bool done = call(attach);
        if (!done) round.attempt(before, [&] { throw AttachException(texts.back()); });
        return done;
      };
      const fs::path root = ground.path() / "there";
      judged([&] { Shoal::attachReader(root, tableName, Route::layout()); });
      judged([&] { Shoal::attachSnapshot(root, tableName, Route::layout()); });
      judged([&] { Shoal::tableStatus(root, tableName); });
      isMade = judged(
          [&] { Shoal::attachWriter(ground.path() / "made", tableName, Route::layout(), 300); });
    }
    if (const std::string kept = before.changed(); !kept.empty()) {
      round.finding(&Tally::leaked, kept);
    }
    if (!isMade) round.expectNothingHalfMade(ground.path() / "made");
    there.compare();
    if (!made.attach()) round.finding(&Tally::lost, "no table, without the limit");
    made.putUntilFull(10);
    made.compare();
  }
}

uint64_t addressSpaceInUse() {
  std::ifstream statm("/proc/self/statm");
  uint64_t pages = 0;
  statm >> pages;
  return pages * page;
}

void noAddressSpace(SharedTally& tally, uint64_t stride) {
  attachUnder(tally, "address space", 120, stride, [](uint64_t step) {
    return std::make_unique<Limit>(RLIMIT_AS, addressSpaceInUse() + step * page);
  });
}

void noDescriptors(SharedTally& tally) {
  attachUnder(tally, "descriptors", 12, 1, [](uint64_t step) {
    return std::make_unique<Limit>(RLIMIT_NOFILE, Holdings::now().files - 1 + step);
  });
}

void noLargeFiles(SharedTally& tally, uint64_t stride) {
  attachUnder(tally, "file size", 24, stride,
              [](uint64_t step) { return std::make_unique<Limit>(RLIMIT_FSIZE, step * 4 * page); });
}

// As many maps as a process may have but for a few: every other page of a range with other rights.
class ManyMaps {
 public:
  explicit ManyMaps(uint64_t left) {
    void* memory =
        ::mmap(nullptr, bytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) throw std::runtime_error("no addresses for many maps");
    base_ = static_cast<std::byte*>(memory);
    for (uint64_t at = 0; at < bytes; at += 2 * page) {
      if (::mprotect(base_ + at, page, PROT_READ) != 0) {
        if (at > 2 * page * left)
          ::mprotect(base_ + at - 2 * page * left, 2 * page * left, PROT_NONE);
        return;
      }
    }
  }
  ~ManyMaps() { ::munmap(base_, bytes); }
  ManyMaps(const ManyMaps&) = delete;
  ManyMaps& operator=(const ManyMaps&) = delete;

 private:
  static constexpr size_t bytes = 140000 * page;
  std::byte* base_;
};

void noMaps(SharedTally& tally, uint64_t stride) {
  attachUnder(tally, "maps", 6, stride,
              [](uint64_t step) { return std::make_unique<ManyMaps>(step); });
}

// All addresses but for so many pages, where that can be had.
class AllAddresses {
 public:
  explicit AllAddresses(uint64_t left) {
    for (size_t size = size_t{1} << 30; size >= page; size /= 2) {
      for (;;) {
        void* memory =
            ::mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (memory == MAP_FAILED) break;
        if (count_ == taken_.size()) throw std::runtime_error("too many addresses");
        taken_[count_++] = {memory, size};
      }
    }
    for (; left != 0 && count_ != 0; --left) release();
  }
  ~AllAddresses() {
    while (count_ != 0) release();
  }
  AllAddresses(const AllAddresses&) = delete;
  AllAddresses& operator=(const AllAddresses&) = delete;

 private:
  void release() {
    --count_;
    ::munmap(taken_[count_].first, taken_[count_].second);
  }
  std::array<std::pair<void*, size_t>, 4096> taken_{};
  size_t count_ = 0;
};

void allAddressesTaken(SharedTally& tally, uint64_t stride) {
  if (sizeof(void*) == 8) return;  // too many to take
  attachUnder(tally, "all addresses taken", 24, stride,
              [](uint64_t step) { return std::make_unique<AllAddresses>(step); });
}

// So that what is tried runs out of memory, and not the trial itself.
void keepSomeHeap() {
  std::vector<std::unique_ptr<char[]>> blocks;
  for (int i = 0; i < 64; ++i) blocks.push_back(std::make_unique<char[]>(16384));
}

// --- The campaign -------------------------------------------------------------------------------

class MemoryFaults {
 public:
  explicit MemoryFaults(const Setting& setting)
      : stride_(setting.slice ? 13 : 1), from_(setting.slice ? setting.seed % 13 : 0) {}

  Tally run() {
    const PrivateDirectory at;
    inChild("full file systems", [&] {
      if (const auto reason = enterOwnNamespace()) {
        fmt::print(stderr, "torture: memory: full file systems are left out: {}\n", *reason);
        return;
      }
      for (uint64_t pages = from_; pages <= 110; pages += stride_) {
        fullSystem<Tiny>(tally_, at.path(), pages, 20000);
        fullSystem<Route>(tally_, at.path(), pages, 10000);
        fullSystem<Group>(tally_, at.path(), pages, 200);
      }
      noFilesLeft(tally_, at.path());
    });
    if (sanitized) {
      fmt::print(stderr, "torture: memory: limits of addresses are left out under a sanitizer\n");
    } else {
      inChild("address space", [&] { noAddressSpace(tally_, stride_); });
      inChild("all addresses", [&] { allAddressesTaken(tally_, stride_); });
      inChild("maps", [&] { noMaps(tally_, stride_); });
    }
    inChild("descriptors", [&] { noDescriptors(tally_); });
    inChild("file size", [&] { noLargeFiles(tally_, stride_); });
    return tally_.tally();
  }

 private:
  void inChild(const char* name, const std::function<void()>& body) {
    const ChildEnd end = runChild(childLimit, [&] {
      keepSomeHeap();
      body();
      return 0;
    });
    if (end.ok()) return;
    tally_.found(end.timedOut ? &Tally::hung : &Tally::lost,
                 fmt::format("memory: {}: the process {}", name, end.text()));
  }

  uint64_t stride_, from_;
  SharedTally tally_;
};

}  // namespace

Tally memoryFaults(const Setting& setting) { return MemoryFaults(setting).run(); }

}  // namespace Torture
