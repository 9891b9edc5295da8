// The exact order of the calls that the set-up makes, and what is left when one of them fails.
#include <cstring>

#include "tests/recording-platform/Bench.h"

namespace {

using namespace Recording;
using testing::ElementsAre;
using testing::ElementsAreArray;

const Lines startLines = {
    "createEntity RoutingVane of P4RuntimeRouting::P4RuntimeRoutingVanePlugin", "allocateEntity",
    "init with context",
    "trace P4RuntimeRoutingVane/9 P4RuntimePlugin/RoutingP4RuntimePlugin:87 "
    "P4RuntimeRoutingVanePlugin::pluginInit"};

Lines mountLines(const std::string& manager, const std::string& path) {
  return {manager + ": mount",
          "doMount " + path +
              " as NexthopGroup::L2NexthopGroupEncapTable type 0 collection l2NexthopGroupEncap "
              "of 1024",
          "dropped " + path, manager + ": mount gone"};
}

Lines mountsLines(const std::string& manager) {
  return Lines{"notify 514", "notify 515"} +
         mountLines(manager, "routing/l2nexthopgroup/ipv4EncapTable") +
         mountLines(manager, "routing/l2nexthopgroup/ipv6EncapTable");
}

Lines publishLines(const ExpectedTable& table) {
  return {"stored: mount",
          "getEntity " + table.path,
          "notify " + table.attribute,
          "stored: tableTypeId " + table.rowType,
          "stored: registerTable " + table.published + " of " + table.rowType +
              " type 2 0 0 \"\" with 0 options",
          "stored: tableImplementationIs " + table.published + " " + table.adapter,
          "stored: mount gone"};
}

Lines publishLines(size_t count) {
  Lines lines;
  for (size_t i = 0; i < count; ++i) lines = lines + publishLines(expectedTables()[i]);
  return lines;
}

Lines closeLines(const std::string& manager) {
  return {manager + ": getMountGroup of RoutingVane", "doClose false \"\" 0"};
}

const Lines& initLines() {
  static const Lines lines =
      startLines + mountsLines("stored") + publishLines(10) + closeLines("stored");
  return lines;
}

TEST(PluginInit, MakesTheseCallsInThisOrderAndNoOther) {
  Bench bench;
  bench.start();
  EXPECT_THAT(bench.lines(), ElementsAreArray(initLines()));
}

TEST(PluginInit, RegistersExactlyTenTablesInOrderEachOfTypeTwoWithoutBoundsTextOrOptions) {
  Bench bench;
  bench.start();
  EXPECT_THAT(bench.database->registered(),
              ElementsAre("VaneEcmpMember", "VaneEcmpGroup", "VaneIpv4Override", "VaneIpv4Fallback",
                          "VaneIpv4VrfPrefix", "VaneIpv6Override", "VaneIpv6Fallback",
                          "VaneIpv6VrfPrefix", "VaneIpv4Encap", "VaneIpv6Encap"));
  for (const auto& line : linesWith(bench.lines(), "registerTable")) {
    EXPECT_TRUE(line.ends_with(" type 2 0 0 \"\" with 0 options")) << line;
  }
}

TEST(PluginInit, InstallsEachAdapterBeforeTheNextTableIsRegistered) {
  Bench bench;
  bench.start();
  Lines interleaved;
  for (const auto& name : publishedNames(10)) {
    interleaved.push_back("registerTable " + name);
    interleaved.push_back("tableImplementationIs " + name);
  }
  Lines found;
  for (const auto& line : bench.lines()) {
    for (const char* call : {"registerTable ", "tableImplementationIs "}) {
      const size_t at = line.find(call);
      if (at != line.npos) found.push_back(line.substr(at, line.find(' ', at + strlen(call)) - at));
    }
  }
  EXPECT_THAT(found, ElementsAreArray(interleaved));
}

TEST(PluginInit, RegistersTheInstancesOfAFamilyUnderOneRowType) {
  Bench bench;
  bench.start();
  const auto rowType = [&](const char* name) { return bench.database->table(name)->rowTypeName(); };
  EXPECT_EQ(rowType("VaneIpv4Override"), "P4RuntimeRouting::IpDestinationRow");
  EXPECT_EQ(rowType("VaneIpv4Fallback"), rowType("VaneIpv4Override"));
  EXPECT_EQ(rowType("VaneIpv4VrfPrefix"), "P4RuntimeRouting::VrfPrefixDestinationRow");
  EXPECT_EQ(rowType("VaneIpv6VrfPrefix"), rowType("VaneIpv4VrfPrefix"));
  EXPECT_EQ(rowType("VaneIpv4Encap"), "NexthopGroup::L2NexthopGroupEncapRow");
  EXPECT_EQ(rowType("VaneIpv6Encap"), rowType("VaneIpv4Encap"));
}

TEST(PluginInit, LooksTablesUpAtTheDirectoryDirectlyFollowedByTheAttributesName) {
  Bench bench;
  bench.start();
  Lines expected;
  for (const char* name :
       {"ecmpMemberTable", "ecmpGroupTable", "ipv4OverrideTable", "ipv4FallbackTable",
        "ipv4VrfPrefixTable", "ipv6OverrideTable", "ipv6FallbackTable", "ipv6VrfPrefixTable"}) {
    expected.push_back(std::string("getEntity p4runtime/outputTables/routing/") + name);
  }
  expected.push_back("getEntity routing/l2nexthopgroup/ipv4EncapTable");
  expected.push_back("getEntity routing/l2nexthopgroup/ipv6EncapTable");
  EXPECT_THAT(linesWith(bench.lines(), "getEntity"), ElementsAreArray(expected));
}

TEST(PluginInit, MountsBothEncapTablesWithRoomFor1024Entries) {
  Bench bench;
  bench.start();
  EXPECT_THAT(linesWith(bench.lines(), "doMount"),
              ElementsAre("doMount routing/l2nexthopgroup/ipv4EncapTable as "
                          "NexthopGroup::L2NexthopGroupEncapTable type 0 collection "
                          "l2NexthopGroupEncap of 1024",
                          "doMount routing/l2nexthopgroup/ipv6EncapTable as "
                          "NexthopGroup::L2NexthopGroupEncapTable type 0 collection "
                          "l2NexthopGroupEncap of 1024"));
}

TEST(PluginInit, HoldsTheEntitiesAndNoAdapter) {
  Bench bench;
  bench.start();
  EXPECT_EQ(bench.plugin->shoalPathDirName(), "p4runtime/outputTables/routing/");
  EXPECT_EQ(bench.plugin->shoalEncapPathDirName(), "routing/l2nexthopgroup/");
  EXPECT_TRUE(bench.plugin->ecmpMemberTable() == bench.tree->at(expectedTables()[0].path));
  EXPECT_TRUE(bench.plugin->ipv6EncapTable() == bench.tree->at(expectedTables()[9].path));
  for (const auto& name : publishedNames(10)) {
    EXPECT_EQ(bench.database->table(name).use_count(), 2) << "the database and this call: " << name;
  }
}

TEST(PluginInit, AllowsModifiersAndTakesNoTableOperations) {
  Bench bench;
  bench.start();
  for (const auto& name : publishedNames(10)) {
    const auto table = bench.database->table(name);
    EXPECT_TRUE(table->modifierSupported()) << name;
    EXPECT_EQ(dynamic_cast<Vane::DefaultVaTableImplementation&>(*table).ops(), nullptr) << name;
  }
}

TEST(PluginInit, MountsAndClosesWithItsArgumentAndPublishesWithTheStoredContext) {
  Bench bench;
  const Kit::Ptr<Manager> other(new Manager("argument", bench.tree));
  const auto otherDatabase = std::make_shared<Database>("argument");
  const Kit::Ptr<P4Runtime::PluginContext> argument(
      new P4Runtime::PluginContext("other", other, otherDatabase, bench.pluginDir));
  const Kit::Ptr<Bench::Plugin> plugin(new Bench::Plugin("RoutingVane"));
  Recorder::instance().reset();
  Recorder::instance().argument = argument;
  plugin->init(bench.context);
  EXPECT_THAT(bench.lines(),
              ElementsAreArray(Lines{startLines[2], startLines[3]} + mountsLines("argument") +
                               publishLines(10) + closeLines("argument")));
  EXPECT_TRUE(otherDatabase->registered().empty());
}

TEST(PluginInit, WithoutARowDatabaseIsTheAssertionAdbAndNothingElse) {
  Bench bench;
  const Kit::Ptr<P4Runtime::PluginContext> without(
      new P4Runtime::PluginContext("context", bench.manager, nullptr, bench.pluginDir));
  const Kit::Ptr<Bench::Plugin> plugin(new Bench::Plugin("RoutingVane"));
  Recorder::instance().reset();
  try {
    plugin->init(without);
    FAIL() << "went on without a row database";
  } catch (const AssertionFailed& failed) {
    EXPECT_EQ(failed.condition, "adb");
    EXPECT_EQ(failed.file, "P4RuntimePlugin/RoutingP4RuntimePlugin");
    EXPECT_EQ(failed.line, 90);
  }
  EXPECT_THAT(bench.lines(), ElementsAre(startLines[2], startLines[3], "standard assertion adb"));
  EXPECT_TRUE(plugin->shoalPathDirName().empty());
  EXPECT_TRUE(plugin->shoalEncapPathDirName().empty());
}

TEST(PluginInit, MakesOneTraceHandleOnFirstUse) {
  EXPECT_THAT(Recorder::instance().loadTraceHandles(), testing::IsEmpty());
  Bench bench;
  bench.start();
  bench.plugin->cleanup(P4Runtime::PluginCleanupReason::restart);
  EXPECT_THAT(Recorder::instance().traceHandles, ElementsAre("P4RuntimeRoutingVane"));
}

// The table number k is not as it must be: tables before it stay published, nothing comes after it.
void expectStopAt(Bench& bench, size_t k, const Lines& found, const Lines& unpublished) {
  EXPECT_THAT(found, ElementsAreArray(startLines + mountsLines("stored") + publishLines(k) +
                                      before(publishLines(expectedTables()[k]), 4) + unpublished +
                                      Lines{"stored: mount gone"}));
  EXPECT_THAT(bench.database->registered(), ElementsAreArray(publishedNames(k)));
  EXPECT_THAT(bench.database->tableNames(), ElementsAreArray(publishedNames(k)));
  for (const auto& name : publishedNames(k)) EXPECT_TRUE(bench.database->table(name)) << name;
}

// What the failed start destroys when its last handle goes is not part of its calls.
Lines withoutGoing(Lines lines) {
  std::erase_if(lines, [](const std::string& line) {
    return line == "freeEntity" || line.starts_with("table gone");
  });
  return lines;
}

std::string messageOfStart(Bench& bench) {
  try {
    bench.start();
  } catch (const Guard::AssertException& e) {
    return e.message();
  }
  return "no assertion";
}

TEST(PluginInitWithAUselessTable, StopsAtATableThatIsNotAttached) {
  for (size_t k = 0; k < 10; ++k) {
    SCOPED_TRACE(expectedTables()[k].published);
    Bench bench;
    bench.entityIs(k, makeEntity(k));
    const std::string message = expectedTables()[k].adapter + " expects a mount Shoal entity";
    EXPECT_EQ(messageOfStart(bench), message);
    expectStopAt(bench, k, withoutGoing(bench.lines()), {"assertion " + message});
  }
}

TEST(PluginInitWithAUselessTable, StopsAtATableThatIsAttachedReadOnly) {
  for (size_t k = 0; k < 10; ++k) {
    SCOPED_TRACE(expectedTables()[k].published);
    Bench bench;
    bench.tableIs(k, k % 2 == 0 ? Shoal::Mode::reader : Shoal::Mode::snapshot);
    const std::string message =
        expectedTables()[k].adapter +
        " is set to allow modifiers, but underlying Shoal entity is not a writer";
    EXPECT_EQ(messageOfStart(bench), message);
    expectStopAt(bench, k, withoutGoing(bench.lines()), {"assertion " + message});
  }
}

TEST(PluginInitWithAUselessTable, RegistersNothingWhenTheEcmpMemberTableIsReadOnly) {
  Bench bench;
  bench.tableIs(0, Shoal::Mode::reader);
  EXPECT_EQ(messageOfStart(bench),
            "NexthopInfoVaneWrapper is set to allow modifiers, but "
            "underlying Shoal entity is not a writer");
  EXPECT_TRUE(bench.database->registered().empty());
}

TEST(PluginInitWithAUselessTable, LeavesSixTablesWhenTheIpv6FallbackTableIsReadOnly) {
  Bench bench;
  bench.tableIs(6, Shoal::Mode::reader);
  EXPECT_NE(messageOfStart(bench), "no assertion");
  EXPECT_THAT(bench.database->tableNames(),
              ElementsAre("VaneEcmpMember", "VaneEcmpGroup", "VaneIpv4Override", "VaneIpv4Fallback",
                          "VaneIpv4VrfPrefix", "VaneIpv6Override"));
}

// An absent or mistyped table stores an empty handle, untested, and is a fatal fault of the set-up.
TEST(PluginInitWithAUselessTable, FaultsAtATableThatIsAbsentOrOfAnotherType) {
  for (const bool absent : {true, false}) {
    for (size_t k = 0; k < 10; ++k) {
      SCOPED_TRACE(expectedTables()[k].published + (absent ? " absent" : " mistyped"));
      Bench bench;
      bench.entityIs(k, absent ? nullptr : Kit::Ptr<Kit::Entity>(new Kit::Dir("mistyped")));
      EXPECT_THROW(bench.start(), AssertionFailed);
      const auto table = publishLines(expectedTables()[k]);
      // An empty handle in place of an empty one is no change of the attribute.
      EXPECT_THAT(withoutGoing(bench.lines()),
                  ElementsAreArray(startLines + mountsLines("stored") + publishLines(k) +
                                   Lines{table[0], table[1], table[3],
                                         "standard assertion handle holds an entity",
                                         "stored: mount gone"}));
      EXPECT_THAT(bench.database->tableNames(), ElementsAreArray(publishedNames(k)));
    }
  }
}

// Every call of a whole start in turn: the exception passes out unchanged, no other call is made,
// and what was published before stays.
TEST(PluginInitWithAFailingCall, StopsThereAndLeavesWhatWasDone) {
  size_t failed = 0;
  for (size_t line = 0; line < initLines().size(); ++line) {
    SCOPED_TRACE("line " + std::to_string(line) + ": " + initLines()[line]);
    Bench bench;
    const auto alive = P4RuntimeRouting::p4RuntimeRoutingVanePluginType().allocations->live();
    Recorder::instance().reset();
    Recorder::instance().failAt(line);
    std::string thrown;
    try {
      bench.loader->init(bench.context.get());
    } catch (const InjectedFailure& failure) {
      thrown = failure.what();
    }
    if (!Recorder::instance().isCall(line)) {
      EXPECT_EQ(thrown, "") << "an event cannot fail";
      continue;
    }
    ++failed;
    const Lines made = before(initLines(), line + 1);
    EXPECT_EQ(thrown, made.back());
    EXPECT_THAT(withoutGoing(bench.lines()), ElementsAreArray(made + unwinding(made)));
    const size_t installed = linesWith(before(made, line), "tableImplementationIs").size();
    const size_t registered = linesWith(before(made, line), "registerTable").size();
    EXPECT_THAT(bench.database->tableNames(), ElementsAreArray(publishedNames(installed)));
    EXPECT_THAT(bench.database->registered(), ElementsAreArray(publishedNames(registered)));
    EXPECT_EQ(P4RuntimeRouting::p4RuntimeRoutingVanePluginType().allocations->live(), alive)
        << "nobody holds the entity that failed to start";
  }
  // Three to begin with, two attributes, four of mounting, six for each table, two to close.
  EXPECT_EQ(failed, 3u + 2u + 4u + 60u + 2u);
}

}  // namespace
