#include "agent/p4/RowStore.h"

#include <algorithm>
#include <utility>

#include "agent/Log.h"
#include "agent/p4/Fault.h"

namespace Agent::P4 {
namespace {

// Handles from here on, found in rows of others, are none that counting up comes to.
constexpr uint64_t tooHigh = uint64_t{1} << 63;

uint64_t highest(uint64_t a, uint64_t found) { return found < tooHigh ? std::max(a, found) : a; }

const Vane::BaseRow none;

Vane::BaseRow rowOfId(const Role& role, uint32_t id) {
  Vane::BaseRow made(role.layout.fixedLength());
  made.rowTypeIs(role.rowTypeId);
  const Field& key = role.keys.front();
  role.layout.set(made, role.layout.columns()[key.index], Vane::ColumnValue(id));
  return made;
}

}  // namespace

class RowStore::Observer final : public Vane::VaTableObserver {
 public:
  Observer(RowStore& store, const Role& role) : store_(store), role_(role) {}
  void onChange(uint64_t, uint64_t, bool, const Vane::BaseRow& row) override {
    if (!store_.isWriting_) store_.foreignChange(role_, row);
  }

 private:
  RowStore& store_;
  const Role& role_;
};

RowStore::RowStore(const Roles& roles, const Vane::VaneDB& database, Tally& tally)
    : roles_(roles), tally_(tally) {
  for (const Role& role : roles.all()) {
    tables_.push_back(database.table(role.rowTable));
    observers_.push_back(std::make_shared<Observer>(*this, role));
    tables_.back()->observerIs(observers_.back());
  }
  adopt();
}

RowStore::~RowStore() {
  for (size_t i = 0; i < tables_.size(); ++i) tables_[i]->observerDel(observers_[i]);
}

void RowStore::adopt() {
  uint64_t handle = 0;
  for (const Role& role : roles_.all()) {
    try {
      forEachRow(role, [&](const Vane::BaseRow& row) {
        references_.changed(role, none, row);
        handle = highest(handle, role.get(row, role.entryHandle));
        highestGenId_ = highest(highestGenId_, role.get(row, role.genId));
        if (!role.isTable() && isReservedId(idOf(role, row))) {
          lastReservedId_ = std::max(lastReservedId_, idOf(role, row));
        }
      });
    } catch (const Guard::CorruptionDetectedException& corrupt) {
      loseReferences();
      Log::error("tableCorrupt", {{"table", role.rowTable}}, "at the start: {}", corrupt.what());
    }
  }
  nextHandle_ = handle + 1;
  // What looks like an orphan may be used by a row that could not be read.
  if (!isStale_) removeOrphans();
}

// An agent that was killed may have left a part of a one-shot action set. A table that is being
// loaded by somebody else looks the same, so this is for the start only.
void RowStore::removeOrphans() {
  for (const Role* role : {&roles_.group(), &roles_.member()}) {
    std::vector<Vane::BaseRow> orphans;
    forEachRow(*role, [&](Vane::BaseRow row) {
      const uint32_t id = idOf(*role, row);
      const uint64_t uses =
          role->kind == Kind::group ? references_.usesOfGroup(id) : references_.usesOfMember(id);
      if (isReservedId(id) && uses == 0) orphans.push_back(std::move(row));
    });
    for (const Vane::BaseRow& row : orphans) del(*role, row);
    if (!orphans.empty()) {
      Log::debug("actionSetsRemoved", {{"table", role->rowTable}},
                 "table {}: {} rows of unfinished action sets removed", role->rowTable,
                 orphans.size());
    }
  }
  emptyJournal();
}

const References& RowStore::references() {
  if (isStale_) rebuild();
  return references_;
}

const References& RowStore::stayingReferences() {
  const References& all = references();
  return recent_ ? recent_->references_ : all;
}

void RowStore::rebuild() {
  loseReferences();
  references_.clear();
  if (recent_) recent_->references_.clear();
  for (const Role& role : roles_.all()) {
    if (role.kind != Kind::route && role.kind != Kind::group) continue;
    forEachRow(role, [&](const Vane::BaseRow& row) {
      references_.changed(role, none, row);
      if (isRecent(role, row)) recent_->references_.changed(role, none, row);
    });
  }
  isStale_ = mayHaveForeignOneShots_ = false;
}

// What others put is none of what a client gave: it has no side data, and is not recent.
void RowStore::foreignChange(const Role& role, const Vane::BaseRow& row) {
  const EntityKey key = keyOf(role, row);
  side_.erase(key);
  if (recent_) recent_->keys_[role.index].erase(key);
  nextHandle_ = highest(nextHandle_, role.get(row, role.entryHandle) + 1);
  present_ = {};
  if (role.kind != Kind::encap) isStale_ = true;
  if (role.kind == Kind::route && destinationOf(role, row).isOneShot()) {
    mayHaveForeignOneShots_ = true;
  }
}

Vane::BaseRow RowStore::row(const Role& role, const Vane::BaseRow& keyRow) const {
  return table(role).rowIfPresent(keyRow, 0);
}

Vane::BaseRow RowStore::row(const Role& role, uint32_t id) const {
  return row(role, rowOfId(role, id));
}

bool RowStore::has(const Role& role, uint32_t id) {
  if (id == 0) return !row(role, id).isNull();
  uint32_t& known = present_[role.index][id % present_[0].size()];
  if (known == id) return true;
  if (row(role, id).isNull()) return false;
  known = id;
  return true;
}

SidePtr RowStore::side(const Role& role, const Vane::BaseRow& row) const {
  if (side_.empty()) return nullptr;
  const auto found = side_.find(keyOf(role, row));
  return found == side_.end() ? nullptr : found->second;
}

Image RowStore::image(const Role& role, Vane::BaseRow&& row) const {
  Image made{.role = &role, .row = std::move(row), .side = nullptr, .set = nullptr};
  made.side = side(role, made.row);
  if (role.kind != Kind::route) return made;
  const Destination to = destinationOf(role, made.row);
  if (to.isOneShot()) made.set = heldSet(to.id);
  return made;
}

std::shared_ptr<const HeldSet> RowStore::heldSet(uint32_t groupId) const {
  auto set = std::make_shared<HeldSet>();
  set->group = row(roles_.group(), groupId);
  if (set->group.isNull()) return nullptr;
  for (const Share& share : sharesOf(roles_.group(), set->group)) {
    set->members.push_back(row(roles_.member(), share.member));
    if (set->members.back().isNull()) return nullptr;
  }
  return set;
}

template <class F>
void RowStore::write(F f) {
  isWriting_ = true;
  try {
    f();
  } catch (...) {
    isWriting_ = false;
    throw;
  }
  isWriting_ = false;
}

void RowStore::setOrRemove(const Role& role, const Vane::BaseRow& key, Vane::BaseRow row) {
  write([&] {
    if (row.isNull()) {
      table(role).rowDel(key);
    } else {
      table(role).rowIs(row, false);
    }
  });
}

void RowStore::put(const Role& role, Vane::BaseRow& row, const Vane::BaseRow& before,
                   SidePtr side) {
  if (witness_) witness_->beforeChange(role, row, before);
  journal_.push_back({&role, before, row, before.isNull() ? nullptr : this->side(role, before),
                      isRecent(role, row)});
  try {
    write([&] { table(role).rowIs(row, false); });
  } catch (...) {
    journal_.pop_back();
    settle(role, row, before);
    throw;
  }
  follow(role, before, row, std::move(side), true);
  tally_.wrote(role);
}

void RowStore::del(const Role& role, const Vane::BaseRow& before) {
  if (witness_) witness_->beforeChange(role, before, before);
  journal_.push_back({&role, before, none, side(role, before), isRecent(role, before)});
  try {
    write([&] { table(role).rowDel(before); });
  } catch (...) {
    journal_.pop_back();
    settle(role, before, before);
    throw;
  }
  follow(role, before, none, nullptr, false);
  tally_.deleted(role);
}

void RowStore::clear() {
  loseReferences();
  present_ = {};
  side_.clear();
  recent_.reset();
  journal_.clear();
  for (const Role& role : roles_.all()) write([&] { table(role).rowDelAll(); });
  references_.clear();
  isStale_ = mayHaveForeignOneShots_ = false;
}

bool RowStore::undo(size_t mark) {
  bool undone = true;
  for (; journal_.size() > mark; journal_.pop_back()) {
    Change& change = journal_.back();
    const Role& role = *change.role;
    const Vane::BaseRow& key = change.after.isNull() ? change.before : change.after;
    try {
      setOrRemove(role, key, change.before);
      follow(role, change.after, change.before, std::move(change.sideBefore), change.wasRecent);
    } catch (const std::exception& failure) {
      undone = false;
      loseReferences();
      Log::error("rollbackFailed", {{"table", role.rowTable}}, "table {}: taking back a change: {}",
                 role.rowTable, failure.what());
    }
  }
  return undone;
}

void RowStore::settle(const Role& role, const Vane::BaseRow& key,
                      const Vane::BaseRow& before) noexcept {
  loseReferences();
  try {
    const Vane::BaseRow now = row(role, key);
    const bool same =
        before.isNull() || now.isNull() ? before.isNull() == now.isNull() : now.rowEqual(before);
    if (!same) setOrRemove(role, key, before);
  } catch (const std::exception& failure) {
    Log::error("checkFailed", {{"table", role.rowTable}}, "table {}: after a write that failed: {}",
               role.rowTable, failure.what());
  }
}

// References that cannot follow are stale, not wrong.
void RowStore::follow(const Role& role, const Vane::BaseRow& before, const Vane::BaseRow& after,
                      SidePtr side, bool recent) {
  const Vane::BaseRow& row = after.isNull() ? before : after;
  if (!isStale_) {
    loseReferences();
    references_.changed(role, before, after);
    if (recent_) {
      recent_->references_.changed(role, isRecent(role, row) ? before : none,
                                   recent ? after : none);
    }
    isStale_ = mayHaveForeignOneShots_ = false;
  }
  if (!role.isTable() && after.isNull()) {
    uint32_t& known = present_[role.index][idOf(role, before) % present_[0].size()];
    known = 0;
  }
  if (!recent_ && !side && side_.empty()) return;
  const EntityKey key = keyOf(role, row);
  if (recent_ && recent) recent_->keys_[role.index].insert(key);
  if (recent_ && !recent) recent_->keys_[role.index].erase(key);
  sideIs(key, std::move(side));
}

void RowStore::sideIs(const EntityKey& key, SidePtr side) {
  if (side) {
    side_[key] = std::move(side);
  } else if (!side_.empty()) {
    side_.erase(key);
  }
}

// Ids come round again only after two thousand million of them.
uint32_t RowStore::newReservedId(const Role& role) {
  do {
    lastReservedId_ = reservedIdBit | (lastReservedId_ + 1);
  } while (!row(role, lastReservedId_).isNull());
  return lastReservedId_;
}

}  // namespace Agent::P4
