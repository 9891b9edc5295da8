// The calls under way, of all services: how many there may be, from how many clients, with how many
// bytes of requests, for how long.
//
// What is beyond a limit is turned away with RESOURCE_EXHAUSTED. A call that is still there at its
// deadline, because its client does not read what it asked for, is ended, and so is a session whose
// client has not opened it by then. A call whose client goes on reading may be given more time.
// Sessions do not get all of the room: calls that end by
// themselves always find some.
#pragma once

#include <grpcpp/server_context.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <utility>

#include "agent/LoopGate.h"

namespace Agent::Rpc {

class Calls {
 public:
  struct Limits {
    size_t calls = 256;
    // Clients with a call under way; those on Unix sockets cannot be told apart and count as one.
    size_t connections = 64;
    std::chrono::milliseconds longest{60'000};
    std::chrono::milliseconds opening{10'000};  // of a session
    size_t requestBytes = size_t{512} << 20;    // of all requests under way, as they are sent
  };

  explicit Calls(Limits limits);
  ~Calls();
  Calls(const Calls&) = delete;
  Calls& operator=(const Calls&) = delete;

  enum class Kind {
    bounded,  // ends at the client's deadline or at the longest time, whichever is first
    session,  // may last as long as the client wants, once it has been opened
  };
  class Call;

 private:
  using Deadline = LoopGate::Deadline;
  grpc::Status enter(Call& call);
  void leave(Call& call);
  void opened(Call& call);
  void prolong(Call& call);
  grpc::Status hold(Call& call, size_t bytes);
  void endWhatIsDue();

  const Limits limits_;
  std::mutex mutex_;  // guards what follows
  std::condition_variable changed_;
  size_t count_ = 0;
  size_t sessions_ = 0;  // of them
  size_t bytes_ = 0;     // of their requests
  std::map<std::string, size_t> peers_;
  // Calls with a deadline, until they are ended, and sessions until they are opened.
  std::set<std::pair<Deadline, Call*>> due_;
  bool stopping_ = false;
  std::thread watch_;
};

// One call, from its handler's first line to its last.
class Calls::Call {
 public:
  Call(Calls& calls, grpc::ServerContext& context, Kind kind = Kind::bounded);
  ~Call() {
    if (status_.ok()) calls_.leave(*this);
  }
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

  // Not OK: the call is turned away with this.
  const grpc::Status& status() const { return status_; }
  Deadline deadline() const { return deadline_; }
  // The session's client has done what opens it: from now on it may last.
  void opened() { calls_.opened(*this); }
  // The client has taken something: the call has the longest time once more, but never more than
  // the client allows.
  void prolong() { calls_.prolong(*this); }
  // The call's request has so many bytes, which it holds until it ends. Not OK: as status().
  grpc::Status hold(size_t bytes) { return calls_.hold(*this, bytes); }

 private:
  friend Calls;
  Calls& calls_;
  grpc::ServerContext& context_;
  const Kind kind_;
  const std::string peer_;
  Deadline deadline_;
  size_t bytes_ = 0;
  grpc::Status status_;
};

}  // namespace Agent::Rpc
