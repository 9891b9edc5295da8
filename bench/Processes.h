// Two processes that measure together: this one, and a child that shares a few words with it.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <ctime>
#include <functional>
#include <vector>

#include "bench/Runner.h"

namespace Bench {

// Zero at first; seen by both.
struct SharedWords {
  alignas(64) std::atomic<uint64_t> ready;     // the child has begun
  alignas(64) std::atomic<uint64_t> sent;      // this process's last message
  alignas(64) std::atomic<uint32_t> futex;     // counts what is slept for
  alignas(64) std::atomic<uint64_t> position;  // how far the child has come
  std::atomic<uint64_t> seenAt;                // when, before the position was told
  std::atomic<uint64_t> processorTime;         // that the child took, in nanoseconds
};

// A forked process; waited for at the end, and killed if it was not to end by itself.
class Child {
 public:
  explicit Child(const std::function<void(SharedWords&)>& run);
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  SharedWords& words() { return *words_; }
  // Until the child is ready, or has come so far. A child that has died ends this process.
  void awaitReady() { await(words_->ready, 1); }
  void awaitPosition(uint64_t position) { await(words_->position, position); }
  // Until it has ended in order.
  void join();

 private:
  void await(const std::atomic<uint64_t>& word, uint64_t value);
  void checkAlive();

  SharedWords* words_;
  int pid_ = -1;
};

inline uint64_t nanosecondsOf(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<uint64_t>(time.tv_sec) * 1000000000 + static_cast<uint64_t>(time.tv_nsec);
}
inline uint64_t now() { return nanosecondsOf(CLOCK_MONOTONIC); }
inline uint64_t processorTime() { return nanosecondsOf(CLOCK_PROCESS_CPUTIME_ID); }

inline uint64_t median(std::vector<uint64_t>& values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::ranges::nth_element(values, middle);
  return *middle;
}

void sleepFor(uint64_t nanoseconds);

// How long it takes until the child sees what `send` does with the message's number; the median of
// many. Between two messages the child has `pause` nanoseconds.
template <class Send>
double medianLatency(Child& child, size_t messages, uint64_t pause, Send send) {
  std::vector<uint64_t> latencies;
  child.awaitReady();
  for (uint64_t number = 1; number <= messages; ++number) {
    for (const uint64_t until = now() + pause; now() < until;) {
      if (pause > 10000) sleepFor(pause / 2);
    }
    const uint64_t begun = now();
    send(number);
    child.awaitPosition(number);
    latencies.push_back(child.words().seenAt.load() - begun);
  }
  return static_cast<double>(median(latencies));
}

// What the child says when it has seen a message.
inline void seen(SharedWords& words, uint64_t number) {
  words.seenAt.store(now());
  words.position.store(number);
}

}  // namespace Bench
