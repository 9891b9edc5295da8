// The ten routing output tables and the plug-in's twelve attributes, each told once.
#pragma once

#include <tuple>

#include "P4RuntimePlugin/RoutingP4RuntimePlugin.h"
#include "platform/Kit/Entity.h"
#include "src-includes/P4RuntimeVane/P4RuntimeRoutingEcmpTypesVaneWrappers.h"
#include "src-includes/P4RuntimeVane/P4RuntimeRoutingTypesVaneWrappers.h"

namespace P4RuntimeRouting {

// An attribute that holds a text.
struct TextAttribute {
  using Plugin = P4RuntimeRoutingVanePlugin;

  const char* name;
  Kit::AttributeId id;
  const Kit::String& (Plugin::*get)() const;
  void (Plugin::*set)(Kit::String);
};

// An attribute that holds the entity of a table, and how that table is published.
template <class AdapterType>
struct TableAttribute {
  using Plugin = P4RuntimeRoutingVanePlugin;
  using Adapter = AdapterType;
  using Table = typename Adapter::Table;
  using Row = typename Adapter::Row;

  const char* publishedName;  // in the row database
  const char* name;           // also the last part of the table's path
  Kit::AttributeId id;
  const Kit::Ptr<Table>& (Plugin::*get)() const;
  void (Plugin::*set)(const Kit::Ptr<Table>&);
  const Kit::String& (Plugin::*dirName)() const;

  Kit::String path(const Plugin& plugin) const { return (plugin.*dirName)() + name; }
};

using EcmpMemberAttribute = TableAttribute<EcmpMemberVaneWrappers::NexthopInfoVaneWrapper>;
using EcmpGroupAttribute = TableAttribute<EcmpGroupVaneWrappers::EcmpMemberListVaneWrapper>;
using IpDestinationAttribute =
    TableAttribute<IpDestinationTableVaneWrappers::IpDestinationVaneWrapper>;
using IpVrfPrefixAttribute =
    TableAttribute<IpVrfPrefixTableVaneWrappers::VrfPrefixDestinationVaneWrapper>;
using EncapAttribute = TableAttribute<
    NexthopGroup::L2NexthopGroupEncapTableVaneWrappers::L2NexthopGroupEncapVaneWrapper>;

// Calls f with each attribute that holds a text, in order of id.
template <class F>
void forEachText(F f) {
  using Plugin = P4RuntimeRoutingVanePlugin;
  static constexpr TextAttribute texts[] = {
      {"shoalPathDirName", PluginAttribute::shoalPathDirName, &Plugin::shoalPathDirName,
       &Plugin::shoalPathDirNameIs},
      {"shoalEncapPathDirName", PluginAttribute::shoalEncapPathDirName,
       &Plugin::shoalEncapPathDirName, &Plugin::shoalEncapPathDirNameIs},
  };
  for (const TextAttribute& text : texts) f(text);
}

// Calls f with each table, in the order in which they are published and detached.
template <class F>
void forEachTable(F f) {
  using Plugin = P4RuntimeRoutingVanePlugin;
  static constexpr std::tuple tables{
      EcmpMemberAttribute{"VaneEcmpMember", "ecmpMemberTable", PluginAttribute::ecmpMemberTable,
                          &Plugin::ecmpMemberTable, &Plugin::ecmpMemberTableIs,
                          &Plugin::shoalPathDirName},
      EcmpGroupAttribute{"VaneEcmpGroup", "ecmpGroupTable", PluginAttribute::ecmpGroupTable,
                         &Plugin::ecmpGroupTable, &Plugin::ecmpGroupTableIs,
                         &Plugin::shoalPathDirName},
      IpDestinationAttribute{"VaneIpv4Override", "ipv4OverrideTable",
                             PluginAttribute::ipv4OverrideTable, &Plugin::ipv4OverrideTable,
                             &Plugin::ipv4OverrideTableIs, &Plugin::shoalPathDirName},
      IpDestinationAttribute{"VaneIpv4Fallback", "ipv4FallbackTable",
                             PluginAttribute::ipv4FallbackTable, &Plugin::ipv4FallbackTable,
                             &Plugin::ipv4FallbackTableIs, &Plugin::shoalPathDirName},
      IpVrfPrefixAttribute{"VaneIpv4VrfPrefix", "ipv4VrfPrefixTable",
                           PluginAttribute::ipv4VrfPrefixTable, &Plugin::ipv4VrfPrefixTable,
                           &Plugin::ipv4VrfPrefixTableIs, &Plugin::shoalPathDirName},
      IpDestinationAttribute{"VaneIpv6Override", "ipv6OverrideTable",
                             PluginAttribute::ipv6OverrideTable, &Plugin::ipv6OverrideTable,
                             &Plugin::ipv6OverrideTableIs, &Plugin::shoalPathDirName},
      IpDestinationAttribute{"VaneIpv6Fallback", "ipv6FallbackTable",
                             PluginAttribute::ipv6FallbackTable, &Plugin::ipv6FallbackTable,
                             &Plugin::ipv6FallbackTableIs, &Plugin::shoalPathDirName},
      IpVrfPrefixAttribute{"VaneIpv6VrfPrefix", "ipv6VrfPrefixTable",
                           PluginAttribute::ipv6VrfPrefixTable, &Plugin::ipv6VrfPrefixTable,
                           &Plugin::ipv6VrfPrefixTableIs, &Plugin::shoalPathDirName},
      EncapAttribute{"VaneIpv4Encap", "ipv4EncapTable", PluginAttribute::ipv4EncapTable,
                     &Plugin::ipv4EncapTable, &Plugin::ipv4EncapTableIs,
                     &Plugin::shoalEncapPathDirName},
      EncapAttribute{"VaneIpv6Encap", "ipv6EncapTable", PluginAttribute::ipv6EncapTable,
                     &Plugin::ipv6EncapTable, &Plugin::ipv6EncapTableIs,
                     &Plugin::shoalEncapPathDirName},
  };
  std::apply([&f](const auto&... table) { (f(table), ...); }, tables);
}

}  // namespace P4RuntimeRouting
