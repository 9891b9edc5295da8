// The switch's routing tables, as the agent needs to know them: by name only.
//
// Eight of them the agent mounts itself, before plug-ins start. The two encapsulation tables are
// mounted by the plug-in that serves them.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "platform/Wire/Address.h"

namespace Agent {

enum class MountedBy : uint8_t { agent, plugin };

struct TableInfo {
  std::string_view name;        // in the row database
  std::string_view path;        // in the entity tree, and below the root of the shared tables
  std::string_view entityType;  // the registered type of the table's entity
  std::string_view collection;
  uint32_t capacity;  // entries, unless an option says otherwise
  MountedBy mountedBy = MountedBy::agent;
  // The one family that its prefixes may have; unset: it has no prefixes.
  Wire::AddressFamily family = Wire::AddressFamily::unset;
};

// In the order in which they are mounted.
std::span<const TableInfo> routingTables();

// By name, path, or last part of the path; null for any other text.
const TableInfo* tableInfo(std::string_view text);

}  // namespace Agent
