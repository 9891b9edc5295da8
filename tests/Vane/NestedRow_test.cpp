#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/Vane/Rows.h"

namespace Vane::Test {
namespace {

constexpr len_t col = 5;
constexpr len_t fixedLength = 9;

BaseRow parentOf(const BaseRow& nested) {
  BaseRow row(fixedLength);
  setNested(row, col, nested, fixedLength);
  return row;
}

const BaseRow absent(fixedLength);

TEST(NestedRow, IsAViewThatTakesAShareAndCopiesNoBytes) {
  const BaseRow parent = parentOf(LinkRow(7, true));
  BaseRow view;
  parent.getColumnStruct(col, view);
  EXPECT_EQ(view.buffer(), parent.buffer());
  EXPECT_EQ(parent.buffer().use_count(), 2);
  EXPECT_EQ(view.rowOffset(), 9);
  EXPECT_TRUE(view.isView());
  EXPECT_FALSE(view.isReadOnly());
  EXPECT_EQ(hex(view), "09 00 4d 00 07 00 00 00 01");
}

TEST(NestedRow, IsReadAsASubRowOrAsARowType) {
  const BaseRow parent = parentOf(LinkRow(7, true));
  SubRow view;
  parent.getColumnStruct(col, view);
  EXPECT_EQ(view.rowType(), LinkRow::type);
  LinkRow link{BaseRow()};
  parent.getColumnStruct(col, link);
  EXPECT_EQ(link.getScalar<uint32_t>(LinkRow::numberCol), 7u);
  EXPECT_EQ(link.rowHash(), 1007u);  // it kept its own type
}

TEST(NestedRow, TakesTheParentsReadOnlyFlag) {
  BaseRow parent = parentOf(LinkRow(7, true));
  parent.readOnlyIs(true);
  BaseRow view;
  parent.getColumnStruct(col, view);
  EXPECT_TRUE(view.isReadOnly());
  expectThrows<VaPermissionViolation>([&] { view.setColumn<bool>(8, false, 9); }, readOnly);
}

TEST(NestedRow, TypeAndLengthAreNotCheckedAgainstTheDescriptor) {
  BaseRow nested(6);
  nested.rowTypeIs(1234);
  BaseRow parent = parentOf(nested);
  pokeDescriptor(parent, col, 9, 1);  // says one byte; the nested row says six
  BaseRow view;
  parent.getColumnStruct(col, view);
  EXPECT_EQ(view.rowType(), 1234);
  EXPECT_EQ(view.rowLength(), 6);
}

TEST(NestedRow, LivesOnWhenItsParentIsGone) {
  BaseRow view;
  parentOf(LinkRow(7, true)).getColumnStruct(col, view);
  EXPECT_EQ(view.buffer().use_count(), 1);
  EXPECT_EQ(view.rowType(), LinkRow::type);
}

TEST(NestedRow, AbsentOneIsNull) {
  BaseRow view(8);
  view.readOnlyIs(true);
  absent.getColumnStruct(col, view);
  EXPECT_TRUE(view.isNull());
  EXPECT_FALSE(view.isReadOnly());
}

TEST(NestedRow, OfANullParentIsNull) {
  BaseRow view(8);
  BaseRow().getColumnStruct(col, view);
  EXPECT_TRUE(view.isNull());
}

TEST(NestedRow, WrittenMarkAloneMeansAbsent) {
  BaseRow parent(fixedLength);
  pokeDescriptor(parent, col, 4, 0x8000);
  BaseRow view(8);
  parent.getColumnStruct(col, view);
  EXPECT_TRUE(view.isNull());
}

TEST(NestedRow, WritingAColumnNeverReachesTheParent) {
  const BaseRow parent = parentOf(LinkRow(7, true));
  const std::string before = hex(parent);
  BaseRow view;
  parent.getColumnStruct(col, view);
  view.setColumn<uint32_t>(LinkRow::numberCol, 99, LinkRow::fixedLength);
  EXPECT_EQ(hex(parent), before);
  EXPECT_EQ(hex(view), "09 00 4d 00 63 00 00 00 01");
  EXPECT_EQ(view.rowOffset(), 0);
  EXPECT_FALSE(view.isView());
  EXPECT_EQ(view.buffer()->length(), 9);
}

TEST(NestedRow, IsCopiedOnWriteEvenWhenItAloneHoldsTheBytes) {
  BaseRow view;
  parentOf(LinkRow(7, true)).getColumnStruct(col, view);
  const auto* const shared = view.buffer().get();
  view.clearRow();
  EXPECT_NE(view.buffer().get(), shared);
  EXPECT_EQ(hex(view), "09 00 4d 00 00 00 00 00 00");
}

TEST(NestedRow, InsideANestedRowIsFoundFromItsOwnHeader) {
  const BaseRow middle = parentOf(LinkRow(7, true));
  const BaseRow outer = parentOf(middle);
  BaseRow view;
  outer.getColumnStruct(col, view);
  LinkRow link{BaseRow()};
  view.getColumnStruct(col, link);
  EXPECT_EQ(link.rowOffset(), 18);
  EXPECT_EQ(link.getScalar<uint32_t>(LinkRow::numberCol), 7u);
}

TEST(NestedRow, ViewCountsOneCopyOneMoveAndOneMoveAssignment) {
  const BaseRow parent = parentOf(LinkRow(7, true));
  BaseRow view;
  const BaseRowCounters before = BaseRow::baseRowCounters;
  parent.getColumnStruct(col, view);
  const BaseRowCounters& after = BaseRow::baseRowCounters;
  EXPECT_EQ(after.copyConstructions - before.copyConstructions, 1u);
  EXPECT_EQ(after.moveConstructions - before.moveConstructions, 1u);
  EXPECT_EQ(after.moveAssignments - before.moveAssignments, 1u);
  EXPECT_EQ(after.copyAssignments, before.copyAssignments);
  EXPECT_EQ(after.defaultConstructions, before.defaultConstructions);
  EXPECT_EQ(after.bufferConstructions, before.bufferConstructions);
}

TEST(NestedRowHash, IsTheRowTypesOwn) {
  EXPECT_EQ(parentOf(LinkRow(7, true)).columnHash<LinkRow>(col), 1007u);
}

TEST(NestedRowHash, OfAnAbsentOneIsThatOfANullRow) {
  expectThrows<VaNullRow>([] { absent.columnHash<LinkRow>(col); }, nullRow);
  expectThrows<VaNullRow>([] { BaseRow().columnHash<LinkRow>(col); }, nullRow);
}

TEST(NestedRowEqual, IsTheRowTypesOwn) {
  const BaseRow row = parentOf(LinkRow(7, true));
  EXPECT_TRUE(row.columnEqual<LinkRow>(col, parentOf(LinkRow(7, true)), col));
  EXPECT_FALSE(row.columnEqual<LinkRow>(col, parentOf(LinkRow(7, false)), col));
  LinkRow otherType(7, true);
  otherType.rowTypeIs(78);
  EXPECT_FALSE(row.columnEqual<LinkRow>(col, parentOf(otherType), col));
}

TEST(NestedRowEqual, ShorterRowOfAnotherTypeIsUnequalAndNotReadBeyondItsEnd) {
  const BaseRow link = parentOf(LinkRow(0, false));
  const BaseRow shorter = parentOf(BaseRow(4));
  EXPECT_FALSE(link.columnEqual<LinkRow>(col, shorter, col));
  EXPECT_FALSE(shorter.columnEqual<LinkRow>(col, link, col));
}

TEST(NestedRowEqual, AbsentOneEqualsNothing) {
  const BaseRow present = parentOf(LinkRow(7, true));
  EXPECT_FALSE(absent.columnEqual<LinkRow>(col, absent, col));
  EXPECT_FALSE(absent.columnEqual<LinkRow>(col, present, col));
  EXPECT_FALSE(present.columnEqual<LinkRow>(col, absent, col));
  EXPECT_FALSE(BaseRow().columnEqual<LinkRow>(col, BaseRow(), col));
  EXPECT_FALSE(present.columnEqual<LinkRow>(col, BaseRow(), col));
}

TEST(NestedRowLess, IsTheRowTypesOwn) {
  const BaseRow seven = parentOf(LinkRow(7, true));
  const BaseRow eight = parentOf(LinkRow(8, false));
  EXPECT_TRUE(seven.columnLess<LinkRow>(col, eight, col));
  EXPECT_FALSE(eight.columnLess<LinkRow>(col, seven, col));
  EXPECT_FALSE(seven.columnLess<LinkRow>(col, seven, col));
}

TEST(NestedRowLess, AbsentOneComesBeforeAPresentOne) {
  const BaseRow present = parentOf(LinkRow(0, false));
  EXPECT_TRUE(absent.columnLess<LinkRow>(col, present, col));
  EXPECT_FALSE(present.columnLess<LinkRow>(col, absent, col));
  EXPECT_TRUE(BaseRow().columnLess<LinkRow>(col, present, col));
}

TEST(NestedRowLess, TwoAbsentOnesAreNotLessEitherWay) {
  EXPECT_FALSE(absent.columnLess<LinkRow>(col, absent, col));
  EXPECT_FALSE(BaseRow().columnLess<LinkRow>(col, absent, col));
  EXPECT_FALSE(absent.columnLess<LinkRow>(col, BaseRow(), col));
}

}  // namespace
}  // namespace Vane::Test
