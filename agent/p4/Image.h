// An entity as it was at one moment, in rows: what becomes its message in another thread.
#pragma once

#include <memory>
#include <vector>

#include "agent/p4/Update.h"

namespace Agent::P4 {

// What holds a one-shot action set: a group, and its members, once for each action.
struct HeldSet {
  Vane::BaseRow group;
  std::vector<Vane::BaseRow> members;
};

struct Image {
  const Role* role = nullptr;
  Vane::BaseRow row;
  SidePtr side;
  std::shared_ptr<const HeldSet> set;  // of a route with such a set, unless it is not there

  // Memory that it holds, about.
  size_t bytes() const;
};

// Consecutive equal slots of a group are one member, whose weight is their number.
struct Share {
  uint32_t member = 0;
  uint32_t port = 0;  // 0: none
  uint32_t weight = 0;
};
std::vector<Share> sharesOf(const Role& group, const Vane::BaseRow& row);

}  // namespace Agent::P4
