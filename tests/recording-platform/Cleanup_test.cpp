// Mount completion, clean-up and destruction: the exact order of calls, and what is left when one
// of them fails.
#include <algorithm>

#include "platform/Trace/Trace.h"
#include "tests/recording-platform/Bench.h"

namespace {

using namespace Recording;
using P4Runtime::PluginCleanupReason;
using testing::ElementsAre;
using testing::ElementsAreArray;

const std::string routing = "p4runtime/outputTables/routing/";
const std::string encap = "routing/l2nexthopgroup/";

Lines logLines(int reason) {
  return {
      "ring log P4RuntimePlugin/RoutingP4RuntimePlugin:53 "
      "P4RuntimeRoutingVanePlugin::doCleanup reason %s (i: " +
      std::to_string(reason) + ")"};
}

const Lines clearLines = {
    "clear " + routing + "ipv4VrfPrefixTable", "clear " + routing + "ipv4OverrideTable",
    "clear " + routing + "ipv4FallbackTable",  "clear " + routing + "ipv6VrfPrefixTable",
    "clear " + routing + "ipv6OverrideTable",  "clear " + routing + "ipv6FallbackTable",
    "clear " + routing + "ecmpGroupTable",     "clear " + routing + "ecmpMemberTable",
    "clear " + encap + "ipv4EncapTable",       "clear " + encap + "ipv6EncapTable"};

Lines detachLines() {
  Lines lines;
  for (const auto& path :
       {routing + "ecmpMemberTable", routing + "ecmpGroupTable", routing + "ipv4OverrideTable",
        routing + "ipv4FallbackTable", routing + "ipv4VrfPrefixTable",
        routing + "ipv6OverrideTable", routing + "ipv6FallbackTable",
        routing + "ipv6VrfPrefixTable", encap + "ipv4EncapTable", encap + "ipv6EncapTable"}) {
    lines = lines +
            Lines{"stored: mount", "cleanup " + path, "doUnmount " + path, "stored: mount gone"};
  }
  return lines + Lines{"stored: mount", "doUnmount routing/vrf/status", "doUnmount routing/status",
                       "stored: mount gone"};
}

Lines cleanupLines(int reason) {
  return logLines(reason) + clearLines + (reason == 1 ? detachLines() : Lines{});
}

class CleanupOrder : public testing::TestWithParam<int> {};

TEST_P(CleanupOrder, EmptiesTenTablesAndDetachesThemForReasonOneOnly) {
  Bench bench;
  bench.start();
  Recorder::instance().reset();
  bench.plugin->cleanup(static_cast<PluginCleanupReason>(GetParam()));
  EXPECT_THAT(bench.lines(), ElementsAreArray(cleanupLines(GetParam())));
  EXPECT_EQ(linesWith(bench.lines(), "cleanup ").size(), GetParam() == 1 ? 10u : 0u);
}

INSTANTIATE_TEST_SUITE_P(OfReason, CleanupOrder, testing::Values(0, 1, 2, 77));

TEST(Cleanup, TellsTheDualLogTheReasonInWordsWhenLevelFourIsOn) {
  Bench bench;
  bench.start();
  Trace::Handle& handle = Trace::handle("P4RuntimeRoutingVane");
  handle.levelIs(4, true);
  Recorder::instance().reset();
  bench.plugin->cleanup(PluginCleanupReason::restart);
  handle.levelIs(4, false);
  Recorder::instance().traceHandles.pop_back();  // that of this test
  EXPECT_THAT(bench.lines(),
              ElementsAreArray(logLines(0) +
                               Lines{"dual log P4RuntimeRoutingVane/4 "
                                     "P4RuntimePlugin/RoutingP4RuntimePlugin:53 "
                                     "P4RuntimeRoutingVanePlugin::doCleanup reason in words: 0"} +
                               clearLines));
}

TEST(Cleanup, LeavesHandlesSetAndAdaptersInstalled) {
  Bench bench;
  bench.start();
  bench.plugin->cleanup(PluginCleanupReason::removal);
  EXPECT_TRUE(bench.plugin->ecmpMemberTable());
  EXPECT_TRUE(bench.plugin->ipv6EncapTable());
  EXPECT_EQ(bench.database->tableNames().size(), 10u);
}

TEST(Cleanup, TellsTheAdaptersOfEveryEntryThatGoes) {
  Bench bench;
  bench.start();
  P4RuntimeRouting::NexthopInfo member;
  member.id = 5;
  bench.plugin->ecmpMemberTable()->nexthopInfoIs(member);
  Recorder::instance().reset();
  bench.plugin->cleanup(PluginCleanupReason::restart);
  Lines expected = cleanupLines(0);
  const auto clear = std::ranges::find(expected, "clear " + routing + "ecmpMemberTable");
  expected.insert(clear + 1, "notify 258");
  EXPECT_THAT(bench.lines(), ElementsAreArray(expected));
  EXPECT_EQ(bench.database->table("VaneEcmpMember")->latestChangeIdx(), 5u)
      << "2 for the entry that came; 4 with the lowest bit set for its removal";
}

// Every call of a clean-up in turn.
TEST(CleanupWithAFailingCall, StopsThereAndPassesTheExceptionOn) {
  for (const int reason : {0, 1, 2}) {
    const Lines whole = cleanupLines(reason);
    size_t failed = 0;
    for (size_t line = 0; line < whole.size(); ++line) {
      SCOPED_TRACE("reason " + std::to_string(reason) + ", line " + std::to_string(line) + ": " +
                   whole[line]);
      Bench bench;
      bench.start();
      Recorder::instance().reset();
      Recorder::instance().failAt(line);
      std::string thrown;
      try {
        bench.plugin->cleanup(static_cast<PluginCleanupReason>(reason));
      } catch (const InjectedFailure& failure) {
        thrown = failure.what();
      }
      if (!Recorder::instance().isCall(line)) {
        EXPECT_EQ(thrown, "") << "an event cannot fail";
        continue;
      }
      ++failed;
      const Lines made = before(whole, line + 1);
      EXPECT_EQ(thrown, made.back());
      EXPECT_THAT(bench.lines(), ElementsAreArray(made + unwinding(made)));
      EXPECT_TRUE(bench.plugin->ipv4VrfPrefixTable());
      EXPECT_EQ(bench.database->tableNames().size(), 10u);
    }
    EXPECT_EQ(failed, reason == 1 ? 10u + 30u + 3u : 10u);
  }
}

const Lines completionLines = {
    "trace P4RuntimeRoutingVane/9 P4RuntimePlugin/RoutingP4RuntimePlugin:188 "
    "P4RuntimeRoutingVanePlugin::doMountsComplete",
    "completed: mount", "getEntity routing/l2nexthopgroup/ipv4EncapTable",
    "getEntity routing/l2nexthopgroup/ipv6EncapTable", "completed: mount gone"};

Kit::Ptr<Hub::EntityManager> completedManager(const Bench& bench) {
  return Kit::Ptr<Hub::EntityManager>(new Manager("completed", bench.tree));
}

class MountsComplete : public testing::TestWithParam<Hub::MountStatus> {};

TEST_P(MountsComplete, LooksBothEncapTablesUpThroughTheManagerThatIsPassed) {
  Bench bench;
  bench.start();
  Recorder::instance().reset();
  bench.plugin->handleMountStatus(GetParam(), completedManager(bench));
  EXPECT_THAT(bench.lines(), ElementsAreArray(completionLines))
      << "the same entities: no notification";
  EXPECT_TRUE(bench.plugin->mountsComplete());
}

TEST_P(MountsComplete, ReplacesTheTwoEncapHandlesAndTouchesNothingElse) {
  Bench bench;
  bench.start();
  const auto oldEncap = bench.plugin->ipv4EncapTable();
  const auto oldMember = bench.plugin->ecmpMemberTable();
  for (size_t i = 0; i < 10; ++i) bench.tableIs(i, Shoal::Mode::writer);
  const auto manager = completedManager(bench);
  // Twice: the second time nothing is left to be changed.
  for (const bool changed : {true, false}) {
    Recorder::instance().reset();
    bench.plugin->handleMountStatus(GetParam(), manager);
    const auto notified = [changed](const char* line) { return changed ? Lines{line} : Lines{}; };
    EXPECT_THAT(bench.lines(),
                ElementsAreArray(before(completionLines, 3) + notified("notify 524") +
                                 Lines{completionLines[3]} + notified("notify 525") +
                                 Lines{completionLines[4]}));
  }
  EXPECT_FALSE(bench.plugin->ipv4EncapTable() == oldEncap);
  EXPECT_TRUE(bench.plugin->ipv4EncapTable() == bench.tree->at(encap + "ipv4EncapTable"));
  EXPECT_TRUE(bench.plugin->ipv6EncapTable() == bench.tree->at(encap + "ipv6EncapTable"));
  EXPECT_TRUE(bench.plugin->ecmpMemberTable() == oldMember);
}

INSTANTIATE_TEST_SUITE_P(OfStatus, MountsComplete,
                         testing::Values(Hub::MountStatus::succeeded, Hub::MountStatus::failed,
                                         Hub::MountStatus::timedOut));

TEST(MountsCompleteWithAFailingCall, StopsThereAndPassesTheExceptionOn) {
  for (const size_t line : {1u, 2u, 3u}) {
    Bench bench;
    bench.start();
    const auto manager = completedManager(bench);
    Recorder::instance().reset();
    Recorder::instance().failAt(line);
    EXPECT_THROW(bench.plugin->handleMountStatus(Hub::MountStatus::succeeded, manager),
                 InjectedFailure);
    const Lines gone = line == 1 ? Lines{} : Lines{completionLines[4]};
    EXPECT_THAT(bench.lines(), ElementsAreArray(before(completionLines, line + 1) + gone));
    EXPECT_FALSE(bench.plugin->mountsComplete());
  }
}

TEST(MountsCompletePaths, RunTheDirectoryIntoTheNameWithoutASeparator) {
  Bench bench;
  bench.start();
  bench.plugin->shoalEncapPathDirNameIs("routing/elsewhere");
  Recorder::instance().reset();
  bench.plugin->handleMountStatus(Hub::MountStatus::succeeded, completedManager(bench));
  EXPECT_THAT(linesWith(bench.lines(), "getEntity"),
              ElementsAre("getEntity routing/elsewhereipv4EncapTable",
                          "getEntity routing/elsewhereipv6EncapTable"));
}

// Handles are used unchecked: the clean-up goes as far as the first table that is missing.
TEST(CleanupWithAMissingTable, FaultsAtThatTablesDeleteAll) {
  Bench bench;
  bench.start();
  bench.entityIs(8, nullptr);
  bench.plugin->handleMountStatus(Hub::MountStatus::failed, completedManager(bench));
  EXPECT_FALSE(bench.plugin->ipv4EncapTable());
  Recorder::instance().reset();
  EXPECT_THROW(bench.plugin->cleanup(PluginCleanupReason::removal), AssertionFailed);
  EXPECT_THAT(bench.lines(), ElementsAreArray(logLines(1) + before(clearLines, 8) +
                                              Lines{"standard assertion handle holds an entity"}));
}

TEST(CleanupWithAMissingTable, OfAPlugInThatWasNeverStartedFaultsAtTheFirst) {
  Bench bench;
  const Kit::Ptr<Bench::Plugin> plugin(new Bench::Plugin("RoutingVane"));
  Recorder::instance().reset();
  EXPECT_THROW(plugin->cleanup(PluginCleanupReason::restart), AssertionFailed);
  EXPECT_THAT(bench.lines(),
              ElementsAreArray(logLines(0) + Lines{"standard assertion handle holds an entity"}));
}

// The plug-in's handles are the last ones to its tables and to its context: what they held goes
// with them, and shows their order.
TEST(Destruction, ReleasesTheTablesFromLastToFirstAndThenTheBase) {
  Bench bench;
  Kit::Ptr<Bench::Plugin> plugin(new Bench::Plugin("RoutingVane"));
  plugin->init(bench.context);
  plugin->cleanup(PluginCleanupReason::removal);
  bench.database->forgetImplementations();
  bench.tree->clear();
  bench.context = nullptr;
  bench.database = nullptr;
  Recorder::instance().reset();
  plugin = nullptr;
  Lines expected;
  for (size_t i = 10; i-- > 0;) expected.push_back("table gone " + expectedTables()[i].path);
  EXPECT_THAT(bench.lines(),
              ElementsAreArray(expected + Lines{"stored: database gone", "freeEntity"}))
      << "and neither empties nor detaches anything";
}

}  // namespace
