// Histories of a table and of those who follow it through the row database: sets, removals,
// prunings and readings in any order, through the adapter and past it, with observers that throw
// and writes that are refused. The log has one node per key and rising indices, and no reader is
// ever left with a picture that differs from the table without being told to read it afresh.
//
//   | operation | operands ... | operation | ...
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <vector>

#include "fuzz/Fuzz.h"
#include "fuzz/RowTypes.h"
#include "platform/Vane/ChangeReader.h"
#include "src-includes/P4RuntimeVane/P4RuntimeRoutingEcmpTypesVaneWrappers.h"
#include "tests/adapters/MemoryStore.h"

namespace {

using Fuzz::need;
using P4RuntimeRouting::NexthopInfo;
using P4RuntimeRouting::NexthopInfoRow;
using Adapter = P4RuntimeRouting::EcmpMemberVaneWrappers::NexthopInfoVaneWrapper;
using Traits = P4RuntimeRouting::EcmpMemberVaneWrappers::NexthopInfoTraits;
using Table = Traits::Table;
using Store = adapter_tests::MemoryStore;
using Changes = std::vector<Vane::BasicVaTableChange>;

constexpr uint32_t keys = 12;
constexpr uint64_t capacity = 10;

// What a table holds, as far as readers are concerned: key to version.
using Picture = std::map<uint32_t, uint64_t>;

struct Thrown : std::runtime_error {
  using std::runtime_error::runtime_error;
};

NexthopInfo entryOf(uint32_t id, uint64_t version) {
  NexthopInfo entry;
  entry.id = id;
  entry.genId = version;
  entry.valid = true;
  return entry;
}

// Hears of each change, and at times throws or writes the table itself.
class Observer final : public Vane::VaTableObserver {
 public:
  void onChange(uint64_t previous, uint64_t index, bool deleted,
                const Vane::BaseRow& row) override {
    need(previous < index && index - previous <= 3, "indices rise by 1, 2 or 3");
    need(deleted == ((index & 1) != 0), "an odd index is a removal");
    need(NexthopInfoRow(row).id() < keys, "a change is of a key");
    heard = index;
    if (auto act = std::exchange(next, nullptr)) act();
  }
  uint64_t heard = 0;
  std::function<void()> next;
};

class Reader {
 public:
  Reader(std::shared_ptr<Adapter> table, std::shared_ptr<Store> store, uint64_t from)
      : table_(table), store_(std::move(store)), reader_(table, from) {}

  void take(size_t limit) {
    Changes changes;
    switch (reader_.take(changes, limit)) {
      case Vane::ChangeReader::Result::readAfresh:
        need(changes.empty(), "who is told to read afresh is given no changes");
        return readAfresh();
      case Vane::ChangeReader::Result::none:
        need(changes.empty(), "no changes are none");
        return needSame();
      case Vane::ChangeReader::Result::changes:
        return apply(changes, limit);
    }
  }
  uint64_t reached() const { return reader_.reached(); }

 private:
  void readAfresh() {
    picture_ = present();
    need(reader_.reached() == table_->latestChangeIdx(), "who reads afresh stands at the latest");
  }
  void apply(const Changes& changes, size_t limit) {
    need(!changes.empty() && changes.size() <= limit, "as many changes as were asked for");
    std::set<uint32_t> seen;
    uint64_t last = last_;
    for (const auto& change : changes) {
      const NexthopInfoRow row(change.row());
      need(change.index() > last, "indices rise");
      need(seen.insert(row.id()).second, "a key stands in the log once");
      last = change.index();
      const bool removed = change.kind() == Vane::ChangeKind::removed;
      need(removed == ((change.index() & 1) != 0), "the kind is the index's");
      if (!picture_) continue;
      if (removed) {
        picture_->erase(row.id());
      } else {
        picture_->insert_or_assign(row.id(), row.genId());
      }
    }
    last_ = last;
    need(reader_.reached() == last, "a reader stands at the last change given");
    needSame();
  }
  // Who has read all has the table's picture.
  void needSame() {
    if (!picture_ || reader_.reached() != table_->latestChangeIdx()) return;
    need(*picture_ == present(), "who has read every change has the table's picture");
  }
  // A walk that nothing interrupts.
  Picture present() {
    store_->interruptRead(-1, nullptr);
    Picture now;
    for (const auto at = table_->begin(0); *at; ++*at) {
      const NexthopInfoRow row(**at);
      now.insert_or_assign(row.id(), row.genId());
    }
    return now;
  }

  std::shared_ptr<Adapter> table_;
  std::shared_ptr<Store> store_;
  Vane::ChangeReader reader_;
  std::optional<Picture> picture_;  // nothing until the reader has read the table once
  uint64_t last_ = 0;
};

class History {
 public:
  explicit History(Fuzz::Input input) : input_(input) {
    table_->storeIs(store_);
    adapter_ = std::make_shared<Adapter>(table_, Vane::VaneDB::current(), nullptr, true);
  }
  ~History() {
    readers_.clear();
    adapter_.reset();
    table_->storeIs(nullptr);
  }

  void run() {
    while (!input_.isEmpty()) {
      const uint64_t latest = adapter_->latestChangeIdx();
      const uint64_t oldest = adapter_->oldestChangeIdx();
      // What fails does so after the table has changed, or before; the log knows which.
      Fuzz::isRefused<Thrown, Guard::MemoryResourceException, Guard::CorruptionDetectedException>(
          [&] { step(); });
      need(adapter_->latestChangeIdx() >= latest, "the latest index rises");
      need(adapter_->oldestChangeIdx() >= oldest, "the oldest index rises");
      need(adapter_->oldestChangeIdx() <= adapter_->latestChangeIdx(), "the oldest is not ahead");
      checkLog();
    }
    // However it came: who reads to the end has the table's picture.
    store_->interruptRead(-1, nullptr);
    observer_->next = nullptr;
    for (auto& reader : readers_) {
      reader.take(1000);
      reader.take(1000);
    }
  }

 private:
  void step() {
    const uint32_t id = input_.below(keys);
    switch (input_.below(12)) {
      case 0:
      case 1:
        return rowIs(id);
      case 2:
        return set(id);
      case 3:
        return adapter_->rowDel(NexthopInfoRow::key(id));
      case 4:
        return ((*table_).*Traits::del)(id);
      case 5:
        return adapter_->rowDelAll();
      case 6:
        if (readers_.size() < 4) readers_.emplace_back(adapter_, store_, input_.below(40));
        return;
      case 7:
        if (!readers_.empty()) readers_[id % readers_.size()].take(1 + input_.below(6));
        return;
      case 8:
        if (!readers_.empty()) readers_.erase(readers_.begin() + id % readers_.size());
        return adapter_->pruneChanges();
      case 9:
        return adapter_->observerIs(observer_);
      case 10:
        return act(id);
      default:
        return store_->corruptRead(static_cast<int>(id));
    }
  }

  void rowIs(uint32_t id) {
    NexthopInfoRow row = NexthopInfoRow::key(id);
    row.genIdIs(++version_);
    row.validIs(true);
    Vane::BaseRow generic = row;
    adapter_->rowIs(generic, false);
  }
  void set(uint32_t id) { ((*table_).*Traits::set)(entryOf(id, ++version_)); }

  // What the observer does at the next change that it hears of.
  void act(uint32_t id) {
    switch (input_.below(4)) {
      case 0:
        observer_->next = [] { throw Thrown("an observer fails"); };
        return;
      case 1:
        observer_->next = [this, id] { set(id); };
        return;
      case 2:
        observer_->next = [this, id] { ((*table_).*Traits::del)(id); };
        return;
      default:
        observer_->next = [this] { adapter_->observerDel(observer_); };
    }
  }

  // From everywhere in the log, as it is told: above the index asked for, rising, one node per key.
  void checkLog() {
    const uint64_t latest = adapter_->latestChangeIdx();
    for (uint64_t from = adapter_->oldestChangeIdx(); from <= latest; ++from) {
      const size_t nodes = nodesAfter(from);
      need(nodes <= keys, "no more nodes than keys");
      if (latest - from > 64) from += (latest - from) / 2;
    }
  }
  size_t nodesAfter(uint64_t from) {
    size_t nodes = 0;
    uint64_t last = from;
    const auto end = adapter_->endChange();
    for (const auto at = adapter_->nextChange(from); *at != *end; ++*at, ++nodes) {
      std::optional<Vane::BasicVaTableChange> change;
      if (Fuzz::isRefused<Guard::CorruptionDetectedException>([&] { change.emplace(**at); }))
        continue;
      need(change->index() > last && change->index() <= adapter_->latestChangeIdx(),
           "indices rise to the latest");
      last = change->index();
    }
    return nodes;
  }

  Fuzz::Input input_;
  const Kit::Ptr<Table> table_ = new Table("table");
  const std::shared_ptr<Store> store_ =
      std::make_shared<Store>(table_->layout(), Shoal::Mode::writer, capacity);
  std::shared_ptr<Adapter> adapter_;
  const std::shared_ptr<Observer> observer_ = std::make_shared<Observer>();
  std::vector<Reader> readers_;
  uint64_t version_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Fuzz::needRowDatabase();
  History(Fuzz::Input(data, size)).run();
  return 0;
}
