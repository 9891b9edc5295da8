// A table agrees with std::map after every one of many random steps.
#include <random>

#include "tests/Shoal/TableTest.h"

namespace ShoalTest {
namespace {

template <class Entry>
class TableModel : public ::testing::Test {};
using AllEntries = ::testing::Types<Tiny, Odd, Route, Group>;
TYPED_TEST_SUITE(TableModel, AllEntries);

// Random steps on a table of half as many places as there are keys, through writers that come and
// go. A reader that stays attached is compared now and then, the writer after every step.
template <class Entry>
void runAgainstModel(const std::vector<typename Entry::Key>& keys, uint64_t capacity,
                     uint64_t places, uint32_t steps) {
  const uint32_t seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  TempRoot root;
  MapOf<Entry> map(writer<Entry>(root, capacity));
  const MapOf<Entry> watching(reader<Entry>(root));
  Model<Entry> model;
  uint64_t generation = 1;
  for (uint32_t step = 0; step < steps; ++step) {
    const auto& key = keys[random() % keys.size()];
    const uint32_t what = random() % 1000;
    if (what < 550) {
      const Entry entry = Entry::make(key, step);
      if (model.count(key) == 0 && model.size() == places) {
        if (places == capacity) {
          EXPECT_THROW(map.put(entry), Guard::MemoryResourceException);
        }
      } else {
        EXPECT_EQ(map.put(entry), model.count(key) == 0);
        model[key] = entry;
      }
    } else if (what < 990) {
      EXPECT_EQ(map.erase(key), model.erase(key) == 1);
    } else if (what < 995) {
      map.clear();
      model.clear();
    } else {
      map.storeIs(nullptr);
      map.storeIs(writer<Entry>(root, capacity));
      EXPECT_EQ(map.store()->generation(), ++generation);
    }
    ASSERT_NO_FATAL_FAILURE(expectSame(map, model)) << "step " << step;
    EXPECT_EQ(map.has(key), model.count(key) == 1);
    if (step % 16 == 0) {
      ASSERT_NO_FATAL_FAILURE(expectSame(watching, model)) << "step " << step;
    }
  }
}

TYPED_TEST(TableModel, AgreesWithAMapAfterEachRandomStep) {
  std::vector<typename TypeParam::Key> keys;
  for (uint32_t number = 0; number < 48; ++number) keys.push_back(TypeParam::keyOf(number));
  runAgainstModel<TypeParam>(keys, 24, 24, sizeof(TypeParam) > 4096 ? 500 : 4000);
}

TYPED_TEST(TableModel, AgreesWithAMapWhenAllKeysBeginAtOnePlaceOfTheIndex) {
  runAgainstModel<TypeParam>(collidingKeys<TypeParam>(48, 1024, 0), 24, 24,
                             sizeof(TypeParam) > 4096 ? 500 : 4000);
}

// A large capacity leaves few bits for the tag: here the index cannot tell the keys apart at all.
TEST(TableModelOfEqualHashes, AgreesWithAMapWhenTheIndexCannotTellKeysApart) {
  constexpr uint64_t capacity = uint64_t{1} << 20;  // 21 bits for the slot, 11 for the tag
  runAgainstModel<Tiny>(collidingKeys<Tiny>(16, 2048, 11), capacity, 12, 3000);
}

TEST(TableModelOfManyEntries, AgreesWithAMapWhileTheIndexGrows) {
  TempRoot root;
  MapOf<Route> map(writer<Route>(root, 40000));
  const MapOf<Route> watching(reader<Route>(root));
  Model<Route> model;
  for (uint32_t number = 0; number < 40000; ++number) {
    const Route entry = Route::make(number, number + 1);
    ASSERT_TRUE(map.put(entry));
    model[entry.id] = entry;
    ASSERT_TRUE(watching.has(Route::keyOf(number / 2)));
    ASSERT_FALSE(watching.has(Route::keyOf(number + 1)));
  }
  expectSame(map, model);
  expectSame(watching, model);
  map.clear();
  expectSame(watching, Model<Route>());
  for (uint32_t number = 100000; number < 140000; ++number) {
    ASSERT_TRUE(map.put(Route::make(number, 7)));
  }
  EXPECT_EQ(watching.size(), 40000u);
  for (uint32_t number = 100000; number < 140000; ++number) {
    ASSERT_TRUE(watching.has(Route::keyOf(number)));
    ASSERT_FALSE(watching.has(Route::keyOf(number - 100000)));
  }
}

}  // namespace
}  // namespace ShoalTest
