// Tables whose bytes were changed behind their back: whatever is done with them comes to an end,
// destroys nothing that is sound, and emptying one makes it sound again.
#include <algorithm>

#include "platform/Shoal/Store.h"
#include "platform/Shoal/TableCheck.h"
#include "tests/Shoal/TableTest.h"

namespace ShoalTest {
namespace {

using Guard::CorruptionDetectedException;
using View = Shoal::TableView;

std::shared_ptr<Shoal::Store> writerOfTiny(const std::filesystem::path& root, uint64_t capacity) {
  return std::dynamic_pointer_cast<Shoal::Store>(writer<Tiny>(root, capacity));
}

// The index word of a slot, under the key that is in it.
uint32_t wordOfSlot(const View& table, uint32_t slot) {
  return table.plan.wordOf(table.hashOf(table.entry(slot) + table.plan.keyOffset), slot);
}

// Fills the whole index with the words of these slots in turn.
void fillIndex(const View& table, const std::vector<uint32_t>& slots) {
  for (uint32_t at = 0; at < table.plan.levelWords[0]; ++at) {
    table.index(0)[at] = wordOfSlot(table, slots[at % slots.size()]);
  }
}

uint32_t indexVersionIn(const std::filesystem::path& root) {
  const auto store = std::dynamic_pointer_cast<Shoal::Store>(reader<Tiny>(root));
  return store->view().header().indexVersion;
}

// A table whose writer was killed while it closed the hole at place 0 of an index without an empty
// word, in an insert into slot 2.
void leaveHoleInFullIndex(const std::filesystem::path& root, const std::vector<uint32_t>& slots) {
  const auto store = writerOfTiny(root, 4);
  MapOf<Tiny> map(store);
  for (uint32_t number = 1; number <= 3; ++number) map.put(Tiny::make(number, 1));
  map.erase(Tiny::keyOf(3));
  const View& table = store->view();
  fillIndex(table, slots);
  table.header().operation.slot = 2;
  table.header().operation.hole = 1;
  table.header().operation.kind = Shoal::OperationRecord::insert;
}

// Words of two slots with different homes leave one that may be moved for hundreds of thousands of
// moves, and in a larger index for hours. Each move raises the index's version.
TEST(DamagedIndex, WithoutAnEmptyWordIsGivenUpAfterOneRound) {
  for (const std::vector<uint32_t>& slots : {std::vector<uint32_t>{0}, {0, 1}}) {
    const TempRoot root;
    leaveHoleInFullIndex(root, slots);
    const std::string text = thrown<CorruptionDetectedException>([&] { writer<Tiny>(root, 4); });
    EXPECT_NE(text.find("index without an end"), std::string::npos) << text;
    EXPECT_LE(indexVersionIn(root), 1024u) << slots.size() << " slots";
  }
}

// The next fresh slot by the header's account had an entry, and lost it to the next insert.
TEST(DamagedHighWater, DoesNotLetAnInsertOverwriteAnEntryAboveIt) {
  const TempRoot root;
  const auto store = writerOfTiny(root, 8);
  MapOf<Tiny> map(store);
  for (uint32_t number = 1; number <= 3; ++number) map.put(Tiny::make(number, 1));
  store->view().header().highWater = 2;
  const std::string text = thrown<CorruptionDetectedException>([&] { map.put(Tiny::make(9, 1)); });
  EXPECT_NE(text.find("slot 2 is in use above the high water"), std::string::npos) << text;
  bool found = false;
  EXPECT_EQ(map.safeLookup(Tiny::keyOf(3), found), Tiny::make(3, 1));
  EXPECT_TRUE(found);
  EXPECT_FALSE(map.has(Tiny::keyOf(9)));
}

TEST(DamagedSlot, WithoutAStateIsLeftOutOfALargerIndex) {
  const TempRoot root;
  const auto store = writerOfTiny(root, 2000);
  MapOf<Tiny> map(store);
  map.put(Tiny::make(0, 1));
  map.put(Tiny::make(1, 1));
  store->view().slot(0).state = Shoal::slotEmpty;
  for (uint32_t number = 2; number < 1000; ++number) map.put(Tiny::make(number, 1));
  ASSERT_GT(store->view().indexLevel(), 0u);
  EXPECT_FALSE(map.has(Tiny::keyOf(0)));
  for (uint32_t number = 1; number < 1000; ++number) ASSERT_TRUE(map.has(Tiny::keyOf(number)));
  EXPECT_EQ(Shoal::checkTable(*store).indexWords, 999u);
}

TEST(DamagedCount, OfNoneRefusesARemoval) {
  const TempRoot root;
  const auto store = writerOfTiny(root, 8);
  MapOf<Tiny> map(store);
  map.put(Tiny::make(1, 1));
  store->view().header().live = 0;
  const std::string text = thrown<CorruptionDetectedException>([&] { map.erase(Tiny::keyOf(1)); });
  EXPECT_NE(text.find("an entry in slot 0 of none"), std::string::npos) << text;
  EXPECT_TRUE(map.has(Tiny::keyOf(1)));
}

// A hint of generation 0 says that it has no place yet. In a table of generation 0 every hint said
// so, and a walk over entries that the index did not know began again and again.
TEST(DamagedGeneration, OfZeroLetsAWalkComeToItsEnd) {
  const TempRoot root;
  const auto store = writerOfTiny(root, 100);
  MapOf<Tiny> map(store);
  for (uint32_t number = 0; number < 50; ++number) map.put(Tiny::make(number, 1));
  store->view().header().generation = 0;
  std::fill_n(store->view().index(0), store->view().plan.levelWords[0], 0);
  std::vector<Tiny> walked;
  Shoal::IterHint hint;
  Tiny entry{};
  for (bool more = map.first(hint, entry); more && walked.size() <= 50;
       more = map.next(entry.id, hint, entry)) {
    walked.push_back(entry);
  }
  ASSERT_EQ(walked.size(), 50u);
  for (uint32_t number = 0; number < 50; ++number) {
    EXPECT_EQ(walked[number], Tiny::make(number, 1));
  }
}

// Slots 0 to 5 have the keys 0 to 5; 1 and 4 are free, 1 before 4.
struct Damage {
  const char* name;
  void (*make)(const View& table);
};
class ClearedTable : public testing::TestWithParam<Damage> {};

const Damage damages[] = {
    {"None", [](const View&) {}},
    {"CountTooLow", [](const View& table) { table.header().live = 1; }},
    {"CountTooHigh", [](const View& table) { table.header().live = 6; }},
    {"FreeListLost", [](const View& table) { table.header().freeHead = 0; }},
    {"FreeListInALoop", [](const View& table) { table.slot(4).state = Shoal::freeState(2); }},
    {"FreeListIntoALiveSlot", [](const View& table) { table.slot(4).state = Shoal::freeState(1); }},
    {"FreeListOutOfTheTable",
     [](const View& table) { table.slot(4).state = Shoal::freeState(4000); }},
    {"FreeSlotForgotten", [](const View& table) { table.slot(1).state = Shoal::freeState(0); }},
    {"StateOfNoKind", [](const View& table) { table.slot(4).state = 3; }},
    {"SlotHalfWritten", [](const View& table) { table.slot(4).sequence |= 1; }},
    {"LiveSlotHalfWritten", [](const View& table) { table.slot(2).sequence |= 1; }},
    {"HighWaterTooLow",
     [](const View& table) {
       table.header().highWater = 3;
       table.header().live = 3;
     }},
    {"IndexFull",
     [](const View& table) {
       fillIndex(table, {0, 1, 2});
     }},
    {"IndexOfWordsToNowhere",
     [](const View& table) { std::fill_n(table.index(0), 1000, 0xffffffff); }},
    {"IndexLost", [](const View& table) { std::fill_n(table.index(0), 1024, 0); }},
};

TEST_P(ClearedTable, IsEmptyAndSoundWhateverItWasBefore) {
  const TempRoot root;
  const auto store = writerOfTiny(root, 8);
  MapOf<Tiny> map(store);
  for (uint32_t number = 0; number < 6; ++number) map.put(Tiny::make(number, 1));
  map.erase(Tiny::keyOf(4));
  map.erase(Tiny::keyOf(1));
  GetParam().make(store->view());

  map.clear();
  EXPECT_EQ(map.size(), 0u);
  EXPECT_TRUE(map.walk().empty());
  const auto expectSound = [&] {
    const Shoal::TableCheck check = Shoal::checkTable(*store);
    EXPECT_TRUE(check.isCounted);
    for (const std::string& fault : check.faults) ADD_FAILURE() << fault;
  };
  expectSound();
  Model<Tiny> model;
  for (uint32_t number = 100; number < 108; ++number) {
    model[Tiny::keyOf(number)] = Tiny::make(number, 1);
    EXPECT_TRUE(map.put(Tiny::make(number, 1)));
  }
  expectSame(map, model);
  expectSound();
}

INSTANTIATE_TEST_SUITE_P(After, ClearedTable, testing::ValuesIn(damages),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace ShoalTest
