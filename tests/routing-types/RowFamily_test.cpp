// The rules that every row type keeps.
#include <sstream>
#include <type_traits>

#include "tests/routing-types/RowTypes.h"

namespace RoutingTypes::Test {
namespace {

template <class Row>
class RowFamily : public WithDB {
 protected:
  static Row null() { return Row(BaseRow()); }
  static BaseRow otherType() {
    BaseRow row(64);
    row.rowTypeIs(777);
    return row;
  }
};
TYPED_TEST_SUITE(RowFamily, AllTypes);

TYPED_TEST(RowFamily, IsAHandleAndNothingMore) {
  EXPECT_EQ(sizeof(TypeParam), sizeof(BaseRow));
  EXPECT_TRUE((std::is_base_of_v<BaseRow, TypeParam>));
  EXPECT_TRUE(std::is_nothrow_move_constructible_v<TypeParam>);
  EXPECT_TRUE(std::is_nothrow_move_assignable_v<TypeParam>);
  EXPECT_FALSE(TypeParam::isBaseRow());
}

TYPED_TEST(RowFamily, StatesItsFixedLength) {
  EXPECT_EQ(TypeParam::baseRowLength_, Known<TypeParam>::fixedLength);
  TypeParam row;
  EXPECT_EQ(static_cast<BaseRow&>(row).baseRowLength(), Known<TypeParam>::fixedLength);
}

TYPED_TEST(RowFamily, ListsItsVariableSizeColumnsOnce) {
  const TypeParam one;
  const TypeParam other;
  EXPECT_EQ(one.vcd(), Known<TypeParam>::variable);
  EXPECT_EQ(&one.vcd(), &other.vcd());
}

TYPED_TEST(RowFamily, IsFullyDefinedSetOrNot) {
  EXPECT_TRUE(rowOf<TypeParam>(0).isFullyDefined());
  EXPECT_TRUE(TypeParam().isFullyDefined());
  EXPECT_TRUE(this->null().isFullyDefined());
}

TYPED_TEST(RowFamily, ADefaultRowIsABufferOfTheFixedLengthWithTheTypeSet) {
  const TypeParam row;
  EXPECT_EQ(row.rowLength(), Known<TypeParam>::fixedLength);
  EXPECT_EQ(row.buffer()->length(), Known<TypeParam>::fixedLength);
  EXPECT_EQ(row.rowType(), this->typeId);
  EXPECT_FALSE(row.isView());
  EXPECT_FALSE(row.isReadOnly());
}

TYPED_TEST(RowFamily, ARowOfValuesFillsItsBufferExactly) {
  for (unsigned high : {0u, allBits<TypeParam>}) {
    const TypeParam row = rowOf<TypeParam>(high);
    EXPECT_EQ(row.buffer()->length(), row.rowLength());
    EXPECT_EQ(row.rowType(), this->typeId);
  }
}

// Copying and converting.

TYPED_TEST(RowFamily, ACopySharesTheBytesWithoutALookAtTheType) {
  TypeParam row = rowOf<TypeParam>(0);
  row.rowTypeIs(777);
  const TypeParam copy(row);
  EXPECT_EQ(copy.buffer(), row.buffer());
  TypeParam assigned;
  assigned = row;
  EXPECT_EQ(assigned.buffer(), row.buffer());
}

TYPED_TEST(RowFamily, AMoveTakesTheBytesWithoutALookAtTheType) {
  TypeParam row = rowOf<TypeParam>(0);
  row.rowTypeIs(777);
  const auto buffer = row.buffer();
  TypeParam moved(std::move(row));
  EXPECT_EQ(moved.buffer(), buffer);
  TypeParam assigned;
  assigned = std::move(moved);
  EXPECT_EQ(assigned.buffer(), buffer);
}

TYPED_TEST(RowFamily, AGenericRowOfTheTypeIsSharedByConversion) {
  BaseRow generic = rowOf<TypeParam>(0);
  generic.readOnlyIs(true);
  const TypeParam row = generic;
  EXPECT_EQ(row.buffer(), generic.buffer());
  EXPECT_TRUE(row.isReadOnly());
  TypeParam assigned;
  EXPECT_EQ(&(assigned = generic), &assigned);
  EXPECT_EQ(assigned.buffer(), generic.buffer());
  EXPECT_TRUE(assigned.isReadOnly());
}

TYPED_TEST(RowFamily, AGenericRowOfTheTypeIsTakenByMoveConversion) {
  BaseRow generic = rowOf<TypeParam>(0);
  const auto buffer = generic.buffer();
  TypeParam row = std::move(generic);
  EXPECT_EQ(row.buffer(), buffer);
  EXPECT_TRUE(generic.isNull());
  TypeParam assigned;
  EXPECT_EQ(&(assigned = static_cast<BaseRow&&>(row)), &assigned);
  EXPECT_EQ(assigned.buffer(), buffer);
  EXPECT_TRUE(row.isNull());
}

TYPED_TEST(RowFamily, ANestedRowIsConvertedWhereItLies) {
  const TypeParam nested = rowOf<TypeParam>(0);
  BaseRow parent(8);
  Vane::Test::setNested(parent, 4, nested, 8);
  BaseRow view;
  parent.getColumnStruct(4, view);
  const TypeParam row(view);
  EXPECT_EQ(row.rowOffset(), 8);
  EXPECT_TRUE(row.isView());
  EXPECT_EQ(row.buffer(), parent.buffer());
  EXPECT_EQ(row.toJson(), nested.toJson());
}

TYPED_TEST(RowFamily, ANullRowConvertsToANullRowUnlookedAt) {
  BaseRow generic;
  const TypeParam copied(generic);
  const TypeParam moved(std::move(generic));
  TypeParam assigned;
  this->db->recordsAsked = 0;
  TypeParam::reset();
  assigned = BaseRow();
  EXPECT_TRUE(copied.isNull());
  EXPECT_TRUE(moved.isNull());
  EXPECT_TRUE(assigned.isNull());
  EXPECT_EQ(this->db->recordsAsked, 0);
}

TYPED_TEST(RowFamily, AGenericRowOfAnotherTypeIsRefusedWithBothTypesAndItsOffset) {
  BaseRow generic = this->otherType();
  const std::string message = "row type 777 does not match row type 258 0";
  expectThrows<Vane::VaBadCast>([&] { TypeParam row(generic); }, message);
  EXPECT_FALSE(generic.isNull());
  TypeParam row;
  expectThrows<Vane::VaBadCast>([&] { row = generic; }, message);
  expectThrows<Vane::VaBadCast>([&] { TypeParam::browToString(generic); }, message);
}

TYPED_TEST(RowFamily, AGenericRowWithoutTheWholeFixedAreaIsRefused) {
  BaseRow generic(TypeParam::baseRowLength_ - 1);
  generic.rowTypeIs(TypeParam::protRowType());
  EXPECT_THROW(TypeParam row(generic), Vane::VaOutOfRange);
  EXPECT_THROW(TypeParam::browToString(generic), Vane::VaOutOfRange);
  const TypeParam whole;
  EXPECT_THROW(whole.rowEqual(generic), Vane::VaOutOfRange);
  EXPECT_THROW(whole.rowLess(generic), Vane::VaOutOfRange);
}

TYPED_TEST(RowFamily, ANestedRowOfAnotherTypeIsRefusedWithItsPlace) {
  BaseRow parent(12);
  Vane::Test::setNested(parent, 8, this->otherType(), 12);
  BaseRow view;
  parent.getColumnStruct(8, view);
  expectThrows<Vane::VaBadCast>([&] { TypeParam row(view); },
                                "row type 777 does not match row type 258 12");
}

TYPED_TEST(RowFamily, ARefusedMoveHasEmptiedItsSource) {
  BaseRow generic = this->otherType();
  EXPECT_THROW(TypeParam row(std::move(generic)), Vane::VaBadCast);
  EXPECT_TRUE(generic.isNull());
}

TYPED_TEST(RowFamily, ARefusedAssignmentLeavesTheTargetWithTheSourcesBytes) {
  const BaseRow generic = this->otherType();
  TypeParam row = rowOf<TypeParam>(0);
  EXPECT_THROW(row = generic, Vane::VaBadCast);
  EXPECT_EQ(row.buffer(), generic.buffer());
  EXPECT_EQ(row.rowType(), 777);

  BaseRow source = generic.clone();
  const auto buffer = source.buffer();
  TypeParam target = rowOf<TypeParam>(0);
  EXPECT_THROW(target = std::move(source), Vane::VaBadCast);
  EXPECT_EQ(target.buffer(), buffer);
  EXPECT_TRUE(source.isNull());
}

TYPED_TEST(RowFamily, ACloneHasTheSameBytesInABufferOfItsOwn) {
  TypeParam row = rowOf<TypeParam>(allBits<TypeParam>);
  row.readOnlyIs(true);
  const TypeParam copy = row.clone();
  EXPECT_NE(copy.buffer(), row.buffer());
  EXPECT_EQ(hex(copy), hex(row));
  EXPECT_FALSE(copy.isReadOnly());
  EXPECT_TRUE(this->null().clone().isNull());
}

// The per-thread counts, as the generic row's own operations keep them.

using Counts = std::array<uint64_t, 6>;

// What `action` adds to this thread's counts, in their order. Refusals are counted as well.
Counts counted(auto action) {
  const Vane::BaseRowCounters before = BaseRow::baseRowCounters;
  try {
    action();
  } catch (const Vane::VaBadCast&) {
  }
  const Vane::BaseRowCounters& now = BaseRow::baseRowCounters;
  return {now.defaultConstructions - before.defaultConstructions,
          now.bufferConstructions - before.bufferConstructions,
          now.copyConstructions - before.copyConstructions,
          now.moveConstructions - before.moveConstructions,
          now.copyAssignments - before.copyAssignments,
          now.moveAssignments - before.moveAssignments};
}
constexpr Counts oneBuffer{0, 1, 0, 0, 0, 0};
constexpr Counts oneCopy{0, 0, 1, 0, 0, 0};
constexpr Counts oneMove{0, 0, 0, 1, 0, 0};
constexpr Counts oneCopyAssignment{0, 0, 0, 0, 1, 0};
constexpr Counts oneMoveAssignment{0, 0, 0, 0, 0, 1};

TYPED_TEST(RowFamily, EachWayToMakeARowIsCountedOnce) {
  const TypeParam row = rowOf<TypeParam>(0);
  BaseRow generic = row.clone();
  EXPECT_EQ(counted([] { TypeParam made; }), oneBuffer);
  EXPECT_EQ(counted([] { rowOf<TypeParam>(0); }), oneBuffer);
  EXPECT_EQ(counted([] { keyOf<TypeParam>(0); }), oneBuffer);
  EXPECT_EQ(counted([&] { TypeParam made(row); }), oneCopy);
  EXPECT_EQ(counted([&] { TypeParam made(generic); }), oneCopy);
  EXPECT_EQ(counted([&] { TypeParam made(std::move(generic)); }), oneMove);
  EXPECT_EQ(counted([&] { row.clone(); }), (Counts{0, 1, 0, 1, 0, 0}));
  TypeParam source = row.clone();
  EXPECT_EQ(counted([&] { TypeParam made(std::move(source)); }), oneMove);
}

TYPED_TEST(RowFamily, EachWayToAssignARowIsCountedOnce) {
  TypeParam row = rowOf<TypeParam>(0);
  BaseRow generic = row.clone();
  TypeParam target;
  EXPECT_EQ(counted([&] { target = row; }), oneCopyAssignment);
  EXPECT_EQ(counted([&] { target = generic; }), oneCopyAssignment);
  EXPECT_EQ(counted([&] { target = std::move(row); }), oneMoveAssignment);
  EXPECT_EQ(counted([&] { target = std::move(generic); }), oneMoveAssignment);
}

// The row is taken over before it is looked at.
TYPED_TEST(RowFamily, ARefusedConversionIsCountedLikeAnyOther) {
  BaseRow copied = this->otherType();
  BaseRow moved = this->otherType();
  BaseRow assigned = this->otherType();
  TypeParam target;
  EXPECT_EQ(counted([&] { TypeParam made(copied); }), oneCopy);
  EXPECT_EQ(counted([&] { TypeParam made(std::move(moved)); }), oneMove);
  EXPECT_EQ(counted([&] { target = copied; }), oneCopyAssignment);
  EXPECT_EQ(counted([&] { target = std::move(assigned); }), oneMoveAssignment);
}

// clearRow.

TYPED_TEST(RowFamily, ClearingLeavesAZeroRowOfTheFixedLengthAndTheType) {
  TypeParam row = rowOf<TypeParam>(allBits<TypeParam>);
  const TypeParam sharer(row);
  const std::string before = hex(sharer);
  static_cast<BaseRow&>(row).clearRow();
  EXPECT_EQ(row.rowLength(), Known<TypeParam>::fixedLength);
  EXPECT_EQ(row.rowType(), this->typeId);
  std::string zeros;
  for (size_t i = 4; i < Known<TypeParam>::fixedLength; ++i) zeros += i == 4 ? "00" : " 00";
  EXPECT_EQ(hex(row, 4, Known<TypeParam>::fixedLength - 4u), zeros);
  EXPECT_EQ(hex(sharer), before);
}

// The view gets a buffer as long as its parent's and stands in it where it stood in the parent.
TYPED_TEST(RowFamily, ClearingANestedRowLeavesItsParentAlone) {
  const TypeParam nested = rowOf<TypeParam>(allBits<TypeParam>);
  BaseRow parent(8);
  Vane::Test::setNested(parent, 4, nested, 8);
  const std::string before = hex(parent);
  BaseRow view;
  parent.getColumnStruct(4, view);
  TypeParam row(view);
  view = BaseRow();
  row.clearRow();
  EXPECT_NE(row.buffer(), parent.buffer());
  EXPECT_EQ(row.buffer()->length(), parent.buffer()->length());
  EXPECT_EQ(row.rowOffset(), 8);
  EXPECT_TRUE(row.isView());
  EXPECT_EQ(row.rowLength(), Known<TypeParam>::fixedLength);
  EXPECT_EQ(row.rowType(), this->typeId);
  BaseRow zeros(Known<TypeParam>::fixedLength);
  zeros.rowTypeIs(this->typeId);
  EXPECT_EQ(hex(row), hex(zeros));
  EXPECT_EQ(hex(parent), before);
}

TYPED_TEST(RowFamily, ClearingANullRowDoesNothingReadOnlyOrNot) {
  TypeParam row = this->null();
  row.clearRow();
  row.readOnlyIs(true);
  row.clearRow();
  EXPECT_TRUE(row.isNull());
}

TYPED_TEST(RowFamily, ClearingAReadOnlyRowIsRefusedAndChangesNothing) {
  TypeParam row = rowOf<TypeParam>(0);
  const std::string before = hex(row);
  row.readOnlyIs(true);
  expectThrows<Vane::VaPermissionViolation>([&] { row.clearRow(); },
                                            "Attempting to modify read-only row");
  EXPECT_EQ(hex(row), before);
}

// Hash, equality, order.

TYPED_TEST(RowFamily, RowsAreOrderedByTheFirstColumnThatDiffers) {
  std::vector<TypeParam> rows;
  for (unsigned high = 0; high <= allBits<TypeParam>; ++high) {
    rows.push_back(rowOf<TypeParam>(high));
  }
  forPairs<TypeParam>([&](unsigned a, unsigned b) {
    const unsigned differing = a ^ b;
    const unsigned first = differing & -differing;
    ASSERT_EQ(rows[a].rowEqual(rows[b]), a == b) << a << ' ' << b;
    ASSERT_EQ(rows[a].rowLess(rows[b]), (b & first) != 0) << a << ' ' << b;
    const unsigned inKey = differing & Known<TypeParam>::keyBits;
    ASSERT_EQ(rows[a] == rows[b], inKey == 0) << a << ' ' << b;
    ASSERT_EQ(rows[a] < rows[b], (b & (inKey & -inKey)) != 0) << a << ' ' << b;
  });
}

TYPED_TEST(RowFamily, EveryColumnButTheHeaderTakesPartInTheRowHash) {
  const uint32_t hash = rowOf<TypeParam>(0).rowHash();
  for (unsigned i = 0; i < columnCount<TypeParam>; ++i) {
    EXPECT_NE(rowOf<TypeParam>(1u << i).rowHash(), hash) << "column " << i;
  }
}

TYPED_TEST(RowFamily, RowsThatDifferInTheTypeFieldOnlyAreUnequalButUnorderedAndHashAlike) {
  const TypeParam row = rowOf<TypeParam>(0);
  TypeParam other = row.clone();
  other.rowTypeIs(777);
  EXPECT_FALSE(row.rowEqual(other));
  EXPECT_FALSE(other.rowEqual(row));
  EXPECT_FALSE(row.rowLess(other));
  EXPECT_FALSE(other.rowLess(row));
  EXPECT_EQ(row.rowHash(), other.rowHash());
}

TYPED_TEST(RowFamily, TheKeyAloneDecidesKeyEqualityAndKeyHash) {
  const unsigned keyBits = Known<TypeParam>::keyBits;
  const TypeParam row = rowOf<TypeParam>(0);
  const TypeParam sameKey = rowOf<TypeParam>(allBits<TypeParam> & ~keyBits);
  EXPECT_TRUE(row == sameKey);
  EXPECT_FALSE(row < sameKey);
  EXPECT_EQ(row.hash(), sameKey.hash());
  EXPECT_FALSE(row.rowEqual(sameKey));
  for (unsigned bit = 1; bit <= keyBits; bit <<= 1) {
    if ((keyBits & bit) == 0) continue;
    EXPECT_FALSE(row == rowOf<TypeParam>(bit));
    EXPECT_NE(row.hash(), rowOf<TypeParam>(bit).hash());
  }
}

// Text.

TYPED_TEST(RowFamily, TheStreamOperatorWritesWhatToStringReturns) {
  const TypeParam row = rowOf<TypeParam>(0);
  std::ostringstream out;
  out << std::hex << row << '|' << this->null();
  EXPECT_EQ(out.str(), row.toString() + "|len: 0, NULL");
}

TYPED_TEST(RowFamily, TheTextOfAGenericRowIsThatOfTheTypedOne) {
  const TypeParam row = rowOf<TypeParam>(0);
  const BaseRow& generic = row;
  EXPECT_EQ(TypeParam::browToString(generic), row.toString());
  EXPECT_EQ(generic.toString(), row.toString());
}

// Null rows.

TYPED_TEST(RowFamily, ANullRowPrintsAsText) { EXPECT_EQ(this->null().toString(), "len: 0, NULL"); }

TYPED_TEST(RowFamily, EveryOtherReadOfANullRowFails) {
  const TypeParam null = this->null();
  const TypeParam row = rowOf<TypeParam>(0);
  auto fails = [](auto action) { expectThrows<Vane::VaNullRow>(action, "null row"); };
  fails([&] { null.toJson(); });
  fails([&] { null.rowHash(); });
  fails([&] { null.hash(); });
  fails([&] { null.rowEqual(row); });
  fails([&] { row.rowEqual(null); });
  fails([&] { null.rowLess(row); });
  fails([&] { row.rowLess(null); });
  fails([&] { static_cast<void>(null == row); });
  fails([&] { static_cast<void>(row == null); });
  fails([&] { static_cast<void>(null < row); });
  fails([&] { static_cast<void>(row < null); });
}

// What the row database is told at library load.

TYPED_TEST(RowFamily, OffersItsDescriptionAtLibraryLoad) {
  const Vane::RowMetadata* metadata = Vane::rowMetadata(TypeParam::rowTypeName());
  ASSERT_NE(metadata, nullptr);
  EXPECT_EQ(metadata->typeName, TypeParam::rowTypeName());
  EXPECT_EQ(metadata->signature, TypeParam::vaTypeSignature());
  EXPECT_EQ(metadata->keyColumns, Known<TypeParam>::keyNames);
  EXPECT_EQ(metadata->baseRowLength, Known<TypeParam>::fixedLength);
  const TypeParam row = rowOf<TypeParam>(0);
  const BaseRow generic = row.clone();
  EXPECT_EQ(metadata->toJson(generic), row.toJson());
  EXPECT_EQ(metadata->toText(generic), row.toString());
}

// A column of another row that holds a row of the type.

template <class Row>
class NestedRow : public WithDB {
 protected:
  static constexpr Vane::len_t col = 4;
  static constexpr Vane::len_t parentLength = 8;
  static BaseRow parentOf(const BaseRow& nested) {
    BaseRow parent(parentLength);
    if (!nested.isNull()) Vane::Test::setNested(parent, col, nested, parentLength);
    return parent;
  }
};
TYPED_TEST_SUITE(NestedRow, RouteTypes);

TYPED_TEST(NestedRow, HashesEqualsAndOrdersAsTheRowItHolds) {
  const TypeParam low = rowOf<TypeParam>(0);
  const TypeParam high = rowOf<TypeParam>(allBits<TypeParam>);
  const BaseRow a = this->parentOf(low);
  const BaseRow b = this->parentOf(high);
  EXPECT_EQ(a.columnHash<TypeParam>(this->col), low.rowHash());
  EXPECT_TRUE(a.columnEqual<TypeParam>(this->col, this->parentOf(low), this->col));
  EXPECT_FALSE(a.columnEqual<TypeParam>(this->col, b, this->col));
  EXPECT_TRUE(a.columnLess<TypeParam>(this->col, b, this->col));
  EXPECT_FALSE(b.columnLess<TypeParam>(this->col, a, this->col));
}

TYPED_TEST(NestedRow, AbsentIsEqualToNothingAndComesFirst) {
  const BaseRow present = this->parentOf(rowOf<TypeParam>(0));
  const BaseRow absent = this->parentOf(BaseRow());
  const BaseRow null;
  for (const BaseRow& none : {absent, null}) {
    EXPECT_FALSE(none.columnEqual<TypeParam>(this->col, absent, this->col));
    EXPECT_FALSE(none.columnEqual<TypeParam>(this->col, present, this->col));
    EXPECT_FALSE(none.columnLess<TypeParam>(this->col, absent, this->col));
    EXPECT_TRUE(none.columnLess<TypeParam>(this->col, present, this->col));
    EXPECT_FALSE(present.columnLess<TypeParam>(this->col, none, this->col));
    expectThrows<Vane::VaNullRow>([&] { none.columnHash<TypeParam>(this->col); }, "null row");
  }
}

TYPED_TEST(NestedRow, AWriteToTheViewLeavesTheParentAlone) {
  const BaseRow parent = this->parentOf(rowOf<TypeParam>(0));
  const std::string before = hex(parent);
  TypeParam view{BaseRow()};
  parent.getColumnStruct(this->col, view);
  view.entryHandleIs(99);
  EXPECT_EQ(view.entryHandle(), 99u);
  EXPECT_EQ(view.rowOffset(), 0);
  EXPECT_EQ(hex(parent), before);
}

}  // namespace
}  // namespace RoutingTypes::Test
