#include "agent/rows/Watch.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <random>
#include <set>
#include <system_error>
#include <thread>
#include <unordered_set>
#include <utility>

#include "agent/rows/Refusal.h"
#include "agent/rows/Walk.h"
#include "platform/Vane/ChangeReader.h"

namespace Agent::Rows {
namespace {

using grpc::StatusCode;
using Vane::BasicVaTableChange;
using Vane::ChangeKind;
using Vane::ChangeReader;

uint64_t freshLife() {
  std::random_device random;
  uint64_t life = 0;
  while (life == 0) life = uint64_t{random()} << 32 | random();
  return life;
}

// What came to a table since it was last asked.
struct Taken {
  std::vector<BasicVaTableChange> changes;
  std::string resync;
};

// On the loop. A reader of the moment: the table does not keep its log for the watch.
Taken takeChanges(const OfferedTable& offered, uint64_t reached, size_t limit) {
  const auto& table = offered.table();
  Taken taken;
  ChangeReader reader(offered.handle(), reached);
  const uint64_t oldest = table.oldestChangeIdx();
  const uint64_t latest = table.latestChangeIdx();
  if (reader.take(taken.changes, limit) != ChangeReader::Result::readAfresh) return taken;
  if (reached < oldest) {
    taken.resync =
        fmt::format("changes above index {} are kept, asked were those above {}", oldest, reached);
  } else if (reached > latest) {
    taken.resync =
        fmt::format("the table stands at index {}, asked were changes above {}", latest, reached);
  } else {
    taken.resync = "a changed row could not be read";
  }
  return taken;
}

// Ends a call before it has begun.
class Refused final : public Watches::Reactor {
 public:
  explicit Refused(const grpc::Status& status) { Finish(status); }
  void OnDone() override { delete this; }
};

}  // namespace

void Bell::ring(Reason reason) {
  const std::lock_guard lock(mutex_);
  if (reason <= reason_) return;
  reason_ = reason;
  rung_.notify_one();
}

void Bell::wait() {
  std::unique_lock lock(mutex_);
  rung_.wait(lock, [this] { return reason_ != Reason::none; });
}

Bell::Reason Bell::take() {
  const std::lock_guard lock(mutex_);
  const Reason reason = reason_;
  if (reason == Reason::change) reason_ = Reason::none;
  return reason;
}

class Watches::Watch final : public Reactor {
 public:
  Watch(Watches& owner, std::shared_ptr<Subscription> subscription,
        const v1::WatchTablesRequest& request, LoopGate::Deadline deadline,
        std::function<void(const grpc::Status&)> onEnd)
      : owner_(owner),
        subscription_(std::move(subscription)),
        request_(request),
        deadline_(deadline),
        onEnd_(std::move(onEnd)) {}

  void start() {
    thread_ = std::thread([this] {
      const grpc::Status status = statusOf([this] { follow(); });
      owner_.unsubscribe(subscription_);
      onEnd_(status);
      Finish(status);
    });
  }

  void OnWriteDone(bool ok) override {
    const std::lock_guard lock(mutex_);
    written_ = ok ? Written::yes : Written::no;
    changed_.notify_one();
  }
  void OnCancel() override { subscription_->bell.ring(Bell::Reason::cancelled); }
  void OnDone() override {
    thread_.join();
    delete this;
  }

 private:
  enum class Written : uint8_t { pending, yes, no };

  std::vector<Followed>& tables() { return subscription_->tables; }

  [[noreturn]] void follow() {
    begin();
    for (;;) {
      checkBell();
      for (Followed& table : tables()) freshen(table);
      if (!sendChanges()) subscription_->bell.wait();
    }
  }

  void checkBell() {
    const Bell::Reason reason = subscription_->bell.take();
    if (reason == Bell::Reason::cancelled) throw Refusal(StatusCode::CANCELLED, "cancelled");
    if (reason == Bell::Reason::closed) {
      throw Refusal(StatusCode::UNAVAILABLE, "the agent is ending");
    }
  }

  void begin() {
    // The table holds its observer, and with it the whole subscription.
    const std::shared_ptr<Bell> bell(subscription_, &subscription_->bell);
    onLoop(owner_.gate_, deadline_, [&] {
      for (size_t i = 0; i < tables().size(); ++i) {
        OfferedTable& table = *tables()[i].table;
        table.keepHistory(owner_.limits_.history);
        table.handle()->observerIs(bell);
        place(tables()[i], i);
      }
    });
    for (const Followed& table : tables()) {
      v1::WatchTablesResponse response;
      response.mutable_start()->set_index(table.reached);
      response.mutable_start()->set_life(owner_.life_);
      send(table, response);
    }
  }

  void place(Followed& followed, size_t i) {
    followed.reached = followed.table->table().latestChangeIdx();
    followed.snapshotDue = request_.snapshot();
    if (request_.tables().empty()) return;
    const auto& from = request_.tables(static_cast<int>(i));
    if (!from.has_after_index()) return;
    followed.snapshotDue = false;
    if (from.life() != 0 && from.life() != owner_.life_) {
      followed.resync = "the index is from another run of the agent";
    } else {
      followed.reached = from.after_index();
    }
  }

  // What has to be said before more changes.
  void freshen(Followed& table) {
    while (!table.resync.empty() || table.snapshotDue) {
      if (!table.resync.empty()) {
        v1::WatchTablesResponse response;
        response.mutable_resync()->set_index(table.reached);
        response.mutable_resync()->set_reason(std::exchange(table.resync, {}));
        response.mutable_resync()->set_life(owner_.life_);
        send(table, response);
        table.snapshotDue = request_.snapshot();
      }
      if (std::exchange(table.snapshotDue, false)) sendSnapshot(table);
    }
  }

  // Every row once: in the snapshot, or by a change that follows. A row that is read after it has
  // changed is left to its change.
  void sendSnapshot(Followed& followed) {
    const OfferedTable& offered = *followed.table;
    Walk walk(offered, {});
    std::unordered_set<std::string> changedKeys;
    std::vector<Vane::BaseRow> rows;
    uint64_t begunAt = 0;
    uint64_t seen = 0;  // the changes up to here are in changedKeys
    for (bool more = true; more;) {
      Taken since;
      onLoop(owner_.gate_, deadline_, [&] {
        const uint64_t latest = offered.table().latestChangeIdx();
        if (begunAt == 0) begunAt = seen = latest;
        if (latest != seen) since = takeChanges(offered, seen, std::numeric_limits<size_t>::max());
        seen = latest;
        more = walk.step(owner_.limits_.batch, rows);
      });
      if (!since.resync.empty()) {
        followed.reached = seen;
        followed.resync = since.resync;
        return;
      }
      for (const auto& change : since.changes) changedKeys.insert(keyBytes(offered, change.row()));
      if (!changedKeys.empty()) {
        std::erase_if(rows, [&](const Vane::BaseRow& row) {
          return changedKeys.contains(keyBytes(offered, row));
        });
      }
      sendRows(followed, rows);
    }
    followed.reached = begunAt;
    v1::WatchTablesResponse response;
    response.mutable_snapshot_end()->set_index(begunAt);
    send(followed, response);
  }

  static std::string keyBytes(const OfferedTable& table, const Vane::BaseRow& row) {
    const Vane::BaseRow key = table.keyOf(row);
    return {reinterpret_cast<const char*>(key.buffer()->data()), key.rowLength()};
  }

  void sendRows(const Followed& followed, const std::vector<Vane::BaseRow>& rows) {
    sendInParts(followed, rows, [&](const Vane::BaseRow& row, v1::WatchTablesResponse& response) {
      v1::Row& added = *response.mutable_snapshot()->add_rows();
      followed.table->toMessage(row, request_.json(), added);
      return added.ByteSizeLong();
    });
  }

  // Whether there were any.
  bool sendChanges() {
    std::vector<Taken> taken(tables().size());
    onLoop(owner_.gate_, deadline_, [&] {
      for (size_t i = 0; i < taken.size(); ++i) {
        Followed& followed = tables()[i];
        taken[i] = takeChanges(*followed.table, followed.reached, owner_.limits_.batch);
        if (!taken[i].resync.empty()) {
          followed.reached = followed.table->table().latestChangeIdx();
        } else if (!taken[i].changes.empty()) {
          followed.reached = taken[i].changes.back().index();
        }
      }
    });
    bool any = false;
    for (size_t i = 0; i < taken.size(); ++i) {
      any = any || !taken[i].resync.empty() || !taken[i].changes.empty();
      tables()[i].resync = std::move(taken[i].resync);
      sendChangesOf(tables()[i], taken[i].changes);
    }
    return any;
  }

  void sendChangesOf(const Followed& followed, std::vector<BasicVaTableChange>& changes) {
    // An entry that has gone before its change was read; its removal follows.
    std::erase_if(changes, [&](const BasicVaTableChange& change) {
      return change.kind() == ChangeKind::exists && followed.table->isGone(change.row());
    });
    sendInParts(followed, changes,
                [&](const BasicVaTableChange& change, v1::WatchTablesResponse& response) {
                  auto& added = *response.mutable_changes()->add_changes();
                  added.set_index(change.index());
                  added.set_kind(static_cast<uint32_t>(change.kind()));
                  followed.table->toMessage(change.row(), request_.json(), *added.mutable_row());
                  return added.ByteSizeLong();
                });
  }

  // `add` adds an item to a message and says how many bytes that took.
  template <class Item, class Add>
  void sendInParts(const Followed& followed, const std::vector<Item>& items, Add add) {
    v1::WatchTablesResponse response;
    size_t bytes = 0;
    for (const Item& item : items) {
      bytes += add(item, response);
      if (bytes < messageBytes) continue;
      send(followed, response);
      response.Clear();
      bytes = 0;
    }
    if (bytes != 0) send(followed, response);
  }

  // Waits until the message is on its way: a client that does not read holds the watch here.
  void send(const Followed& followed, v1::WatchTablesResponse& response) {
    response.set_table(followed.table->name());
    {
      const std::lock_guard lock(mutex_);
      written_ = Written::pending;
    }
    StartWrite(&response);
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return written_ != Written::pending; });
    if (written_ == Written::no) throw Refusal(StatusCode::CANCELLED, "the client has gone");
  }

  Watches& owner_;
  const std::shared_ptr<Subscription> subscription_;
  const v1::WatchTablesRequest request_;
  const LoopGate::Deadline deadline_;
  const std::function<void(const grpc::Status&)> onEnd_;
  std::thread thread_;
  std::mutex mutex_;  // guards written_
  std::condition_variable changed_;
  Written written_ = Written::pending;
};

Watches::Watches(const Catalog& catalog, EventLoop& loop, LoopGate& gate, WatchLimits limits)
    : catalog_(catalog), loop_(loop), gate_(gate), limits_(limits), life_(freshLife()) {}

Watches::~Watches() = default;

Watches::Reactor* Watches::begin(grpc::CallbackServerContext& context,
                                 const v1::WatchTablesRequest& request,
                                 std::function<void(const grpc::Status&)> onEnd) {
  std::shared_ptr<Subscription> subscription;
  const grpc::Status refused = statusOf([&] { subscription = subscribe(request); });
  if (!refused.ok()) {
    onEnd(refused);
    return new Refused(refused);
  }
  auto watch = std::make_unique<Watch>(*this, subscription, request, context.deadline(), onEnd);
  try {
    watch->start();
  } catch (const std::system_error&) {
    unsubscribe(subscription);
    const grpc::Status none(StatusCode::RESOURCE_EXHAUSTED, "no thread for another watch");
    onEnd(none);
    return new Refused(none);
  }
  return watch.release();
}

std::shared_ptr<Subscription> Watches::subscribe(const v1::WatchTablesRequest& request) {
  std::vector<OfferedTable*> wanted;
  for (const auto& from : request.tables()) wanted.push_back(&catalog_.table(from.table()));
  if (wanted.empty()) {
    for (const auto& table : catalog_.tables()) wanted.push_back(table.get());
  }
  if (std::set(wanted.begin(), wanted.end()).size() != wanted.size()) {
    throw Refusal(StatusCode::INVALID_ARGUMENT, "a table stands twice in the request");
  }
  auto made = std::make_shared<Subscription>(wanted.size());
  made->name = asciiOf(request.name().substr(0, 64));
  for (size_t i = 0; i < wanted.size(); ++i) made->tables[i].table = wanted[i];

  const std::lock_guard lock(mutex_);
  if (closed_) throw Refusal(StatusCode::UNAVAILABLE, "the agent is ending");
  if (subscriptions_.size() == limits_.watches) {
    throw Refusal(StatusCode::RESOURCE_EXHAUSTED,
                  fmt::format("{} watches are under way, which is the limit", limits_.watches));
  }
  subscriptions_.push_back(made);
  return made;
}

// The observer is taken back on the loop, in a way that cannot be turned away.
void Watches::unsubscribe(const std::shared_ptr<Subscription>& subscription) {
  {
    const std::lock_guard lock(mutex_);
    std::erase(subscriptions_, subscription);
  }
  std::vector<std::shared_ptr<Vane::VaTableImplementation>> tables;
  for (const Followed& followed : subscription->tables) tables.push_back(followed.table->handle());
  loop_.post([tables = std::move(tables),
              bell = std::shared_ptr<Vane::VaTableObserver>(subscription, &subscription->bell)] {
    for (const auto& table : tables) table->observerDel(bell);
  });
}

void Watches::close() {
  const std::lock_guard lock(mutex_);
  closed_ = true;
  for (const auto& subscription : subscriptions_) subscription->bell.ring(Bell::Reason::closed);
}

void Watches::describe(v1::Status& status) const {
  const std::lock_guard lock(mutex_);
  for (const auto& subscription : subscriptions_) {
    for (const Followed& followed : subscription->tables) {
      const uint64_t latest = followed.table->table().latestChangeIdx();
      const uint64_t reached = followed.reached;
      auto& observer = *status.add_observers();
      observer.set_name(subscription->name);
      observer.set_table(followed.table->name());
      observer.set_reached(reached);
      observer.set_lag(latest > reached ? latest - reached : 0);
    }
  }
}

}  // namespace Agent::Rows
