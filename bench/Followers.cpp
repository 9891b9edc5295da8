// Following a table's changes from another process: what a change costs there, and how long it
// takes to get there; beside a word in shared memory, and a bare futex.
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <climits>
#include <vector>

#include "bench/Processes.h"
#include "bench/SharedRoutes.h"
#include "bench/Tables.h"

namespace Bench {
namespace {

using Result = Shoal::ChangeFollower::Result;
using std::chrono::milliseconds;

constexpr size_t changes = 200000;

std::unique_ptr<Shoal::ChangeFollower> followerOf(const SharedRoutes& routes,
                                                  std::optional<uint64_t> since = std::nullopt) {
  return Shoal::follow(
      Shoal::attachReader(routes.root(), SharedRoutes::path, routes.table->layout()), since);
}

// Takes changes up to number `end`, waiting for them as `wait` does.
template <class Wait>
void followUpTo(uint64_t end, Shoal::ChangeFollower& follower, SharedWords& words, Wait wait) {
  Shoal::ChangeFollower::Changes taken;
  while (follower.position() < end) {
    taken.clear();
    const Result result = follower.take(taken, 1024);
    check(result != Result::missed, "no change missed");
    if (result == Result::none) wait();
    words.position.store(follower.position());
  }
}

// The child's processor time for each change while the writer goes as fast as it can, but not
// further ahead than the ring reaches.
void followLive(State& state) {
  for (auto _ : state) {
    SharedRoutes routes(changes);
    Child child([&](SharedWords& words) {
      const auto follower = followerOf(routes);
      words.ready.store(1);
      const uint64_t begun = processorTime();
      followUpTo(changes, *follower, words, [&] { follower->wait(milliseconds(1000)); });
      words.processorTime.store(processorTime() - begun);
    });
    child.awaitReady();
    uint64_t number = 0;
    for (const IpGenPrefix& prefix : prefixes(changes)) {
      routes.set(routeTo(prefix, static_cast<uint32_t>(number)));
      if (++number % 512 == 0 && number > 16384) child.awaitPosition(number - 16384);
    }
    routes.table->store()->wakeFollowers();
    child.join();
    state.SetIterationTime(static_cast<double>(child.words().processorTime) * 1e-9);
  }
  itemsPerStep(state, changes);
}
const Subject subjectLive(Subject::Once(), "BM_Follow_Live", followLive);

// All that the ring holds, to a follower that comes late.
void followBacklog(State& state) {
  SharedRoutes routes(changes);
  fill(routes, prefixes(changes));
  constexpr uint64_t backlog = 16384;
  constexpr int rounds = 20;
  for (auto _ : state) {
    Child child([&](SharedWords& words) {
      uint64_t taken = 0;
      for (int round = 0; round < rounds; ++round) {
        const auto follower = followerOf(routes, changes - backlog);
        const uint64_t begun = processorTime();
        followUpTo(changes, *follower, words, [] {});
        taken += processorTime() - begun;
      }
      words.processorTime.store(taken);
    });
    child.join();
    state.SetIterationTime(static_cast<double>(child.words().processorTime) * 1e-9);
  }
  itemsPerStep(state, backlog * rounds);
}
const Subject subjectBacklog(Subject::Once(), "BM_Follow_Backlog", followBacklog);

// From before a write until another process has the change.

constexpr size_t polled = 20000;
constexpr size_t slept = 2000;
constexpr uint64_t shortPause = 2000;   // ns: the child is back at polling
constexpr uint64_t longPause = 200000;  // ns: the child is asleep

template <class Wait>
void visible(State& state, size_t messages, uint64_t pause, bool wake, Wait wait) {
  for (auto _ : state) {
    SharedRoutes routes(messages);
    const auto list = prefixes(messages);
    Child child([&](SharedWords& words) {
      const auto follower = followerOf(routes);
      Shoal::ChangeFollower::Changes taken;
      words.ready.store(1);
      while (follower->position() < messages) {
        wait(*follower);
        taken.clear();
        if (follower->take(taken, 16) == Result::changes) seen(words, follower->position());
      }
    });
    const double latency = medianLatency(child, messages, pause, [&](uint64_t number) {
      routes.set(routeTo(list[number - 1], static_cast<uint32_t>(number)));
      if (wake) routes.table->store()->wakeFollowers();
    });
    child.join();
    state.SetIterationTime(latency * 1e-9);
  }
  itemsPerStep(state, 1);
}

void visiblePolling(State& state) {
  visible(state, polled, shortPause, false, [](Shoal::ChangeFollower&) {});
}
void visibleSleeping(State& state) {
  visible(state, slept, longPause, true,
          [](Shoal::ChangeFollower& follower) { follower.wait(milliseconds(1000)); });
}
const Subject subjectPolling(Subject::Once(), "BM_Visible_Polling", visiblePolling);
const Subject subjectSleeping(Subject::Once(), "BM_Visible_Sleeping", visibleSleeping);

// A word that one process stores and another looks at without end.
void barePing(State& state) {
  for (auto _ : state) {
    Child child([](SharedWords& words) {
      words.ready.store(1);
      for (uint64_t number = 1; number <= polled; ++number) {
        while (words.sent.load(std::memory_order_acquire) < number) {
        }
        seen(words, number);
      }
    });
    const double latency = medianLatency(child, polled, shortPause, [&](uint64_t number) {
      child.words().sent.store(number, std::memory_order_release);
    });
    child.join();
    state.SetIterationTime(latency * 1e-9);
  }
  itemsPerStep(state, 1);
}
const Subject subjectPing(Subject::Once(), "BM_Bare_Ping", barePing);

void bareFutexWake(State& state) {
  for (auto _ : state) {
    Child child([](SharedWords& words) {
      words.ready.store(1);
      for (uint64_t number = 1; number <= slept; ++number) {
        while (words.futex.load() < number) {
          ::syscall(SYS_futex, &words.futex, FUTEX_WAIT, number - 1, nullptr, nullptr, 0);
        }
        seen(words, number);
      }
    });
    const double latency = medianLatency(child, slept, longPause, [&](uint64_t number) {
      child.words().futex.store(static_cast<uint32_t>(number));
      ::syscall(SYS_futex, &child.words().futex, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
    });
    child.join();
    state.SetIterationTime(latency * 1e-9);
  }
  itemsPerStep(state, 1);
}
const Subject subjectFutex(Subject::Once(), "BM_Bare_FutexWake", bareFutexWake);

}  // namespace
}  // namespace Bench
