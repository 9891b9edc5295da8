#include <gtest/gtest.h>

#include "platform/Vane/VaTable.h"
#include "tests/Guard/MessageOf.h"
#include "tests/VaneCore/MemoryTable.h"
#include "tests/VaneCore/Witness.h"

namespace {

using GuardTest::messageOf;
using testing_tables::MemoryTable;
using Vane::TableState;

TEST(TableImplementation, AnswersWithWhatItWasBuiltWith) {
  const MemoryTable table(MemoryTable::Flags{}, {{"colour", "blue"}});
  EXPECT_EQ(table.tableTypeName(), "MemoryTable");
  EXPECT_EQ(table.rowTypeName(), "Test::First");
  EXPECT_EQ(table.rowTypeId(), 7);
  EXPECT_EQ(table.ops(), nullptr);
  EXPECT_EQ(table.options().at("colour"), "blue");
}

TEST(TableImplementation, HasOneIndex) { EXPECT_EQ(MemoryTable().indexes(), 1); }

// One flag at a time, in the constructor's order.
TEST(TableImplementation, FlagsComeInTheOrderUniqueBoundedExternalOrdered) {
  for (int set = 0; set < 4; ++set) {
    const MemoryTable table(MemoryTable::Flags{set == 0, set == 1, set == 2, set == 3});
    EXPECT_EQ(table.isUnique(0), set == 0);
    EXPECT_EQ(table.isBounded(), set == 1);
    EXPECT_EQ(table.isExternal(), set == 2);
    EXPECT_EQ(table.isOrdered(0), set == 3);
  }
}

TEST(TableImplementation, FlagsOfAnotherIndexAreOutOfRange) {
  const MemoryTable table;
  EXPECT_EQ(messageOf<Vane::VaOutOfRange>([&] { table.isUnique(1); }),
            "Multiple indices not supported. idx:1");
  EXPECT_EQ(messageOf<Vane::VaOutOfRange>([&] { table.isOrdered(255); }),
            "Multiple indices not supported. idx:255");
}

TEST(TableImplementation, PrimaryRowOpsAreNotSupported) {
  EXPECT_EQ(messageOf<Vane::VaNotSupported>([] { MemoryTable().primaryRowOps(); }),
            "primaryRowOps Test::First");
}

TEST(TableImplementation, IsReadyInItsLastStateOnly) {
  MemoryTable table;
  EXPECT_EQ(table.tableState(), TableState::created);
  EXPECT_FALSE(table.ready());
  table.tableStateIs(TableState::loading);
  EXPECT_FALSE(table.ready());
  table.tableStateIs(TableState{2});
  EXPECT_TRUE(table.ready());
}

TEST(TableImplementation, StartsWithAnInactiveRowHook) {
  const MemoryTable table;
  ASSERT_NE(table.rowHook(), nullptr);
  EXPECT_FALSE(table.rowHook()->active());
}

struct ActiveHook final : Vane::VaRowHook {
  bool active() const override { return true; }
};

TEST(TableImplementation, ANullRowHookRestoresTheInactiveOne) {
  MemoryTable table;
  table.rowHookIs(std::make_shared<ActiveHook>());
  EXPECT_TRUE(table.rowHook()->active());
  table.rowHookIs(nullptr);
  ASSERT_NE(table.rowHook(), nullptr);
  EXPECT_FALSE(table.rowHook()->active());
}

TEST(RowHook, HandsTheRowBackByDefault) {
  Vane::VaRowHook hook;
  Vane::BaseRow row = testing_tables::keyRow(5);
  EXPECT_EQ(hook.row(row, Vane::BaseRow()).buffer(), row.buffer());
}

using Witness = testing_tables::Witness<testing_tables::keyOf>;

TEST(Observers, AreToldOfEachChangeAsItHappens) {
  MemoryTable table;
  const auto witness = std::make_shared<Witness>();
  table.observerIs(witness);
  table.change(5);
  table.change(6, true);
  EXPECT_EQ(witness->told, (std::vector<Witness::Told>{{1, 2, false, 5}, {2, 5, true, 6}}));
}

TEST(Observers, AnObserverThatJoinsTwiceHearsOnce) {
  MemoryTable table;
  const auto witness = std::make_shared<Witness>();
  table.observerIs(witness);
  table.observerIs(witness);
  table.change(5);
  EXPECT_EQ(witness->told.size(), 1u);
  table.observerDel(witness);
  table.change(5);
  EXPECT_EQ(witness->told.size(), 1u);
}

TEST(Observers, LeavingWithoutHavingJoinedDoesNothing) {
  MemoryTable table;
  table.observerDel(std::make_shared<Witness>());
  table.change(5);
  EXPECT_EQ(table.latestChangeIdx(), 2u);
}

TEST(Observers, OneThatLeavesMeanwhileHearsNothingMore) {
  MemoryTable table;
  const auto first = std::make_shared<Witness>();
  const auto second = std::make_shared<Witness>();
  table.observerIs(first);
  table.observerIs(second);
  first->then = [&] { table.observerDel(second); };
  table.change(5);
  EXPECT_EQ(first->told.size(), 1u);
  EXPECT_EQ(second->told.size(), 0u);
}

TEST(Observers, OneThatJoinsMeanwhileHearsFromTheNextChangeOn) {
  MemoryTable table;
  const auto first = std::make_shared<Witness>();
  const auto second = std::make_shared<Witness>();
  table.observerIs(first);
  first->then = [&] { table.observerIs(second); };
  table.change(5);
  EXPECT_EQ(second->told.size(), 0u);
  table.change(6);
  EXPECT_EQ(second->told, (std::vector<Witness::Told>{{2, 4, false, 6}}));
}

TEST(Observers, OneMayLeaveWithItsLastHandleWhileItIsTold) {
  MemoryTable table;
  auto witness = std::make_shared<Witness>();
  const std::weak_ptr<Witness> alive = witness;
  witness->then = [&table, &witness] {
    table.observerDel(witness);
    witness.reset();
  };
  table.observerIs(witness);
  table.change(5);
  EXPECT_TRUE(alive.expired());
}

TEST(Observers, AnExceptionPassesOnWhenAllHaveHeard) {
  MemoryTable table;
  const auto first = std::make_shared<Witness>();
  const auto second = std::make_shared<Witness>();
  table.observerIs(first);
  table.observerIs(second);
  first->then = [] { throw std::runtime_error("refused"); };
  EXPECT_THROW(table.change(5), std::runtime_error);
  EXPECT_EQ(second->told.size(), 1u);
  first->then = nullptr;
  table.change(6);
  EXPECT_EQ(second->told.size(), 2u);
}

TEST(ChangePruning, ReachesNoFurtherBackThanItsSpanWhoeverReads) {
  MemoryTable table;
  const auto slow = table.registerReader(1);
  table.change(1);
  table.indexIs(MemoryTable::changeSpan);
  table.change(2);  // at changeSpan + 2, so that index 2 is just out of reach
  EXPECT_EQ(table.oldestChangeIdx(), 2u);
  EXPECT_EQ(table.log().size(), 1u);
  EXPECT_LT(slow->reached, table.oldestChangeIdx());
}

TEST(ChangePruning, NothingIsPrunedWhileNobodyReads) {
  MemoryTable table;
  for (uint32_t key = 0; key < 100; ++key) table.change(key);
  table.pruneChanges();
  EXPECT_EQ(table.log().size(), 100u);
  EXPECT_EQ(table.oldestChangeIdx(), 1u);
  EXPECT_TRUE(table.prunings().empty());
}

TEST(ChangePruning, ReachesTheLowestReader) {
  MemoryTable table;
  const auto slow = table.registerReader(1);
  const auto fast = table.registerReader(1);
  for (uint32_t key = 0; key < 4; ++key) table.change(key);  // 2 4 6 8
  fast->reached = 8;
  slow->reached = 4;
  table.pruneChanges();
  EXPECT_EQ(table.oldestChangeIdx(), 4u);
  EXPECT_EQ(table.log().size(), 2u);
}

TEST(ChangePruning, HappensWithTheNextChange) {
  MemoryTable table;
  const auto reader = table.registerReader(1);
  table.change(1);
  reader->reached = 2;
  table.change(2);
  EXPECT_EQ(table.oldestChangeIdx(), 2u);
  EXPECT_EQ(table.log().size(), 1u);
}

TEST(ChangePruning, AReaderThatHasGoneAwayHoldsNothingBack) {
  MemoryTable table;
  const auto fast = table.registerReader(1);
  {
    const auto slow = table.registerReader(1);
    table.change(1);
    fast->reached = 2;
    table.pruneChanges();
    EXPECT_EQ(table.oldestChangeIdx(), 1u);
  }
  table.pruneChanges();
  EXPECT_EQ(table.oldestChangeIdx(), 2u);
}

TEST(ChangePruning, NeverGoesBack) {
  MemoryTable table;
  const auto reader = table.registerReader(1);
  table.change(1);
  table.change(2);
  table.cleanChanges(4);
  table.cleanChanges(2);
  table.cleanChanges(4);
  EXPECT_EQ(table.prunings(), std::vector<uint64_t>{4});
}

TEST(ChangePruning, NeverPassesTheLatestChange) {
  MemoryTable table;
  const auto fromAnotherLife = table.registerReader(1000);
  table.change(1);
  EXPECT_EQ(table.oldestChangeIdx(), 2u);
  table.change(2);
  EXPECT_EQ(table.oldestChangeIdx(), 4u);
}

}  // namespace
