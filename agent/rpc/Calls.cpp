#include "agent/rpc/Calls.h"

#include <fmt/format.h>

#include <algorithm>

#include "agent/rpc/Status.h"

namespace Agent::Rpc {
namespace {

LoopGate::Deadline deadlineOf(const grpc::ServerContext& context, Calls::Kind kind,
                              std::chrono::milliseconds longest) {
  if (kind == Calls::Kind::session) return LoopGate::never;
  return std::min(context.deadline(), std::chrono::system_clock::now() + longest);
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
      peer_(context.peer()),
      deadline_(deadlineOf(context, kind, calls.limits_.longest)),
      status_(calls.enter(*this)) {}

grpc::Status Calls::enter(Call& call) {
  const std::lock_guard lock(mutex_);
  if (count_ >= limits_.calls) {
    return refusal(grpc::StatusCode::RESOURCE_EXHAUSTED,
                   fmt::format("{} calls are under way already", count_));
  }
  if (peers_.size() >= limits_.connections && !peers_.contains(call.peer_)) {
    return refusal(grpc::StatusCode::RESOURCE_EXHAUSTED,
                   fmt::format("{} clients are being served already", peers_.size()));
  }
  ++count_;
  ++peers_[call.peer_];
  if (call.deadline_ != LoopGate::never) {
    due_.emplace(call.deadline_, &call);
    changed_.notify_all();
  }
  return grpc::Status::OK;
}

void Calls::leave(Call& call) {
  const std::lock_guard lock(mutex_);
  --count_;
  const auto peer = peers_.find(call.peer_);
  if (--peer->second == 0) peers_.erase(peer);
  due_.erase({call.deadline_, &call});
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
      end(call->context_, refusal(grpc::StatusCode::DEADLINE_EXCEEDED, "the call took too long"));
    }
  }
}

}  // namespace Agent::Rpc
