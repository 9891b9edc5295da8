// Every system call of every operation is refused, once or from then on, with each error that the
// kernel has for it: an exhausted quota, an interrupted call, no descriptors, no maps, a medium
// that fails. Each time: the operation succeeds, or throws an exception that is documented for it,
// whose text tells the table and the kernel's reason; the table is as it was, or as it is to be;
// nothing is kept; and the next call works.
#include <fmt/format.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <fstream>
#include <functional>
#include <optional>
#include <random>
#include <set>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/Guard/Exception.h"
#include "platform/Shoal/SharedTable.h"
#include "torture/Entries.h"
#include "torture/Holdings.h"
#include "torture/Operations.h"
#include "torture/SharedTally.h"
#include "torture/SystemCalls.h"
#include "torture/Watch.h"

namespace Torture {

namespace {

using std::filesystem::path;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool sanitized = true;  // the sanitizer makes calls of its own, and ends when one fails
#else
constexpr bool sanitized = false;
#endif

constexpr std::chrono::seconds longestTry{20};
constexpr uint32_t forEver = UINT32_MAX;
// A call that signals interrupt is made again: they end some time.
constexpr uint32_t manySignals = 50;

// --- What the kernel may answer -----------------------------------------------------------------

// A kind of call: errors that an operation may fail with, and those that no caller is to see.
struct Kind {
  const char* name;
  std::vector<long> numbers;
  std::vector<int> errors, harmless;
};

const std::vector<Kind>& kinds() {
  static const std::vector<Kind> all{
      {"open",
       {SYS_openat},
       {EMFILE, ENFILE, ENOMEM, EACCES, EPERM, EIO, ENOSPC, EDQUOT, EINTR},
       {}},
      {"mkdir", {SYS_mkdirat}, {EACCES, EPERM, EROFS, EMLINK, ENOMEM, ENOSPC, EDQUOT, EIO}, {}},
      {"stat", {SYS_fstat, SYS_statx}, {EACCES, ENOMEM, EIO}, {}},
      {"statfs", {SYS_fstatfs}, {}, {EIO, ENOMEM, ENOSYS}},
      // The rights stay those that the umask has left, which are fewer and never more.
      {"chmod", {SYS_fchmod}, {}, {EPERM, EROFS, EIO}},
      {"truncate", {SYS_ftruncate}, {ENOSPC, EDQUOT, EFBIG, EPERM, EIO, EINTR}, {}},
      {"fallocate",
       {SYS_fallocate},
       {ENOSPC, EDQUOT, ENOMEM, EFBIG, EOPNOTSUPP, EPERM, EIO},
       {EINTR}},
      {"fcntl", {SYS_fcntl}, {EAGAIN, EACCES, ENOLCK, EMFILE, EINTR}, {}},
      {"rename", {SYS_renameat2}, {ENOSPC, EDQUOT, ENOMEM, EACCES, EPERM, EROFS, EINVAL, EIO}, {}},
      {"unlink", {SYS_unlinkat}, {EACCES, EPERM, EROFS, EBUSY, ENOMEM, EIO}, {}},
      {"read", {SYS_read, SYS_pread64, SYS_getdents64}, {EIO, ENOMEM, EINTR}, {}},
      {"map", {SYS_mmap}, {ENOMEM, EAGAIN, ENFILE, EPERM, ENODEV}, {}},
      {"advise", {SYS_madvise}, {}, {ENOMEM, EINVAL, EAGAIN, EBUSY, EFAULT, EINTR}},
      // Whoever sleeps looks again in any case.
      {"futex", {SYS_futex}, {}, {EINTR, EAGAIN, ETIMEDOUT, EFAULT, ENOMEM}},
      // Not refused. A descriptor is gone also when closing it fails; what is unmapped is a map of
      // one's own, or an end of it, which takes no memory; a heap that cannot grow is the concern
      // of the tests of allocation; and the others cannot fail.
      {"", {SYS_close, SYS_munmap, SYS_brk}, {}, {}},
      {"", {SYS_getpid, SYS_geteuid, SYS_prlimit64, SYS_clock_gettime}, {}, {}},
  };
  return all;
}

// Of calls that do the same for numbers or structures of other sizes, the one of the table above.
long usual(long number) {
  switch (number) {
#ifdef SYS_newfstatat
    case SYS_newfstatat:
      return SYS_fstat;
#endif
#ifdef SYS_mmap2
    case SYS_mmap2:
      return SYS_mmap;
    case SYS_fstat64:
      return SYS_fstat;
    case SYS_fstatat64:
      return SYS_fstat;
    case SYS_fstatfs64:
      return SYS_fstatfs;
    case SYS_ftruncate64:
      return SYS_ftruncate;
    case SYS_fcntl64:
      return SYS_fcntl;
    case SYS_geteuid32:
      return SYS_geteuid;
    case SYS_ugetrlimit:
      return SYS_prlimit64;
#endif
    default:
      return number;
  }
}

const Kind* kindOf(uint16_t number) {
  for (const Kind& kind : kinds()) {
    const auto& numbers = kind.numbers;
    if (std::count(numbers.begin(), numbers.end(), usual(number)) != 0) return &kind;
  }
  return nullptr;
}

// --- What is tried ------------------------------------------------------------------------------

// An operation, and what is done beforehand to the files that it finds.
struct Trial {
  Operation operation;
  std::function<void(const path& root)> before = nullptr;
};

// An operation has answered without an exception, and not what is so.
struct WrongAnswer : std::runtime_error {
  using std::runtime_error::runtime_error;
};
void expect(bool isSo, const char* what) {
  if (!isSo) throw WrongAnswer(what);
}

constexpr uint32_t entriesRead = 3;

void fillForReaders(Shoal::TableStore& table) {
  for (uint32_t number = 0; number < entriesRead; ++number) put(table, Tiny::make(number, number));
}

void expectEntries(const Shoal::TableStore& table) {
  Tiny entry;
  for (uint32_t number = 0; number < entriesRead; ++number) {
    const bool isThere = table.lookup(bytesOf(Tiny::keyOf(number)),
                                      std::as_writable_bytes(std::span<Tiny, 1>(&entry, 1)));
    expect(isThere && entry == Tiny::make(number, number), "an entry is not as it was");
  }
  expect(table.size() == entriesRead, "the number of entries is another");
}

Store attachTiny(const path& root) {
  return Shoal::attachWriter(root, tableName, Tiny::layout(), 6);
}

void readAttached(const path& root) {
  expectEntries(*Shoal::attachReader(root, tableName, Tiny::layout()));
}
void readSnapshot(const path& root) {
  expectEntries(*Shoal::attachSnapshot(root, tableName, Tiny::layout()));
}

void showStatus(const path& root) {
  const Store writer = attachTiny(root);
  const Shoal::TableStatus status = Shoal::tableStatus(root, tableName);
  expect(status.entries == entriesRead && status.capacity == 6, "other numbers in the status");
  expect(status.writerPid == ::getpid(), "another writer in the status");
  expect(status.bytes >= sizeof(Shoal::Header), "no memory in the status");
  expect(status.changes == entriesRead, "other changes in the status");
}

void comeSecond(const path& root) {
  const Store writer = attachTiny(root);
  try {
    attachTiny(root);
  } catch (const Shoal::WriterPresentException& error) {
    return expect(error.message().ends_with(" (this one)"), "the writer is not named");
  }
  throw WrongAnswer("a second writer");
}

void follow(const path& root) {
  const Store reader = Shoal::attachReader(root, tableName, Tiny::layout());
  const auto latest = Shoal::follow(reader), first = Shoal::follow(reader, 0);
  expect(!latest->wait(std::chrono::milliseconds(3)), "a change that nobody has made");
  expect(first->wait(std::chrono::milliseconds(3)), "no change where there are some");
  Shoal::ChangeFollower::Changes taken;
  first->take(taken, 10);
  expect(taken.size() == entriesRead, "other changes than were made");
}

void listTables(const path& root) {
  expect(Shoal::tablesBelow(root) == std::vector{tableName}, "another list of tables");
}

// A creator was killed before it gave the file its name.
void leaveNewFile(const path& root) {
  Shoal::attachWriter(root, tableName + "2", Tiny::layout(), 6);
  const path file = Shoal::tableFile(root, tableName);
  std::filesystem::rename(Shoal::tableFile(root, tableName + "2"), file.string() + ".new");
}

// A writer was killed in its last operation, when all was done but to note that.
auto leaveUnfinished(Shoal::OperationRecord::Kind kind) {
  return [kind](const path& root) {
    std::fstream file(Shoal::tableFile(root, tableName),
                      std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(offsetof(Shoal::Header, operation) + offsetof(Shoal::OperationRecord, kind));
    file.write(reinterpret_cast<const char*>(&kind), sizeof kind);
  };
}

// So many entries that emptying the table needs memory for telling of it.
void fillForClear(Shoal::TableStore& table) {
  for (uint32_t number = 0; number < 1500; ++number) put(table, Tiny::make(number, number));
}

std::vector<Trial> allTrials() {
  std::vector<Trial> all;
  for (const Operation& operation : operations()) all.push_back({operation});
  const Shape tiny = shapeOf<Tiny>(6);
  const auto attach = [](const path& root) { attachTiny(root); };
  const auto reading = [&](const char* name, void (*attaches)(const path&)) {
    all.push_back({{name, tiny, fillForReaders, {}, attaches}});
  };
  reading("attach as a reader", readAttached);
  reading("attach a snapshot", readSnapshot);
  reading("status", showStatus);
  reading("come as a second writer", comeSecond);
  reading("follow", follow);
  reading("list", listTables);
  all.push_back({{"create where one was killed", tiny, {}, {}, attach}, leaveNewFile});
  all.push_back({{"repair an insert", tiny, fillForReaders, {}, attach},
                 leaveUnfinished(Shoal::OperationRecord::insert)});
  all.push_back({{"repair a delete",
                  tiny,
                  [](Shoal::TableStore& table) {
                    fillForReaders(table);
                    table.erase(bytesOf(Tiny::keyOf(1)));
                  },
                  {},
                  attach},
                 leaveUnfinished(Shoal::OperationRecord::erase)});
  all.push_back({{"delete-all of many",
                  shapeOf<Tiny>(5000),
                  fillForClear,
                  {[](Shoal::TableStore& table) { table.clear(); }},
                  {}}});
  all.push_back({{"reserve many",
                  shapeOf<Route>(60000),
                  [](Shoal::TableStore&) {},
                  {[](Shoal::TableStore& table) { table.reserve(60000); }},
                  {}}});
  return all;
}

// --- One try ------------------------------------------------------------------------------------

// What is refused, and whether the operation may then fail.
struct Fault {
  Refusal refusal;
  const Kind* kind = nullptr;
  bool mayFail = false;
  std::string text;  // for findings

  // The kernel says with these that somebody else holds the lock.
  bool isOfAHeldLock() const {
    const bool isLock = kind != nullptr && kind->numbers.front() == SYS_fcntl;
    return isLock && (refusal.error == EAGAIN || refusal.error == EACCES);
  }
};

// A process that runs a trial whose calls are refused, and looks at what comes of it.
class Try {
 public:
  Try(const Operation& operation, const Course& course, const path& root, const Fault& fault,
      Tally& tally)
      : operation_(operation),
        course_(course),
        root_(root),
        fault_(fault),
        tally_(tally),
        examiner_(tally, operation.shape) {
    examiner_.contextIs(fault.text);
  }

  void run(SystemCalls& calls) {
    const Holdings before = Holdings::now();
    if (operation_.attaches) {
      step(calls, 0, course_.between(0), [&] { operation_.attaches(root_); });
    } else {
      const Store table =
          Shoal::attachWriter(root_, tableName, operation_.shape.layout, operation_.shape.capacity);
      for (size_t at = 0; at < operation_.steps.size(); ++at) {
        // What is refused leaves the table as it was.
        const Between unchanged{course_.contents[at], course_.contents[at], course_.changes[at]};
        step(calls, at, unchanged, [&] { operation_.steps[at](*table); });
      }
    }
    if (const std::string kept = before.changed(); !kept.empty()) {
      found(&Tally::leaked, kept + " at the end");
    }
  }

 private:
  // Takes the step under refusals and, if that fails, once more without.
  void step(SystemCalls& calls, size_t at, const Between& whenRefused,
            const std::function<void()>& body) {
    const Holdings held = Holdings::now();
    const std::vector<std::string> files = filesBelow(root_);
    if (!attempt([&] { calls.during(body); }, true)) {
      if (const std::string kept = held.changed(); !kept.empty()) {
        found(&Tally::leaked, kept + " after the error");
      }
      expectNothingHalfMade(files);
      examiner_.newReader(root_, tableName, whenRefused);
      attempt(body, false);
    }
    const auto& after = course_.contents[at + 1];
    examiner_.newReader(root_, tableName, {after, after, course_.changes[at + 1]});
  }

  // Whether it came to its end.
  bool attempt(const std::function<void()>& body, bool isRefused) {
    try {
      body();
      return true;
    } catch (const WrongAnswer& wrong) {
      found(&Tally::torn, wrong.what());
    } catch (const Guard::MemoryResourceException& error) {
      judge(error.message(), isRefused);
    } catch (const Shoal::AttachException& error) {
      judge(error.message(), isRefused);
    } catch (const Shoal::WriterPresentException& error) {
      if (!isRefused || !fault_.isOfAHeldLock()) judge(error.message(), isRefused);
    } catch (const std::exception& error) {
      found(&Tally::torn, fmt::format("another exception: {}", error.what()));
    }
    return false;
  }

  void judge(const std::string& text, bool isRefused) {
    if (!isRefused) return found(&Tally::lost, "it fails again, with nothing refused: " + text);
    if (!fault_.mayFail) return found(&Tally::lost, "an error where there need be none: " + text);
    const bool isNamed = text.starts_with("shared table \"" + tableName + "\"") ||
                         text.starts_with("tables below \"" + root_.string() + "\"");
    const bool hasReason = text.find(std::strerror(fault_.refusal.error)) != std::string::npos;
    if (!isNamed || !hasReason) found(&Tally::torn, "an error without its reason: " + text);
  }

  void expectNothingHalfMade(const std::vector<std::string>& before) {
    for (const std::string& file : filesBelow(root_)) {
      const bool mayBe = file == tableName + ".shoal" || file == tableName + ".lock" ||
                         std::count(before.begin(), before.end(), file) != 0;
      if (!mayBe) found(&Tally::leaked, file + " is left behind");
    }
  }

  void found(uint64_t Tally::*head, const std::string& what) {
    tally_.found(head, examiner_.context() + ": " + what);
  }

  const Operation& operation_;
  const Course& course_;
  const path& root_;
  const Fault& fault_;
  Tally& tally_;
  Examiner examiner_;
};

// --- The campaign -------------------------------------------------------------------------------

class RefusalCampaign {
 public:
  explicit RefusalCampaign(const Setting& setting) : setting_(setting), random_(setting.seed) {}

  Tally run() {
    if (const auto reason = whyNot()) {
      fmt::print(stderr, "torture: refusals are left out: {}\n", *reason);
      return {};
    }
    for (const Trial& trial : allTrials()) refuseEach(trial);
    return shared_.tally();
  }

 private:
  std::optional<std::string> whyNot() {
    if (sanitized) return "a sanitizer makes calls of its own";
    const ChildEnd end = runChild(longestTry, [&] {
      const SystemCalls calls(*list_, {});
      return 0;
    });
    return end.ok() ? std::nullopt : std::optional("the process of the filter " + end.text());
  }

  void refuseEach(const Trial& trial) {
    const char* name = trial.operation.name;
    doing(fmt::format("refusals: {}", name));
    const Course course = courseOf(trial.operation);
    tryOnce(trial, course,
            {{}, nullptr, false, fmt::format("refusals: {}, nothing refused", name)});
    const CallList list = *list_;
    if (setting_.verbose) fmt::print("{:<36} {:>6} calls\n", name, list.count);
    if (list.count > CallList::most) {
      return shared_.found(&Tally::lost, fmt::format("{}: {} calls", name, list.count));
    }
    for (uint32_t at = 0; at < list.count; ++at) {
      const Kind* kind = kindOf(list.numbers[at]);
      if (kind == nullptr) {
        reportUnknown(trial, list.numbers[at]);
        continue;
      }
      const std::string call =
          fmt::format("refusals: {}: call {} of {}, {}", name, at + 1, list.count, kind->name);
      for (const int error : partOf(kind->errors)) {
        refuse(trial, course, {{at, list.numbers[at], 1, error}, kind, true, call});
      }
      for (const int error : partOf(kind->harmless)) {
        refuse(trial, course, {{at, list.numbers[at], 1, error}, kind, false, call});
      }
    }
  }

  // All of them; in a slice, one.
  std::vector<int> partOf(const std::vector<int>& errors) {
    if (!setting_.slice || errors.empty()) return errors;
    return {errors[random_() % errors.size()]};
  }

  // Once, which a slice does now and then, and from then on.
  void refuse(const Trial& trial, const Course& course, const Fault& fault) {
    const int error = fault.refusal.error;
    for (const bool isOnce : {true, false}) {
      if (setting_.slice && isOnce && random_() % 10 != 0) continue;
      Fault one = fault;
      if (!isOnce) one.refusal.times = error == EINTR ? manySignals : forEver;
      one.text += fmt::format(", refused {} with {}", isOnce ? "once" : "from then on",
                              ::strerrorname_np(error));
      tryOnce(trial, course, one);
    }
  }

  void reportUnknown(const Trial& trial, uint16_t number) {
    if (!unknown_.insert(number).second) return;
    shared_.found(&Tally::lost, fmt::format("{}: makes the system call {}, of which it is not said "
                                            "how it is refused",
                                            trial.operation.name, number));
  }

  void tryOnce(const Trial& trial, const Course& course, const Fault& fault) {
    const PrivateDirectory directory;
    const path root = directory.path() / "root";
    prepare(trial.operation, root);
    if (trial.before) trial.before(root);
    doing(fault.text);
    const ChildEnd end = runChild(longestTry, [&] {
      Tally tally;
      SystemCalls calls(*list_, fault.refusal);
      Try(trial.operation, course, root, fault, tally).run(calls);
      shared_.add(tally);
      return 0;
    });
    shared_.add(&Tally::rounds);
    if (fault.kind != nullptr && list_->count > fault.refusal.at) shared_.add(&Tally::faults);
    if (!end.ok()) {
      return shared_.found(end.timedOut ? &Tally::hung : &Tally::torn,
                           fmt::format("{}: the process {}", fault.text, end.text()));
    }
    Tally tally;
    Examiner examiner(tally, trial.operation.shape);
    examiner.contextIs(fault.text + ", and then");
    const auto& last = course.contents.back();
    examiner.nextWriter(root, tableName, {last, last, course.changes.back()});
    shared_.add(tally);
  }

  const Setting& setting_;
  std::mt19937_64 random_;
  std::set<uint16_t> unknown_;
  SharedMemory<CallList> list_;
  SharedTally shared_;
};

}  // namespace

Tally refusals(const Setting& setting) { return RefusalCampaign(setting).run(); }

}  // namespace Torture
