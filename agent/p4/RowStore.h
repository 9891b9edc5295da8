// The forwarding state, in the tables of the row database, and what the agent knows beside it.
//
// Every change of ours goes through put() and del(): they keep a journal, from which changes can be
// taken back; the counts of references; and the side data of entities. Rows may be changed by
// others as well, through the row database: the counts are then made anew, by a scan, when they are
// next needed. A table that cannot be read to its end leaves them unknown, and asking for them
// throws CorruptionDetectedException.
//
// On the agent's loop only.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "agent/CompleteWalk.h"
#include "agent/p4/Image.h"
#include "agent/p4/References.h"
#include "agent/p4/Roles.h"
#include "agent/p4/Tally.h"
#include "agent/p4/Update.h"

namespace Agent::P4 {

// Is told of each change of ours before it is made.
class ChangeWitness {
 public:
  virtual ~ChangeWitness() = default;
  // `before` is null for a row that is new; `key` has its key.
  virtual void beforeChange(const Role& role, const Vane::BaseRow& key,
                            const Vane::BaseRow& before) = 0;
};

class RowStore {
 public:
  // Takes over what the tables hold. What is left of one-shot action sets that no route uses goes.
  RowStore(const Roles& roles, const Vane::VaneDB& database, Tally& tally);
  ~RowStore();
  RowStore(const RowStore&) = delete;
  RowStore& operator=(const RowStore&) = delete;

  void witnessIs(ChangeWitness* witness) { witness_ = witness; }

  Vane::VaTableImplementation& table(const Role& role) const { return *tables_[role.index]; }
  uint64_t size(const Role& role) const { return table(role).size(); }
  // Null if there is none.
  Vane::BaseRow row(const Role& role, const Vane::BaseRow& keyRow) const;
  Vane::BaseRow row(const Role& role, uint32_t id) const;
  bool has(const Role& role, uint32_t id);
  SidePtr side(const Role& role, const Vane::BaseRow& row) const;
  Image image(const Role& role, Vane::BaseRow&& row) const;

  // Something of what the row's entity is made of is about to change, though not the row itself.
  void announce(const Role& role, const Vane::BaseRow& row) {
    if (witness_) witness_->beforeChange(role, row, row);
  }
  // `before` is the row of this key now; null: none. Throw what the table throws; then nothing has
  // changed.
  void put(const Role& role, Vane::BaseRow& row, const Vane::BaseRow& before, SidePtr side);
  void del(const Role& role, const Vane::BaseRow& before);
  // Empties every table; cannot be taken back.
  void clear();

  // Changes since the journal was last emptied.
  size_t mark() const { return journal_.size(); }
  // Takes back the changes after this mark, the latest first. False if a table refused that.
  bool undo(size_t mark);
  void emptyJournal() { journal_.clear(); }

  // Every row of a table, which `f` leaves alone. Throws CorruptionDetectedException at the end if
  // some could not be read.
  template <class F>
  void forEachRow(const Role& role, F f) const {
    Vane::VaTableImplementation& rows = table(role);
    CompleteWalk walk(rows);
    for (const auto at = rows.begin(0); *at; ++*at) {
      walk.visited();
      f(**at);
    }
    walk.needAll(role.rowTable);
  }

  // Up to date.
  const References& references();
  // False only if no route has a one-shot action set; known without a scan.
  bool mayHaveOneShots() const {
    return references_.oneShotRoutes() != 0 || mayHaveForeignOneShots_;
  }

  uint64_t highestGenId() const { return highestGenId_; }
  // Never given before, in this run, and above those found at its start.
  uint64_t newHandle() { return nextHandle_++; }
  // An id for a member or group of ours.
  uint32_t newReservedId(const Role& role);

  // What we have put since a pipeline was saved and is still there. Everything else is old: it goes
  // when that pipeline is committed.
  class Recent {
   public:
    explicit Recent(const Roles& roles) : keys_(roles.all().size()) {}
    bool has(const Role& role, const Vane::BaseRow& row) const {
      return keys_[role.index].contains(keyOf(role, row));
    }
    uint64_t size(const Role& role) const { return keys_[role.index].size(); }

   private:
    friend RowStore;
    std::vector<std::unordered_set<EntityKey, EntityKeyHash>> keys_;  // by role
    References references_;                                           // of these rows
  };
  void beginRecent() { recent_.emplace(roles_); }
  // Nothing is old any more.
  std::optional<Recent> endRecent() { return std::exchange(recent_, std::nullopt); }
  bool isOld(const Role& role, const Vane::BaseRow& row) const {
    return recent_ && !recent_->has(role, row);
  }
  // The rows, and who uses what, without the old.
  uint64_t stayingSize(const Role& role) const {
    return recent_ ? recent_->size(role) : size(role);
  }
  const References& stayingReferences();

 private:
  struct Change {
    const Role* role;
    Vane::BaseRow before;
    Vane::BaseRow after;
    SidePtr sideBefore;
    bool wasRecent;
  };
  // Null if a part of it is not there.
  std::shared_ptr<const HeldSet> heldSet(uint32_t groupId) const;
  class Observer;

  void adopt();
  void removeOrphans();
  void rebuild();
  void foreignChange(const Role& role, const Vane::BaseRow& row);
  // The references are not to be relied on.
  void loseReferences() noexcept { isStale_ = mayHaveForeignOneShots_ = true; }

  // Runs a write of ours, which observers are not to take for somebody else's.
  template <class F>
  void write(F f);
  // A write has thrown: whatever has become of it, the row is to be `before` again.
  void settle(const Role& role, const Vane::BaseRow& key, const Vane::BaseRow& before) noexcept;
  void setOrRemove(const Role& role, const Vane::BaseRow& key, Vane::BaseRow row);
  // What we know beside the tables follows a change.
  void follow(const Role& role, const Vane::BaseRow& before, const Vane::BaseRow& after,
              SidePtr side, bool recent);
  void sideIs(const EntityKey& key, SidePtr side);
  bool isRecent(const Role& role, const Vane::BaseRow& row) const {
    return recent_ && recent_->has(role, row);
  }

  const Roles& roles_;
  Tally& tally_;
  ChangeWitness* witness_ = nullptr;
  std::vector<std::shared_ptr<Vane::VaTableImplementation>> tables_;  // by role, as the observers
  std::vector<std::shared_ptr<Observer>> observers_;
  References references_;
  std::unordered_map<EntityKey, SidePtr, EntityKeyHash> side_;
  std::optional<Recent> recent_;  // while a pipeline is saved
  std::vector<Change> journal_;
  // Ids that are known to be there, by their low bits: a batch of routes asks for the same few
  // again and again. One per kind: members, groups.
  std::array<std::array<uint32_t, 256>, 2> present_{};
  uint64_t nextHandle_ = 1;
  uint64_t highestGenId_ = 0;
  uint32_t lastReservedId_ = reservedIdBit;
  bool isStale_ = false;                 // the references
  bool mayHaveForeignOneShots_ = false;  // since the references were made
  bool isWriting_ = false;               // a write of ours is under way
};

}  // namespace Agent::P4
