// Many entries in one call: each is answered for as if it had been asked for alone.
#include "tests/Shoal/TableTest.h"

namespace ShoalTest {
namespace {

template <class Entry>
class Batch : public ::testing::Test {};
using AllEntries = ::testing::Types<Tiny, Odd, Route, Group>;
TYPED_TEST_SUITE(Batch, AllEntries);

// Every third key is in the table; one of them has been removed.
TYPED_TEST(Batch, OfKeysAnswersForEachAsALookUpAlone) {
  using Entry = TypeParam;
  const TempRoot root;
  MapOf<Entry> map(writer<Entry>(root, 64));
  for (uint32_t number = 0; number < 100; number += 3) map.put(Entry::make(number, number));
  map.erase(Entry::keyOf(30));
  for (const uint32_t count : {0u, 1u, 15u, 16u, 17u, 100u}) {
    std::vector<typename Entry::Key> keys;
    for (uint32_t number = 0; number < count; ++number) keys.push_back(Entry::keyOf(number));
    const Found<Entry> found(map, keys);
    for (uint32_t number = 0; number < count; ++number) {
      const bool isThere = number % 3 == 0 && number != 30;
      EXPECT_EQ(found.isThere[number], isThere) << number << " of " << count;
      EXPECT_EQ(found.entries[number], isThere ? Entry::make(number, number) : Entry{});
    }
  }
}

TEST(BatchOfOneKey, AnswersForEachOfItsPlaces) {
  const TempRoot root;
  MapOf<Tiny> map(writer<Tiny>(root, 4));
  map.put(Tiny::make(1, 9));
  const Found<Tiny> found(map, std::vector(40, Tiny::keyOf(1)));
  for (size_t at = 0; at < 40; ++at) {
    EXPECT_TRUE(found.isThere[at]);
    EXPECT_EQ(found.entries[at], Tiny::make(1, 9));
  }
}

}  // namespace
}  // namespace ShoalTest
