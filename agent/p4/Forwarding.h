// Applies updates to the forwarding state: what has to be there is, what must not be is not, and an
// update that is refused has changed nothing.
//
// On the agent's loop only.
#pragma once

#include <optional>
#include <span>
#include <vector>

#include "agent/p4/Fault.h"
#include "agent/p4/Pipeline.h"
#include "agent/p4/RowStore.h"
#include "agent/p4/Update.h"

namespace Agent::P4 {

class Forwarding {
 public:
  Forwarding(const Roles& roles, RowStore& store) : roles_(roles), store_(store) {}

  // Applies one update, whose row is used up. Throws Fault. The changes stay in the store's
  // journal.
  void apply(Update& update, const Pipeline& pipeline);

  // Removes what is old, but for members and groups that what is left refers to; nothing is old any
  // more.
  void removeOld();
  // Throws an INVALID_ARGUMENT Fault if what is there would not be possible under this pipeline.
  void needRoomFor(const Pipeline& pipeline) const;

 private:
  void insert(Update& update, const Pipeline& pipeline);
  void modify(Update& update, const Pipeline& pipeline);
  void set(Update& update, const Vane::BaseRow& before, const Pipeline& pipeline);
  void remove(const Role& role, const Vane::BaseRow& before);

  void needRoom(const Update& update, const Vane::BaseRow& counted, const Pipeline& pipeline) const;
  void needReferences(const Update& update);
  void needOneStyle(const Update& update, const Vane::BaseRow& counted);
  void needSlots(const Update& update, const Vane::BaseRow& counted, const Pipeline& pipeline);
  void needSameMaxSize(const Update& update, const Vane::BaseRow& before) const;
  void keepAction(Update& update, const Vane::BaseRow& before, const Pipeline& pipeline) const;
  // The rows that hold a route's one-shot action set.
  struct Held {
    Vane::BaseRow group;  // null: there is none
    std::vector<Share> shares;
  };
  Held heldBy(const Role& role, const Vane::BaseRow& route) const;
  // Whether nothing but that route uses the group, and nothing but the group its member.
  bool isOnlyUse(const Held& held);
  bool isOnlyUse(const Share& share);
  // Writes the members and the group of a one-shot action set, and has the route refer to them.
  // They are put over those that hold the set before it.
  void putOneShot(Update& update, const Held& before, const Pipeline& pipeline);
  uint32_t putMember(Vane::BaseRow& row, uint32_t over);
  // Removes what is not used any more.
  void removeUnused(const Held& held);
  // `row` says already what stamp() says.
  void put(const Role& role, Vane::BaseRow& row, const Vane::BaseRow& before, SidePtr side);
  // What every row of ours says beside its handle.
  static void stamp(const Role& role, Vane::BaseRow& row, const Pipeline& pipeline);
  template <class F>
  void removeRows(const Role& role, F unwanted);

  const Roles& roles_;
  RowStore& store_;
};

}  // namespace Agent::P4
