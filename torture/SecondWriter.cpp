// One writer at a time: who comes second is refused and told who is there; a place is free as soon
// as its holder has ended, however it ended; nobody is taken for somebody else with the same
// number.
#include <fcntl.h>
#include <fmt/format.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <random>
#include <thread>

#include "platform/Shoal/TableFormat.h"
#include "torture/Entries.h"
#include "torture/Examination.h"
#include "torture/SharedTally.h"
#include "torture/Watch.h"

namespace Torture {

namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;
using std::filesystem::path;

constexpr const char* table = "one/writer";
constexpr uint64_t capacity = 8;
// In which a refusal, or a place that has become free, counts as immediate on a busy machine.
constexpr seconds atOnce{5};

class SecondWriterCampaign {
 public:
  explicit SecondWriterCampaign(const Setting& setting)
      : setting_(setting), random_(setting.seed) {}

  // Orphans are this process's to end.
  Tally run() {
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
    Shoal::attachWriter(root_, table, Tiny::layout(), capacity);
    const ino_t lockFile = inodeOfLock();
    do {
      using Round = void (SecondWriterCampaign::*)();
      for (const Round round :
           {&SecondWriterCampaign::heldByAnother, &SecondWriterCampaign::heldByAParent,
            &SecondWriterCampaign::aNumberThatIsUsedAgain,
            &SecondWriterCampaign::aHolderWithoutAName, &SecondWriterCampaign::manyAtOnce,
            &SecondWriterCampaign::removedAndMadeAgain}) {
        (this->*round)();
        ++tally_.rounds;
        ++tally_.faults;
        if (inodeOfLock() != lockFile) found(&Tally::lost, "the lock file is another one");
      }
    } while (setting_.timeLeft());
    return tally_;
  }

 private:
  Store attach() { return Shoal::attachWriter(root_, table, Tiny::layout(), capacity); }

  void found(uint64_t Tally::*head, const std::string& what) {
    tally_.found(head, fmt::format("second-writer, round {}: {}", tally_.rounds, what));
  }

  ino_t inodeOfLock() const {
    struct stat status {};
    ::stat((root_ / (std::string(table) + ".lock")).c_str(), &status);
    return status.st_ino;
  }

  // A process that is the writer until it is killed.
  pid_t startHolder() {
    const SharedMemory<std::atomic<bool>> attached;
    const pid_t child = startChild([&] {
      const Store store = attach();
      put(*store, Tiny::make(1, static_cast<uint32_t>(random_())));
      *attached = true;
      for (;;) ::pause();
      return 0;
    });
    const auto late = steady_clock::now() + seconds(60);
    while (!*attached && steady_clock::now() < late) std::this_thread::yield();
    if (!*attached) found(&Tally::hung, "a writer does not attach");
    return child;
  }

  static void kill(pid_t child) {
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
  }

  // Attaching is refused at once, with this part in the text.
  void expectRefusal(const std::string& part) {
    const auto begun = steady_clock::now();
    try {
      attach();
      found(&Tally::lost, "a second writer is let in");
    } catch (const Shoal::WriterPresentException& refusal) {
      if (refusal.message().find(part) == std::string::npos) {
        found(&Tally::torn,
              fmt::format("refused with \"{}\", expected \"{}\"", refusal.message(), part));
      }
    }
    if (steady_clock::now() - begun > atOnce) found(&Tally::hung, "a refusal takes too long");
  }

  void expectFree(const std::string& when) {
    try {
      const bool isThere = std::filesystem::exists(Shoal::tableFile(root_, table));
      if (const int32_t holder = isThere ? Shoal::tableStatus(root_, table).writerPid : 0;
          holder != 0) {
        found(&Tally::leaked, fmt::format("process {} is the writer {}", holder, when));
      }
      attach();
    } catch (const std::exception& error) {
      found(&Tally::leaked, fmt::format("no writer is let in {}: {}", when, error.what()));
    }
  }

  void heldByAnother() {
    doing("second-writer: held by another process");
    const pid_t holder = startHolder();
    expectRefusal(fmt::format("its writer is process {}", holder));
    const int32_t said = Shoal::tableStatus(root_, table).writerPid;
    if (said != holder) found(&Tally::torn, fmt::format("the writer is {}, said {}", holder, said));
    try {
      Shoal::removeTable(root_, table);
      found(&Tally::lost, "a table is removed under its writer");
    } catch (const Shoal::WriterPresentException&) {
    }
    kill(holder);
    expectFree("after the writer was killed");
  }

  // The writer has a child, which outlives it. The child gives up the lock as its first act.
  void heldByAParent() {
    doing("second-writer: held by a process with a child");
    const SharedMemory<std::atomic<pid_t>> child;
    const pid_t campaign = ::getpid();
    const pid_t holder = startChild([&] {
      const Store store = attach();
      if (::fork() == 0) outliveParent(*child, campaign);
      for (;;) ::pause();
      return 0;
    });
    const auto late = steady_clock::now() + seconds(60);
    while (*child == 0 && steady_clock::now() < late) std::this_thread::yield();
    expectRefusal(fmt::format("its writer is process {}", holder));
    kill(holder);
    expectFree("after the writer was killed and has left a child");
    kill(*child);
  }

  // Says who it is, and lives until its parent's parent dies.
  static void outliveParent(std::atomic<pid_t>& told, pid_t grandparent) {
    const pid_t parent = ::getppid();
    told = ::getpid();
    while (::getppid() == parent) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    dieWithParent(grandparent);
  }

  // The number of the last writer, which was killed, has come to another process.
  void aNumberThatIsUsedAgain() {
    doing("second-writer: a process number that is used again");
    kill(startHolder());
    headerIs(static_cast<uint32_t>(::getppid()), random_());
    expectFree("that only has the number of one");
  }

  // The lock is held, but not by whom the header names.
  void aHolderWithoutAName() {
    doing("second-writer: a holder without a name");
    kill(startHolder());
    const auto parent = static_cast<uint32_t>(::getppid());
    headerIs(parent, random_());
    const int lock = ::open((root_ / (std::string(table) + ".lock")).c_str(), O_RDWR | O_CLOEXEC);
    struct flock whole {};
    whole.l_type = F_WRLCK;
    if (::fcntl(lock, F_OFD_SETLK, &whole) != 0) found(&Tally::lost, "the lock cannot be taken");
    expectRefusal("another process is about to become its writer");
    ::close(lock);
    expectFree("after the lock was given up");
  }

  // Of many that come at the same time one is let in.
  void manyAtOnce() {
    doing("second-writer: many at once");
    struct Race {
      std::atomic<bool> go{false}, end{false};
      std::atomic<uint32_t> in{0}, refused{0};
    };
    const SharedMemory<Race> race;
    std::vector<pid_t> children;
    constexpr uint32_t runners = 6;
    for (uint32_t number = 0; number < runners; ++number) {
      children.push_back(startChild([&] {
        while (!race->go) std::this_thread::yield();
        try {
          const Store store = attach();
          ++race->in;
          while (!race->end) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        } catch (const Shoal::WriterPresentException&) {
          ++race->refused;
        }
        return 0;
      }));
    }
    race->go = true;
    const auto late = steady_clock::now() + seconds(60);
    while (race->in + race->refused < runners && steady_clock::now() < late) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    if (race->in != 1 || race->refused != runners - 1) {
      found(&Tally::lost, fmt::format("of {} writers {} were let in and {} refused", runners,
                                      race->in.load(), race->refused.load()));
    }
    race->end = true;
    for (const pid_t child : children) {
      const ChildEnd end = endOfChild(child, seconds(60));
      if (!end.ok()) found(&Tally::torn, "a writer " + end.text());
    }
    expectFree("after many came at once");
  }

  void removedAndMadeAgain() {
    doing("second-writer: a table that is removed and made again");
    {
      const Store store = attach();
      Shoal::removeTable(root_, table);
      expectRefusal("");
    }
    expectFree("after its table was removed");
  }

  // Who the table says wrote it last. requires: there is no writer.
  void headerIs(uint32_t writer, uint64_t start) {
    const int file = ::open(Shoal::tableFile(root_, table).c_str(), O_RDWR | O_CLOEXEC);
    const bool written =
        ::pwrite(file, &writer, sizeof writer, offsetof(Shoal::Header, writerPid)) ==
            sizeof writer &&
        ::pwrite(file, &start, sizeof start, offsetof(Shoal::Header, writerStart)) == sizeof start;
    ::close(file);
    if (!written) throw std::runtime_error("cannot write a header");
  }

  const Setting& setting_;
  std::mt19937_64 random_;
  PrivateDirectory directory_;
  path root_ = directory_.path() / "root";
  Tally tally_;
};

}  // namespace

Tally secondWriter(const Setting& setting) { return SecondWriterCampaign(setting).run(); }

}  // namespace Torture
