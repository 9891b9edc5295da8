#include "agent/Follower.h"

#include <fmt/format.h>

namespace Agent {
namespace {

constexpr size_t batch = 4096;

// Bit 0 of an index says that the change removed its key.
bool saysRemoved(uint64_t index) { return (index & 1) != 0; }

// What a table told as it happened. Each change must begin at the index where the one before it
// ended.
class Observer final : public Vane::VaTableObserver {
 public:
  explicit Observer(uint64_t latest) : latest_(latest) {}

  void onChange(uint64_t previous, uint64_t index, bool deleted, const Vane::BaseRow&) override {
    ++changes_;
    if (previous != latest_ || index <= previous) ++gaps_;
    if (saysRemoved(index) != deleted) ++wrongKinds_;
    latest_ = index;
  }

  std::string report() const {
    return fmt::format(R"({{"changes":{},"gaps":{},"wrongKinds":{},"latest":{}}})", changes_, gaps_,
                       wrongKinds_, latest_);
  }

 private:
  uint64_t latest_;
  uint64_t changes_ = 0;
  uint64_t gaps_ = 0;
  uint64_t wrongKinds_ = 0;
};

}  // namespace

struct Follower::Account {
  Account(std::string tableName, const std::shared_ptr<Vane::VaTableImplementation>& table)
      : name(std::move(tableName)),
        reader(table, 0),
        observer(std::make_shared<Observer>(table->latestChangeIdx())) {
    table->observerIs(observer);
  }
  ~Account() { reader.table()->observerDel(observer); }

  void take() {
    for (;;) {
      taken.clear();
      const auto result = reader.take(taken, batch);
      if (result == Vane::ChangeReader::Result::readAfresh) {
        readAfresh();
      } else if (result == Vane::ChangeReader::Result::none) {
        return;
      }
      for (const auto& change : taken) count(change);
    }
  }

  void readAfresh() {
    ++afresh;
    rows = 0;
    auto& table = *reader.table();
    const auto end = table.end(0);
    for (auto row = table.begin(0); *row != *end; ++*row) ++rows;
    last = reader.reached();
  }

  void count(const Vane::BasicVaTableChange& change) {
    if (change.index() <= last) rising = false;
    last = change.index();
    const bool removed = change.kind() == Vane::ChangeKind::removed;
    if (removed != saysRemoved(change.index())) ++wrongKinds;
    ++(removed ? removals : sets);
  }

  std::string report() const {
    return fmt::format(
        R"({{"exists":{},"removed":{},"rising":{},"wrongKinds":{},"afresh":{},"rowsRead":{},)"
        R"("reached":{},"observed":{}}})",
        sets, removals, rising, wrongKinds, afresh, rows, reader.reached(), observer->report());
  }

  std::string name;
  Vane::ChangeReader reader;
  std::shared_ptr<Observer> observer;
  std::vector<Vane::BasicVaTableChange> taken;
  uint64_t sets = 0;
  uint64_t removals = 0;
  uint64_t wrongKinds = 0;
  uint64_t last = 0;
  uint64_t afresh = 0;  // times the table was read as a whole
  uint64_t rows = 0;    // then found in it
  bool rising = true;
};

Follower::Follower(Vane::VaneDB& database) {
  for (const std::string& name : database.tableNames()) {
    auto table = database.table(name);
    if (table->observerSupported()) {
      accounts_.push_back(std::make_unique<Account>(name, std::move(table)));
    }
  }
}

Follower::~Follower() = default;

void Follower::take() {
  for (const auto& account : accounts_) account->take();
}

std::string Follower::report(const std::string& tableName) const {
  for (const auto& account : accounts_) {
    if (account->name == tableName) return account->report();
  }
  return "null";
}

}  // namespace Agent
