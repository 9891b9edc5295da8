// The look through a whole table: sound tables are found sound, whatever is being done to them, and
// each damage is found.
#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <thread>

#include "platform/Shoal/Store.h"
#include "platform/Shoal/TableCheck.h"
#include "tests/Shoal/TableTest.h"

namespace {

using namespace ShoalTest;
using Shoal::checkTable;
using Shoal::TableCheck;

std::string faultsOf(const TableCheck& check) {
  std::string all;
  for (const std::string& fault : check.faults) all += fault + "\n";
  return all;
}

// A table of routes 0 to 99, of which 10 to 19 have been removed again.
class TableCheckOf : public testing::Test {
 protected:
  TableCheckOf() {
    MapOf<Route> map(writer<Route>(root_, 4096));
    for (uint32_t i = 0; i < 100; ++i) map.put(Route::make(i, 1));
    for (uint32_t i = 10; i < 20; ++i) map.erase(Route::keyOf(i));
  }

  TableCheck check() { return checkTable(*reader<Route>(root_)); }

  // Damages the table without a writer's knowledge, by way of a writable view of it.
  template <class Damage>
  TableCheck afterDamage(Damage&& damage) {
    const auto store = std::dynamic_pointer_cast<Shoal::Store>(writer<Route>(root_, 4096));
    damage(store->view());
    return checkTable(*reader<Route>(root_));
  }

  TempRoot root_;
};

TEST_F(TableCheckOf, ASoundTableFindsNoFaultAndCountsEverything) {
  const TableCheck found = check();
  EXPECT_EQ(found.faultCount, 0u) << faultsOf(found);
  EXPECT_TRUE(found.isCounted);
  EXPECT_FALSE(found.isUnfinished);
  EXPECT_EQ(found.entries, 90u);
  EXPECT_EQ(found.freeSlots, 10u);
  EXPECT_EQ(found.indexWords, 100u) << "free slots keep their words";
  EXPECT_EQ(found.changes, 110u);
}

TEST_F(TableCheckOf, AnEmptyTableIsSound) {
  const TempRoot root;
  writer<Group>(root, 10);
  const TableCheck found = checkTable(*reader<Group>(root));
  EXPECT_EQ(found.faultCount, 0u) << faultsOf(found);
  EXPECT_EQ(found.entries + found.freeSlots + found.indexWords + found.changes, 0u);
}

TEST_F(TableCheckOf, EachDamageIsFound) {
  using View = Shoal::TableView;
  struct Damage {
    const char* fault;
    std::function<void(const View&)> make;
  };
  const auto firstPlace = [](const View& table, bool isEmpty) {
    uint32_t at = 0;
    while ((table.index(0)[at] == 0) != isEmpty) ++at;
    return at;
  };
  // Slot 30 is live, slot 15 is free and in the middle of the list of free slots.
  const std::vector<Damage> damages{
      {"89 live slots, but 90 entries",
       [](const View& t) { t.slot(30).state = Shoal::freeState(0); }},
      {"90 live slots, but 91 entries", [](const View& t) { ++t.header().live; }},
      {"slot 30 has state 3", [](const View& t) { t.slot(30).state = 3; }},
      {"slot 30 has state 0", [](const View& t) { t.slot(30).state = 0; }},
      {"slot 30 is half written", [](const View& t) { ++t.slot(30).sequence; }},
      {"slot 30: the index does not lead to its key",
       [](const View& t) { t.entry(30)[t.plan.keyOffset] ^= std::byte{0x80}; }},
      {"slots 30 and 31 have the same key",
       [](const View& t) { std::memcpy(t.entry(31), t.entry(30), t.plan.entrySize); }},
      {"the list of free slots leads to slot 30", [](const View& t) { t.header().freeHead = 31; }},
      {"a list of them without an end",
       [](const View& t) { t.slot(15).state = Shoal::freeState(16); }},
      {"10 free slots, but a list of",
       [](const View& t) { t.slot(15).state = Shoal::freeState(0); }},
      {"leads to no slot",
       [&](const View& t) { t.index(0)[firstPlace(t, false)] |= (1u << t.plan.slotBits) - 1; }},
      {"101 index words for 100 slots",  // a second one of slot 30, under another key
       [&](const View& t) { t.index(0)[firstPlace(t, true)] = t.plan.wordOf(0x5a5a, 30); }},
      {"change 50 has the number 51", [](const View& t) { t.change(50).number = 51; }},
      {"change 50 is of kind 7", [](const View& t) { t.change(50).kind = 7; }},
      {"change 50 is of slot 4096", [](const View& t) { t.change(50).slot = 4096; }},
      {"high water 5000, expected at most", [](const View& t) { t.header().highWater = 5000; }},
  };
  for (const Damage& damage : damages) {
    const auto store = std::dynamic_pointer_cast<Shoal::Store>(writer<Route>(root_, 4096));
    const auto file = Shoal::tableFile(root_, tableName);
    const auto before = contents(file);
    damage.make(store->view());
    const TableCheck found = checkTable(*reader<Route>(root_));
    EXPECT_GT(found.faultCount, 0u) << damage.fault;
    EXPECT_NE(faultsOf(found).find(damage.fault), std::string::npos) << damage.fault << "\n"
                                                                     << faultsOf(found);
    std::memcpy(store->view().base, before.data(), before.size());
    EXPECT_EQ(check().faultCount, 0u) << "not as before";
  }
}

TEST_F(TableCheckOf, AnUnfinishedOperationIsToldAndItsSlotIsLeftAlone) {
  const auto store = std::dynamic_pointer_cast<Shoal::Store>(writer<Route>(root_, 4096));
  auto& operation = store->view().header().operation;
  operation.slot = 30;
  operation.kind = Shoal::OperationRecord::erase;
  store->view().slot(30).state = Shoal::freeState(store->view().header().freeHead);
  TableCheck found = check();
  EXPECT_TRUE(found.isUnfinished);
  EXPECT_FALSE(found.isCounted);
  EXPECT_EQ(found.faultCount, 0u) << faultsOf(found);
}

TEST_F(TableCheckOf, ATableIsSoundAtEveryMomentOfAWritersWork) {
  std::atomic<bool> done{false};
  std::atomic<uint64_t> steps{0};
  std::thread busy([&] {
    MapOf<Route> map(writer<Route>(root_, 4096));
    std::mt19937 random(7);
    for (; !done; ++steps) {
      const uint32_t number = random() % 300;
      random() % 3 == 0 ? map.erase(Route::keyOf(number)) : map.put(Route::make(number, random()));
    }
  });
  for (int i = 0; i < 50; ++i) {
    const uint64_t before = steps;
    while (steps == before) std::this_thread::yield();
    const TableCheck found = check();
    EXPECT_EQ(found.faultCount, 0u) << faultsOf(found);
  }
  done = true;
  busy.join();
  const TableCheck after = check();
  EXPECT_TRUE(after.isCounted);
  EXPECT_EQ(after.faultCount, 0u) << faultsOf(after);
}

// The number of the next change would be 0, and a loop up to the latest one would not end.
TEST_F(TableCheckOf, MoreChangesThanAnyTableHasSeenAreAFault) {
  const TableCheck found =
      afterDamage([](const Shoal::TableView& table) { table.header().changes = ~uint64_t{0}; });
  EXPECT_EQ(faultsOf(found),
            "changes 18446744073709551615, expected at most 4611686018427387904\n");
  EXPECT_THROW(writer<Route>(root_, 4096), Shoal::AttachException);
}

TEST_F(TableCheckOf, ManyFaultsAreCountedAndTheFirstAreTold) {
  const TableCheck found = afterDamage([](const Shoal::TableView& table) {
    for (uint32_t slot = 30; slot < 80; ++slot) table.slot(slot).state = 3;
  });
  EXPECT_EQ(found.faults.size(), Shoal::maxFaultsTold);
  EXPECT_GE(found.faultCount, 50u);
}

}  // namespace
