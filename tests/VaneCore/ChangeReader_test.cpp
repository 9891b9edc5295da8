#include "platform/Vane/ChangeReader.h"

#include <gtest/gtest.h>

#include <map>
#include <random>

#include "tests/VaneCore/MemoryTable.h"

namespace {

using testing_tables::keyOf;
using testing_tables::MemoryTable;
using Vane::BasicVaTableChange;
using Vane::ChangeKind;
using Vane::ChangeReader;
using Result = ChangeReader::Result;
using Changes = std::vector<BasicVaTableChange>;

struct Step {
  uint64_t index;
  ChangeKind kind;
  uint32_t key;
  bool operator==(const Step&) const = default;
};

std::vector<Step> steps(const Changes& changes) {
  std::vector<Step> found;
  for (const auto& change : changes) {
    found.push_back({change.index(), change.kind(), keyOf(change.row())});
  }
  return found;
}

TEST(ChangeReader, FindsNothingInATableThatHasNotChanged) {
  const auto table = std::make_shared<MemoryTable>();
  ChangeReader reader(table, table->latestChangeIdx());
  Changes out;
  EXPECT_EQ(reader.take(out, 10), Result::none);
  EXPECT_TRUE(out.empty());
  EXPECT_EQ(reader.table(), table);
}

TEST(ChangeReader, TakesWhatCameSinceInOrderOfIndex) {
  const auto table = std::make_shared<MemoryTable>();
  ChangeReader reader(table, 1);
  table->change(5);
  table->change(6, true);
  table->change(7);
  Changes out;
  EXPECT_EQ(reader.take(out, 10), Result::changes);
  EXPECT_EQ(steps(out), (std::vector<Step>{{2, ChangeKind::exists, 5},
                                           {5, ChangeKind::removed, 6},
                                           {6, ChangeKind::exists, 7}}));
  EXPECT_EQ(reader.reached(), 6u);
  EXPECT_EQ(reader.take(out, 10), Result::none);
  EXPECT_EQ(out.size(), 3u);
}

TEST(ChangeReader, IsNotHeldUpByACorruptEntry) {
  const auto table = std::make_shared<MemoryTable>();
  ChangeReader reader(table, 1);
  table->change(5);
  table->change(6);
  table->failReading(6, /*corrupt=*/true);
  Changes out;
  EXPECT_EQ(reader.take(out, 10), Result::readAfresh);
  EXPECT_TRUE(out.empty());
  EXPECT_EQ(reader.reached(), table->latestChangeIdx());
  table->change(7);
  EXPECT_EQ(reader.take(out, 10), Result::changes);
  EXPECT_EQ(steps(out), (std::vector<Step>{{6, ChangeKind::exists, 7}}));
}

TEST(ChangeReader, AppendsToWhatIsThere) {
  const auto table = std::make_shared<MemoryTable>();
  ChangeReader reader(table, 1);
  Changes out;
  table->change(5);
  reader.take(out, 10);
  table->change(6);
  reader.take(out, 10);
  EXPECT_EQ(out.size(), 2u);
}

TEST(ChangeReader, TakesNoMoreThanTheLimitAndGoesOnFromThere) {
  const auto table = std::make_shared<MemoryTable>();
  ChangeReader reader(table, 1);
  for (uint32_t key = 0; key < 5; ++key) table->change(key);
  Changes out;
  EXPECT_EQ(reader.take(out, 2), Result::changes);
  EXPECT_EQ(reader.reached(), 4u);
  EXPECT_EQ(reader.take(out, 2), Result::changes);
  EXPECT_EQ(reader.take(out, 2), Result::changes);
  EXPECT_EQ(reader.take(out, 2), Result::none);
  ASSERT_EQ(out.size(), 5u);
  for (uint32_t key = 0; key < 5; ++key) EXPECT_EQ(keyOf(out[key].row()), key);
}

TEST(ChangeReader, ALimitOfZeroTakesNothing) {
  const auto table = std::make_shared<MemoryTable>();
  ChangeReader reader(table, 1);
  table->change(5);
  Changes out;
  EXPECT_EQ(reader.take(out, 0), Result::none);
  EXPECT_EQ(reader.reached(), 1u);
}

TEST(ChangeReader, IsToldOnceOfAKeyThatChangedOften) {
  const auto table = std::make_shared<MemoryTable>();
  ChangeReader reader(table, 1);
  for (int i = 0; i < 10; ++i) table->change(5);
  Changes out;
  reader.take(out, 100);
  EXPECT_EQ(steps(out), (std::vector<Step>{{20, ChangeKind::exists, 5}}));
}

TEST(ChangeReader, FromBeforeEverythingReadsAfreshFirst) {
  const auto table = std::make_shared<MemoryTable>();
  table->change(5);
  ChangeReader reader(table, 0);
  Changes out;
  EXPECT_EQ(reader.take(out, 10), Result::readAfresh);
  EXPECT_TRUE(out.empty());
  EXPECT_EQ(reader.reached(), 2u);
  table->change(6);
  EXPECT_EQ(reader.take(out, 10), Result::changes);
  EXPECT_EQ(steps(out), (std::vector<Step>{{4, ChangeKind::exists, 6}}));
}

TEST(ChangeReader, FromTheOldestIndexReadsTheWholeLog) {
  const auto table = std::make_shared<MemoryTable>();
  for (uint32_t key = 0; key < 3; ++key) table->change(key);
  table->cleanChangeMap(2);
  ChangeReader reader(table, 2);
  Changes out;
  EXPECT_EQ(reader.take(out, 10), Result::changes);
  EXPECT_EQ(out.size(), 2u);
}

TEST(ChangeReader, FromBelowTheOldestIndexReadsAfresh) {
  const auto table = std::make_shared<MemoryTable>();
  for (uint32_t key = 0; key < 3; ++key) table->change(key);
  table->cleanChangeMap(3);
  ChangeReader reader(table, 2);
  Changes out;
  EXPECT_EQ(reader.take(out, 10), Result::readAfresh);
  EXPECT_EQ(reader.reached(), 6u);
  EXPECT_EQ(reader.take(out, 10), Result::none);
}

TEST(ChangeReader, FromAnIndexThatTheTableNeverGaveReadsAfresh) {
  const auto table = std::make_shared<MemoryTable>();
  table->change(5);
  ChangeReader reader(table, 1000);
  Changes out;
  EXPECT_EQ(reader.take(out, 10), Result::readAfresh);
  EXPECT_EQ(reader.reached(), 2u);
}

TEST(ChangeReader, TheLogIsPrunedBehindTheOnlyReader) {
  const auto table = std::make_shared<MemoryTable>();
  ChangeReader reader(table, 1);
  for (uint32_t key = 0; key < 5; ++key) table->change(key);
  Changes out;
  reader.take(out, 2);
  EXPECT_EQ(table->log().size(), 3u);
  EXPECT_EQ(table->oldestChangeIdx(), 4u);
  reader.take(out, 10);
  EXPECT_TRUE(table->log().empty());
  EXPECT_EQ(table->oldestChangeIdx(), 10u);
}

TEST(ChangeReader, TheLogIsKeptForTheSlowerReader) {
  const auto table = std::make_shared<MemoryTable>();
  ChangeReader fast(table, 1);
  ChangeReader slow(table, 1);
  for (uint32_t key = 0; key < 5; ++key) table->change(key);
  Changes out;
  fast.take(out, 10);
  EXPECT_EQ(table->log().size(), 5u);
  Changes slowOut;
  slow.take(slowOut, 3);
  EXPECT_EQ(table->log().size(), 2u);
  slow.take(slowOut, 3);
  EXPECT_EQ(steps(slowOut), steps(out));
}

TEST(ChangeReader, OneThatIsDestroyedLetsTheLogBePruned) {
  const auto table = std::make_shared<MemoryTable>();
  ChangeReader fast(table, 1);
  auto slow = std::make_unique<ChangeReader>(table, 1);
  table->change(1);
  Changes out;
  fast.take(out, 10);
  EXPECT_EQ(table->log().size(), 1u);
  slow.reset();
  fast.take(out, 10);
  EXPECT_TRUE(table->log().empty());
}

TEST(ChangeReader, AReaderThatStartsAfreshDoesNotHoldBackTheLog) {
  const auto table = std::make_shared<MemoryTable>();
  for (uint32_t key = 0; key < 5; ++key) table->change(key);
  ChangeReader reader(table, 0);
  Changes out;
  reader.take(out, 10);
  EXPECT_TRUE(table->log().empty());
}

TEST(ChangeReader, AChangeThatCannotBeReadIsReadAgainAndCostsNoOther) {
  const auto table = std::make_shared<MemoryTable>();
  ChangeReader reader(table, 1);
  for (uint32_t key = 1; key <= 3; ++key) table->change(key);
  table->failReading(2);
  Changes out;
  EXPECT_THROW(reader.take(out, 10), std::runtime_error);
  EXPECT_EQ(reader.reached(), 2u);
  EXPECT_EQ(reader.take(out, 10), Result::changes);
  EXPECT_EQ(steps(out), (std::vector<Step>{{2, ChangeKind::exists, 1},
                                           {4, ChangeKind::exists, 2},
                                           {6, ChangeKind::exists, 3}}));
}

// What a reader believes the table to hold: each key and whether it is there.
using Belief = std::map<uint32_t, bool>;

TEST(ChangeReader, ReadersAtDifferentPacesAllEndWithTheTablesState) {
  const uint32_t seed = std::random_device{}();
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  const auto table = std::make_shared<MemoryTable>();
  Belief truth;
  struct Follower {
    ChangeReader reader;
    size_t pace;
    Belief belief;
  };
  std::vector<Follower> followers;
  for (const size_t pace : {1, 3, 50}) followers.push_back({{table, 1}, pace, {}});
  const auto follow = [&](Follower& follower) {
    Changes out;
    const Result result = follower.reader.take(out, follower.pace);
    EXPECT_NE(result, Result::readAfresh) << "a registered reader loses nothing";
    for (const auto& change : out) {
      follower.belief[keyOf(change.row())] = change.kind() == ChangeKind::exists;
    }
    return result;
  };
  for (int step = 0; step < 3000; ++step) {
    const uint32_t key = random() % 20;
    const bool removed = random() % 3 == 0;
    table->change(key, removed);
    truth[key] = !removed;
    if (random() % 4 == 0) follow(followers[random() % followers.size()]);
    ASSERT_LE(table->log().size(), 20u) << "one node per key";
  }
  for (Follower& follower : followers) {
    while (follow(follower) == Result::changes) {
    }
    EXPECT_EQ(follower.belief, truth) << "pace " << follower.pace;
  }
  EXPECT_TRUE(table->log().empty());
}

}  // namespace
