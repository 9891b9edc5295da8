#include "agent/p4/References.h"

namespace Agent::P4 {

References::References() {
  members_.reserve(4096);
  groups_.reserve(1024);
}

void References::clear() {
  members_.clear();
  groups_.clear();
  slots_ = plainRoutes_ = oneShotRoutes_ = 0;
}

void References::changed(const Role& role, const Vane::BaseRow& before,
                         const Vane::BaseRow& after) {
  if (role.kind != Kind::route && role.kind != Kind::group) return;
  if (!before.isNull()) countRow(role, before, -1);
  if (!after.isNull()) countRow(role, after, 1);
}

void References::count(Uses& of, uint32_t id, int change) {
  uint64_t& uses = of[id];
  uses += static_cast<uint64_t>(static_cast<int64_t>(change));
  if (uses == 0) of.erase(id);
}

void References::countRow(const Role& role, const Vane::BaseRow& row, int change) {
  const auto step = static_cast<uint64_t>(static_cast<int64_t>(change));
  if (role.kind == Kind::group) {
    for (const uint32_t member : role.get(row, role.members)) {
      count(members_, member, change);
      slots_ += step;
    }
    return;
  }
  const Destination to = destinationOf(role, row);
  if (to.type == DestinationType::member) count(members_, to.id, change);
  if (to.type == DestinationType::group) count(groups_, to.id, change);
  if (to.isOneShot()) {
    oneShotRoutes_ += step;
  } else if (to.type == DestinationType::member || to.type == DestinationType::group) {
    plainRoutes_ += step;
  }
}

}  // namespace Agent::P4
