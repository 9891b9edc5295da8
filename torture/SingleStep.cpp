// Runs a writer one instruction at a time and looks, after each one that changed a byte of the
// table's files, at what it would leave if it were killed there.
#include <fcntl.h>
#include <fmt/format.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <optional>
#include <random>
#include <stdexcept>
#include <utility>
#include <vector>

#include "torture/Operations.h"
#include "torture/SharedTally.h"
#include "torture/Watch.h"

namespace Torture {

namespace {

using std::filesystem::path;

// A file as it was last seen: mapped, so that looking at it costs no system call but two for its
// identity, and copied, to tell when it changes.
class WatchedFile {
 public:
  explicit WatchedFile(path file) : file_(std::move(file)) {}
  ~WatchedFile() { unmap(); }
  WatchedFile(const WatchedFile&) = delete;
  WatchedFile& operator=(const WatchedFile&) = delete;

  // Whether it is different from what it was when this was last asked.
  bool changed() {
    struct stat now {};
    if (::stat(file_.c_str(), &now) != 0) now = {};
    if (now.st_ino != status_.st_ino || now.st_size != status_.st_size) {
      unmap();
      status_ = now;
      map();
      return true;
    }
    if (mapped_ == nullptr || std::memcmp(mapped_, last_.data(), last_.size()) == 0) return false;
    keep();
    return true;
  }
  bool exists() const { return status_.st_ino != 0; }
  const std::vector<char>& bytes() const { return last_; }

 private:
  void map() {
    last_.clear();
    if (status_.st_size == 0) return;
    const int file = ::open(file_.c_str(), O_RDONLY | O_CLOEXEC);
    void* mapped = ::mmap(nullptr, size(), PROT_READ, MAP_SHARED, file, 0);
    ::close(file);
    if (mapped == MAP_FAILED) throw std::runtime_error("cannot map " + file_.string());
    mapped_ = static_cast<const char*>(mapped);
    keep();
  }
  void unmap() {
    if (mapped_ != nullptr) ::munmap(const_cast<char*>(mapped_), size());
    mapped_ = nullptr;
  }
  void keep() { last_.assign(mapped_, mapped_ + size()); }
  size_t size() const { return static_cast<size_t>(status_.st_size); }

  path file_;
  struct stat status_ {};
  const char* mapped_ = nullptr;
  std::vector<char> last_;
};

// A writer that stops before and after the part of its life that is stepped through.
class SteppedWriter {
 public:
  SteppedWriter(const Operation& operation, const path& root, std::atomic<size_t>& stepsDone)
      : child_(startChild([&] {
          live(operation, root, stepsDone);
          return 0;
        })) {
    ::waitpid(child_, &status_, 0);
  }
  ~SteppedWriter() {
    ::kill(child_, SIGKILL);
    ::waitpid(child_, &status_, 0);
  }
  SteppedWriter(const SteppedWriter&) = delete;
  SteppedWriter& operator=(const SteppedWriter&) = delete;

  // Whether there was a further instruction.
  bool step() {
    if (::ptrace(PTRACE_SINGLESTEP, child_, nullptr, nullptr) != 0) {
      throw std::runtime_error("cannot step");
    }
    ::waitpid(child_, &status_, 0);
    if (!WIFSTOPPED(status_)) throw std::runtime_error("the stepped writer has ended");
    if (WSTOPSIG(status_) != SIGTRAP && WSTOPSIG(status_) != SIGSTOP) {
      throw std::runtime_error(fmt::format("the stepped writer has signal {}", WSTOPSIG(status_)));
    }
    return WSTOPSIG(status_) == SIGTRAP;
  }

 private:
  static void live(const Operation& operation, const path& root, std::atomic<size_t>& stepsDone) {
    Store table;
    if (!operation.attaches) {
      table =
          Shoal::attachWriter(root, tableName, operation.shape.layout, operation.shape.capacity);
    }
    ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    ::raise(SIGSTOP);
    if (operation.attaches) operation.attaches(root);
    for (const auto& step : operation.steps) {
      step(*table);
      ++stepsDone;
    }
    ::raise(SIGSTOP);
  }

  pid_t child_;
  int status_ = 0;
};

// The two files that a table may have, at one moment; a file that is not there has no bytes.
struct Image {
  std::optional<std::vector<char>> table, begun;
};

class SingleStepCampaign {
 public:
  explicit SingleStepCampaign(const Setting& setting) : setting_(setting), random_(setting.seed) {}

  Tally run() {
    std::vector<const Operation*> order;
    for (const Operation& operation : operations()) order.push_back(&operation);
    // A slice takes the short ones first.
    if (setting_.slice) {
      std::shuffle(order.begin(), order.end(), random_);
      std::stable_partition(order.begin(), order.end(), [](auto* each) { return !each->attaches; });
    }
    for (const Operation* operation : order) {
      if (isEnough()) break;
      stepThrough(*operation);
    }
    return tally_;
  }

 private:
  static path begun(const path& root) {
    return Shoal::tableFile(root, tableName).string() + ".new";
  }

  // A slice ends after so many instructions, wherever it is.
  bool isEnough() const { return setting_.slice && tally_.rounds >= instructionsOfSlice; }

  void stepThrough(const Operation& operation) {
    const PrivateDirectory directory;
    const path root = directory.path() / "root";
    const Course course = courseOf(operation);
    prepare(operation, root);
    const SharedMemory<std::atomic<size_t>> stepsDone;
    std::vector<std::pair<Image, Between>> images;
    step(operation, root, operation.name, *stepsDone, [&](Image image) {
      images.emplace_back(std::move(image), course.between(*stepsDone));
      return images.back().second;
    });
    // The repair of a few of the states that a kill leaves is itself stepped through.
    const size_t repairs = setting_.slice ? random_() % 16 == 0 : repairsStepped;
    for (size_t count = 0; count < repairs && !images.empty() && !isEnough(); ++count) {
      const size_t at = random_() % images.size();
      stepThroughRepair(operation, images[at], fmt::format("{}, state {}", operation.name, at));
    }
  }

  void stepThroughRepair(const Operation& operation, const std::pair<Image, Between>& killed,
                         const std::string& context) {
    const PrivateDirectory directory;
    const path root = directory.path() / "root";
    restore(root, killed.first);
    Operation repair = operation;
    repair.steps.clear();
    repair.attaches = [&](const path& where) {
      Shoal::attachWriter(where, tableName, operation.shape.layout, operation.shape.capacity);
    };
    const SharedMemory<std::atomic<size_t>> stepsDone;
    step(repair, root, context + ", repaired", *stepsDone, [&](Image) { return killed.second; });
  }

  // Steps through the writer's life. `between` is told of each image and answers what it may hold.
  void step(const Operation& operation, const path& root, const std::string& context,
            std::atomic<size_t>& stepsDone, const std::function<Between(Image)>& between) {
    Examiner examiner(tally_, operation.shape);
    WatchedFile table(Shoal::tableFile(root, tableName)), begunTable(begun(root));
    table.changed();
    begunTable.changed();
    Store watching;
    if (table.exists()) watching = Shoal::attachReader(root, tableName, operation.shape.layout);
    SteppedWriter writer(operation, root, stepsDone);
    table.changed();
    const PrivateDirectory copy;
    const uint64_t before = tally_.rounds;
    uint64_t states = 0;
    while (!isEnough() && writer.step()) {
      const uint64_t instructions = ++tally_.rounds - before;
      const bool isChanged = table.changed();
      if (!begunTable.changed() && !isChanged) continue;
      ++states;
      examiner.contextIs(
          fmt::format("{}, after instruction {} (state {})", context, instructions, states));
      doing(examiner.context());
      const Image image{bytesOf(table), bytesOf(begunTable)};
      const Between expected = between(image);
      if (setting_.slice && random_() % 8 != 0) continue;
      look(examiner, root, watching, image, expected, copy.path() / "root");
    }
    if (states == 0 && !isEnough()) tally_.found(&Tally::lost, context + " changes nothing");
    if (setting_.verbose) {
      fmt::print("{:<64} {:>8} instructions {:>6} states\n", context, tally_.rounds - before,
                 states);
    }
  }

  void look(Examiner& examiner, const path& root, const Store& watching, const Image& image,
            const Between& expected, const path& copy) {
    ++tally_.faults;
    if (watching) {
      Between held = expected;
      if (!held.after) held.after = held.before;
      examiner.reader(*watching, held);
    }
    if (std::filesystem::exists(root / "a/b")) examiner.newReader(root, tableName, expected);
    restore(copy, image);
    examiner.nextWriter(copy, tableName, expected);
  }

  static std::optional<std::vector<char>> bytesOf(const WatchedFile& file) {
    if (!file.exists()) return std::nullopt;
    return file.bytes();
  }

  static void restore(const path& root, const Image& image) {
    const path file = Shoal::tableFile(root, tableName);
    std::filesystem::create_directories(file.parent_path());
    write(file, image.table);
    write(begun(root), image.begun);
  }

  static void write(const path& file, const std::optional<std::vector<char>>& bytes) {
    std::filesystem::remove(file);
    if (!bytes) return;
    const int out = ::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0640);
    const ssize_t written = ::write(out, bytes->data(), bytes->size());
    ::close(out);
    if (written != static_cast<ssize_t>(bytes->size())) {
      throw std::runtime_error("cannot write " + file.string());
    }
  }

  static constexpr uint64_t instructionsOfSlice = 25'000 / slowness;
  static constexpr size_t repairsStepped = 2;  // of each operation; one has 50,000 instructions

  const Setting& setting_;
  std::mt19937_64 random_;
  Tally tally_;
};

}  // namespace

Tally singleStep(const Setting& setting) { return SingleStepCampaign(setting).run(); }

}  // namespace Torture
