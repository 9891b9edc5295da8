#include "agent/Tables.h"

#include <array>

namespace Agent {
namespace {

using Wire::AddressFamily;

constexpr std::string_view members = "P4RuntimeRouting::EcmpMember";
constexpr std::string_view groups = "P4RuntimeRouting::EcmpGroup";
constexpr std::string_view routes = "P4RuntimeRouting::IpDestinationTable";
constexpr std::string_view vrfRoutes = "P4RuntimeRouting::IpVrfPrefixTable";
constexpr std::string_view encaps = "NexthopGroup::L2NexthopGroupEncapTable";

// The capacities hold today's full Internet table several times over when it is spread over the
// three tables of its family, and leave most of a 32-bit process's address space free.
constexpr uint32_t ipv4Routes = 1u << 20;
constexpr uint32_t ipv6Routes = 1u << 19;

constexpr std::array<TableInfo, 10> tables{{
    {"VaneEcmpMember", "p4runtime/outputTables/routing/ecmpMemberTable", members, "nexthopInfo",
     65536},
    {"VaneEcmpGroup", "p4runtime/outputTables/routing/ecmpGroupTable", groups, "ecmpMemberList",
     4096},
    {"VaneIpv4Override", "p4runtime/outputTables/routing/ipv4OverrideTable", routes,
     "ipDestination", ipv4Routes, MountedBy::agent, AddressFamily::ipv4},
    {"VaneIpv4Fallback", "p4runtime/outputTables/routing/ipv4FallbackTable", routes,
     "ipDestination", ipv4Routes, MountedBy::agent, AddressFamily::ipv4},
    {"VaneIpv4VrfPrefix", "p4runtime/outputTables/routing/ipv4VrfPrefixTable", vrfRoutes,
     "vrfPrefixDestination", ipv4Routes, MountedBy::agent, AddressFamily::ipv4},
    {"VaneIpv6Override", "p4runtime/outputTables/routing/ipv6OverrideTable", routes,
     "ipDestination", ipv6Routes, MountedBy::agent, AddressFamily::ipv6},
    {"VaneIpv6Fallback", "p4runtime/outputTables/routing/ipv6FallbackTable", routes,
     "ipDestination", ipv6Routes, MountedBy::agent, AddressFamily::ipv6},
    {"VaneIpv6VrfPrefix", "p4runtime/outputTables/routing/ipv6VrfPrefixTable", vrfRoutes,
     "vrfPrefixDestination", ipv6Routes, MountedBy::agent, AddressFamily::ipv6},
    {"VaneIpv4Encap", "routing/l2nexthopgroup/ipv4EncapTable", encaps, "l2NexthopGroupEncap", 1024,
     MountedBy::plugin},
    {"VaneIpv6Encap", "routing/l2nexthopgroup/ipv6EncapTable", encaps, "l2NexthopGroupEncap", 1024,
     MountedBy::plugin},
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
