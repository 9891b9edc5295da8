#include "src-includes/P4RuntimeVane/ChangeLog.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <random>
#include <vector>

#include "tests/Vane/FailingAllocator.h"

namespace {

using P4RuntimeVane::ChangeLog;

using Log = ChangeLog<uint32_t, std::hash<uint32_t>>;
using Nodes = std::vector<std::pair<uint64_t, uint32_t>>;

template <class L>
Nodes nodes(const L& log) {
  Nodes found;
  for (auto at = log.after(0); at != log.end(); ++at) found.emplace_back(at->index, at->key);
  return found;
}

TEST(ChangeLog, IsEmptyAtFirstWithBothIndicesOne) {
  const Log log(8);
  EXPECT_EQ(log.oldest(), 1u);
  EXPECT_EQ(log.latest(), 1u);
  EXPECT_EQ(log.size(), 0u);
  EXPECT_EQ(log.after(0), log.end());
}

TEST(ChangeLog, TheFirstChangeGetsTwo) { EXPECT_EQ(Log(8).record(7, false), 2u); }

TEST(ChangeLog, TheFirstChangeGetsThreeWhenItIsARemoval) { EXPECT_EQ(Log(8).record(7, true), 3u); }

// Steps of 1, 2 and 3, each from where it can happen.
TEST(ChangeLog, AnIndexRisesByOneTwoOrThree) {
  Log log(8);
  EXPECT_EQ(log.record(1, false), 2u);   // from the odd start
  EXPECT_EQ(log.record(2, false), 4u);   // even to even
  EXPECT_EQ(log.record(3, true), 7u);    // even to odd
  EXPECT_EQ(log.record(4, true), 9u);    // odd to odd
  EXPECT_EQ(log.record(5, false), 10u);  // odd to even
  EXPECT_EQ(log.latest(), 10u);
}

TEST(ChangeLog, TheLowestBitSaysRemoved) {
  EXPECT_FALSE(Log::isRemoval(2));
  EXPECT_TRUE(Log::isRemoval(3));
  EXPECT_TRUE(Log::isRemoval(0x100000001));
}

TEST(ChangeLog, AKeyThatChangesAgainMovesToTheTop) {
  Log log(8);
  log.record(1, false);
  log.record(2, false);
  log.record(1, false);
  EXPECT_EQ(nodes(log), (Nodes{{4, 2}, {6, 1}}));
}

TEST(ChangeLog, RemovalOfAChangedKeyLeavesOneOddNode) {
  Log log(8);
  log.record(1, false);
  log.record(1, false);
  log.record(1, true);
  EXPECT_EQ(nodes(log), (Nodes{{7, 1}}));
  EXPECT_EQ(log.indexOf(1), 7u);
}

TEST(ChangeLog, APositionStandsAboveTheIndexItIsAskedFor) {
  Log log(8);
  log.record(1, false);
  log.record(2, false);
  EXPECT_EQ(log.after(1)->index, 2u);
  EXPECT_EQ(log.after(2)->index, 4u);
  EXPECT_EQ(log.after(3)->index, 4u);
  EXPECT_EQ(log.after(4), log.end());
}

TEST(ChangeLog, PruningDropsTheNodesAtAndBelowTheIndex) {
  Log log(8);
  log.record(1, false);  // 2
  log.record(2, false);  // 4
  log.record(3, false);  // 6
  log.prune(4);
  EXPECT_EQ(nodes(log), (Nodes{{6, 3}}));
  EXPECT_EQ(log.oldest(), 4u);
  EXPECT_EQ(log.latest(), 6u);
  EXPECT_EQ(log.indexOf(1), 0u);
  EXPECT_EQ(log.indexOf(2), 0u);
  EXPECT_EQ(log.indexOf(3), 6u);
}

TEST(ChangeLog, PruningMovesTheOldestIndexThoughNothingLiesBelow) {
  Log log(8);
  log.record(1, false);  // 2
  log.record(1, false);  // 4
  log.prune(3);
  EXPECT_EQ(log.oldest(), 3u);
  EXPECT_EQ(nodes(log), (Nodes{{4, 1}}));
}

TEST(ChangeLog, APrunedKeyThatChangesIsANewKey) {
  Log log(8);
  log.record(1, false);
  log.prune(2);
  EXPECT_EQ(log.record(1, true), 5u);
  EXPECT_EQ(nodes(log), (Nodes{{5, 1}}));
}

TEST(ChangeLog, HoldsMoreKeysThanItHasRoomFor) {
  Log log(0);
  for (uint32_t key = 0; key < 1000; ++key) log.record(key, false);
  EXPECT_EQ(log.size(), 1000u);
  for (uint32_t key = 0; key < 1000; ++key) EXPECT_EQ(log.indexOf(key), 2 + 2 * key);
}

TEST(ChangeLog, TheKeyThatChangedLastStaysWhereItIs) {
  Log log(8);
  log.record(1, false);
  log.record(2, false);
  log.record(2, true);
  log.record(2, false);
  EXPECT_EQ(nodes(log), (Nodes{{2, 1}, {8, 2}}));
  EXPECT_EQ(log.after(2)->index, 8u);
}

// More changes than a block of the list holds, each leaving its key's old place behind.
TEST(ChangeLog, KeysThatChangeInTurnStayInTheOrderOfTheirChanges) {
  constexpr uint32_t keys = 700;
  Log log(keys);
  for (uint32_t round = 0; round < 20; ++round) {
    for (uint32_t key = 0; key < keys; ++key) log.record(key, false);
  }
  const uint64_t before = log.latest() - 2 * keys;
  Nodes expected;
  for (uint32_t key = 0; key < keys; ++key) expected.emplace_back(before + 2 * (key + 1), key);
  EXPECT_EQ(nodes(log), expected);
  for (uint32_t key = 0; key < keys; ++key) {
    ASSERT_EQ(log.after(expected[key].first - 1)->key, key);
  }
}

TEST(ChangeLog, IsFoundFromAnyIndexThoughMostOfWhatWasThereHasMoved) {
  constexpr uint32_t keys = 3000;
  Log log(keys);
  for (uint32_t key = 0; key < keys; ++key) log.record(key, false);      // 2, 4, ... 6000
  for (uint32_t key = 1; key + 1 < keys; ++key) log.record(key, false);  // all but the ends
  EXPECT_EQ(log.after(0)->key, 0u);
  for (uint64_t index = 2; index < 2 * keys; ++index) {
    ASSERT_EQ(log.after(index)->key, keys - 1) << index;
  }
  EXPECT_EQ(log.after(2 * keys)->key, 1u);
  log.prune(2 * keys);
  EXPECT_EQ(log.size(), keys - 2);
  EXPECT_EQ(log.after(0)->key, 1u);
}

// Two keys change for ever, above some that never do again: the dead between them are taken out,
// from a log with places for few keys and from one with places for many.
TEST(ChangeLog, KeepsTheOrderOfWhatIsLeftWhenTheDeadAreTakenOut) {
  constexpr uint32_t still = 5, changes = 10000;
  for (const size_t room : {size_t{8}, size_t{1} << 17}) {
    Log log(room);
    for (uint32_t key = 0; key < still; ++key) log.record(key, false);
    for (uint32_t change = 0; change < changes; ++change) log.record(100 + change % 2, false);
    Nodes expected;
    for (uint32_t key = 0; key < still; ++key) expected.emplace_back(2 + 2 * key, key);
    const uint64_t latest = 2 * (still + changes);
    expected.emplace_back(latest - 2, 100);
    expected.emplace_back(latest, 101);
    EXPECT_EQ(nodes(log), expected) << room;
    EXPECT_EQ(log.indexOf(3), 8u);
    log.record(3, true);
    EXPECT_EQ(log.after(latest)->key, 3u);
    EXPECT_EQ(log.after(6)->key, 4u);
    EXPECT_EQ(log.size(), still + 2);
  }
}

TEST(ChangeLog, GivesBackTheMemoryOfWhatHasBeenPruned) {
  if (!FailingAllocator::isOurs) GTEST_SKIP() << FailingAllocator::isNotOurs;
  Log log(8);
  const long before = FailingAllocator::liveBlocks;
  for (uint32_t key = 0; key < 100000; ++key) {
    log.record(key % 8, false);
    log.prune(log.latest() - 8);
  }
  EXPECT_LE(FailingAllocator::liveBlocks - before, 4);
}

// Wherever the memory for a change ends.
TEST(ChangeLog, AChangeThatCannotBeHeldLeavesTheLogAsItWas) {
  if (!FailingAllocator::isOurs) GTEST_SKIP() << FailingAllocator::isNotOurs;
  Log log(1);
  Nodes expected;
  size_t failures = 0;
  for (uint32_t key = 0; key < 5000; ++key) {
    const uint64_t latest = log.latest();
    const auto errors = FailingAllocator::failEach([&] { log.record(key, false); },
                                                   [&] {
                                                     EXPECT_EQ(log.size(), key);
                                                     EXPECT_EQ(log.latest(), latest);
                                                     EXPECT_EQ(log.indexOf(key), 0u);
                                                   });
    failures += errors.size();
    expected.emplace_back(2 * (key + 1), key);
  }
  EXPECT_GE(failures, 15u);  // five blocks, and the heads doubled thirteen times
  EXPECT_EQ(nodes(log), expected);
}

// The slow telling of the same log: a list of every change ever made.
class Model {
 public:
  uint64_t record(uint32_t key, bool removed) {
    static constexpr uint64_t steps[2][2] = {{2, 3}, {1, 2}};  // [latest is odd][removed]
    const uint64_t latest = history_.empty() ? 1 : history_.back().first;
    const uint64_t index = latest + steps[latest % 2][removed];
    history_.emplace_back(index, key);
    return index;
  }
  void prune(uint64_t index) { pruned_ = index; }
  // Of each key its last change, unless that has been pruned.
  Nodes nodes() const {
    std::map<uint32_t, uint64_t> last;
    for (const auto& [index, key] : history_) last[key] = index;
    std::map<uint64_t, uint32_t> kept;
    for (const auto& [key, index] : last) {
      if (index > pruned_) kept[index] = key;
    }
    return {kept.begin(), kept.end()};
  }

 private:
  Nodes history_;
  uint64_t pruned_ = 0;
};

struct OneBucket {
  size_t operator()(uint32_t) const { return 0; }
};

template <class Hash>
class ChangeLogHistory : public testing::Test {};
using Hashes = testing::Types<std::hash<uint32_t>, OneBucket>;
TYPED_TEST_SUITE(ChangeLogHistory, Hashes);

TYPED_TEST(ChangeLogHistory, AgreesWithAListOfAllChanges) {
  const uint32_t seed = std::random_device{}();
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  ChangeLog<uint32_t, TypeParam> log(16);
  Model model;
  uint64_t previous = log.latest();
  for (int step = 0; step < 2000; ++step) {
    if (random() % 8 == 0) {
      const uint64_t index = log.oldest() + random() % (log.latest() - log.oldest() + 1);
      log.prune(index);
      model.prune(index);
      ASSERT_EQ(log.oldest(), index);
    } else {
      const uint32_t key = random() % 32;
      const bool removed = random() % 3 == 0;
      const uint64_t index = log.record(key, removed);
      ASSERT_EQ(index, model.record(key, removed));
      ASSERT_GT(index, previous);
      ASSERT_EQ(Log::isRemoval(index), removed);
      previous = index;
    }
    const Nodes expected = model.nodes();
    ASSERT_EQ(nodes(log), expected) << "step " << step;
    for (const auto& [index, key] : expected) ASSERT_EQ(log.indexOf(key), index);
    ASSERT_EQ(log.size(), expected.size());
  }
}

}  // namespace
