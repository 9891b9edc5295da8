// Walks: slot order, removed keys, once each, an end.
#include <algorithm>
#include <set>

#include "tests/Shoal/TableTest.h"

namespace ShoalTest {
namespace {

using Key = Tiny::Key;

class Walk : public ::testing::Test {
 protected:
  Walk() : map_(writer<Tiny>(root_, 64)) {
    for (uint32_t number = 0; number < 10; ++number) map_.put(Tiny::make(number, 1));
  }
  // The key number of the entry after `key`; none: -1.
  int after(const Key& key, Shoal::IterHint hint = {}) const {
    Tiny entry{};
    return map_.next(key, hint, entry) ? entry.id[0] : -1;
  }
  int after(uint32_t number) const { return after(Tiny::keyOf(number)); }

  TempRoot root_;
  MapOf<Tiny> map_;
};

TEST_F(Walk, OfAnEmptyTableEndsAtOnce) {
  map_.clear();
  Shoal::IterHint hint;
  Tiny entry{};
  EXPECT_FALSE(map_.first(hint, entry));
  EXPECT_EQ(after(3), -1);
  EXPECT_TRUE(entry == Tiny{});
}

TEST_F(Walk, IsInOrderOfArrival) {
  const auto entries = map_.walk();
  ASSERT_EQ(entries.size(), 10u);
  for (uint32_t number = 0; number < 10; ++number) EXPECT_EQ(entries[number].id[0], number);
}

TEST_F(Walk, WithoutAHintGoesOnFromTheKey) {
  for (uint32_t number = 0; number < 9; ++number) {
    EXPECT_EQ(after(number), static_cast<int>(number + 1));
  }
  EXPECT_EQ(after(9), -1);
}

TEST_F(Walk, OfTheMapsOwnIteratorNeedsNoHint) {
  const Tiny::Map::BaseIterator iterator(map_);
  Tiny entry{};
  ASSERT_TRUE(iterator.next(Tiny::keyOf(4), entry));
  EXPECT_EQ(entry.id[0], 5);
}

TEST_F(Walk, ReplacedEntriesStayWhereTheyAre) {
  map_.put(Tiny::make(3, 2));
  EXPECT_EQ(after(2), 3);
  EXPECT_EQ(after(3), 4);
}

TEST_F(Walk, GoesOnFromAKeyThatHasBeenRemoved) {
  map_.erase(Tiny::keyOf(4));
  EXPECT_EQ(after(4), 5);
  EXPECT_EQ(after(3), 5);
  map_.erase(Tiny::keyOf(9));
  EXPECT_EQ(after(9), -1);
}

TEST_F(Walk, HintKeepsThePlaceOfAKeyWhoseSlotWasUsedAgain) {
  Shoal::IterHint hint;
  Tiny entry{};
  ASSERT_TRUE(map_.first(hint, entry));
  ASSERT_TRUE(map_.next(entry.id, hint, entry));
  ASSERT_EQ(entry.id[0], 1);
  map_.erase(entry.id);
  map_.put(Tiny::make(77, 1));  // takes the slot of 1
  EXPECT_EQ(after(0), 77);
  EXPECT_EQ(after(entry.id, hint), 2);
}

TEST_F(Walk, HintOfAnotherKeyIsNotTrusted) {
  Shoal::IterHint hint;
  Tiny entry{};
  ASSERT_TRUE(map_.first(hint, entry));
  EXPECT_EQ(after(Tiny::keyOf(6), hint), 7);
}

TEST_F(Walk, HintOfASlotThatIsNotThereIsNotTrusted) {
  Shoal::IterHint hint;
  Tiny entry{};
  ASSERT_TRUE(map_.first(hint, entry));
  hint.slot = 64;
  EXPECT_EQ(after(Tiny::keyOf(0), hint), 1);
}

TEST_F(Walk, HintOutlivesTheWriter) {
  const MapOf<Tiny> watching(reader<Tiny>(root_));
  Shoal::IterHint hint;
  Tiny entry{};
  ASSERT_TRUE(watching.first(hint, entry));
  EXPECT_EQ(hint.generation, 1u);
  map_.storeIs(nullptr);
  map_.storeIs(writer<Tiny>(root_, 64));
  ASSERT_TRUE(watching.next(entry.id, hint, entry));
  EXPECT_EQ(entry.id[0], 1);
  EXPECT_EQ(hint.generation, 2u);
}

TEST_F(Walk, OfAKeyNeverSeenAnswersALaterEntryOrTheEnd) {
  std::set<int> answers;
  for (uint32_t number = 1000; number < 1200; ++number) {
    const int answer = after(number);
    EXPECT_EQ(answer, after(number)) << "the place follows from the key alone";
    answers.insert(answer);
  }
  EXPECT_TRUE(std::all_of(answers.begin(), answers.end(), [](int a) { return a >= 0 && a < 10; }));
  EXPECT_GT(answers.size(), 5u) << "the places are spread over the table";
}

TEST_F(Walk, KeyMayBePartOfTheEntryThatIsFilled) {
  Shoal::IterHint hint;
  Tiny entry = Tiny::make(2, 1);
  ASSERT_TRUE(map_.next(entry.id, hint, entry));
  EXPECT_TRUE(entry == Tiny::make(3, 1));
}

TEST_F(Walk, AtTheEndLeavesTheEntryAsItIs) {
  Shoal::IterHint hint;
  Tiny entry = Tiny::make(9, 5);
  EXPECT_FALSE(map_.next(entry.id, hint, entry));
  EXPECT_TRUE(entry == Tiny::make(9, 5));
}

// Half of the entries come and go while the walk is on; those of the other half come once each.
TEST_F(Walk, VisitsEachEntryThatStaysExactlyOnce) {
  map_.clear();
  for (uint32_t number = 0; number < 64; ++number) map_.put(Tiny::make(number, 1));
  std::map<int, int> visits;
  Shoal::IterHint hint;
  Tiny entry{};
  uint32_t steps = 0;
  for (bool more = map_.first(hint, entry); more; more = map_.next(entry.id, hint, entry)) {
    ASSERT_LT(++steps, 200u) << "no end";
    ++visits[entry.id[0]];
    if (entry.id[0] % 2 == 1) map_.erase(entry.id);
    map_.erase(Tiny::keyOf((steps * 2 + 1) % 64));
    map_.put(Tiny::make((steps * 6 + 1) % 64, steps));
  }
  for (int number = 0; number < 64; number += 2) EXPECT_EQ(visits[number], 1) << number;
}

TEST_F(Walk, EndsThoughEveryEntryIsRemovedAndAddedAgainBehindIt) {
  uint32_t steps = 0;
  Shoal::IterHint hint;
  Tiny entry{};
  for (bool more = map_.first(hint, entry); more; more = map_.next(entry.id, hint, entry)) {
    ASSERT_LT(++steps, 100u);
    map_.erase(entry.id);
    map_.put(Tiny::make(entry.id[0], steps));
  }
  EXPECT_EQ(steps, 10u);
}

}  // namespace
}  // namespace ShoalTest
