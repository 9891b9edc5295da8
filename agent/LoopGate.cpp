#include "agent/LoopGate.h"

#include <exception>
#include <memory>

namespace Agent {

// Lives until both sides have let go of it: a caller that is late leaves its call behind for the
// loop to find and skip, and its place in the room is taken until then: what the loop's queue holds
// is bounded however long the loop is busy.
struct LoopGate::Call {
  enum class State { waiting, running, ended, dropped };
  const std::function<void()>& work;
  State state = State::waiting;
  std::exception_ptr failure;
};

LoopGate::Outcome LoopGate::run(const std::function<void()>& work, Deadline deadline) {
  using State = Call::State;
  const auto call = std::make_shared<Call>(Call{work, State::waiting, nullptr});
  std::unique_lock lock(mutex_);
  if (closed_) return Outcome::closed;
  if (waiting_ == room_) return Outcome::full;
  loop_.post([this, call] { begin(call); });
  ++waiting_;  // begin() waits for the lock

  const auto begun = [&] { return call->state != State::waiting || closed_; };
  if (deadline == never) {
    changed_.wait(lock, begun);
  } else {
    changed_.wait_until(lock, deadline, begun);
  }
  if (call->state == State::waiting) {
    call->state = State::dropped;
    return closed_ ? Outcome::closed : Outcome::late;
  }
  changed_.wait(lock, [&] { return call->state == State::ended; });
  if (call->failure) std::rethrow_exception(call->failure);
  return Outcome::done;
}

void LoopGate::begin(const std::shared_ptr<Call>& call) {
  {
    const std::lock_guard lock(mutex_);
    --waiting_;
    if (closed_ || call->state == Call::State::dropped) return;
    call->state = Call::State::running;
  }
  std::exception_ptr failure;
  try {
    call->work();
  } catch (...) {
    failure = std::current_exception();
  }
  const std::lock_guard lock(mutex_);
  call->failure = std::move(failure);
  call->state = Call::State::ended;
  changed_.notify_all();
}

void LoopGate::close() {
  const std::lock_guard lock(mutex_);
  closed_ = true;
  changed_.notify_all();
}

}  // namespace Agent
