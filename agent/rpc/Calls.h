// The calls under way, of all services: how many there may be, from how many clients, for how long.
//
// What is beyond a limit is turned away with RESOURCE_EXHAUSTED. A call that is still there at its
// deadline, because its client does not read what it asked for, is ended.
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
  };

  explicit Calls(Limits limits);
  ~Calls();
  Calls(const Calls&) = delete;
  Calls& operator=(const Calls&) = delete;

  enum class Kind {
    bounded,  // ends at the client's deadline or at the longest time, whichever is first
    session,  // may last as long as the client wants
  };
  class Call;

 private:
  using Deadline = LoopGate::Deadline;
  grpc::Status enter(Call& call);
  void leave(Call& call);
  void endWhatIsDue();

  const Limits limits_;
  std::mutex mutex_;  // guards what follows
  std::condition_variable changed_;
  size_t count_ = 0;
  std::map<std::string, size_t> peers_;
  std::set<std::pair<Deadline, Call*>> due_;  // calls with a deadline, until they are ended
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

 private:
  friend Calls;
  Calls& calls_;
  grpc::ServerContext& context_;
  const std::string peer_;
  const Deadline deadline_;
  grpc::Status status_;
};

}  // namespace Agent::Rpc
