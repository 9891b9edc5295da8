// One write, checked as far as it can be without looking at the tables, and made into rows.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "agent/p4/Roles.h"

namespace Agent::P4 {

// What clients gave with an entity and rows have no column for. Held while the agent runs: of each
// group, whose max_size must not change, and else only where something is not at its default.
struct SideData {
  std::string metadata{};
  uint64_t controllerMetadata = 0;
  int32_t maxSize = 0;    // of a group
  int selectionMode = 0;  // of a one-shot action set, as are the size semantics
  int sizeSemantics = 0;
  std::vector<bool> watches{};  // by member or action: its port was given as `watch`

  bool isDefault() const {
    return metadata.empty() && controllerMetadata == 0 && maxSize == 0 && selectionMode == 0 &&
           sizeSemantics == 0 && watches.empty();
  }
};
using SidePtr = std::shared_ptr<const SideData>;  // null: all at default, or not known

// The actions of a one-shot set: each becomes a member, and all of them one group.
struct OneShot {
  std::vector<Vane::BaseRow> members;  // ids are still to be given
  std::vector<uint32_t> weights;
  std::vector<uint32_t> ports;  // 0: none
};

struct Update {
  enum class Op : uint8_t { insert, modify, del };
  Op op = Op::insert;
  // A MODIFY without action: what the entry does stays as it is.
  bool keepsAction = false;
  const Role* role = nullptr;
  // Where the row lies among those of the batch. It gets a buffer of its own when its turn comes,
  // in `row`: without entryHandle; the key alone for del.
  size_t packed = 0;
  Vane::BaseRow row;
  std::shared_ptr<SideData> side;
  std::unique_ptr<OneShot> oneShot;
};

}  // namespace Agent::P4
