#include "agent/p4/Roles.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <concepts>
#include <optional>

#include "agent/Tables.h"
#include "platform/Vane/ColumnKinds.h"

namespace Agent::P4 {
namespace {

using Vane::ColumnType;
using Vane::LayoutColumn;

struct RoleInfo {
  Kind kind;
  const char* rowTable;
  const char* rowType;
  uint32_t id;
  const char* name;
  uint32_t actionId = 0;
  const char* actionName = "";
};

constexpr auto memberRow = "P4RuntimeRouting::NexthopInfoRow";
constexpr auto groupRow = "P4RuntimeRouting::EcmpMemberListRow";
constexpr auto routeRow = "P4RuntimeRouting::IpDestinationRow";
constexpr auto vrfRow = "P4RuntimeRouting::VrfPrefixDestinationRow";
constexpr auto encapRow = "NexthopGroup::L2NexthopGroupEncapRow";
constexpr auto ecmp = ecmpProfileName.data();

// Ids and names are what controllers are compiled against: they never change their meaning.
constexpr std::array<RoleInfo, 10> roleInfos{{
    {Kind::member, "VaneEcmpMember", memberRow, ecmpProfileId, ecmp, setNexthopId,
     "routing.set_nexthop"},
    {Kind::group, "VaneEcmpGroup", groupRow, ecmpProfileId, ecmp},
    {Kind::route, "VaneIpv4Override", routeRow, 0x02000001, "routing.ipv4.override"},
    {Kind::route, "VaneIpv4Fallback", routeRow, 0x02000002, "routing.ipv4.fallback"},
    {Kind::route, "VaneIpv4VrfPrefix", vrfRow, 0x02000003, "routing.ipv4.vrf_prefix"},
    {Kind::route, "VaneIpv6Override", routeRow, 0x02000004, "routing.ipv6.override"},
    {Kind::route, "VaneIpv6Fallback", routeRow, 0x02000005, "routing.ipv6.fallback"},
    {Kind::route, "VaneIpv6VrfPrefix", vrfRow, 0x02000006, "routing.ipv6.vrf_prefix"},
    {Kind::encap, "VaneIpv4Encap", encapRow, 0x02000007, "routing.ipv4.encap", setEncap4Id,
     "routing.ipv4.set_encap"},
    {Kind::encap, "VaneIpv6Encap", encapRow, 0x02000008, "routing.ipv6.encap", setEncap6Id,
     "routing.ipv6.set_encap"},
}};

// Encapsulation rows hold addresses of either family; the table says which.
Wire::AddressFamily familyOf(const RoleInfo& info) {
  if (info.actionId == setEncap4Id) return Wire::AddressFamily::ipv4;
  if (info.actionId == setEncap6Id) return Wire::AddressFamily::ipv6;
  const TableInfo* table = tableInfo(info.rowTable);
  return table ? table->family : Wire::AddressFamily::unset;
}

int widthOf(ColumnType type, Wire::AddressFamily family) {
  switch (type) {
    case ColumnType::u64:
      return 64;
    case ColumnType::u32:
    case ColumnType::i32:
      return 32;
    case ColumnType::u16:
      return 16;
    case ColumnType::boolean:
      return 1;
    case ColumnType::ethAddr:
      return 48;
    case ColumnType::prefix:
    case ColumnType::addr:
      return 8 * static_cast<int>(Wire::addressLength(family));
    case ColumnType::u32Array:
      break;
  }
  return 0;
}

// The most bytes of variable data that a column may have.
size_t longestBody(ColumnType type) {
  using Vane::bodyBytes;
  switch (type) {
    case ColumnType::prefix:
      return bodyBytes(Wire::IpGenPrefix{.family = Wire::AddressFamily::ipv6});
    case ColumnType::addr:
      return bodyBytes(Wire::IpGenAddr{.family = Wire::AddressFamily::ipv6});
    case ColumnType::u32Array:
      return bodyBytes(std::vector<uint32_t>(maxGroupSlots));
    default:
      return 0;
  }
}

// "destinationPrefix" -> "destination_prefix"
std::string snake(std::string_view name) {
  std::string made;
  for (const char c : name) {
    if (std::isupper(static_cast<unsigned char>(c))) made += '_';
    made += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return made;
}

// Takes the column if it is one of those with a meaning of their own.
template <class T>
bool take(Place<T>& place, std::string_view name, const LayoutColumn& column, size_t index) {
  if (column.name != name) return false;
  place = {index, column.offset};
  return true;
}

void placeColumns(Role& role) {
  const auto& columns = role.layout.columns();
  size_t longest = role.layout.fixedLength();
  for (const LayoutColumn& column : columns) longest += longestBody(column.type);
  role.longestRow = static_cast<Vane::len_t>(longest);
  for (size_t i = 0; i < columns.size(); ++i) {
    const LayoutColumn& column = columns[i];
    const bool own =
        take(role.genId, "genId", column, i) || take(role.entryHandle, "entryHandle", column, i) ||
        take(role.valid, "valid", column, i) || take(role.entryId, "entryId", column, i) ||
        take(role.destinationType, "destinationType", column, i) ||
        take(role.destinationId, "destinationId", column, i) ||
        take(role.members, "members", column, i) || take(role.watchPorts, "watchPorts", column, i);
    if (own) continue;
    auto& fields = column.isKey ? role.keys : role.params;
    fields.push_back({static_cast<uint32_t>(fields.size() + 1), snake(column.name), i,
                      column.offset, column.type, widthOf(column.type, role.family)});
  }
}

Vane::len_t rowTypeId(const Vane::VaneDB& database, const char* rowTable) {
  const auto table = database.table(rowTable);
  if (!table) {
    Vane::VaUnknownName::throwException("table \"" + std::string(rowTable) + "\" is not known");
  }
  return table->rowTypeId();
}

}  // namespace

Roles::Roles(const std::map<std::string, uint64_t>& capacities, const Vane::VaneDB* database) {
  roles_.reserve(roleInfos.size());
  for (const RoleInfo& info : roleInfos) {
    const auto wanted = capacities.find(info.rowTable);
    const TableInfo* table = tableInfo(info.rowTable);
    Role& role = roles_.emplace_back(Role{.index = roles_.size(),
                                          .kind = info.kind,
                                          .rowTable = info.rowTable,
                                          .name = info.name,
                                          .id = info.id,
                                          .actionId = info.actionId,
                                          .actionName = info.actionName,
                                          .family = familyOf(info),
                                          .capacity = wanted != capacities.end() ? wanted->second
                                                      : table                    ? table->capacity
                                                                                 : 0,
                                          .layout = Vane::RowLayout::of(info.rowType)});
    placeColumns(role);
    if (database) role.rowTypeId = rowTypeId(*database, info.rowTable);
  }
}

const Role* Roles::table(uint32_t id) const {
  const auto found = std::ranges::find(tables(), id, &Role::id);
  return found == tables().end() ? nullptr : &*found;
}

size_t EntityKeyHash::operator()(const EntityKey& key) const {
  static_assert(std::has_unique_object_representations_v<EntityKey>);
  return std::hash<std::string_view>()({reinterpret_cast<const char*>(&key), sizeof key});
}

EntityKey keyOf(const Role& role, const Vane::BaseRow& row) {
  EntityKey key{.role = static_cast<uint32_t>(role.index), .id = 0, .prefix = {}};
  for (const Field& field : role.keys) {
    if (field.isPrefix()) {
      row.getColumn(field.offset, key.prefix);
    } else if (field.type == ColumnType::u16) {
      key.id = row.getScalar<uint16_t>(field.offset);
    } else {
      key.id = row.getScalar<uint32_t>(field.offset);
    }
  }
  return key;
}

Destination destinationOf(const Role& route, const Vane::BaseRow& row) {
  return {static_cast<DestinationType>(route.get(row, route.destinationType)),
          route.get(row, route.destinationId)};
}

}  // namespace Agent::P4
