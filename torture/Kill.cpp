// Kills a writer at full speed at random moments, while four readers verify all they see.
#include <fmt/format.h>
#include <signal.h>
#include <sys/wait.h>

#include <chrono>
#include <random>
#include <thread>

#include "torture/Load.h"
#include "torture/Watch.h"

namespace Torture {

namespace {

using std::chrono::microseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr uint64_t readers = 4;
constexpr uint32_t killsOfOneTable = 200;

template <class Entry>
class Killing {
 public:
  Killing(const char* name, size_t keys, size_t colliding, uint64_t capacity, uint64_t seed,
          SharedTally& tally)
      : name_(name),
        random_(seed),
        tally_(tally),
        load_(directory_.path() / "root", keys, colliding, capacity, seed, tally) {}

  void runUntil(steady_clock::time_point until) {
    load_.renew();
    std::vector<pid_t> children;
    for (uint64_t number = 0; number < readers; ++number) {
      children.push_back(startChild([&] { return load_.read(number); }));
    }
    for (uint32_t kill = 0; steady_clock::now() < until; ++kill) {
      if (kill % killsOfOneTable == killsOfOneTable - 1) load_.renew();
      doing(fmt::format("{}, kill {}", name_, kill));
      killOne();
    }
    load_.oracle().stop = true;
    // The last one goes through all that is left, and then ends.
    if (const ChildEnd end = runChild(seconds(60), [&] { return load_.write(); }); !end.ok()) {
      tally_.found(&Tally::lost, fmt::format("{}: the last writer {}", name_, end.text()));
    }
    for (const pid_t child : children) {
      const ChildEnd end = endOfChild(child, seconds(60));
      if (!end.ok()) {
        tally_.found(end.timedOut ? &Tally::hung : &Tally::torn,
                     fmt::format("{}: a reader {}", name_, end.text()));
      }
    }
    load_.checkLeftovers();
  }

  uint64_t interrupted() const { return load_.oracle().interrupted; }
  uint64_t busy() const { return load_.oracle().busy; }

 private:
  // One writer in four is killed while it attaches, or before.
  void killOne() {
    const uint32_t from = load_.oracle().step;
    const pid_t child = startChild([&] { return load_.write(); });
    int status = 0;
    if (random_() % 4 != 0) {
      const auto late = steady_clock::now() + seconds(30);
      while (load_.oracle().step == from && ::waitpid(child, &status, WNOHANG) == 0) {
        if (steady_clock::now() > late) {
          tally_.found(&Tally::hung, fmt::format("{}: a writer does not begin", name_));
          break;
        }
        std::this_thread::sleep_for(microseconds(50));
      }
    }
    std::this_thread::sleep_for(microseconds(random_() % 2000));
    ::kill(child, SIGKILL);
    ::waitpid(child, &status, 0);
    if (!WIFSIGNALED(status) || WTERMSIG(status) != SIGKILL) {
      const ChildEnd end{false, status};
      tally_.found(&Tally::lost, fmt::format("{}: a writer {} by itself", name_, end.text()));
    }
    tally_.add(&Tally::rounds);
    tally_.add(&Tally::faults);
  }

  const char* name_;
  std::mt19937_64 random_;
  SharedTally& tally_;
  PrivateDirectory directory_;
  Load<Entry> load_;
};

template <class Entry>
void killFor(steady_clock::duration time, const char* name, size_t keys, size_t colliding,
             uint64_t capacity, const Setting& setting, SharedTally& tally) {
  Killing<Entry> killing(name, keys, colliding, capacity, setting.seed, tally);
  const uint64_t before = tally.tally().rounds;
  killing.runUntil(steady_clock::now() + time);
  if (!setting.verbose) return;
  fmt::print("{:<24} {:>8} kills, {} in a step, {} reads told busy\n", name,
             tally.tally().rounds - before, killing.interrupted(), killing.busy());
}

}  // namespace

Tally killing(const Setting& setting) {
  SharedTally tally;
  const auto third = (setting.until - steady_clock::now()) / 3;
  killFor<Tiny>(third, "small entries", 700, 60, 1100, setting, tally);
  killFor<Route>(third, "routes", 900, 0, 1100, setting, tally);
  killFor<Group>(third, "entries over a page", 24, 0, 24, setting, tally);
  return tally.tally();
}

}  // namespace Torture
