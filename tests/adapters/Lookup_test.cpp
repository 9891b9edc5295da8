#include <algorithm>
#include <array>
#include <typeinfo>
#include <vector>

#include "tests/adapters/Samples.h"

namespace adapter_tests {
namespace {

template <class A>
class Construction : public AdapterTest<A> {};
TYPED_TEST_SUITE(Construction, Adapters, AdapterNames);

TYPED_TEST(Construction, NamesTheAdapterItsRowTypeAndTheTypesId) {
  struct Ops final : Vane::VaTableOps {
  } ops;
  this->db->tableTypeId("P4RuntimeRouting::IpVrfPrefixStatusEntryRow");  // takes id 1
  const TypeParam adapter(this->table, this->db, &ops, true);
  EXPECT_EQ(adapter.tableTypeName(), TestFixture::Traits::name);
  EXPECT_EQ(adapter.rowTypeName(), TestFixture::Row::rowTypeName());
  EXPECT_EQ(adapter.rowTypeId(), 2);
  EXPECT_EQ(adapter.ops(), &ops);
  EXPECT_TRUE(adapter.options().empty());
}

TYPED_TEST(Construction, GivesATableThatIsUniqueExternalReadyAndNeitherOrderedNorBounded) {
  const auto adapter = this->makeAdapter();
  EXPECT_TRUE(adapter->isUnique(0));
  EXPECT_FALSE(adapter->isOrdered(0));
  EXPECT_FALSE(adapter->isBounded());
  EXPECT_TRUE(adapter->isExternal());
  EXPECT_EQ(adapter->tableState(), Vane::TableState{2});
  EXPECT_EQ(adapter->indexes(), 1);
}

TYPED_TEST(Construction, ListensToTheTableAndKeepsItUntilTheAdapterGoes) {
  const uint32_t before = this->table->references();
  auto adapter = this->makeAdapter();
  EXPECT_EQ(this->table->notifiees(), 1u);
  EXPECT_EQ(this->table->references(), before + 2);  // the adapter's handle and its reactor's
  adapter.reset();
  EXPECT_EQ(this->table->notifiees(), 0u);
  EXPECT_EQ(this->table->references(), before);
}

TYPED_TEST(Construction, SupportsModifiersAsItIsTold) {
  EXPECT_TRUE(this->makeAdapter(true)->modifierSupported());
  EXPECT_FALSE(this->makeAdapter(false)->modifierSupported());
}

TYPED_TEST(Construction, SupportsReadersAlwaysAndObserversButOnASnapshot) {
  const auto writer = this->makeAdapter(false);
  EXPECT_TRUE(writer->readerSupported());
  EXPECT_TRUE(writer->observerSupported());
  this->storeIs(Shoal::Mode::reader);
  const auto reader = this->makeAdapter(false);
  EXPECT_TRUE(reader->readerSupported());
  EXPECT_TRUE(reader->observerSupported());
  this->storeIs(Shoal::Mode::snapshot);
  const auto snapshot = this->makeAdapter(false);
  EXPECT_TRUE(snapshot->readerSupported());
  EXPECT_FALSE(snapshot->observerSupported());
}

TYPED_TEST(Construction, OverATableThatIsNotAttachedIsAnAssertion) {
  using Traits = typename TestFixture::Traits;
  this->table->storeIs(nullptr);
  const std::string expected = std::string(Traits::name) + " expects a mount Shoal entity | " +
                               Traits::source + " | " + Traits::name + " | " +
                               std::to_string(Traits::lines.notMounted);
  EXPECT_EQ(assertionOf([&] { this->makeAdapter(true); }), expected);
  EXPECT_EQ(assertionOf([&] { this->makeAdapter(false); }), expected);
  EXPECT_EQ(this->table->notifiees(), 0u);
}

TYPED_TEST(Construction, WithModifiersOverATableThatIsNotAWriterIsAnAssertion) {
  using Traits = typename TestFixture::Traits;
  const std::string expected =
      std::string(Traits::name) +
      " is set to allow modifiers, but underlying Shoal entity is not a writer | " +
      Traits::source + " | " + Traits::name + " | " + std::to_string(Traits::lines.notWriter);
  for (const auto mode : {Shoal::Mode::reader, Shoal::Mode::snapshot}) {
    this->storeIs(mode);
    EXPECT_EQ(assertionOf([&] { this->makeAdapter(true); }), expected);
    EXPECT_EQ(this->table->notifiees(), 0u);
  }
}

TYPED_TEST(Construction, FindsWhatIsWrongWithTheTableWhenAllElseIsBuilt) {
  this->storeIs(Shoal::Mode::reader);
  EXPECT_THROW(this->makeAdapter(true), Guard::AssertException);
  EXPECT_EQ(this->store->capacityQuestions(), 1);  // asked for the key map
  EXPECT_FALSE(this->db->classRecord(TestFixture::Row::rowTypeName()).isNull());
}

TYPED_TEST(Construction, ReadsNoEntry) {
  this->set(1);
  const auto adapter = this->makeAdapter();
  EXPECT_EQ(this->store->reads(), 0);
}

TEST(ConstructionDeathTest, WithoutATableIsFatal) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto db = Vane::makeVaneDB();
  Vane::VaneDB::currentIs(db);
  EXPECT_DEATH(IpDestinationVaneWrapper(nullptr, db, nullptr, true), "Assertion `notifier' failed");
  Vane::VaneDB::currentIs(nullptr);
}

// Answers every row type with an id above 16 bits.
class WideDB final : public Vane::VaneDB {
 public:
  uint32_t tableTypeId(const std::string&) override { return 0x00020005; }
  void registerTable(const std::string&, const std::string&, Vane::TableType, uint16_t, uint16_t,
                     const std::string&, Options) override {}
  void tableImplementationIs(const std::string&,
                             std::shared_ptr<Vane::VaTableImplementation>) override {}
  std::vector<std::string> tableNames() const override { return {}; }
  std::shared_ptr<Vane::VaTableImplementation> table(const std::string&) const override {
    return nullptr;
  }
  Vane::BaseRow classRecord(const std::string&) const override { return {}; }
  void metadataIs(const std::string&) override {}
};

TYPED_TEST(Construction, KeepsTheRowTypeIdAs16Bits) {
  const TypeParam adapter(this->table, std::make_shared<WideDB>(), nullptr, true);
  EXPECT_EQ(adapter.rowTypeId(), 5);
}

template <class A>
class Lookup : public AdapterTest<A> {
 protected:
  Lookup() {
    for (const uint32_t i : {1, 2, 3, 4}) this->set(i);
  }
  // `ask` has the adapter look a key row up, by an index.
  void expectFailuresOfRow(auto ask) {
    const Vane::BaseRow null, key = this->s.keyRow(1), tooShort(5);
    EXPECT_EQ(assertionOf([&] { ask(null, 1); }), assertionOf([&] { adapter->row(null, 1); }));
    EXPECT_THROW(ask(null, 0), Vane::VaNullRow);
    EXPECT_THROW(ask(tooShort, 0), Vane::VaOutOfRange);
    this->store->corruptRead(0, "slot 0 is torn");
    EXPECT_THROW(ask(key, 0), Guard::CorruptionDetectedException);
    EXPECT_EQ(this->store->corruptions(), std::vector<std::string>{"slot 0 is torn"});
  }
  const std::unique_ptr<A> adapter = this->makeAdapter();
};
TYPED_TEST_SUITE(Lookup, Adapters, AdapterNames);

TYPED_TEST(Lookup, AnotherIndexThanThePrimaryIsAnAssertion) {
  using Traits = typename TestFixture::Traits;
  const auto expected = [](const char* function, int line) {
    return std::string("Multiple indices not supported | ") + Traits::source + " | " + function +
           " | " + std::to_string(line);
  };
  const Vane::BaseRow key = this->s.keyRow(1);
  for (const uint8_t idx : {1, 255}) {
    EXPECT_EQ(assertionOf([&] { this->adapter->begin(idx); }),
              expected("begin", Traits::lines.begin));
    EXPECT_EQ(assertionOf([&] { this->adapter->end(idx); }), expected("end", Traits::lines.end));
    EXPECT_EQ(assertionOf([&] { this->adapter->find(key, idx); }),
              expected("find", Traits::lines.find));
    EXPECT_EQ(assertionOf([&] { this->adapter->row(key, idx); }),
              expected("row", Traits::lines.row));
  }
}

TYPED_TEST(Lookup, TheIndexIsCheckedBeforeTheKeyRow) {
  EXPECT_THROW(this->adapter->find(Vane::BaseRow(), 1), Guard::AssertException);
  EXPECT_THROW(this->adapter->row(Vane::BaseRow(), 1), Guard::AssertException);
}

TYPED_TEST(Lookup, FlagsOfAnotherIndexAreOutOfRange) {
  EXPECT_EQ(messageOf<Vane::VaOutOfRange>([&] { this->adapter->isUnique(1); }),
            "Multiple indices not supported. idx:1");
  EXPECT_EQ(messageOf<Vane::VaOutOfRange>([&] { this->adapter->isOrdered(2); }),
            "Multiple indices not supported. idx:2");
}

TYPED_TEST(Lookup, PrimaryRowOpsAreNotSupported) {
  EXPECT_EQ(messageOf<Vane::VaNotSupported>([&] { this->adapter->primaryRowOps(); }),
            "primaryRowOps " + TestFixture::Row::rowTypeName());
}

TYPED_TEST(Lookup, SizeIsAskedOfTheTableAtEachCall) {
  EXPECT_EQ(this->adapter->size(), 4u);
  this->delUntold(2);
  EXPECT_EQ(this->adapter->size(), 3u);
}

TYPED_TEST(Lookup, AWalkGivesEveryEntryInSlotOrderAsARow) {
  EXPECT_EQ(this->walk(this->adapter->begin(0), *this->adapter), this->rowsOf({1, 2, 3, 4}));
}

// Slots 1 to 4 hold entries, 9 has never been there and stands before all of them.
TYPED_TEST(Lookup, EachWalkKeepsOneHintOfItsOwnForAllOfItsSteps) {
  const auto a = this->adapter->begin(0);                       // step 1
  const auto b = this->adapter->begin(0);                       // 2
  ++*a;                                                         // 3
  ++*b;                                                         // 4
  ++*a;                                                         // 5
  const auto clone = a->clone();                                // found by its key, without a step
  ++*clone;                                                     // 6
  const auto next = this->adapter->find(this->s.keyRow(9), 0);  // 7, the one that follows
  ++*next;                                                      // 8
  EXPECT_EQ(this->store->hints(), (std::vector<uint64_t>{0, 0, 1, 2, 3, 0, 0, 7}));
}

TYPED_TEST(Lookup, AnEmptyTableBeginsAtItsEnd) {
  this->storeIs(Shoal::Mode::writer);
  const auto begin = this->adapter->begin(0);
  EXPECT_TRUE(*begin == *this->adapter->end(0));
  EXPECT_FALSE(*begin != *this->adapter->end(0));
  EXPECT_FALSE(static_cast<bool>(*begin));
  EXPECT_EQ(this->adapter->size(), 0u);
}

TYPED_TEST(Lookup, TheEndDoesNotConsultTheTable) {
  const int reads = this->store->reads();
  const auto end = this->adapter->end(0);
  EXPECT_FALSE(static_cast<bool>(*end));
  EXPECT_EQ(this->store->reads(), reads);
}

TYPED_TEST(Lookup, AnIteratorStandsOnAnEntryOrIsAtTheEnd) {
  const auto at = this->adapter->begin(0);
  for (int left = 4; left > 0; --left, ++*at) EXPECT_TRUE(static_cast<bool>(*at));
  EXPECT_FALSE(static_cast<bool>(*at));
  EXPECT_TRUE(*at == *this->adapter->end(0));
}

TYPED_TEST(Lookup, AWalkGoesOnFromAnEntryThatIsRemovedUnderIt) {
  const auto at = this->adapter->begin(0);
  ++*at;
  this->del(2);
  ++*at;
  EXPECT_EQ(hex(**at), hex(this->s.row(3)));
}

TYPED_TEST(Lookup, ARowShowsTheEntryAsItWasWhenTheIteratorReachedIt) {
  const auto at = this->adapter->begin(0);
  this->set(1, 2);
  EXPECT_EQ(hex(**at), hex(this->s.row(1)));
  this->del(1);
  EXPECT_EQ(hex(**at), hex(this->s.row(1)));
}

TYPED_TEST(Lookup, IteratorsOnDifferentEntriesAreEqual) {
  const auto one = this->adapter->begin(0);
  const auto other = this->adapter->begin(0);
  ++*other;
  EXPECT_TRUE(*one == *other);
  EXPECT_FALSE(*one != *other);
  EXPECT_TRUE(*one != *this->adapter->end(0));
}

// An iterator of no table of ours.
struct ForeignIterator final : Vane::VaRowIteratorImpl {
  VaRowIteratorImpl& operator++() override { return *this; }
  Vane::BaseRow operator*() override { return {}; }
  bool operator==(const VaRowIteratorImpl&) const override { return true; }
  bool operator!=(const VaRowIteratorImpl&) const override { return false; }
  explicit operator bool() const override { return true; }
  std::unique_ptr<VaRowIteratorImpl> clone() const override { return nullptr; }
};

TYPED_TEST(Lookup, ComparingWithAnIteratorOfAnotherClassIsABadCast) {
  const auto at = this->adapter->begin(0);
  const std::unique_ptr<Vane::VaRowIteratorImpl> foreign = std::make_unique<ForeignIterator>();
  EXPECT_THROW(static_cast<void>(*at == *foreign), std::bad_cast);
  EXPECT_THROW(static_cast<void>(*at != *foreign), std::bad_cast);
}

TYPED_TEST(Lookup, FindStandsOnTheEntryOfTheKeyAndWalksOnFromThere) {
  EXPECT_EQ(this->walk(this->adapter->find(this->s.keyRow(3), 0), *this->adapter),
            this->rowsOf({3, 4}));
}

TYPED_TEST(Lookup, FindOfAnAbsentKeyStandsOnTheNextEntryInSlotOrder) {
  this->del(2);
  EXPECT_EQ(this->walk(this->adapter->find(this->s.keyRow(2), 0), *this->adapter),
            this->rowsOf({3, 4}));
  // This store puts a key that it never held before every other.
  EXPECT_EQ(this->walk(this->adapter->find(this->s.keyRow(9), 0), *this->adapter),
            this->rowsOf({1, 3, 4}));
}

TYPED_TEST(Lookup, FindOfAnAbsentKeyThatNothingFollowsIsTheEnd) {
  this->del(4);
  EXPECT_TRUE(*this->adapter->find(this->s.keyRow(4), 0) == *this->adapter->end(0));
}

TYPED_TEST(Lookup, RowGivesTheEntryOfTheKeyAsItIsNow) {
  EXPECT_EQ(hex(this->adapter->row(this->s.keyRow(2), 0)), hex(this->s.row(2)));
  this->set(2, 2);
  EXPECT_EQ(hex(this->adapter->row(this->s.keyRow(2), 0)), hex(this->s.row(2, 2)));
}

TYPED_TEST(Lookup, RowOfAnAbsentKeyIsZeroInEveryColumn) {
  const Vane::BaseRow row = this->adapter->row(this->s.keyRow(9), 0);
  const auto all = bytes(row);
  EXPECT_EQ(all.size(), TestFixture::Row::baseRowLength_);
  EXPECT_TRUE(std::all_of(all.begin() + 4, all.end(), [](int byte) { return byte == 0; }))
      << hex(row);
  EXPECT_EQ(row.rowType(), TestFixture::Row::protRowType());
}

TYPED_TEST(Lookup, RowIfPresentIsTheRowOfAPresentKeyAndNullForAnAbsentOne) {
  EXPECT_EQ(hex(this->adapter->rowIfPresent(this->s.keyRow(2), 0)), hex(this->s.row(2)));
  EXPECT_TRUE(this->adapter->rowIfPresent(this->s.keyRow(9), 0).isNull());
  this->del(2);
  EXPECT_TRUE(this->adapter->rowIfPresent(this->s.keyRow(2), 0).isNull());
}

TYPED_TEST(Lookup, RowIfPresentTellsAnEntryThatIsZeroThroughoutFromNone) {
  typename TestFixture::Row zero;
  zero.clearRow();
  const auto isThere = [&] { return !this->adapter->rowIfPresent(zero, 0).isNull(); };
  EXPECT_FALSE(isThere());
  typename TestFixture::Entry entry{};
  TestFixture::Traits::KeyColumns::fromRow(zero, entry.*TestFixture::Traits::key);
  this->set(entry);
  EXPECT_TRUE(isThere());
}

TYPED_TEST(Lookup, RowIfPresentFailsAsRowDoes) {
  this->expectFailuresOfRow([this](const Vane::BaseRow& keyRow, uint8_t idx) {
    this->adapter->rowIfPresent(keyRow, idx);
  });
}

// More keys than are looked up in one go, every ninth of them absent and some of them twice.
TYPED_TEST(Lookup, RowsOfManyKeysAreThoseOfEachOfThem) {
  std::vector<Vane::BaseRow> keys;
  for (uint32_t i = 0; i < 200; ++i) keys.push_back(this->s.keyRow(1 + i % 9));
  std::vector<const Vane::BaseRow*> wanted;
  for (const Vane::BaseRow& key : keys) wanted.push_back(&key);
  std::vector<Vane::BaseRow> rows(keys.size());
  this->adapter->rows(wanted, rows, 0);
  for (size_t i = 0; i < keys.size(); ++i) {
    EXPECT_EQ(hex(rows[i]), hex(this->adapter->row(keys[i], 0))) << i;
  }
  EXPECT_EQ(hex(rows[1]), hex(this->s.row(2)));
}

TYPED_TEST(Lookup, RowsOfNoKeysAreNone) {
  const int reads = this->store->reads();
  this->adapter->rows({}, {}, 0);
  EXPECT_EQ(this->store->reads(), reads);
}

TYPED_TEST(Lookup, RowsFailAsRowDoes) {
  this->expectFailuresOfRow([this](const Vane::BaseRow& keyRow, uint8_t idx) {
    const std::array wanted{&keyRow};
    std::array<Vane::BaseRow, 1> rows;
    this->adapter->rows(wanted, rows, idx);
  });
}

TYPED_TEST(Lookup, AKeyRowWithoutABufferIsANullRow) {
  const int reads = this->store->reads();
  EXPECT_EQ(messageOf<Vane::VaNullRow>([&] { this->adapter->find(Vane::BaseRow(), 0); }),
            "null row");
  EXPECT_EQ(messageOf<Vane::VaNullRow>([&] { this->adapter->row(Vane::BaseRow(), 0); }),
            "null row");
  EXPECT_EQ(this->store->reads(), reads);
}

TYPED_TEST(Lookup, AKeyRowIsReadByOffsetWhateverItsTypeSays) {
  Vane::BaseRow key = this->s.keyRow(2).clone();
  key.rowTypeIs(12345);
  EXPECT_EQ(hex(this->adapter->row(key, 0)), hex(this->s.row(2)));
  EXPECT_EQ(hex(**this->adapter->find(key, 0)), hex(this->s.row(2)));
}

TYPED_TEST(Lookup, AKeyRowThatIsTooShortForItsKeyIsOutOfRange) {
  const Vane::BaseRow tooShort(5);
  EXPECT_THROW(this->adapter->row(tooShort, 0), Vane::VaOutOfRange);
  EXPECT_THROW(this->adapter->find(tooShort, 0), Vane::VaOutOfRange);
  EXPECT_THROW(this->adapter->rowDel(tooShort), Vane::VaOutOfRange);
}

TYPED_TEST(Lookup, ACloneStandsOnTheEntryAsItIsNow) {
  const auto at = this->adapter->find(this->s.keyRow(2), 0);
  this->set(2, 2);
  EXPECT_EQ(hex(**at->clone()), hex(this->s.row(2, 2)));
  EXPECT_EQ(hex(**at), hex(this->s.row(2)));
}

TYPED_TEST(Lookup, ACloneAndItsSourceWalkOnAlone) {
  const auto at = this->adapter->find(this->s.keyRow(2), 0);
  const auto clone = at->clone();
  ++*at;
  EXPECT_EQ(hex(**clone), hex(this->s.row(2)));
  ++*clone;
  ++*clone;
  EXPECT_EQ(hex(**clone), hex(this->s.row(4)));
  EXPECT_EQ(hex(**at), hex(this->s.row(3)));
}

TYPED_TEST(Lookup, TheCloneOfAnIteratorWhoseEntryWasRemovedStandsOnTheFollowingEntry) {
  const auto at = this->adapter->find(this->s.keyRow(2), 0);
  this->del(2);
  EXPECT_EQ(hex(**at->clone()), hex(this->s.row(3)));
  const auto last = this->adapter->find(this->s.keyRow(4), 0);
  this->del(4);
  EXPECT_TRUE(*last->clone() == *this->adapter->end(0));
}

TYPED_TEST(Lookup, TheCloneOfAnEndIteratorIsAnEndIterator) {
  EXPECT_TRUE(*this->adapter->end(0)->clone() == *this->adapter->end(0));
  const auto walked = this->adapter->find(this->s.keyRow(4), 0);
  ++*walked;
  const int reads = this->store->reads();
  EXPECT_FALSE(static_cast<bool>(*walked->clone()));
  EXPECT_EQ(this->store->reads(), reads);
}

TYPED_TEST(Lookup, AnIteratorKeepsTheTableEntity) {
  const uint32_t before = this->table->references();
  const auto at = this->adapter->begin(0);
  const auto end = this->adapter->end(0);
  EXPECT_EQ(this->table->references(), before + 2);
}

TYPED_TEST(Lookup, CorruptionMetByBeginIsHandedToTheTableAndEndsTheWalk) {
  this->store->corruptRead(0, "slot 0 is torn");
  EXPECT_TRUE(*this->adapter->begin(0) == *this->adapter->end(0));
  EXPECT_EQ(this->store->corruptions(), std::vector<std::string>{"slot 0 is torn"});
}

TYPED_TEST(Lookup, CorruptionMetByAStepIsHandedToTheTableAndEndsTheWalk) {
  const auto at = this->adapter->begin(0);
  this->store->corruptRead(1, "slot 2 is torn");
  ++*at;
  EXPECT_TRUE(static_cast<bool>(*at));
  ++*at;
  EXPECT_FALSE(static_cast<bool>(*at));
  EXPECT_EQ(this->store->corruptions(), std::vector<std::string>{"slot 2 is torn"});
}

// Find looks the key up, and then asks for what follows.
TYPED_TEST(Lookup, CorruptionMetByFindIsHandedToTheTableAndGivesTheEnd) {
  for (int read = 0; read < 2; ++read) {
    this->store->corruptRead(read);
    EXPECT_FALSE(static_cast<bool>(*this->adapter->find(this->s.keyRow(9), 0)));
    EXPECT_EQ(this->store->corruptions().size(), static_cast<size_t>(read) + 1);
  }
}

TYPED_TEST(Lookup, CorruptionMetByACloneIsHandedToTheTableAndGivesTheEnd) {
  const auto at = this->adapter->begin(0);
  this->store->corruptRead(0);
  EXPECT_FALSE(static_cast<bool>(*at->clone()));
  EXPECT_EQ(this->store->corruptions().size(), 1u);
  EXPECT_TRUE(static_cast<bool>(*at));
}

TYPED_TEST(Lookup, AnyOtherFailureOfTheTablePassesOnAndKeepsNothing) {
  const uint32_t before = this->table->references();
  const auto fail = [] { Guard::MemoryResourceException::throwException("no memory"); };
  this->store->interruptRead(0, fail);
  EXPECT_THROW(this->adapter->begin(0), Guard::MemoryResourceException);
  this->store->interruptRead(0, fail);
  EXPECT_THROW(this->adapter->find(this->s.keyRow(1), 0), Guard::MemoryResourceException);
  this->store->interruptRead(0, fail);
  EXPECT_THROW(this->adapter->row(this->s.keyRow(1), 0), Guard::MemoryResourceException);
  EXPECT_EQ(this->table->references(), before);
  EXPECT_TRUE(this->store->corruptions().empty());
}

// The places that logs name. They are looked for as they stand here.
struct Places {
  const char* adapter;
  const char* file;
  int notMounted, notWriter, row, begin, end, find;
};
constexpr auto routeFile = "src-includes/P4RuntimeVane/P4RuntimeRoutingTypesVaneWrappers";
constexpr auto ecmpFile = "src-includes/P4RuntimeVane/P4RuntimeRoutingEcmpTypesVaneWrappers";

template <class Adapter>
constexpr Places places{};
template <>
constexpr Places places<IpDestinationVaneWrapper>{
    "IpDestinationVaneWrapper", routeFile, 236, 240, 300, 310, 316, 324};
template <>
constexpr Places places<VrfPrefixDestinationVaneWrapper>{
    "VrfPrefixDestinationVaneWrapper", routeFile, 652, 656, 716, 726, 732, 740};
template <>
constexpr Places places<L2NexthopGroupEncapVaneWrapper>{
    "L2NexthopGroupEncapVaneWrapper", routeFile, 1068, 1072, 1132, 1142, 1148, 1156};
template <>
constexpr Places places<NexthopInfoVaneWrapper>{
    "NexthopInfoVaneWrapper", ecmpFile, 251, 255, 315, 325, 331, 339};
template <>
constexpr Places places<EcmpMemberListVaneWrapper>{
    "EcmpMemberListVaneWrapper", ecmpFile, 673, 677, 737, 747, 753, 761};

template <class A>
using Assertions = AdapterTest<A>;
TYPED_TEST_SUITE(Assertions, Adapters, AdapterNames);

TYPED_TEST(Assertions, NameTheTextsFilesFunctionsAndLinesThatAreLookedFor) {
  const Places& at = places<TypeParam>;
  const auto said = [&](const std::string& text, const std::string& function, int line) {
    return text + " | " + at.file + " | " + function + " | " + std::to_string(line);
  };
  const auto adapter = this->makeAdapter();
  const Vane::BaseRow key = this->s.keyRow(1);
  const std::string indices = "Multiple indices not supported";
  EXPECT_EQ(assertionOf([&] { adapter->row(key, 1); }), said(indices, "row", at.row));
  EXPECT_EQ(assertionOf([&] { adapter->begin(1); }), said(indices, "begin", at.begin));
  EXPECT_EQ(assertionOf([&] { adapter->end(1); }), said(indices, "end", at.end));
  EXPECT_EQ(assertionOf([&] { adapter->find(key, 1); }), said(indices, "find", at.find));
  const std::string name = at.adapter;
  this->storeIs(Shoal::Mode::reader);
  EXPECT_EQ(assertionOf([&] { this->makeAdapter(); }),
            said(name + " is set to allow modifiers, but underlying Shoal entity is not a writer",
                 name, at.notWriter));
  this->table->storeIs(nullptr);
  EXPECT_EQ(assertionOf([&] { this->makeAdapter(); }),
            said(name + " expects a mount Shoal entity", name, at.notMounted));
}

TEST(AssertionPlaces, AreDifferentWithinEachSourceFile) {
  std::vector<std::string> places;
  const auto add = [&](const char* source, const P4RuntimeVane::AssertionLines& lines) {
    for (const int line :
         {lines.notMounted, lines.notWriter, lines.row, lines.begin, lines.end, lines.find}) {
      places.push_back(source + std::to_string(line));
    }
  };
  add(IpDestinationTraits::source, IpDestinationTraits::lines);
  add(VrfPrefixDestinationTraits::source, VrfPrefixDestinationTraits::lines);
  add(L2NexthopGroupEncapTraits::source, L2NexthopGroupEncapTraits::lines);
  add(NexthopInfoTraits::source, NexthopInfoTraits::lines);
  add(EcmpMemberListTraits::source, EcmpMemberListTraits::lines);
  std::ranges::sort(places);
  EXPECT_EQ(std::ranges::adjacent_find(places), places.end());
}

TEST(AssertionPlaces, OfTheEcmpAdaptersLieInAFileOfTheirOwn) {
  const std::string ecmp = "src-includes/P4RuntimeVane/P4RuntimeRoutingEcmpTypesVaneWrappers";
  EXPECT_EQ(NexthopInfoTraits::source, ecmp);
  EXPECT_EQ(EcmpMemberListTraits::source, ecmp);
  const std::string routes = "src-includes/P4RuntimeVane/P4RuntimeRoutingTypesVaneWrappers";
  EXPECT_EQ(VrfPrefixDestinationTraits::source, routes);
  EXPECT_EQ(L2NexthopGroupEncapTraits::source, routes);
}

// The documented names are there, each the iterator class of its adapter.
TEST(IteratorNames, AreThoseOfTheirAdapters) {
  static_assert(std::derived_from<IpDestinationVaneWrapper::IpDestinationVaneWrapperIterator,
                                  Vane::VaRowIteratorImpl>);
  static_assert(
      std::derived_from<VrfPrefixDestinationVaneWrapper::VrfPrefixDestinationVaneWrapperIterator,
                        Vane::VaRowIteratorImpl>);
  static_assert(
      std::derived_from<L2NexthopGroupEncapVaneWrapper::L2NexthopGroupEncapVaneWrapperIterator,
                        Vane::VaRowIteratorImpl>);
  static_assert(std::derived_from<NexthopInfoVaneWrapper::NexthopInfoVaneWrapperIterator,
                                  Vane::VaRowIteratorImpl>);
  static_assert(std::derived_from<EcmpMemberListVaneWrapper::EcmpMemberListVaneWrapperIterator,
                                  Vane::VaRowIteratorImpl>);
  static_assert(std::derived_from<IpDestinationVaneWrapper::IpDestinationVaneWrapperChangeIterator,
                                  Vane::VaChangeIteratorImpl>);
  static_assert(std::derived_from<
                VrfPrefixDestinationVaneWrapper::VrfPrefixDestinationVaneWrapperChangeIterator,
                Vane::VaChangeIteratorImpl>);
  static_assert(std::derived_from<
                L2NexthopGroupEncapVaneWrapper::L2NexthopGroupEncapVaneWrapperChangeIterator,
                Vane::VaChangeIteratorImpl>);
  static_assert(std::derived_from<NexthopInfoVaneWrapper::NexthopInfoVaneWrapperChangeIterator,
                                  Vane::VaChangeIteratorImpl>);
  static_assert(
      std::derived_from<EcmpMemberListVaneWrapper::EcmpMemberListVaneWrapperChangeIterator,
                        Vane::VaChangeIteratorImpl>);
  static_assert(std::derived_from<EcmpMemberListVaneWrapper::ReactorForVane,
                                  Kit::PtrInterface::NotifieeConst>);
}

}  // namespace
}  // namespace adapter_tests
