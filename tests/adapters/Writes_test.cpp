#include <random>

#include "tests/adapters/Samples.h"

namespace adapter_tests {
namespace {

template <class A>
class Writes : public AdapterTest<A> {
 protected:
  void rowIs(Vane::BaseRow row, bool flag = false) { adapter->rowIs(row, flag); }
  const std::unique_ptr<A> adapter = this->makeAdapter();
};
TYPED_TEST_SUITE(Writes, Adapters, AdapterNames);

TYPED_TEST(Writes, ARowThatIsSetBecomesItsEntry) {
  this->rowIs(this->s.row(1));
  EXPECT_EQ(this->store->size(), 1u);
  EXPECT_TRUE(this->holds(this->s.entry(1)));
}

TYPED_TEST(Writes, ARowReplacesTheEntryOfItsKey) {
  this->rowIs(this->s.row(1));
  this->rowIs(this->s.row(1, 2));
  EXPECT_EQ(this->store->size(), 1u);
  EXPECT_TRUE(this->holds(this->s.entry(1, 2)));
}

TYPED_TEST(Writes, TheFlagIsIgnored) {
  this->rowIs(this->s.row(1), true);
  this->rowIs(this->s.row(2), false);
  EXPECT_TRUE(this->holds(this->s.entry(1)));
  EXPECT_TRUE(this->holds(this->s.entry(2)));
  this->rowIs(this->s.row(1, 2), false);
  this->rowIs(this->s.row(2, 2), true);
  EXPECT_TRUE(this->holds(this->s.entry(1, 2)));
  EXPECT_TRUE(this->holds(this->s.entry(2, 2)));
}

TYPED_TEST(Writes, ARowComesBackAsItWasSet) {
  for (uint32_t i = 0; i < 20; ++i) {
    this->rowIs(this->s.row(i, i));
    EXPECT_EQ(hex(this->adapter->row(this->s.keyRow(i), 0)), hex(this->s.row(i, i)));
  }
}

TYPED_TEST(Writes, ARowIsReadByOffsetWhateverItsTypeSays) {
  Vane::BaseRow row = this->s.row(1).clone();
  row.rowTypeIs(12345);
  this->rowIs(row);
  EXPECT_TRUE(this->holds(this->s.entry(1)));
}

TYPED_TEST(Writes, ANestedRowIsReadWhereItLies) {
  // A parent with one column, whose descriptor points to the row behind it.
  const auto inner = bytes(this->s.row(1));
  Vane::BaseRow parent(8, static_cast<Vane::len_t>(8 + inner.size()));
  uint8_t* const at = parent.buffer()->data();
  at[4] = 8;
  at[6] = static_cast<uint8_t>(inner.size());
  std::copy(inner.begin(), inner.end(), at + 8);
  Vane::BaseRow nested;
  parent.getColumnStruct(4, nested);
  ASSERT_EQ(nested.rowOffset(), 8);
  this->rowIs(nested);
  EXPECT_TRUE(this->holds(this->s.entry(1)));
}

TYPED_TEST(Writes, ARowWithoutABufferIsANullRowAndChangesNothing) {
  EXPECT_EQ(messageOf<Vane::VaNullRow>([&] { this->rowIs(Vane::BaseRow()); }), "null row");
  EXPECT_EQ(messageOf<Vane::VaNullRow>([&] { this->adapter->rowDel(Vane::BaseRow()); }),
            "null row");
  EXPECT_EQ(this->store->size(), 0u);
}

TYPED_TEST(Writes, ARowShorterThanItsFixedAreaIsOutOfRangeAndChangesNothing) {
  const Vane::BaseRow whole = this->s.row(1);
  const auto fixed = static_cast<Vane::len_t>(TestFixture::Row::baseRowLength_ - 1);
  Vane::BaseRow row(fixed);
  std::copy_n(whole.buffer()->data() + 4, fixed - 4, row.buffer()->data() + 4);
  EXPECT_THROW(this->rowIs(row), Vane::VaOutOfRange);
  EXPECT_EQ(this->store->size(), 0u);
}

TYPED_TEST(Writes, RowDelRemovesTheEntryOfTheKey) {
  this->rowIs(this->s.row(1));
  this->rowIs(this->s.row(2));
  this->adapter->rowDel(this->s.keyRow(1));
  EXPECT_EQ(this->store->size(), 1u);
  EXPECT_FALSE(this->holds(this->s.entry(1)));
  EXPECT_TRUE(this->holds(this->s.entry(2)));
}

TYPED_TEST(Writes, RowDelIsFollowedByAChangeOfKindRemovedForTheKey) {
  this->rowIs(this->s.row(1));
  this->adapter->rowDel(this->s.keyRow(1));
  const auto at = this->adapter->nextChange(0);
  const Vane::BasicVaTableChange change = **at;
  EXPECT_EQ(change.kind(), Vane::ChangeKind::removed);
  EXPECT_EQ(change.index(), 5u);
  EXPECT_EQ(hex(change.row()), hex(this->s.rowOfKeyAlone(1)));
  ++*at;
  EXPECT_TRUE(*at == *this->adapter->endChange());
}

TYPED_TEST(Writes, RowDelOfAnAbsentKeyIsLeftToTheTable) {
  this->adapter->rowDel(this->s.keyRow(1));
  EXPECT_EQ(this->adapter->latestChangeIdx(), 1u);
}

TYPED_TEST(Writes, RowDelAllRemovesEveryEntryAndEachIsAChange) {
  for (const uint32_t i : {1, 2, 3}) this->rowIs(this->s.row(i));
  this->adapter->rowDelAll();
  EXPECT_EQ(this->store->size(), 0u);
  int removals = 0;
  const auto end = this->adapter->endChange();
  for (const auto at = this->adapter->nextChange(6); *at != *end; ++*at) {
    EXPECT_EQ((**at).kind(), Vane::ChangeKind::removed);
    ++removals;
  }
  EXPECT_EQ(removals, 3);
}

TYPED_TEST(Writes, RowDelAllOfAnEmptyTableOnlyCallsTheTablesDeleteAll) {
  this->adapter->rowDelAll();
  EXPECT_EQ(this->store->clears(), 1);
  EXPECT_EQ(this->adapter->latestChangeIdx(), 1u);
}

TYPED_TEST(Writes, AWriteThatTheTableRefusesPassesOnAndLogsNothing) {
  this->storeIs(Shoal::Mode::writer, 1);
  this->rowIs(this->s.row(1));
  EXPECT_THROW(this->rowIs(this->s.row(2)), Guard::MemoryResourceException);
  EXPECT_EQ(this->adapter->latestChangeIdx(), 2u);
  EXPECT_EQ(this->store->size(), 1u);
}

TYPED_TEST(Writes, AreNotCheckedAgainstModifierSupport) {
  const auto reader = this->makeAdapter(false);
  ASSERT_FALSE(reader->modifierSupported());
  Vane::BaseRow row = this->s.row(1);
  reader->rowIs(row, false);
  EXPECT_TRUE(this->holds(this->s.entry(1)));
}

// Writes down the rows that it is shown.
struct Hook final : Vane::VaRowHook {
  bool active() const override { return isActive; }
  Vane::BaseRow row(Vane::BaseRow& row, const Vane::BaseRow& empty) override {
    shown.push_back(row.isNull() ? "null" : hex(row));
    empties.push_back(&empty);
    EXPECT_TRUE(empty.isNull());
    return {};  // what it returns is of no account
  }
  bool isActive = true;
  std::vector<std::string> shown;
  std::vector<const Vane::BaseRow*> empties;
};

TYPED_TEST(Writes, AnActiveHookIsShownEachRowBesideTheSharedEmptyRow) {
  const auto hook = std::make_shared<Hook>();
  this->adapter->rowHookIs(hook);
  this->rowIs(this->s.row(1));
  this->rowIs(this->s.row(2));
  EXPECT_EQ(hook->shown, (std::vector<std::string>{hex(this->s.row(1)), hex(this->s.row(2))}));
  EXPECT_EQ(hook->empties[0], hook->empties[1]);
  EXPECT_TRUE(this->holds(this->s.entry(1)));
  EXPECT_TRUE(this->holds(this->s.entry(2)));
}

TYPED_TEST(Writes, AnInactiveHookIsNotShownTheRow) {
  const auto hook = std::make_shared<Hook>();
  hook->isActive = false;
  this->adapter->rowHookIs(hook);
  this->rowIs(this->s.row(1));
  EXPECT_TRUE(hook->shown.empty());
  EXPECT_TRUE(this->holds(this->s.entry(1)));
}

TYPED_TEST(Writes, TheHookComesBeforeTheCheckForANullRow) {
  const auto hook = std::make_shared<Hook>();
  this->adapter->rowHookIs(hook);
  EXPECT_THROW(this->rowIs(Vane::BaseRow()), Vane::VaNullRow);
  EXPECT_EQ(hook->shown, std::vector<std::string>{"null"});
}

// A hook may put another in its place while it is asked.
struct LeavingHook final : Vane::VaRowHook {
  explicit LeavingHook(Vane::DefaultVaTableImplementation& table) : table(&table) {}
  bool active() const override { return true; }
  Vane::BaseRow row(Vane::BaseRow& row, const Vane::BaseRow&) override {
    table->rowHookIs(nullptr);
    ++calls;
    return row;
  }
  Vane::DefaultVaTableImplementation* table;
  int calls = 0;
};

TYPED_TEST(Writes, AHookMayLeaveWhileItIsAsked) {
  this->adapter->rowHookIs(std::make_shared<LeavingHook>(*this->adapter));
  this->rowIs(this->s.row(1));
  this->rowIs(this->s.row(2));
  EXPECT_EQ(this->store->size(), 2u);
}

class RouteWrites : public AdapterTest<IpDestinationVaneWrapper> {};

// Hears of changes and logs none.
struct Unlogged final : IpDestinationVaneWrapper {
  using IpDestinationVaneWrapper::IpDestinationVaneWrapper;
  void kitIpDestinationModified(const IpDestinationRow&, bool, const Wire::IpGenPrefix&) override {
    ++heard;
  }
  int heard = 0;
};

TEST_F(RouteWrites, ReachTheLogOnlyThroughTheTablesNotification) {
  Unlogged adapter(table, db, nullptr, true);
  Vane::BaseRow row = s.row(1);
  adapter.rowIs(row, false);
  adapter.rowDel(row);
  adapter.rowIs(row, false);
  adapter.rowDelAll();
  EXPECT_EQ(adapter.heard, 4);
  EXPECT_EQ(adapter.latestChangeIdx(), 1u);
}

TEST_F(RouteWrites, AHookOfEveryAdapterIsShownTheSameEmptyRow) {
  const auto hook = std::make_shared<Hook>();
  const auto routes = makeAdapter();
  routes->rowHookIs(hook);
  Vane::BaseRow route = s.row(1);
  routes->rowIs(route, false);

  const Kit::Ptr<NexthopGroup::L2NexthopGroupEncapTable> encapTable =
      new NexthopGroup::L2NexthopGroupEncapTable("encaps");
  encapTable->storeIs(std::make_shared<MemoryStore>(encapTable->layout()));
  L2NexthopGroupEncapVaneWrapper encaps(encapTable, db, nullptr, true);
  encaps.rowHookIs(hook);
  Vane::BaseRow encap = Sample<L2NexthopGroupEncapVaneWrapper>::row(1);
  encaps.rowIs(encap, false);

  EXPECT_EQ(hook->empties[0], hook->empties[1]);
}

}  // namespace
}  // namespace adapter_tests
