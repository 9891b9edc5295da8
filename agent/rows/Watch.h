// Following tables for a client: a watch.
//
//   loop's thread                          the watch's thread               the client
//   a table changes --onChange--> bell --> takes what came, on the loop,
//                                          makes messages of it, sends ----------->
//
// A watch remembers an index per table and nothing else: what its client has not been sent yet
// stays in the table's log. The log reaches back as far as WatchLimits says. A client that is
// slower than that, or that comes back too late, is told to read afresh. While nothing changes a
// watch sleeps.
#pragma once

#include <grpcpp/grpcpp.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "agent/EventLoop.h"
#include "agent/LoopGate.h"
#include "agent/rows/Catalog.h"

namespace Agent::Rows {

struct WatchLimits {
  size_t watches = 64;  // at a time
  // How far back a table's log is kept once somebody has watched, in indices (two or three to a
  // change).
  uint64_t history = uint64_t{1} << 21;
  size_t batch = 512;  // rows or changes for each hand-over to the loop
};

// Wakes the watch's thread.
class Bell final : public Vane::VaTableObserver {
 public:
  // The last two are for good.
  enum class Reason : uint8_t { none, change, cancelled, closed };

  void onChange(uint64_t, uint64_t, bool, const Vane::BaseRow&) override { ring(Reason::change); }
  void ring(Reason reason);
  // Sleeps until it has rung.
  void wait();
  // Why it has rung since the last call.
  Reason take();

 private:
  std::mutex mutex_;
  std::condition_variable rung_;
  Reason reason_ = Reason::none;
};

// One table of a watch.
struct Followed {
  OfferedTable* table = nullptr;
  std::atomic<uint64_t> reached = 0;  // the loop looks at it when it is asked for its status
  bool snapshotDue = false;
  std::string resync;  // why the client has to read afresh; empty: it need not
};

struct Subscription {
  explicit Subscription(size_t count) : tables(count) {}

  std::string name;  // for people
  Bell bell;
  std::vector<Followed> tables;
};

// All watches.
class Watches {
 public:
  Watches(const Catalog& catalog, EventLoop& loop, LoopGate& gate, WatchLimits limits);
  ~Watches();

  using Reactor = grpc::ServerWriteReactor<v1::WatchTablesResponse>;
  // Deletes itself when the call has ended.
  Reactor* begin(grpc::CallbackServerContext& context, const v1::WatchTablesRequest& request,
                 std::function<void(const grpc::Status&)> onEnd);
  void close();

  // On the loop: where each watch stands.
  void describe(v1::Status& status) const;
  uint64_t life() const { return life_; }

 private:
  class Watch;

  std::shared_ptr<Subscription> subscribe(const v1::WatchTablesRequest& request);
  void unsubscribe(const std::shared_ptr<Subscription>& subscription);

  const Catalog& catalog_;
  EventLoop& loop_;
  LoopGate& gate_;
  const WatchLimits limits_;
  const uint64_t life_;  // of this run; not 0

  mutable std::mutex mutex_;  // guards what follows
  std::vector<std::shared_ptr<Subscription>> subscriptions_;
  bool closed_ = false;
};

}  // namespace Agent::Rows
