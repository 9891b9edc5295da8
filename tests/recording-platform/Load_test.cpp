// What happens when the library is loaded, and when the agent then runs the library's init-caller.
#include "tests/recording-platform/Bench.h"

namespace {

using namespace Recording;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

const Lines& loadLines() { return Recorder::instance().loadLines(); }

TEST(LibraryLoad, RegistersTheTypeAndThenTheLoaderWithItsFiveArguments) {
  Lines own;
  for (const auto& line : loadLines()) {
    if (!line.starts_with("installRow")) own.push_back(line);
  }
  EXPECT_THAT(own, ElementsAre("typeNodeIs P4RuntimeRouting::P4RuntimeRoutingVanePlugin",
                               "DefaultPluginLoader", "source",
                               "registerPlugin RoutingVane, the loader's own text, RoutingVane, "
                               "Routing, the last init-caller"));
}

TEST(LibraryLoad, InstallsOneGeneratorForEachOfFourRowTypes) {
  EXPECT_THAT(
      linesWith(loadLines(), "installRowOpsGenerator"),
      UnorderedElementsAre("installRowOpsGenerator P4RuntimeRouting::IpDestinationRow",
                           "installRowOpsGenerator P4RuntimeRouting::VrfPrefixDestinationRow",
                           "installRowOpsGenerator P4RuntimeRouting::IpVrfPrefixStatusEntryRow",
                           "installRowOpsGenerator NexthopGroup::L2NexthopGroupEncapRow"));
}

TEST(LibraryLoad, DescribesEveryRowTypeThatItPublishes) {
  const Lines described = linesWith(loadLines(), "installRowMetadata");
  for (const auto& table : expectedTables()) {
    EXPECT_THAT(described, testing::Contains("installRowMetadata " + table.rowType));
  }
}

// The loader, the text of where the library comes from, the registration: whichever fails, the
// agent is left with no init-caller of an object that was never made.
TEST(LoaderConstruction, ThatFailsLeavesNoInitCallerBehind) {
  const Lines calls = {"DefaultPluginLoader", "source",
                       "registerPlugin RoutingVane, the loader's own text, RoutingVane, Routing, "
                       "the last init-caller"};
  auto& agent = P4Runtime::DefaultPluginLoader();
  const size_t known = agent.initCallers().size();
  for (size_t failing = 0; failing < calls.size(); ++failing) {
    SCOPED_TRACE(calls[failing]);
    Recorder::instance().reset();
    Recorder::instance().failAt(failing);
    EXPECT_THROW(P4RuntimeRouting::RoutingP4RuntimePluginLoader(), InjectedFailure);
    EXPECT_THAT(Recorder::instance().lines(),
                testing::ElementsAreArray(before(calls, failing + 1)));
    EXPECT_EQ(agent.initCallers().size(), known);
  }
  Recorder::instance().reset();
  const P4RuntimeRouting::RoutingP4RuntimePluginLoader loader;
  EXPECT_THAT(Recorder::instance().lines(), testing::ElementsAreArray(calls));
  ASSERT_EQ(agent.initCallers().size(), known + 1);
  agent.initCallers().pop_back();
}

// The library's own loader object: the entity that it starts here goes when the process ends.
TEST(LibraryLoad, OfTheLibrarysLoaderStartsThePlugInWhenTheAgentCallsBack) {
  Bench bench;
  auto& agent = P4Runtime::DefaultPluginLoader();
  ASSERT_EQ(agent.initCallers().size(), 2u) << "the library's and the bench's";
  agent.contextIs(bench.context.get());
  const auto started = (*agent.initCallers().front())();
  EXPECT_TRUE(started->initComplete());
  EXPECT_TRUE(bench.pluginDir->entity("RoutingVane") == started);
  EXPECT_EQ(started->fwkType()->name, "P4RuntimeRouting::P4RuntimeRoutingVanePlugin");
}

TEST(LoaderInit, ReturnsTheEntityThatItHolds) {
  Bench bench;
  bench.start();
  ASSERT_TRUE(bench.plugin);
  EXPECT_TRUE(bench.plugin->pluginContext() == bench.context);
  EXPECT_TRUE(bench.plugin->initComplete());
  EXPECT_EQ(bench.plugin->references(), 3u) << "the bench, the loader and the directory";
}

TEST(LoaderInit, OfASecondStartReplacesTheFirstEntity) {
  Bench bench;
  bench.start();
  const auto first = bench.plugin;
  bench.pluginDir->entityDel("RoutingVane");
  bench.start();
  EXPECT_FALSE(bench.plugin == first);
  EXPECT_EQ(first->references(), 1u);
}

TEST(LoaderInit, ThatFailsLeavesTheEntityOfTheStartBefore) {
  Bench bench;
  bench.start();
  const auto first = bench.plugin;
  bench.pluginDir->entityDel("RoutingVane");
  EXPECT_EQ(first->references(), 3u) << "here, the bench and the loader";
  bench.tableIs(0, Shoal::Mode::reader);
  EXPECT_THROW(bench.start(), Guard::AssertException);
  EXPECT_EQ(first->references(), 3u);
}

TEST(LoaderInit, ThatFailsLeavesAnEmptyHandleEmptyAndTheNameFreeForAnotherStart) {
  Bench bench;
  const auto& type = P4RuntimeRouting::p4RuntimeRoutingVanePluginType();
  const size_t alive = type.allocations->live();
  bench.tableIs(0, Shoal::Mode::reader);
  EXPECT_THROW(bench.start(), Guard::AssertException);
  EXPECT_EQ(type.allocations->live(), alive) << "neither loader nor directory holds the entity";
  bench.tableIs(0, Shoal::Mode::writer);
  bench.start();
  EXPECT_EQ(bench.database->tableNames().size(), 10u);
}

TEST(LoaderInit, WithoutMemoryForTheEntityUntracksIt) {
  Bench bench;
  const auto& type = P4RuntimeRouting::p4RuntimeRoutingVanePluginType();
  const size_t alive = type.allocations->live(), bytes = type.allocations->bytes();
  Recorder::instance().reset();
  Recorder::instance().failAt(1);
  EXPECT_THROW(bench.loader->init(bench.context.get()), InjectedFailure);
  EXPECT_THAT(bench.lines(), ElementsAre("createEntity RoutingVane of "
                                         "P4RuntimeRouting::P4RuntimeRoutingVanePlugin",
                                         "allocateEntity"));
  EXPECT_EQ(type.allocations->live(), alive);
  EXPECT_EQ(type.allocations->bytes(), bytes);
  EXPECT_TRUE(bench.pluginDir->entities().empty());
}

}  // namespace
