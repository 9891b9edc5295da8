// The room that a change log takes: the heads of its key map all at once, and no more of them
// later; its list a block at a time.
#include <optional>

#include "tests/Vane/FailingAllocator.h"
#include "tests/adapters/Samples.h"

namespace adapter_tests {
namespace {

using Log = P4RuntimeVane::ChangeLog<uint32_t, std::hash<uint32_t>>;

constexpr size_t headsFor(size_t keys) { return keys * sizeof(uint32_t); }
// A block holds this many changes.
constexpr size_t blockChanges = 1024;

size_t longestBlockOf(auto action) {
  FailingAllocator::longestBlock = 0;
  action();
  return FailingAllocator::longestBlock;
}

void recordAll(Log& log, uint32_t keys) {
  for (uint32_t key = 0; key < keys; ++key) log.record(key, false);
}

using KeyMap = FailingAllocator::Test;

TEST_F(KeyMap, HasItsHeadsFromTheStartAndTakesNoMoreForTheKeysThatItWasMadeFor) {
  constexpr uint32_t keys = 100000;
  std::optional<Log> log;
  EXPECT_GE(longestBlockOf([&] { log.emplace(keys); }), headsFor(keys));
  EXPECT_EQ(longestBlockOf([&] { recordAll(*log, keys); }), blockChanges * sizeof(Log::Change));
  EXPECT_EQ(log->size(), keys);
}

TEST_F(KeyMap, GrowsForTheKeysThatItWasNotMadeFor) {
  constexpr uint32_t keys = 100000;
  Log log(0);
  EXPECT_GE(longestBlockOf([&] { recordAll(log, keys); }), headsFor(keys));
}

TEST_F(KeyMap, AKeyThatChangesAgainTakesNoHeads) {
  constexpr uint32_t keys = 100000;
  Log log(keys);
  recordAll(log, keys);
  EXPECT_EQ(longestBlockOf([&] { recordAll(log, keys); }), blockChanges * sizeof(Log::Change));
}

TEST_F(KeyMap, TakesTwentyFourBytesAKeyAtTheMostBesideTheKey) {
  using Key = Wire::IpGenPrefix;
  struct Hash {
    size_t operator()(const Key&) const { return 0; }
  };
  using Change = P4RuntimeVane::ChangeLog<Key, Hash>::Change;
  EXPECT_LE(sizeof(Change) + 2 * headsFor(1), sizeof(Key) + 24);
}

template <class A>
class AdapterKeyMap : public AdapterTest<A> {
 protected:
  void SetUp() override {
    if (!FailingAllocator::isOurs) GTEST_SKIP() << FailingAllocator::isNotOurs;
  }
};
TYPED_TEST_SUITE(AdapterKeyMap, Adapters, AdapterNames);

TYPED_TEST(AdapterKeyMap, IsSizedForTheTablesCapacityAtConstructionAndNeverGrowsWithinIt) {
  constexpr uint32_t capacity = 50000;
  this->storeIs(Shoal::Mode::writer, capacity);
  const auto row = this->s.row(1);
  std::unique_ptr<TypeParam> adapter;
  EXPECT_GE(longestBlockOf([&] { adapter = this->makeAdapter(); }), headsFor(capacity));
  EXPECT_LT(longestBlockOf([&] {
              for (uint32_t i = 0; i < capacity; ++i) {
                ((*adapter).*TypeParam::changeHandler)(row, false, this->s.key(i));
              }
            }),
            headsFor(capacity));
  EXPECT_EQ(adapter->latestChangeIdx(), 2u * capacity);
}

}  // namespace
}  // namespace adapter_tests
