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

  // Removes what was written before this pipeline, but for members and groups that what is left
  // refers to.
  void keepOnly(const Pipeline& pipeline);
  // Throws an INVALID_ARGUMENT Fault if what is there would not be possible under this pipeline.
  void needRoomFor(const Pipeline& pipeline) const;

 private:
  void insert(Update& update, const Pipeline& pipeline);
  void modify(Update& update, const Pipeline& pipeline);
  void remove(const Role& role, const Vane::BaseRow& before);

  void needReferences(const Update& update);
  void needOneStyle(const Update& update, const Vane::BaseRow& before);
  void needSlots(const Update& update, const Vane::BaseRow& before, const Pipeline& pipeline);
  void needSameMaxSize(const Update& update, const Vane::BaseRow& before) const;
  void keepAction(Update& update, const Vane::BaseRow& before) const;
  // Writes the members and the group of a one-shot action set, and has the route refer to them.
  void putOneShot(Update& update, const Pipeline& pipeline);
  void removeOneShot(const Vane::BaseRow& route, const Role& role);
  void put(const Role& role, Vane::BaseRow& row, const Vane::BaseRow& before, SidePtr side,
           const Pipeline& pipeline);
  template <class F>
  void removeRows(const Role& role, F unwanted);

  const Roles& roles_;
  RowStore& store_;
};

}  // namespace Agent::P4
