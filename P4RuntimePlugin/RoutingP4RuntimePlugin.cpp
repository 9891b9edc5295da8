#include "P4RuntimePlugin/RoutingP4RuntimePlugin.h"

#include <memory>
#include <sstream>

#include "P4RuntimePlugin/RoutingTables.h"
#include "platform/Guard/Assert.h"
#include "platform/Hub/Mount.h"
#include "platform/Trace/Trace.h"
#include "platform/Vane/VaneDB.h"

using NexthopGroup::L2NexthopGroupEncapTable;

namespace {

constexpr auto source = "P4RuntimePlugin/RoutingP4RuntimePlugin";

Trace::Handle& traceHandle() {
  static Trace::Handle& handle = Trace::handle("P4RuntimeRoutingVane");
  return handle;
}

void mountEncapTable(const Kit::Ptr<const Hub::EntityManager>& entityManager,
                     const Kit::String& path) {
  KitShoal::Mount mount(entityManager);
  KitShoal::MountInfo info(KitShoal::KitShoalType::hashTable);
  info.collectionInfoIs({"l2NexthopGroupEncap", 1024});
  mount.doMount(path, "NexthopGroup::L2NexthopGroupEncapTable", info);
}

void ShoalTableCleanupAndUnmount(Kit::Ptr<const Hub::EntityManager> entityManager,
                                 Kit::String dirName, Kit::String tableName) {
  KitShoal::Mount mount(entityManager);
  const Kit::String path = dirName + tableName;
  mount.cleanup(path);
  mount.doUnmount(path);
}

}  // namespace

namespace P4RuntimeRouting {

void P4RuntimeRoutingVanePlugin::pluginInit(const Kit::Ptr<P4Runtime::PluginContext>& context) {
  Trace::trace(traceHandle(), 9, {source, 87}, "P4RuntimeRoutingVanePlugin::pluginInit");
  const std::shared_ptr<Vane::VaneDB> adb = pluginContext()->rowDatabase();
  Guard::standardAssert(adb != nullptr, "adb", source, 90, "pluginInit");
  shoalPathDirNameIs("p4runtime/outputTables/routing/");
  shoalEncapPathDirNameIs("routing/l2nexthopgroup/");
  mountEncapTable(context->entityManager(), shoalEncapPathDirName() + "ipv4EncapTable");
  mountEncapTable(context->entityManager(), shoalEncapPathDirName() + "ipv6EncapTable");

  // One table after the other: when one fails, those before it stay published.
  forEachTable([&]<class Attribute>(const Attribute& table) {
    KitShoal::Mount mount(pluginContext()->entityManager());
    (this->*table.set)(mount.getEntity<typename Attribute::Table>(table.path(*this)));
    const std::shared_ptr<typename Attribute::Adapter> adapter(
        new typename Attribute::Adapter((this->*table.get)(), adb, nullptr, true));
    adb->registerTable(table.publishedName, Attribute::Row::rowTypeName(), Vane::TableType::adapter,
                       0, 0, "", {});
    adb->tableImplementationIs(table.publishedName, adapter);
  });

  context->entityManager()->getMountGroup(Kit::Ptr<Hub::Mounter>(this))->doClose(false, "", 0.0);
}

void P4RuntimeRoutingVanePlugin::doMountsComplete(
    Hub::MountStatus, const Kit::Ptr<Hub::EntityManager>& entityManager) {
  Trace::trace(traceHandle(), 9, {source, 188}, "P4RuntimeRoutingVanePlugin::doMountsComplete");
  KitShoal::Mount mount(entityManager);
  ipv4EncapTableIs(
      mount.getEntity<L2NexthopGroupEncapTable>(shoalEncapPathDirName() + "ipv4EncapTable"));
  ipv6EncapTableIs(
      mount.getEntity<L2NexthopGroupEncapTable>(shoalEncapPathDirName() + "ipv6EncapTable"));
}

void P4RuntimeRoutingVanePlugin::doCleanup(P4Runtime::PluginCleanupReason reason) {
  RingLog::log({source, 53}, "P4RuntimeRoutingVanePlugin::doCleanup reason %s", "i",
               static_cast<uint32_t>(reason));
  if (traceHandle().enabled(4)) {
    std::ostringstream text;
    text << "P4RuntimeRoutingVanePlugin::doCleanup reason " << reason;
    DualLog::trace(traceHandle(), 4, {source, 53}, text.str());
  }

  // Emptied: VRF prefixes first within a family, groups before their members. Detached below: in
  // the order of publication. The two orders differ on purpose.
  ipv4VrfPrefixTable_->vrfPrefixDestinationDelAll();
  ipv4OverrideTable_->ipDestinationDelAll();
  ipv4FallbackTable_->ipDestinationDelAll();
  ipv6VrfPrefixTable_->vrfPrefixDestinationDelAll();
  ipv6OverrideTable_->ipDestinationDelAll();
  ipv6FallbackTable_->ipDestinationDelAll();
  ecmpGroupTable_->ecmpMemberListDelAll();
  ecmpMemberTable_->nexthopInfoDelAll();
  ipv4EncapTable_->l2NexthopGroupEncapDelAll();
  ipv6EncapTable_->l2NexthopGroupEncapDelAll();
  if (reason != P4Runtime::PluginCleanupReason::removal) return;

  const Kit::Ptr<const Hub::EntityManager> entityManager = pluginContext()->entityManager();
  forEachTable([&](const auto& table) {
    ShoalTableCleanupAndUnmount(entityManager, (this->*table.dirName)(), table.name);
  });
  // Not mounted by this plug-in, but detached with it, the inner one first.
  KitShoal::Mount mount(entityManager);
  mount.doUnmount("routing/vrf/status");
  mount.doUnmount("routing/status");
}

}  // namespace P4RuntimeRouting
