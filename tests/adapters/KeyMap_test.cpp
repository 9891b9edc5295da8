// The room that a change log's key map takes: all of it at once, and none later. This program's
// operator new is replaced by one that counts its calls and remembers the longest block.
#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <new>
#include <optional>

#include "tests/adapters/Samples.h"

namespace {

size_t newCalls = 0;
size_t longestBlock = 0;

}  // namespace

void* operator new(size_t size) {
  ++newCalls;
  longestBlock = std::max(longestBlock, size);
  void* const block = std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, size_t) noexcept { std::free(block); }

namespace adapter_tests {
namespace {

using Log = P4RuntimeVane::ChangeLog<uint32_t, std::hash<uint32_t>>;

// A hash table holds at least a pointer for each bucket; a node takes less than this.
constexpr size_t bucketsFor(size_t keys) { return keys * sizeof(void*); }
constexpr size_t nodeAtMost = 256;

size_t longestBlockOf(auto action) {
  longestBlock = 0;
  action();
  return longestBlock;
}

void recordAll(Log& log, uint32_t keys) {
  for (uint32_t key = 0; key < keys; ++key) log.record(key, false);
}

TEST(KeyMap, HasItsBucketsFromTheStartAndTakesNoMoreForTheKeysThatItWasMadeFor) {
  std::optional<Log> log;
  EXPECT_GE(longestBlockOf([&] { log.emplace(1000); }), bucketsFor(1000));
  EXPECT_LE(longestBlockOf([&] { recordAll(*log, 1000); }), nodeAtMost);
  EXPECT_EQ(log->size(), 1000u);
}

TEST(KeyMap, GrowsForTheKeysThatItWasNotMadeFor) {
  Log log(0);
  EXPECT_GE(longestBlockOf([&] { recordAll(log, 1000); }), bucketsFor(1000));
}

TEST(KeyMap, AKeyThatChangesAgainKeepsItsNodes) {
  Log log(8);
  recordAll(log, 8);
  const uint32_t* const held = &log.after(0)->second;
  const size_t before = newCalls;
  log.record(0, true);
  EXPECT_EQ(newCalls, before);
  EXPECT_EQ(&std::prev(log.end())->second, held);
}

template <class A>
using AdapterKeyMap = AdapterTest<A>;
TYPED_TEST_SUITE(AdapterKeyMap, Adapters, AdapterNames);

TYPED_TEST(AdapterKeyMap, IsSizedForTheTablesCapacityAtConstructionAndNeverGrowsWithinIt) {
  constexpr uint32_t capacity = 5000;
  this->storeIs(Shoal::Mode::writer, capacity);
  const auto row = this->s.row(1);
  std::unique_ptr<TypeParam> adapter;
  EXPECT_GE(longestBlockOf([&] { adapter = this->makeAdapter(); }), bucketsFor(capacity));
  EXPECT_LE(longestBlockOf([&] {
              for (uint32_t i = 0; i < capacity; ++i) {
                ((*adapter).*TypeParam::changeHandler)(row, false, this->s.key(i));
              }
            }),
            nodeAtMost);
  EXPECT_EQ(adapter->latestChangeIdx(), 2u * capacity);
}

}  // namespace
}  // namespace adapter_tests
