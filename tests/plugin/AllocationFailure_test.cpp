// Each allocation of the plug-in's start fails, once or with all that come after it: the error
// passes on, the tables published before it stay, nothing leaks, and the plug-in starts when it is
// asked again.
#include <bitset>

#include "P4RuntimePlugin/RoutingTables.h"
#include "tests/Vane/FailingAllocator.h"
#include "tests/plugin/Agent.h"

namespace {

using FailingAllocator::failNth;
using FailingAllocator::liveBlocks;
using FailingAllocator::Memory;

class Start : public FailingAllocator::Test {
 protected:
  ~Start() override { Vane::VaneDB::currentIs(nullptr); }

  static std::shared_ptr<Vane::VaneDB> newDatabase() {
    auto database = Vane::makeVaneDB();
    Vane::VaneDB::currentIs(database);
    return database;
  }

  // Looks at what a start that failed has published: the first tables in order, and each of them
  // but perhaps the last with its adapter. Returns how many.
  static size_t published(Vane::VaneDB& database) {
    const size_t count = database.tableNames().size();
    size_t number = 0;
    P4RuntimeRouting::forEachTable([&](const auto& table) {
      const auto adapter = database.table(table.publishedName);
      EXPECT_TRUE(number + 1 >= count || adapter != nullptr) << table.publishedName;
      EXPECT_TRUE(number < count || adapter == nullptr) << table.publishedName;
      ++number;
    });
    return count;
  }

  // Fails the nth allocation of a start; returns whether there was one.
  bool fail(int nth, Memory memory) {
    PluginTest::Agent agent(newDatabase());
    agent.mountRoutingTables();
    const auto error = failNth(nth, memory, [&] { agent.start(); });
    if (!error) return false;
    const size_t count = published(*agent.database);
    publishedCounts.set(count);
    if (error->text[0] == '\0') {
      EXPECT_EQ(count, 10u) << "it started without that memory";
      return true;
    }
    EXPECT_TRUE(error->isOfMemory()) << error->text;
    agent.database = newDatabase();
    agent.context = new P4Runtime::PluginContext("context", agent.manager, agent.database,
                                                 agent.context->pluginDir());
    agent.started.clear();
    agent.start();
    EXPECT_EQ(published(*agent.database), 10u);
    return true;
  }

  // The plug-in's loader keeps what was started last: let that be the same each time.
  static void startUndisturbed() {
    PluginTest::Agent agent(newDatabase());
    agent.mountRoutingTables();
    agent.start();
    Vane::VaneDB::currentIs(nullptr);
  }

  std::bitset<11> publishedCounts;
};

TEST_F(Start, WithoutMemoryLeavesWhatWasPublishedAndCanBeMadeAgain) {
  startUndisturbed();
  for (const Memory memory : FailingAllocator::memories) {
    for (int nth = 1;; ++nth) {
      const long before = liveBlocks;
      const bool failed = fail(nth, memory);
      startUndisturbed();
      EXPECT_EQ(liveBlocks, before) << "leak after failure " << nth;
      if (!failed) break;
      ASSERT_LT(nth, 10000);
    }
  }
  EXPECT_TRUE(publishedCounts.all())
      << "a start fails before and after each of the tables: " << publishedCounts;
}

}  // namespace
