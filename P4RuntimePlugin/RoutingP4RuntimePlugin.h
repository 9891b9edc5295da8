// The plug-in entity: puts an adapter in front of each of the ten routing output tables and
// registers it in the agent's row database.
//
// The base runs the three hooks: pluginInit once at the start, doMountsComplete when the mount
// group that pluginInit closed has completed, doCleanup when the plug-in is torn down. The plug-in
// keeps handles to the table entities only; the row database owns the adapters.
#pragma once

#include <cstddef>
#include <utility>

#include "platform/Hub/EntityManager.h"
#include "platform/Kit/Entity.h"
#include "platform/Kit/Text.h"
#include "platform/P4Runtime/Plugin.h"
#include "platform/State/EcmpTypes.h"
#include "platform/State/RoutingTypes.h"

namespace P4RuntimeRouting {

// The numbers of the plug-in's attributes, which are part of its type's contract.
namespace PluginAttribute {
inline constexpr Kit::AttributeId shoalPathDirName{514};
inline constexpr Kit::AttributeId shoalEncapPathDirName{515};
inline constexpr Kit::AttributeId ecmpMemberTable{516};
inline constexpr Kit::AttributeId ecmpGroupTable{517};
inline constexpr Kit::AttributeId ipv4OverrideTable{518};
inline constexpr Kit::AttributeId ipv4FallbackTable{519};
inline constexpr Kit::AttributeId ipv4VrfPrefixTable{520};
inline constexpr Kit::AttributeId ipv6OverrideTable{521};
inline constexpr Kit::AttributeId ipv6FallbackTable{522};
inline constexpr Kit::AttributeId ipv6VrfPrefixTable{523};
inline constexpr Kit::AttributeId ipv4EncapTable{524};
inline constexpr Kit::AttributeId ipv6EncapTable{525};
}  // namespace PluginAttribute

class P4RuntimeRoutingVanePlugin final : public P4Runtime::P4RuntimePluginBase {
 public:
  explicit P4RuntimeRoutingVanePlugin(Kit::Name name) : P4RuntimePluginBase(std::move(name)) {}
  const Kit::TypeNode* fwkType() const override;

  // From the entity allocator, counted by the type's allocation tracker until it is freed.
  static void* operator new(size_t bytes);
  static void operator delete(void* memory, size_t bytes) noexcept;

  // The directories of the tables. They end in '/': a table's path is its directory directly
  // followed by its attribute's name.
  const Kit::String& shoalPathDirName() const { return shoalPathDirName_; }
  const Kit::String& shoalEncapPathDirName() const { return shoalEncapPathDirName_; }
  const Kit::Ptr<EcmpMember>& ecmpMemberTable() const { return ecmpMemberTable_; }
  const Kit::Ptr<EcmpGroup>& ecmpGroupTable() const { return ecmpGroupTable_; }
  const Kit::Ptr<IpDestinationTable>& ipv4OverrideTable() const { return ipv4OverrideTable_; }
  const Kit::Ptr<IpDestinationTable>& ipv4FallbackTable() const { return ipv4FallbackTable_; }
  const Kit::Ptr<IpVrfPrefixTable>& ipv4VrfPrefixTable() const { return ipv4VrfPrefixTable_; }
  const Kit::Ptr<IpDestinationTable>& ipv6OverrideTable() const { return ipv6OverrideTable_; }
  const Kit::Ptr<IpDestinationTable>& ipv6FallbackTable() const { return ipv6FallbackTable_; }
  const Kit::Ptr<IpVrfPrefixTable>& ipv6VrfPrefixTable() const { return ipv6VrfPrefixTable_; }
  const Kit::Ptr<NexthopGroup::L2NexthopGroupEncapTable>& ipv4EncapTable() const {
    return ipv4EncapTable_;
  }
  const Kit::Ptr<NexthopGroup::L2NexthopGroupEncapTable>& ipv6EncapTable() const {
    return ipv6EncapTable_;
  }

  // Setters. Silent when the value is the same: the same text, the same entity. Otherwise the old
  // value has been released when the notifiees hear of the attribute.
  void shoalPathDirNameIs(Kit::String dirName) {
    attributeIs(shoalPathDirName_, std::move(dirName), PluginAttribute::shoalPathDirName);
  }
  void shoalEncapPathDirNameIs(Kit::String dirName) {
    attributeIs(shoalEncapPathDirName_, std::move(dirName), PluginAttribute::shoalEncapPathDirName);
  }
  void ecmpMemberTableIs(const Kit::Ptr<EcmpMember>& table) {
    attributeIs(ecmpMemberTable_, table, PluginAttribute::ecmpMemberTable);
  }
  void ecmpGroupTableIs(const Kit::Ptr<EcmpGroup>& table) {
    attributeIs(ecmpGroupTable_, table, PluginAttribute::ecmpGroupTable);
  }
  void ipv4OverrideTableIs(const Kit::Ptr<IpDestinationTable>& table) {
    attributeIs(ipv4OverrideTable_, table, PluginAttribute::ipv4OverrideTable);
  }
  void ipv4FallbackTableIs(const Kit::Ptr<IpDestinationTable>& table) {
    attributeIs(ipv4FallbackTable_, table, PluginAttribute::ipv4FallbackTable);
  }
  void ipv4VrfPrefixTableIs(const Kit::Ptr<IpVrfPrefixTable>& table) {
    attributeIs(ipv4VrfPrefixTable_, table, PluginAttribute::ipv4VrfPrefixTable);
  }
  void ipv6OverrideTableIs(const Kit::Ptr<IpDestinationTable>& table) {
    attributeIs(ipv6OverrideTable_, table, PluginAttribute::ipv6OverrideTable);
  }
  void ipv6FallbackTableIs(const Kit::Ptr<IpDestinationTable>& table) {
    attributeIs(ipv6FallbackTable_, table, PluginAttribute::ipv6FallbackTable);
  }
  void ipv6VrfPrefixTableIs(const Kit::Ptr<IpVrfPrefixTable>& table) {
    attributeIs(ipv6VrfPrefixTable_, table, PluginAttribute::ipv6VrfPrefixTable);
  }
  void ipv4EncapTableIs(const Kit::Ptr<NexthopGroup::L2NexthopGroupEncapTable>& table) {
    attributeIs(ipv4EncapTable_, table, PluginAttribute::ipv4EncapTable);
  }
  void ipv6EncapTableIs(const Kit::Ptr<NexthopGroup::L2NexthopGroupEncapTable>& table) {
    attributeIs(ipv6EncapTable_, table, PluginAttribute::ipv6EncapTable);
  }

  void pluginInit(const Kit::Ptr<P4Runtime::PluginContext>& context) override;
  void doMountsComplete(Hub::MountStatus status,
                        const Kit::Ptr<Hub::EntityManager>& entityManager) override;
  void doCleanup(P4Runtime::PluginCleanupReason reason) override;

 private:
  template <class T>
  void attributeIs(T& place, T value, Kit::AttributeId id) {
    if (place == value) return;
    place = std::move(value);
    notify(id, nullptr);
  }

  // Destruction releases the handles from the last to the first.
  Kit::String shoalPathDirName_;
  Kit::String shoalEncapPathDirName_;
  Kit::Ptr<EcmpMember> ecmpMemberTable_;
  Kit::Ptr<EcmpGroup> ecmpGroupTable_;
  Kit::Ptr<IpDestinationTable> ipv4OverrideTable_;
  Kit::Ptr<IpDestinationTable> ipv4FallbackTable_;
  Kit::Ptr<IpVrfPrefixTable> ipv4VrfPrefixTable_;
  Kit::Ptr<IpDestinationTable> ipv6OverrideTable_;
  Kit::Ptr<IpDestinationTable> ipv6FallbackTable_;
  Kit::Ptr<IpVrfPrefixTable> ipv6VrfPrefixTable_;
  Kit::Ptr<NexthopGroup::L2NexthopGroupEncapTable> ipv4EncapTable_;
  Kit::Ptr<NexthopGroup::L2NexthopGroupEncapTable> ipv6EncapTable_;
};

// The name of the plug-in entity's type.
inline constexpr auto p4RuntimeRoutingVanePluginTypeName =
    "P4RuntimeRouting::P4RuntimeRoutingVanePlugin";

// The type's factory.
Kit::Ptr<Kit::Entity> p4RuntimeRoutingVanePluginFactory(Kit::Name name);

// The registered type, which is registered by the first call.
const Kit::TypeNode& p4RuntimeRoutingVanePluginType();

}  // namespace P4RuntimeRouting
