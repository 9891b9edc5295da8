// The forwarding state, in the tables of the row database, and what the agent knows beside it.
//
// Every change of ours goes through put() and del(): they keep a journal, from which changes can be
// taken back; the counts of references; and the side data of entities, by entry handle. Rows may be
// changed by others as well, through the row database: the counts are then made anew, by a scan,
// when they are next needed.
//
// On the agent's loop only.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <unordered_set>
#include <vector>

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
  Image image(const Role& role, Vane::BaseRow row) const;

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

  // Up to date.
  const References& references();
  // False only if no route has a one-shot action set; known without a scan.
  bool mayHaveOneShots() const {
    return references_.oneShotRoutes() != 0 || mayHaveForeignOneShots_;
  }

  uint64_t highestGenId() const { return highestGenId_; }
  // Never given before, in this run, and above those found at its start.
  uint64_t newHandle() { return nextHandle_++; }
  // Whether the agent gave this handle in this run, so that its side data is known.
  bool isOfThisRun(uint64_t handle) const { return handle >= firstHandle_ && handle < nextHandle_; }
  // An id for a member or group of ours.
  uint32_t newReservedId(const Role& role);

  // Keys of rows without genId that were put since this was last emptied and are still there.
  const std::unordered_set<EntityKey, EntityKeyHash>& recentKeys() const { return recentKeys_; }
  void emptyRecentKeys() { recentKeys_.clear(); }

 private:
  struct Change {
    const Role* role;
    Vane::BaseRow before;
    Vane::BaseRow after;
    SidePtr sideBefore;
    bool wasRecent;
  };
  class Observer;

  template <class F>
  void forEachRow(const Role& role, F f) const;
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
              SidePtr side);
  void sideIs(uint64_t handle, SidePtr side);
  bool isRecent(const Role& role, const Vane::BaseRow& row) const;
  void recentIs(const Role& role, const Vane::BaseRow& row, bool recent);

  const Roles& roles_;
  Tally& tally_;
  ChangeWitness* witness_ = nullptr;
  std::vector<std::shared_ptr<Vane::VaTableImplementation>> tables_;  // by role, as the observers
  std::vector<std::shared_ptr<Observer>> observers_;
  References references_;
  std::unordered_map<uint64_t, SidePtr> side_;  // by entry handle
  std::unordered_set<EntityKey, EntityKeyHash> recentKeys_;
  std::vector<Change> journal_;
  // Ids that are known to be there, by their low bits: a batch of routes asks for the same few
  // again and again. One per kind: members, groups.
  std::array<std::array<uint32_t, 256>, 2> present_{};
  uint64_t firstHandle_ = 1;
  uint64_t nextHandle_ = 1;
  uint64_t highestGenId_ = 0;
  uint32_t lastReservedId_ = reservedIdBit;
  bool isStale_ = false;                 // the references
  bool mayHaveForeignOneShots_ = false;  // since the references were made
  bool isWriting_ = false;               // a write of ours is under way
};

}  // namespace Agent::P4
