// Damaged tables: one small table, its file rewritten in place with each image, and everything that
// can be done with a table done to it. What comes of it is a refusal that says why, what the oracle
// allows, or a report of corruption; never a fault signal, never an end that does not come.
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <thread>
#include <vector>

#include "platform/Guard/Exception.h"
#include "platform/Shoal/SharedTable.h"
#include "platform/Shoal/TableCheck.h"
#include "torture/Campaign.h"
#include "torture/ImageDamage.h"
#include "torture/ImageOracle.h"
#include "torture/SharedTally.h"
#include "torture/Watch.h"

namespace Torture {
namespace {

using Guard::CorruptionDetectedException;
using Shoal::AttachException;
using Store = std::shared_ptr<Shoal::TableStore>;

constexpr uint64_t randomImages = 1'000'000;
constexpr uint64_t sliceOf = 150;       // a slice is one image in so many
constexpr uint64_t imagesAtATime = 64;  // that a worker takes, and for which its alarm is set once
constexpr unsigned alarmSeconds = 60;
constexpr time_t ownSeconds = 10;  // of processor time: whoever takes more goes round and round
constexpr unsigned mostEnds = 8;   // images that end their worker until enough is seen
constexpr size_t mostEntries = Image::slots;

Shoal::MutableBytes bytesOf(ImageEntry& entry) {
  return std::as_writable_bytes(std::span<ImageEntry, 1>(&entry, 1));
}

// The table's file, mapped for writing behind the tables' back.
class ImageFile {
 public:
  explicit ImageFile(const std::filesystem::path& file)
      : descriptor_(::open(file.c_str(), O_RDWR | O_CLOEXEC)) {
    void* mapped = ::mmap(nullptr, Image::size, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor_, 0);
    if (descriptor_ < 0 || mapped == MAP_FAILED) throw std::runtime_error("cannot map the image");
    bytes_ = static_cast<std::byte*>(mapped);
  }
  ~ImageFile() {
    ::munmap(bytes_, Image::size);
    ::close(descriptor_);
  }
  ImageFile(const ImageFile&) = delete;
  ImageFile& operator=(const ImageFile&) = delete;

  std::byte* bytes() const { return bytes_; }
  void sizeIs(size_t size) const {
    if (::ftruncate(descriptor_, static_cast<off_t>(size)) != 0) {
      throw std::runtime_error("cannot size the image");
    }
  }

 private:
  int descriptor_;
  std::byte* bytes_;
};

// One image, and what is found in it.
class Trial {
 public:
  Trial(const std::filesystem::path& root, const GoodImage& good, const ImageOracle& oracle,
        SharedTally& tally, uint64_t number)
      : root_(root), good_(good), oracle_(oracle), tally_(tally), number_(number) {}

  void run() {
    guarded("status", oracle_.isRefusable(), false, [&] { status(); });
    guarded("reader", oracle_.isRefusable(), false, [&] {
      const Store store = Shoal::attachReader(root_, Image::name, Image::layout());
      if (oracle_.isRefusable()) finding(&Tally::torn, "a reader takes what is to be refused");
      read(store);
    });
    guarded("reader of any layout", oracle_.isRefusable(), false,
            [&] { Shoal::attachReader(root_, Image::name); });
    guarded("snapshot", oracle_.isRefusable(), oracle_.isWalkTouched(), [&] { snapshot(); });
    guarded("writer", oracle_.isRefusable() || oracle_.isStateTouched(), oracle_.isWriterTouched(),
            [&] { write(); });
  }

 private:
  void finding(uint64_t Tally::*head, const std::string& what) {
    tally_.found(head, fmt::format("images: image {}: {}", number_, what));
  }

  // Takes what may come of an attachment; and says so of what may not.
  void guarded(const char* who, bool mayRefuse, bool mayBeCorrupt,
               const std::function<void()>& call) {
    try {
      call();
    } catch (const AttachException& refusal) {
      const std::string text = refusal.what();
      const bool tells = text.find("shared table \"image\" (") == 0 &&
                         text.find(", expected ") != std::string::npos;
      if (!mayRefuse) finding(&Tally::lost, fmt::format("{}: {}", who, text));
      if (!tells) finding(&Tally::torn, fmt::format("{}: refused without a reason: {}", who, text));
    } catch (const CorruptionDetectedException& corruption) {
      if (!mayBeCorrupt) finding(&Tally::lost, fmt::format("{}: {}", who, corruption.what()));
    } catch (const Guard::MemoryResourceException& full) {
      if (!oracle_.isStateTouched()) finding(&Tally::lost, fmt::format("{}: {}", who, full.what()));
    } catch (const std::exception& other) {
      finding(&Tally::torn, fmt::format("{}: another exception: {}", who, other.what()));
    }
  }

  void status() {
    const Shoal::TableStatus status = Shoal::tableStatus(root_, Image::name);
    if (oracle_.isRefusable()) finding(&Tally::torn, "a status of what is to be refused");
    if (status.entries > status.capacity) finding(&Tally::torn, "more entries than places");
    if (oracle_.isCountTouched()) return;
    const auto live = std::count_if(good_.live.begin(), good_.live.end(),
                                    [](const auto& entry) { return entry.has_value(); });
    if (status.entries != static_cast<uint64_t>(live) ||
        status.changes != good_.changedKeys.size() || status.generation != good_.generation ||
        status.writerPid != 0) {
      finding(&Tally::torn, "a status of other numbers");
    }
  }

  void read(const Store& store) {
    const Answers answers =
        lookUpAll(store, [&](uint64_t key) { return oracle_.mayBeCorrupt(key); });
    const Walk found = walk(store);
    check(found);
    readInBatches(store, answers, found);
    goOnWithoutHint(store);
    follow(store);
    const auto check = Shoal::checkTable(*store);
    if (!oracle_.isTouched() && check.faultCount != 0) {
      finding(&Tally::torn, "a sound table has faults: " + check.faults.front());
    }
  }

  // What all keys were answered, one by one; or that one of them met corruption.
  struct Answers {
    std::vector<uint64_t> keys;
    std::vector<std::optional<ImageEntry>> entries;
    bool corrupt = false;
  };
  template <class MayBeCorrupt>
  Answers lookUpAll(const Store& store, MayBeCorrupt mayBeCorrupt) {
    Answers answers;
    for (const auto& entry : good_.live) {
      if (entry) answers.keys.push_back(entry->key);
    }
    answers.keys.insert(answers.keys.end(), good_.freeKeys.begin(), good_.freeKeys.end());
    answers.keys.insert(answers.keys.end(), {0ull, 1001ull, 1063ull, 5001ull, ~0ull});
    for (const uint64_t key : answers.keys) {
      try {
        ImageEntry entry{key, {}};
        const bool found = store->lookup(entry.keyBytes(), bytesOf(entry));
        ++reads_;
        answers.entries.push_back(found ? std::optional(entry) : std::nullopt);
        const std::string fault = oracle_.lookupFault(key, found ? &entry : nullptr);
        if (!fault.empty()) finding(found ? &Tally::torn : &Tally::lost, fault);
      } catch (const CorruptionDetectedException& corruption) {
        answers.corrupt = true;
        if (!mayBeCorrupt(key)) finding(&Tally::lost, corruption.what());
      }
    }
    return answers;
  }

  struct Walk {
    std::vector<ImageEntry> entries;
    bool corrupt = false;

    friend bool operator==(const Walk&, const Walk&) = default;
  };
  Walk walk(const Store& store) {
    Walk result;
    Shoal::IterHint hint;
    ImageEntry entry{};
    try {
      for (bool more = store->first(hint, bytesOf(entry)); more;
           more = store->next(entry.keyBytes(), hint, bytesOf(entry))) {
        result.entries.push_back(entry);
        ++reads_;
        if (result.entries.size() > mostEntries) {
          finding(&Tally::hung, "a walk without an end");
          break;
        }
      }
    } catch (const CorruptionDetectedException&) {
      result.corrupt = true;
    }
    return result;
  }
  void check(const Walk& walk) {
    const std::string fault = oracle_.walkFault(walk.entries, walk.corrupt);
    if (!fault.empty()) finding(&Tally::torn, fault);
  }

  // Many at once are answered as one by one.
  void readInBatches(const Store& store, const Answers& singly, const Walk& steps) {
    std::vector<ImageEntry> entries(singly.keys.size());
    const auto isThere = std::make_unique<bool[]>(singly.keys.size());
    const std::span found(isThere.get(), singly.keys.size());
    bool corrupt = false;
    try {
      store->lookupBatch(std::as_bytes(std::span(singly.keys)),
                         std::as_writable_bytes(std::span(entries)), found);
    } catch (const CorruptionDetectedException&) {
      corrupt = true;
    }
    if (corrupt != singly.corrupt) finding(&Tally::torn, "a batch meets other damage");
    for (size_t at = 0; at < found.size() && !corrupt; ++at) {
      if ((found[at] ? std::optional(entries[at]) : std::nullopt) != singly.entries[at]) {
        finding(&Tally::torn, fmt::format("key {} has another answer in a batch", singly.keys[at]));
      }
    }
    if (walkInBatches(store) != steps) finding(&Tally::torn, "a walk in batches goes elsewhere");
  }
  Walk walkInBatches(const Store& store) {
    Walk result;
    Shoal::IterHint hint;
    std::array<ImageEntry, 7> batch{};
    Shoal::Bytes last;
    try {
      while (const size_t count =
                 store->nextBatch(last, hint, std::as_writable_bytes(std::span(batch)))) {
        result.entries.insert(result.entries.end(), batch.begin(), batch.begin() + count);
        last = batch[count - 1].keyBytes();
        if (result.entries.size() > mostEntries) break;
      }
    } catch (const CorruptionDetectedException&) {
      result.corrupt = true;
    }
    return result;
  }

  void goOnWithoutHint(const Store& store) {
    for (const uint64_t key : {good_.live[12]->key, good_.freeKeys.front(), uint64_t{77}}) {
      try {
        Shoal::IterHint fresh;
        ImageEntry entry{key, {}};
        store->next(entry.keyBytes(), fresh, bytesOf(entry));
      } catch (const CorruptionDetectedException& corruption) {
        if (!oracle_.isWalkTouched() && !oracle_.mayBeCorrupt(key)) {
          finding(&Tally::lost, corruption.what());
        }
      }
    }
  }

  // From the first change on: all of them, in order; or, in a ring that was touched, no more than
  // it holds, each number one above the one before.
  void follow(const Store& store) {
    const auto follower = Shoal::follow(store, 0);
    Shoal::ChangeFollower::Changes changes;
    for (size_t calls = 0; follower->take(changes, 16) == Shoal::ChangeFollower::Result::changes;) {
      if (++calls > Image::ringRecords) return finding(&Tally::hung, "changes without an end");
    }
    for (size_t at = 0; at < changes.size(); ++at) {
      if (changes[at].number != at + 1) return finding(&Tally::torn, "a change of another number");
      if (oracle_.isRingTouched()) continue;
      uint64_t key;
      std::memcpy(&key, changes[at].key.data(), sizeof key);
      if (key != good_.changedKeys.at(at)) finding(&Tally::torn, "a change of another key");
    }
    if (changes.size() != good_.changedKeys.size() && !oracle_.isRingTouched()) {
      finding(&Tally::lost, "changes are missing");
    }
    Shoal::follow(store)->wait(std::chrono::milliseconds(0));
  }

  void snapshot() {
    const Store copy = Shoal::attachSnapshot(root_, Image::name, Image::layout());
    const Walk found = walk(copy);
    // Two entries of one key, which damage can make, become one.
    if (!oracle_.isWalkTouched()) check(found);
  }

  // A writer that takes the table: what it answers must be so afterwards, and what neither it nor
  // the damage touched must be as it was.
  void write() {
    const Store store = Shoal::attachWriter(root_, Image::name, Image::layout(), Image::slots);
    if (oracle_.isRefusable()) finding(&Tally::torn, "a writer takes what is to be refused");
    const std::array<uint64_t, 6> keys{good_.live[1]->key, good_.live[40]->key, 9001, 9002,
                                       good_.freeKeys[2],  good_.live[11]->key};
    for (size_t at = 0; at < keys.size(); ++at) {
      guarded("write", false, oracle_.isWriterTouched(),
              [&] { writeOne(store, keys[at], at == 5); });
    }
    for (const auto& entry : good_.live) {
      if (!entry || std::find(keys.begin(), keys.end(), entry->key) != keys.end()) continue;
      lookUpAfterWrites(store, *entry);
    }
    guarded("clear", false, false, [&] { clear(*store); });
    guarded("after clear", false, oracle_.isClaimTouched(), [&] { fillAgain(*store); });
  }

  // Emptying a table makes it sound, whatever it was, but for its account of changes.
  void clear(Shoal::TableStore& store) {
    store.clear();
    Shoal::IterHint hint;
    ImageEntry entry{};
    if (store.size() != 0) finding(&Tally::torn, "a cleared table has a count");
    if (store.first(hint, bytesOf(entry))) finding(&Tally::lost, "entries in a cleared table");
    for (const std::string& fault : Shoal::checkTable(store).faults) {
      const bool isOfChange = fault.starts_with("change");
      if (!isOfChange || !oracle_.isRingTouched()) {
        finding(&Tally::torn, "a cleared table: " + fault);
      }
    }
  }

  // With more entries than it had slots in use.
  void fillAgain(Shoal::TableStore& store) {
    constexpr uint64_t first = 20000, end = 20060;
    for (uint64_t key = first; key < end; ++key) {
      const ImageEntry entry = ImageEntry::make(key, 7);
      store.set(entry.keyBytes(), entry.bytes());
    }
    for (uint64_t key = first; key < end; ++key) {
      const ImageEntry expected = ImageEntry::make(key, 7);
      ImageEntry entry{};
      const bool found = store.lookup(expected.keyBytes(), bytesOf(entry));
      if (!found || entry != expected) finding(&Tally::lost, "an entry of a table filled again");
    }
    if (store.size() != end - first) finding(&Tally::torn, "the count of a table filled again");
  }

  void writeOne(const Store& store, uint64_t key, bool removes) {
    const ImageEntry written = ImageEntry::make(key, 99);
    removes ? store->erase(written.keyBytes()) : store->set(written.keyBytes(), written.bytes());
    ImageEntry entry{};
    const bool found = store->lookup(written.keyBytes(), bytesOf(entry));
    if (found && removes && !oracle_.isWriterTouched()) finding(&Tally::lost, "a removed key");
    if (!removes && !(found && entry == written)) {
      finding(&Tally::lost, fmt::format("key {} is not what was just written", key));
    }
  }

  void lookUpAfterWrites(const Store& store, const ImageEntry& expected) {
    guarded("look-up beside a writer", false, oracle_.isWriterTouched(), [&] {
      ImageEntry entry{};
      const bool found = store->lookup(expected.keyBytes(), bytesOf(entry));
      ++reads_;
      if (found && entry.key != expected.key) finding(&Tally::torn, "an entry of another key");
      if (!(found && entry == expected) && !oracle_.isWriterTouched()) {
        finding(&Tally::lost, fmt::format("key {} is lost by a writer", expected.key));
      }
    });
  }

 public:
  uint64_t reads() const { return reads_; }

 private:
  const std::filesystem::path& root_;
  const GoodImage& good_;
  const ImageOracle& oracle_;
  SharedTally& tally_;
  uint64_t number_;
  uint64_t reads_ = 0;
};

// What the workers share: which images are still to be tried, and which one each of them is at.
struct Progress {
  std::atomic<uint64_t> next{0};
  std::array<std::atomic<uint64_t>, 16> at{};
};

class Images {
 public:
  explicit Images(const Setting& setting)
      : setting_(setting),
        workers_(std::clamp(std::thread::hardware_concurrency(), 1u, 16u)),
        step_(setting.slice ? sliceOf : 1),
        first_(setting.slice ? setting.seed % sliceOf : 0) {}

  Tally run() {
    std::vector<std::unique_ptr<PrivateDirectory>> roots;
    for (unsigned worker = 0; worker < workers_; ++worker) {
      roots.push_back(std::make_unique<PrivateDirectory>());
    }
    std::vector<pid_t> children(workers_);
    for (unsigned worker = 0; worker < workers_; ++worker) {
      children[worker] = start(worker, roots[worker]->path());
    }
    for (size_t running = workers_; running != 0;) {
      int status = 0;
      const pid_t ended = ::waitpid(-1, &status, WNOHANG);
      if (ended == 0) {
        doing(fmt::format("image {}", first_ + progress_->next * step_));
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        continue;
      }
      const auto child = std::find(children.begin(), children.end(), ended);
      if (child == children.end()) continue;
      const auto worker = static_cast<unsigned>(child - children.begin());
      if (status == 0) {
        --running;
        continue;
      }
      tell(worker, status);
      *child = start(worker, roots[worker]->path());
    }
    return tally_.tally();
  }

 private:
  pid_t start(unsigned worker, const std::filesystem::path& root) {
    return startChild([=, this] { return work(worker, root); });
  }

  // An image that ends its worker; the next one goes on behind it.
  void tell(unsigned worker, int status) {
    const int signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    const bool hung = signal == SIGALRM || signal == SIGVTALRM;
    const uint64_t number = progress_->at[worker];
    if (++ends_ == mostEnds) progress_->next = pastAll;
    tally_.found(hung ? &Tally::hung : &Tally::torn,
                 fmt::format("images: image {} with seed {}: {}", number, setting_.seed,
                             ChildEnd{hung, status}.text()));
    if (number == 0) throw std::runtime_error("a worker cannot begin");
  }

  int work(unsigned worker, const std::filesystem::path& root) {
    const std::filesystem::path place = root / std::to_string(::getpid());
    const GoodImage good(place);
    const Damages damages(good, setting_.seed, randomImages);
    const ImageFile file(Shoal::tableFile(place, Image::name));
    ImageOracle oracle(good);
    std::vector<std::byte> image(Image::size);
    for (uint64_t from;
         (from = progress_->next.fetch_add(imagesAtATime)) * step_ < damages.count();) {
      ::alarm(alarmSeconds);
      const itimerval own{{}, {ownSeconds, 0}};
      ::setitimer(ITIMER_VIRTUAL, &own, nullptr);
      for (uint64_t i = from; i < from + imagesAtATime; ++i) {
        const uint64_t number = first_ + i * step_;
        if (number >= damages.count()) break;
        progress_->at[worker] = number;
        image = good.bytes;
        const Damage damage = damages.make(number, image.data());
        file.sizeIs(Image::size);
        std::memcpy(file.bytes(), image.data(), Image::size);
        if (damage.fileSize) file.sizeIs(*damage.fileSize);
        oracle.imageIs(damage, image.data());
        Trial trial(place, good, oracle, tally_, number);
        trial.run();
        tally_.add(&Tally::rounds);
        tally_.add(&Tally::faults, oracle.isTouched() ? 1 : 0);
        tally_.add(&Tally::reads, trial.reads());
      }
    }
    return 0;
  }

  static constexpr uint64_t pastAll = uint64_t{1} << 40;

  Setting setting_;
  unsigned workers_;
  uint64_t step_, first_;
  unsigned ends_ = 0;
  SharedMemory<Progress> progress_;
  SharedTally tally_;
};

}  // namespace

Tally images(const Setting& setting) { return Images(setting).run(); }

}  // namespace Torture
