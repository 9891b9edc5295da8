// Who uses what: how many slots of groups and how many routes use each member and each group.
//
// Kept from change to change, each as the row before it and the row after it; a null row says that
// there is none.
#pragma once

#include <cstdint>
#include <unordered_map>

#include "agent/p4/Roles.h"

namespace Agent::P4 {

class References {
 public:
  References();

  void changed(const Role& role, const Vane::BaseRow& before, const Vane::BaseRow& after);
  void clear();

  uint64_t usesOfMember(uint32_t id) const { return uses(members_, id); }
  uint64_t usesOfGroup(uint32_t id) const { return uses(groups_, id); }
  // Slots of all groups.
  uint64_t slots() const { return slots_; }
  // Routes that use a member or group of a client, and routes with a one-shot action set.
  uint64_t plainRoutes() const { return plainRoutes_; }
  uint64_t oneShotRoutes() const { return oneShotRoutes_; }

 private:
  using Uses = std::unordered_map<uint32_t, uint64_t>;

  static uint64_t uses(const Uses& of, uint32_t id) {
    const auto found = of.find(id);
    return found == of.end() ? 0 : found->second;
  }
  static void count(Uses& of, uint32_t id, int change);
  void countRow(const Role& role, const Vane::BaseRow& row, int change);

  Uses members_;
  Uses groups_;
  uint64_t slots_ = 0;
  uint64_t plainRoutes_ = 0;
  uint64_t oneShotRoutes_ = 0;
};

}  // namespace Agent::P4
