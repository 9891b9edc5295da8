// Stops a writer at random moments, and lets one rewrite a single key without pause: every read is
// answered, or told that the entry is busy, in time. Stops and kills readers: the writer does not
// notice.
#include <fmt/format.h>
#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <ctime>
#include <random>
#include <thread>

#include "torture/Load.h"
#include "torture/Watch.h"

namespace Torture {

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

// What a read may take of its own processor time, and in all on a machine that is busy with others.
// The bound that it keeps to is 10 ms.
constexpr seconds ownTime{1};
constexpr seconds allTime{20};

nanoseconds processorTime() {
  timespec now{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return seconds(now.tv_sec) + nanoseconds(now.tv_nsec);
}

template <class Entry>
class Stopping {
 public:
  Stopping(const char* name, size_t keys, uint64_t seed, SharedTally& tally)
      : name_(name),
        random_(seed),
        tally_(tally),
        load_(directory_.path() / "root", keys, 0, keys, seed, tally) {}

  // A writer is stopped, again and again, and everything is read beside it; readers are stopped and
  // killed meanwhile.
  void stopWriter(steady_clock::time_point until) {
    begin(&Load<Entry>::write);
    pid_t other = startReader();
    while (steady_clock::now() < until) {
      doing(fmt::format("{}: reads beside a stopped writer", name_));
      std::this_thread::sleep_for(microseconds(random_() % 1000));
      ::kill(writer_, SIGSTOP);
      int status = 0;
      ::waitpid(writer_, &status, WUNTRACED);
      if (!WIFSTOPPED(status)) return tally_.found(&Tally::lost, "the writer has ended by itself");
      readAll();
      ::kill(writer_, SIGCONT);
      ::kill(other, SIGSTOP);
      expectProgress();
      if (random_() % 2 == 0) {
        ::kill(other, SIGCONT);
      } else {
        ::kill(other, SIGKILL);
        ::waitpid(other, &status, 0);
        other = startReader();
      }
      tally_.add(&Tally::rounds);
      tally_.add(&Tally::faults, 2);
    }
    end(other);
  }

  // A writer that does not pause: reads of its entries come to an end all the same.
  void readBeside(steady_clock::time_point until) {
    begin(&Load<Entry>::rewrite);
    while (steady_clock::now() < until) {
      doing(fmt::format("{}: reads beside a writer without pause", name_));
      for (int count = 0; count < 100; ++count) {
        timed([&] { return load_.lookUp(*watching_, random_() % load_.keys()); });
        timed([&] { return load_.walk(*watching_); });
        timed([&] { return load_.walk(*watching_, Busy::isAnAnswer, load_.someEntries); });
      }
      tally_.add(&Tally::rounds);
      tally_.add(&Tally::faults);
    }
    end(0);
  }

  void printTimes() {
    if (times_.empty()) return;
    std::sort(times_.begin(), times_.end());
    const auto at = [&](double part) {
      const auto index = static_cast<size_t>(part * static_cast<double>(times_.size() - 1));
      return std::chrono::duration<double, std::micro>(times_[index]).count();
    };
    fmt::print("{:<40} {:>9} reads, {} busy; us: {:.1f} median, {:.1f} p99, {:.1f} longest\n",
               name_, times_.size(), load_.oracle().busy.load(), at(0.5), at(0.99), at(1));
  }

 private:
  void begin(int (Load<Entry>::*writer)()) {
    load_.renew();
    writer_ = startChild([&] { return (load_.*writer)(); });
    watching_ = Shoal::attachReader(directory_.path() / "root", load_.table, Entry::layout());
    expectProgress();
  }

  pid_t startReader() {
    return startChild([&, number = ++readers_] { return load_.read(number); });
  }

  // The writer goes on, whoever else is stopped or dead.
  void expectProgress() {
    const uint32_t from = load_.oracle().step;
    const auto late = steady_clock::now() + allTime;
    while (load_.oracle().step <= from + 10) {
      if (steady_clock::now() > late) {
        return tally_.found(&Tally::hung, fmt::format("{}: the writer does not go on", name_));
      }
      std::this_thread::sleep_for(microseconds(50));
    }
  }

  // Beside a stopped writer nothing is busy.
  void readAll() {
    for (size_t at = 0; at < load_.keys(); ++at) {
      timed([&] { return load_.lookUp(*watching_, at, Busy::isAFault); });
    }
    std::array<size_t, Load<Entry>::mostInBatch> places;
    for (size_t& at : places) at = random_() % load_.keys();
    timed([&] { return load_.lookUp(*watching_, places, Busy::isAFault); });
    timed([&] { return load_.walk(*watching_, Busy::isAFault); });
    timed([&] { return load_.walk(*watching_, Busy::isAFault, load_.someEntries); });
  }

  template <class Read>
  void timed(Read&& read) {
    const nanoseconds ownBefore = processorTime();
    const auto before = steady_clock::now();
    const std::string fault = read();
    const nanoseconds own = processorTime() - ownBefore, all = steady_clock::now() - before;
    if (!fault.empty()) tally_.found(&Tally::torn, fmt::format("{}: {}", name_, fault));
    if (own > ownTime || all > allTime) {
      tally_.found(&Tally::hung, fmt::format("{}: a read took {} ms, {} of them its own", name_,
                                             all / milliseconds(1), own / milliseconds(1)));
    }
    if (times_.size() < timesKept) times_.push_back(all);
  }

  void end(pid_t other) {
    load_.oracle().stop = true;
    for (const pid_t child : {writer_, other}) {
      if (child == 0) continue;
      const ChildEnd end = endOfChild(child, seconds(60));
      if (!end.ok()) {
        tally_.found(end.timedOut ? &Tally::hung : &Tally::torn,
                     fmt::format("{}: process {}", name_, end.text()));
      }
    }
    load_.checkLeftovers();
  }

  static constexpr size_t timesKept = 1u << 20;

  const char* name_;
  std::mt19937_64 random_;
  SharedTally& tally_;
  PrivateDirectory directory_;
  Load<Entry> load_;
  pid_t writer_ = 0;
  uint64_t readers_ = 0;
  Store watching_;
  std::vector<nanoseconds> times_;
};

}  // namespace

Tally stopping(const Setting& setting) {
  SharedTally tally;
  const auto part = (setting.until - steady_clock::now()) / 4;
  const auto stop = [&](auto entry, const char* name, size_t keys) {
    Stopping<decltype(entry)> one(name, keys, setting.seed, tally);
    one.stopWriter(steady_clock::now() + part);
    if (setting.verbose) one.printTimes();
  };
  const auto rewrite = [&](auto entry, const char* name) {
    Stopping<decltype(entry)> one(name, 1, setting.seed, tally);
    one.readBeside(steady_clock::now() + part);
    if (setting.verbose) one.printTimes();
  };
  stop(Route{}, "routes, writer stopped", 50);
  stop(Group{}, "entries over a page, writer stopped", 8);
  rewrite(Route{}, "one route rewritten");
  rewrite(Group{}, "one entry over a page rewritten");
  return tally.tally();
}

}  // namespace Torture
