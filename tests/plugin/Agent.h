// An agent in a test: the reference platform with its tables in a directory of its own, the eight
// routing tables mounted, the plug-in started through the loader.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/P4Runtime/PluginLibrary.h"
#include "tests/Hub/HubTest.h"

namespace PluginTest {

struct RoutingTable {
  const char* path;
  const char* typeName;
};

// What the agent mounts before the plug-in starts; the encap tables are the plug-in's own.
inline constexpr RoutingTable routingTables[] = {
    {"p4runtime/outputTables/routing/ecmpMemberTable", "P4RuntimeRouting::EcmpMember"},
    {"p4runtime/outputTables/routing/ecmpGroupTable", "P4RuntimeRouting::EcmpGroup"},
    {"p4runtime/outputTables/routing/ipv4OverrideTable", "P4RuntimeRouting::IpDestinationTable"},
    {"p4runtime/outputTables/routing/ipv4FallbackTable", "P4RuntimeRouting::IpDestinationTable"},
    {"p4runtime/outputTables/routing/ipv4VrfPrefixTable", "P4RuntimeRouting::IpVrfPrefixTable"},
    {"p4runtime/outputTables/routing/ipv6OverrideTable", "P4RuntimeRouting::IpDestinationTable"},
    {"p4runtime/outputTables/routing/ipv6FallbackTable", "P4RuntimeRouting::IpDestinationTable"},
    {"p4runtime/outputTables/routing/ipv6VrfPrefixTable", "P4RuntimeRouting::IpVrfPrefixTable"},
};

struct Agent {
  explicit Agent(std::shared_ptr<Vane::VaneDB> db) : database(std::move(db)) {
    Hub::HubOptions options;
    options.shoalRoot = root.path;
    options.post = loop.post();
    manager = Hub::makeEntityManager(std::move(options));
    context = new P4Runtime::PluginContext("context", manager, database, new Kit::Dir("plugins"));
  }
  ~Agent() {
    // One that was started and not cleaned up is held by its directory.
    for (const auto& plugin : started) context->pluginDir()->entityDel(plugin->name());
  }

  void mountRoutingTables() {
    KitShoal::Mount mount(manager);
    for (const auto& table : routingTables) {
      mount.doMount(table.path, table.typeName, HubTest::tableOf(64));
    }
  }
  void start() { P4Runtime::startPlugins(context.get(), started); }

  HubTest::TempRoot root;
  HubTest::Loop loop;
  std::shared_ptr<Vane::VaneDB> database;
  Kit::Ptr<Hub::EntityManager> manager;
  Kit::Ptr<P4Runtime::PluginContext> context;
  std::vector<Kit::Ptr<P4Runtime::P4RuntimePluginBase>> started;
};

}  // namespace PluginTest
