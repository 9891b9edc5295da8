// The way out of a bidirectional stream: messages wait here, boundedly, for the one thread that
// writes them.
//
// Whoever puts a message in never waits. A client that leaves so much unread that its outbox is
// full is ended with RESOURCE_EXHAUSTED.
#pragma once

#include <grpcpp/support/sync_stream.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <thread>

#include "agent/rpc/Status.h"

namespace Agent::Rpc {

template <class Out, class In>
class Outbox {
 public:
  using Stream = grpc::ServerReaderWriter<Out, In>;

  Outbox(grpc::ServerContext& context, Stream& stream, size_t room)
      : context_(context), stream_(stream), room_(room), writer_([this] { write(); }) {}
  // Does not wait for the client: without a drain() before, the stream ends at once.
  ~Outbox() {
    end(refusal(grpc::StatusCode::INTERNAL, "the agent gave the stream up"));
    writer_.join();
  }
  Outbox(const Outbox&) = delete;
  Outbox& operator=(const Outbox&) = delete;

  // Ends the stream if there is no room.
  void put(const Out& message) {
    const std::lock_guard lock(mutex_);
    if (closed_) return;
    if (waiting_.size() == room_) {
      return endLocked(unread());
    }
    waiting_.push_back(message);
    changed_.notify_all();
  }

  // For what need not be told: left out when half of the room is taken.
  void offer(const Out& message) {
    const std::lock_guard lock(mutex_);
    if (closed_ || waiting_.size() >= room_ / 2) return;
    waiting_.push_back(message);
    changed_.notify_all();
  }

  // Ends the stream at once, whatever waits; a handler that waits for the client's next message
  // goes on.
  void end(const grpc::Status& status) {
    const std::lock_guard lock(mutex_);
    if (!closed_) endLocked(status);
  }

  // Waits until everything has been written, and gives what the handler is to return. A client that
  // does not read by then is ended, and is not told that all was well.
  grpc::Status drain(const grpc::Status& status, std::chrono::milliseconds patience) {
    std::unique_lock lock(mutex_);
    const bool drained = changed_.wait_for(
        lock, patience, [&] { return closed_ || (waiting_.empty() && !writing_); });
    const grpc::Status last = drained || !status.ok() ? status : unread();
    if (!drained) endLocked(last);
    closed_ = true;
    changed_.notify_all();
    return last;
  }

 private:
  void endLocked(const grpc::Status& status) {
    closed_ = true;
    waiting_.clear();
    changed_.notify_all();
    Rpc::end(context_, status);
  }

  static grpc::Status unread() {
    return refusal(grpc::StatusCode::RESOURCE_EXHAUSTED,
                   "the client does not read what the agent tells it");
  }

  void write() {
    std::unique_lock lock(mutex_);
    for (;;) {
      changed_.wait(lock, [&] { return closed_ || !waiting_.empty(); });
      if (closed_) return;
      const Out next = std::move(waiting_.front());
      waiting_.pop_front();
      writing_ = true;
      lock.unlock();
      const bool written = stream_.Write(next);
      lock.lock();
      writing_ = false;
      if (!written) closed_ = true;  // the client has gone
      changed_.notify_all();
    }
  }

  grpc::ServerContext& context_;
  Stream& stream_;
  const size_t room_;
  std::mutex mutex_;  // guards what follows
  std::condition_variable changed_;
  std::deque<Out> waiting_;
  bool writing_ = false;
  bool closed_ = false;
  std::thread writer_;
};

}  // namespace Agent::Rpc
