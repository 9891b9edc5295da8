#include "agent/Tables.h"

#include <array>

namespace Agent {
namespace {

using Wire::AddressFamily;

constexpr std::string_view memberTable = "P4RuntimeRouting::EcmpMember";
constexpr std::string_view groupTable = "P4RuntimeRouting::EcmpGroup";
constexpr std::string_view routeTable = "P4RuntimeRouting::IpDestinationTable";
constexpr std::string_view vrfRouteTable = "P4RuntimeRouting::IpVrfPrefixTable";
constexpr std::string_view encapTable = "NexthopGroup::L2NexthopGroupEncapTable";

// The capacities hold today's full Internet table several times over when it is spread over the
// three tables of its family, and leave most of a 32-bit process's address space free.
constexpr uint32_t ipv4Routes = 1u << 20;
constexpr uint32_t ipv6Routes = 1u << 19;

constexpr std::array<TableInfo, 10> tables{{
    {"VaneEcmpMember", "p4runtime/outputTables/routing/ecmpMemberTable", memberTable, "nexthopInfo",
     65536},
    {"VaneEcmpGroup", "p4runtime/outputTables/routing/ecmpGroupTable", groupTable, "ecmpMemberList",
     4096},
    {"VaneIpv4Override", "p4runtime/outputTables/routing/ipv4OverrideTable", routeTable,
     "ipDestination", ipv4Routes, MountedBy::agent, AddressFamily::ipv4},
    {"VaneIpv4Fallback", "p4runtime/outputTables/routing/ipv4FallbackTable", routeTable,
     "ipDestination", ipv4Routes, MountedBy::agent, AddressFamily::ipv4},
    {"VaneIpv4VrfPrefix", "p4runtime/outputTables/routing/ipv4VrfPrefixTable", vrfRouteTable,
     "vrfPrefixDestination", ipv4Routes, MountedBy::agent, AddressFamily::ipv4},
    {"VaneIpv6Override", "p4runtime/outputTables/routing/ipv6OverrideTable", routeTable,
     "ipDestination", ipv6Routes, MountedBy::agent, AddressFamily::ipv6},
    {"VaneIpv6Fallback", "p4runtime/outputTables/routing/ipv6FallbackTable", routeTable,
     "ipDestination", ipv6Routes, MountedBy::agent, AddressFamily::ipv6},
    {"VaneIpv6VrfPrefix", "p4runtime/outputTables/routing/ipv6VrfPrefixTable", vrfRouteTable,
     "vrfPrefixDestination", ipv6Routes, MountedBy::agent, AddressFamily::ipv6},
    {"VaneIpv4Encap", "routing/l2nexthopgroup/ipv4EncapTable", encapTable, "l2NexthopGroupEncap",
     1024, MountedBy::plugin},
    {"VaneIpv6Encap", "routing/l2nexthopgroup/ipv6EncapTable", encapTable, "l2NexthopGroupEncap",
     1024, MountedBy::plugin},
}};

std::string_view lastPart(std::string_view path) { return path.substr(path.rfind('/') + 1); }

}  // namespace

std::span<const TableInfo> routingTables() { return tables; }

const TableInfo* tableInfo(std::string_view text) {
  for (const TableInfo& table : tables) {
    if (text == table.name || text == table.path || text == lastPart(table.path)) return &table;
  }
  return nullptr;
}

}  // namespace Agent
