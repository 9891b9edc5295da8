// Many entries in one call: each is answered for as if it had been asked for alone.
#include "platform/Shoal/Store.h"
#include "platform/Shoal/TableCheck.h"
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

// The entries of a walk that reads so many at a time.
template <class Entry>
std::vector<Entry> walked(const Shoal::TableStore& table, size_t atATime) {
  std::vector<Entry> batch(atATime), all;
  Shoal::IterHint hint;
  Shoal::Bytes last;
  while (const size_t count =
             table.nextBatch(last, hint, std::as_writable_bytes(std::span(batch)))) {
    EXPECT_LE(count, atATime);
    all.insert(all.end(), batch.begin(), batch.begin() + static_cast<std::ptrdiff_t>(count));
    last = std::as_bytes(std::span(batch[count - 1].id));
  }
  return all;
}

// Also where entries are missing in between, and at the end.
TYPED_TEST(Batch, OfEntriesIsTheWalkWhateverItsSize) {
  using Entry = TypeParam;
  const TempRoot root;
  MapOf<Entry> map(writer<Entry>(root, 64));
  EXPECT_TRUE(walked<Entry>(*map.store(), 3).empty());
  for (uint32_t number = 0; number < 30; ++number) map.put(Entry::make(number, number));
  for (const uint32_t gone : {0u, 7u, 8u, 9u, 10u, 29u}) map.erase(Entry::keyOf(gone));
  const std::vector<Entry> expected = map.walk();
  ASSERT_EQ(expected.size(), 24u);
  for (const size_t atATime : {1u, 2u, 7u, 24u, 25u, 100u}) {
    EXPECT_EQ(walked<Entry>(*map.store(), atATime), expected) << atATime << " at a time";
  }
  std::vector<Entry> visited;
  map.forEach([&](const Entry& entry) { visited.push_back(entry); });
  EXPECT_EQ(visited, expected);
}

TEST(BatchOfEntries, GoesOnBehindAKeyThatHasGoneAndFromAKeyWithoutAHint) {
  const TempRoot root;
  MapOf<Tiny> map(writer<Tiny>(root, 16));
  for (uint32_t number = 0; number < 6; ++number) map.put(Tiny::make(number, 1));
  std::array<Tiny, 2> batch;
  const auto room = std::as_writable_bytes(std::span(batch));
  Shoal::IterHint hint;
  ASSERT_EQ(map.store()->nextBatch({}, hint, room), 2u);
  map.erase(batch[1].id);
  ASSERT_EQ(map.store()->nextBatch(std::as_bytes(std::span(batch[1].id)), hint, room), 2u);
  EXPECT_EQ(batch[0], Tiny::make(2, 1));
  EXPECT_EQ(batch[1], Tiny::make(3, 1));
  Shoal::IterHint fresh;
  const auto four = Tiny::keyOf(4);
  ASSERT_EQ(map.store()->nextBatch(std::as_bytes(std::span(four)), fresh, room), 1u);
  EXPECT_EQ(batch[0], Tiny::make(5, 1));
}

// A slot that says it is being rewritten, with no such entry in the journal.
TEST(BatchOfEntries, GivesThoseBeforeOneThatCannotBeReadAndThenTells) {
  const TempRoot root;
  const auto store = std::dynamic_pointer_cast<Shoal::Store>(writer<Route>(root, 16));
  MapOf<Route> map(store);
  for (uint32_t number = 0; number < 6; ++number) map.put(Route::make(number, 1));
  store->view().slot(4).sequence |= 1;
  std::array<Route, 10> batch;
  const auto room = std::as_writable_bytes(std::span(batch));
  Shoal::IterHint hint;
  ASSERT_EQ(store->nextBatch({}, hint, room), 4u);
  EXPECT_EQ(batch[3], Route::make(3, 1));
  EXPECT_THROW(store->nextBatch(std::as_bytes(std::span(batch[3].id)), hint, room),
               Guard::CorruptionDetectedException);
}

TEST(ReservedTable, HasTheMemoryThatItsEntriesTake) {
  const TempRoot root;
  MapOf<Route> map(writer<Route>(root, 200000));
  map.reserve(0);
  EXPECT_LT(Shoal::tableStatus(root, tableName).bytes, 100000u);
  map.reserve(100000);
  const uint64_t reserved = Shoal::tableStatus(root, tableName).bytes;
  EXPECT_GE(reserved, 100000u * 64);
  EXPECT_EQ(map.size(), 0u);
  EXPECT_TRUE(map.walk().empty());
  for (uint32_t number = 0; number < 100000; ++number) map.put(Route::make(number, 1));
  EXPECT_EQ(Shoal::tableStatus(root, tableName).bytes, reserved);
  EXPECT_EQ(map.size(), 100000u);
}

TEST(ReservedTable, KeepsTheEntriesThatWereThere) {
  const TempRoot root;
  MapOf<Tiny> map(writer<Tiny>(root, 20000));
  Model<Tiny> model;
  for (uint32_t number = 0; number < 300; ++number) {
    map.put(Tiny::make(number, 1));
    model[Tiny::keyOf(number)] = Tiny::make(number, 1);
  }
  map.reserve(20000);
  expectSame(map, model);
  map.reserve(1);
  expectSame(map, model);
  const Shoal::TableCheck check = Shoal::checkTable(*map.store());
  EXPECT_TRUE(check.isCounted && check.faultCount == 0);
}

TEST(ReservedTable, OfMoreThanItsCapacityIsRefusedAsAnInsertIsThatFindsItFull) {
  const TempRoot root;
  MapOf<Tiny> map(writer<Tiny>(root, 3));
  EXPECT_EQ(thrown<Guard::MemoryResourceException>([&] { map.reserve(4); }),
            "shared table \"a/b/table\": full: capacity 3 entries");
  map.reserve(3);
  for (uint32_t number = 0; number < 3; ++number) EXPECT_TRUE(map.put(Tiny::make(number, 1)));
}

}  // namespace
}  // namespace ShoalTest
