// The plug-in on the reference platform, with its tables in real shared memory.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <sstream>

#include "P4RuntimePlugin/RoutingTables.h"
#include "platform/Trace/Trace.h"
#include "platform/Vane/ChangeReader.h"
#include "tests/adapters/Samples.h"
#include "tests/plugin/Agent.h"

namespace {

using adapter_tests::Sample;
using P4Runtime::PluginCleanupReason;
using P4RuntimeRouting::forEachTable;
using testing::ElementsAre;
using testing::HasSubstr;
using Plugin = P4RuntimeRouting::P4RuntimeRoutingVanePlugin;

class RunningPlugin : public adapter_tests::DatabaseTest {
 protected:
  RunningPlugin() {
    agent.mountRoutingTables();
    agent.start();
    plugin = Kit::dynamicCast<Plugin>(agent.started.at(0));
  }

  template <class F>
  void forEachPublished(F f) {
    forEachTable([&]<class A>(const A& attribute) {
      SCOPED_TRACE(attribute.publishedName);
      f.template operator()<typename A::Adapter>(*db->table(attribute.publishedName),
                                                 attribute.path(*plugin).str());
    });
  }
  template <class Adapter>
  void write(Vane::VaTableImplementation& table, uint32_t i, uint32_t version = 1) {
    auto row = Sample<Adapter>::row(i, version);
    table.rowIs(row, false);
  }
  void writeThreeEverywhere() {
    forEachPublished([&]<class Adapter>(Vane::VaTableImplementation& table, const std::string&) {
      for (uint32_t i : {1u, 2u, 3u}) write<Adapter>(table, i);
    });
  }
  // The table as another process sees it.
  template <class Adapter>
  void attachReader(typename Adapter::Map& map, const std::string& path) {
    const typename Adapter::Table shape("shape");
    map.storeIs(Shoal::attachReader(agent.root.path, path, shape.layout()));
  }
  size_t filesThere() {
    size_t there = 0;
    for (const auto& path : Shoal::tablesBelow(agent.root.path)) {
      there += path.starts_with("p4runtime/outputTables/routing/") ||
               path.starts_with("routing/l2nexthopgroup/");
    }
    return there;
  }

  PluginTest::Agent agent{db};
  Kit::Ptr<Plugin> plugin;
};

TEST_F(RunningPlugin, HasPublishedTenEmptyTables) {
  EXPECT_THAT(db->tableNames(),
              ElementsAre("VaneEcmpMember", "VaneEcmpGroup", "VaneIpv4Override", "VaneIpv4Fallback",
                          "VaneIpv4VrfPrefix", "VaneIpv6Override", "VaneIpv6Fallback",
                          "VaneIpv6VrfPrefix", "VaneIpv4Encap", "VaneIpv6Encap"));
  for (const auto& name : db->tableNames()) {
    EXPECT_EQ(db->table(name)->size(), 0u) << name;
    EXPECT_TRUE(db->table(name)->modifierSupported()) << name;
  }
  EXPECT_EQ(filesThere(), 10u);
  EXPECT_GE(plugin->ipv4EncapTable()->l2NexthopGroupEncap().capacity(), 1024u);
}

TEST_F(RunningPlugin, HearsOfItsMountsThroughTheLoop) {
  const auto encap = plugin->ipv4EncapTable();
  EXPECT_TRUE(plugin->initComplete());
  EXPECT_FALSE(plugin->mountsComplete());
  agent.loop.run();
  EXPECT_TRUE(plugin->mountsComplete());
  EXPECT_TRUE(plugin->ipv4EncapTable() == encap);
}

TEST_F(RunningPlugin, PutsRowsWhereAReaderOfTheSharedTablesFindsTheirEntries) {
  writeThreeEverywhere();
  int tables = 0;
  forEachPublished([&]<class Adapter>(Vane::VaTableImplementation&, const std::string& path) {
    ++tables;
    typename Adapter::Map map;
    attachReader<Adapter>(map, path);
    EXPECT_EQ(map.mode(), Shoal::Mode::reader);
    EXPECT_EQ(map.size(), 3u);
    for (uint32_t i : {1u, 2u, 3u}) {
      bool found = false;
      EXPECT_TRUE(map.safeLookup(Sample<Adapter>::key(i), found) == Sample<Adapter>::entry(i));
      EXPECT_TRUE(found);
    }
  });
  EXPECT_EQ(tables, 10);
}

TEST_F(RunningPlugin, ReadsRowsBackByKeyAndInFull) {
  writeThreeEverywhere();
  forEachPublished([&]<class Adapter>(Vane::VaTableImplementation& table, const std::string&) {
    EXPECT_EQ(adapter_tests::hex(table.row(Sample<Adapter>::keyRow(2), 0)),
              adapter_tests::hex(Sample<Adapter>::row(2)));
    std::map<std::string, int> rows;
    const auto end = table.end(0);
    for (const auto at = table.begin(0); *at != *end; ++*at) ++rows[adapter_tests::hex(**at)];
    std::map<std::string, int> expected;
    for (uint32_t i : {1u, 2u, 3u}) ++expected[adapter_tests::hex(Sample<Adapter>::row(i))];
    EXPECT_EQ(rows, expected);
  });
}

TEST_F(RunningPlugin, TellsAReaderOfTheRowDatabaseEveryChangeByIndex) {
  forEachTable([&]<class A>(const A& attribute) {
    using S = Sample<typename A::Adapter>;
    SCOPED_TRACE(attribute.publishedName);
    const auto table = db->table(attribute.publishedName);
    Vane::ChangeReader reader(table, table->latestChangeIdx());
    write<typename A::Adapter>(*table, 1);     // index 2
    write<typename A::Adapter>(*table, 2);     // 4
    write<typename A::Adapter>(*table, 1, 2);  // 6, in place of 2
    table->rowDel(S::keyRow(2));               // 6 + 2, lowest bit set: 9, in place of 4
    std::vector<Vane::BasicVaTableChange> changes;
    ASSERT_EQ(reader.take(changes, 100), Vane::ChangeReader::Result::changes);
    ASSERT_EQ(changes.size(), 2u);
    EXPECT_EQ(changes[0].index(), 6u);
    EXPECT_EQ(changes[0].kind(), Vane::ChangeKind::exists);
    EXPECT_EQ(adapter_tests::hex(changes[0].row()), adapter_tests::hex(S::row(1, 2)));
    EXPECT_EQ(changes[1].index(), 9u);
    EXPECT_EQ(changes[1].kind(), Vane::ChangeKind::removed);
    EXPECT_EQ(adapter_tests::hex(changes[1].row()), adapter_tests::hex(S::rowOfKeyAlone(2)));
    EXPECT_EQ(reader.take(changes, 100), Vane::ChangeReader::Result::none);
  });
}

TEST_F(RunningPlugin, KeepsTheTablesEmptyForReasonsThatAreNotRemoval) {
  for (const auto reason : {PluginCleanupReason::restart, PluginCleanupReason::reconfigure}) {
    writeThreeEverywhere();
    plugin->cleanup(reason);
    EXPECT_EQ(filesThere(), 10u);
    KitShoal::Mount mount(agent.manager);
    forEachPublished(
        [&]<class Adapter>(Vane::VaTableImplementation& table, const std::string& path) {
          EXPECT_EQ(table.size(), 0u);
          EXPECT_TRUE(mount.getEntity(path));
          typename Adapter::Map map;
          attachReader<Adapter>(map, path);
          EXPECT_EQ(map.size(), 0u);
        });
  }
}

TEST_F(RunningPlugin, DetachesAndRemovesTheTablesForRemoval) {
  writeThreeEverywhere();
  plugin->cleanup(PluginCleanupReason::removal);
  EXPECT_EQ(filesThere(), 0u);
  KitShoal::Mount mount(agent.manager);
  forEachPublished([&]<class Adapter>(Vane::VaTableImplementation& table, const std::string& path) {
    EXPECT_FALSE(mount.getEntity(path));
    EXPECT_EQ(table.size(), 0u) << "the adapters stay installed and can be asked";
    EXPECT_TRUE(*table.begin(0) == *table.end(0));
    auto row = Sample<Adapter>::row(1);
    EXPECT_THROW(table.rowIs(row, false), Hub::MountException);
  });
  EXPECT_TRUE(plugin->ipv6EncapTable()) << "the handles stay set";
}

TEST_F(RunningPlugin, TellsReadersOfTheRowsThatACleanupTakes) {
  writeThreeEverywhere();
  std::map<std::string, std::unique_ptr<Vane::ChangeReader>> readers;
  for (const auto& name : db->tableNames()) {
    const auto table = db->table(name);
    readers[name] = std::make_unique<Vane::ChangeReader>(table, table->latestChangeIdx());
  }
  plugin->cleanup(PluginCleanupReason::removal);
  for (const auto& [name, reader] : readers) {
    std::vector<Vane::BasicVaTableChange> changes;
    EXPECT_EQ(reader->take(changes, 100), Vane::ChangeReader::Result::changes) << name;
    EXPECT_EQ(changes.size(), 3u) << name;
    for (const auto& change : changes) EXPECT_EQ(change.kind(), Vane::ChangeKind::removed);
  }
}

TEST_F(RunningPlugin, ThatGoesLeavesItsTablesPublishedAndAttached) {
  writeThreeEverywhere();
  agent.loop.run();
  agent.context->pluginDir()->entityDel("RoutingVane");
  agent.started.clear();
  // The library's loader holds the entity until it starts another.
  const uint32_t loaders = plugin->references() - 1;
  EXPECT_EQ(loaders, 1u);
  plugin = nullptr;
  EXPECT_EQ(db->table("VaneEcmpMember")->size(), 3u);
  EXPECT_EQ(filesThere(), 10u);
}

TEST_F(RunningPlugin, MayCompleteItsMountsAfterARemoval) {
  plugin->cleanup(PluginCleanupReason::removal);
  agent.loop.run();
  EXPECT_FALSE(plugin->ipv4EncapTable());
  EXPECT_TRUE(plugin->ecmpMemberTable());
}

TEST_F(RunningPlugin, TracesItsHooksAtLevelNineAndItsCleanupAtLevelFourAndInTheRingLog) {
  std::ostringstream traced;
  Trace::Handle& handle = Trace::handle("P4RuntimeRoutingVane");
  Trace::outputIs(&traced);
  handle.levelIs(9, true);
  handle.levelIs(4, true);
  plugin->handleMountStatus(Hub::MountStatus::succeeded, agent.manager);
  plugin->cleanup(PluginCleanupReason::removal);
  handle.levelIs(9, false);
  handle.levelIs(4, false);
  Trace::outputIs(nullptr);
  EXPECT_THAT(traced.str(), HasSubstr(" P4RuntimeRoutingVane/9 "
                                      "P4RuntimePlugin/RoutingP4RuntimePlugin:188 "
                                      "P4RuntimeRoutingVanePlugin::doMountsComplete\n"));
  EXPECT_THAT(traced.str(), HasSubstr(" P4RuntimeRoutingVane/4 "
                                      "P4RuntimePlugin/RoutingP4RuntimePlugin:53 "
                                      "P4RuntimeRoutingVanePlugin::doCleanup reason removal\n"));
  std::ostringstream ring;
  RingLog::dump(ring);
  EXPECT_THAT(ring.str(), HasSubstr(" P4RuntimePlugin/RoutingP4RuntimePlugin:53 "
                                    "P4RuntimeRoutingVanePlugin::doCleanup reason 1\n"));
}

class StartingPlugin : public adapter_tests::DatabaseTest {
 protected:
  PluginTest::Agent agent{db};
};

TEST_F(StartingPlugin, StopsAtAReadOnlyTableAndLeavesTheTablesBeforeItPublished) {
  agent.mountRoutingTables();
  const std::string path = "p4runtime/outputTables/routing/ipv6FallbackTable";
  const Kit::Ptr<P4RuntimeRouting::IpDestinationTable> readOnly(
      new P4RuntimeRouting::IpDestinationTable("ipv6FallbackTable"));
  KitShoal::Mount mount(agent.manager);
  const auto mounted = mount.getEntity(path);
  readOnly->storeIs(Shoal::attachReader(agent.root.path, path, readOnly->layout()));
  mounted->parent()->entityIs(readOnly);
  EXPECT_EQ(
      adapter_tests::assertionOf([&] { agent.start(); }),
      "IpDestinationVaneWrapper is set to allow modifiers, but underlying Shoal entity is not "
      "a writer | src-includes/P4RuntimeVane/P4RuntimeRoutingTypesVaneWrappers | "
      "IpDestinationVaneWrapper | 240");
  EXPECT_THAT(db->tableNames(),
              ElementsAre("VaneEcmpMember", "VaneEcmpGroup", "VaneIpv4Override", "VaneIpv4Fallback",
                          "VaneIpv4VrfPrefix", "VaneIpv6Override"));
  EXPECT_TRUE(agent.started.empty());
  EXPECT_FALSE(agent.context->pluginDir()->entity("RoutingVane"));
}

// No table type of the database is touched before the fault, so the child that dies leaves nothing.
TEST_F(StartingPlugin, WithoutARowDatabaseIsAStandardAssertion) {
  agent.mountRoutingTables();
  agent.context =
      new P4Runtime::PluginContext("context", agent.manager, nullptr, new Kit::Dir("plugins"));
  EXPECT_DEATH(agent.start(),
               "P4RuntimePlugin/RoutingP4RuntimePlugin:90: pluginInit: "
               "Assertion `adb' failed");
}

TEST_F(StartingPlugin, WithoutTheRoutingTablesIsAStandardAssertion) {
  EXPECT_DEATH(agent.start(), "Assertion `.*' failed");
}

// Every start gets a row database of its own, which numbers the row types as it comes to know them;
// the tables that were published stay in theirs.
TEST(RestartedPlugin, ServesEachNewRowDatabaseFromTheSameTables) {
  PluginTest::Agent agent(nullptr);
  agent.mountRoutingTables();
  std::vector<std::shared_ptr<Vane::VaneDB>> databases;
  for (uint32_t start = 1; start <= 3; ++start) {
    SCOPED_TRACE("start " + std::to_string(start));
    const auto db = databases.emplace_back(Vane::makeVaneDB());
    Vane::VaneDB::currentIs(db);
    if (start == 2) db->tableTypeId("NexthopGroup::L2NexthopGroupEncapRow");  // known first: 1
    agent.context =
        new P4Runtime::PluginContext("context", agent.manager, db, agent.context->pluginDir());
    agent.start();
    const auto plugin = Kit::dynamicCast<Plugin>(agent.started.back());
    agent.loop.run();
    EXPECT_TRUE(plugin->mountsComplete());
    EXPECT_EQ(db->tableNames().size(), 10u);
    forEachTable([&]<class A>(const A& attribute) {
      using S = Sample<typename A::Adapter>;
      SCOPED_TRACE(attribute.publishedName);
      const auto table = db->table(attribute.publishedName);
      EXPECT_EQ(table->size(), 0u);
      EXPECT_EQ(table->latestChangeIdx(), 1u) << "nothing of the starts before";
      auto row = S::row(start, start);
      EXPECT_EQ(row.rowType(), table->rowTypeId());
      table->rowIs(row, false);
      EXPECT_EQ(adapter_tests::hex(table->row(S::keyRow(start), 0)), adapter_tests::hex(row));
      EXPECT_EQ(table->latestChangeIdx(), 2u);
      typename A::Adapter::Map map;
      const typename A::Table shape("shape");
      map.storeIs(
          Shoal::attachReader(agent.root.path, attribute.path(*plugin).str(), shape.layout()));
      bool found = false;
      EXPECT_TRUE(map.safeLookup(S::key(start), found) == S::entry(start, start));
      EXPECT_TRUE(found);
      for (const auto& earlier : databases) {
        EXPECT_EQ(earlier->table(attribute.publishedName)->size(), 1u) << "one table for them all";
      }
    });
    plugin->cleanup(PluginCleanupReason::restart);
    for (const auto& each : databases) {
      for (const auto& name : each->tableNames()) EXPECT_EQ(each->table(name)->size(), 0u) << name;
    }
  }
  Vane::VaneDB::currentIs(nullptr);
}

// At the end of a process that goes on with a plug-in, its tables and its adapters all alive.
TEST(ProcessWithThePlugInLinked, EndsCleanly) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        const auto db = Vane::makeVaneDB();
        Vane::VaneDB::currentIs(db);
        static PluginTest::Agent agent(db);
        agent.mountRoutingTables();
        agent.start();
        agent.loop.run();
        std::exit(agent.started.at(0)->mountsComplete() ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
