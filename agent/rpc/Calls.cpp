#include "agent/rpc/Calls.h"

#include <fmt/format.h>

#include <algorithm>

#include "agent/rpc/Status.h"

namespace Agent::Rpc {
namespace {

LoopGate::Deadline deadlineOf(const grpc::ServerContext& context, Calls::Kind kind,
                              const Calls::Limits& limits) {
  return std::min(context.deadline(),
                  std::chrono::system_clock::now() +
                      (kind == Calls::Kind::session ? limits.opening : limits.longest));
}

// A quarter of the room is for calls that end by themselves, and at least one place.
size_t roomForSessions(size_t calls) {
  return calls < 2 ? calls : calls - std::max<size_t>(calls / 4, 1);
}

const char* lateness(Calls::Kind kind) {
  return kind == Calls::Kind::session ? "the stream was not opened in time"
                                      : "the call took too long";
}

}  // namespace

Calls::Calls(Limits limits) : limits_(limits), watch_([this] { endWhatIsDue(); }) {}

Calls::~Calls() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  watch_.join();
}

Calls::Call::Call(Calls& calls, grpc::ServerContext& context, Kind kind)
    : calls_(calls),
      context_(context),
      kind_(kind),
      peer_(context.peer()),
      deadline_(deadlineOf(context, kind, calls.limits_)),
      status_(calls.enter(*this)) {}

grpc::Status Calls::enter(Call& call) {
  const bool isSession = call.kind_ == Kind::session;
  const std::lock_guard lock(mutex_);
  if (count_ >= limits_.calls) {
    return refusal(grpc::StatusCode::RESOURCE_EXHAUSTED,
                   fmt::format("{} calls are under way already", count_));
  }
  if (isSession && sessions_ >= roomForSessions(limits_.calls)) {
    return refusal(grpc::StatusCode::RESOURCE_EXHAUSTED,
                   fmt::format("{} streams are open already", sessions_));
  }
  if (peers_.size() >= limits_.connections && !peers_.contains(call.peer_)) {
    return refusal(grpc::StatusCode::RESOURCE_EXHAUSTED,
                   fmt::format("{} clients are being served already", peers_.size()));
  }
  // Counted when nothing can fail any more.
  const auto due = due_.emplace(call.deadline_, &call).first;
  try {
    ++peers_[call.peer_];
  } catch (...) {
    due_.erase(due);
    throw;
  }
  ++count_;
  if (isSession) ++sessions_;
  changed_.notify_all();
  return grpc::Status::OK;
}

void Calls::leave(Call& call) {
  const std::lock_guard lock(mutex_);
  --count_;
  if (call.kind_ == Kind::session) --sessions_;
  bytes_ -= call.bytes_;
  const auto peer = peers_.find(call.peer_);
  if (--peer->second == 0) peers_.erase(peer);
  due_.erase({call.deadline_, &call});
}

void Calls::opened(Call& call) {
  const std::lock_guard lock(mutex_);
  due_.erase({call.deadline_, &call});
}

void Calls::prolong(Call& call) {
  const Deadline later = deadlineOf(call.context_, call.kind_, limits_);
  const std::lock_guard lock(mutex_);
  auto due = due_.extract({call.deadline_, &call});
  if (due.empty()) return;  // it is being ended
  call.deadline_ = later;
  due.value().first = later;
  due_.insert(std::move(due));
}

grpc::Status Calls::hold(Call& call, size_t bytes) {
  const std::lock_guard lock(mutex_);
  if (bytes > limits_.requestBytes - bytes_) {
    return refusal(grpc::StatusCode::RESOURCE_EXHAUSTED,
                   fmt::format("the request has {} bytes, and those under way have {} of {}", bytes,
                               bytes_, limits_.requestBytes));
  }
  bytes_ += bytes;
  call.bytes_ += bytes;
  return grpc::Status::OK;
}

void Calls::endWhatIsDue() {
  std::unique_lock lock(mutex_);
  while (!stopping_) {
    if (due_.empty()) {
      changed_.wait(lock);
    } else if (const auto [deadline, call] = *due_.begin();
               std::chrono::system_clock::now() < deadline) {
      changed_.wait_until(lock, deadline);
    } else {
      // Its handler comes to leave(), which waits for the lock: the context is there until then.
      due_.erase(due_.begin());
      end(call->context_, refusal(grpc::StatusCode::DEADLINE_EXCEEDED, lateness(call->kind_)));
    }
  }
}

}  // namespace Agent::Rpc
