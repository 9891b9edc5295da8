// The way from other threads into the agent's loop: they hand over a piece of work and wait for it.
//
// Handing over costs two thread switches, so callers bring whole batches. The room for work that
// waits is bounded; what is beyond it is turned away at once.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>

#include "agent/EventLoop.h"

namespace Agent {

class LoopGate {
 public:
  enum class Outcome {
    done,    // the work has run
    full,    // too much is waiting already; the work has not run and will not
    late,    // the deadline passed before its turn came; it will not run
    closed,  // the loop has ended; it will not run
  };
  using Deadline = std::chrono::system_clock::time_point;
  static constexpr Deadline never = Deadline::max();

  LoopGate(EventLoop& loop, size_t room) : loop_(loop), room_(room) {}

  // Runs `work` on the loop and returns when it has ended. An exception that leaves it is thrown
  // here. From any thread but the loop's.
  Outcome run(const std::function<void()>& work, Deadline deadline = never);

  // On the loop's thread: turns away everything that waits now and everything that comes.
  void close();

 private:
  struct Call;
  void begin(const std::shared_ptr<Call>& call);

  EventLoop& loop_;
  const size_t room_;
  std::mutex mutex_;  // guards what follows, and the calls
  std::condition_variable changed_;
  size_t waiting_ = 0;
  bool closed_ = false;
};

}  // namespace Agent
