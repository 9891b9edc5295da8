#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <numeric>
#include <span>

#include "tests/Vane/Rows.h"

namespace Vane::Test {
namespace {

using Array = std::vector<uint32_t>;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr len_t col = 29;
constexpr len_t fixedLength = 37;  // "25" in hex: where the first body goes

void set(BaseRow& row, const Array& values, len_t column = col) {
  row.setColumn<uint32_t>(column, values, fixedLength);
}

Array ascending(size_t count) {
  Array values(count);
  std::iota(values.begin(), values.end(), 1u);
  return values;
}

template <class Action>
void expectTooLong(Action action) {
  try {
    action();
    ADD_FAILURE() << "expected an assertion";
  } catch (const Guard::AssertException& e) {
    EXPECT_EQ(e.message(), "array field length greater than 32767 bytes");
    EXPECT_EQ(e.file(), "Vane/baseRow");
    EXPECT_EQ(e.function(), "updateVCT");
  }
}

TEST(ArrayColumnBytes, ThreeElementsIntoAnAbsentColumn) {
  BaseRow row(fixedLength);
  row.rowTypeIs(0x0102);
  set(row, {1, 2, 3});
  EXPECT_EQ(hex(row, 0, 4), "33 00 02 01");
  EXPECT_EQ(hex(row, 29, 4), "25 00 0e 80");
  EXPECT_EQ(hex(row, 37, 14), "03 00 01 00 00 00 02 00 00 00 03 00 00 00");
  EXPECT_EQ(row.buffer()->length(), 51);
}

TEST(ArrayColumnBytes, FewerElementsReuseThePlace) {
  BaseRow row(fixedLength);
  set(row, {1, 2, 3});
  set(row, {9});
  EXPECT_EQ(row.rowLength(), 51);
  EXPECT_EQ(hex(row, 29, 4), "25 00 06 80");
  EXPECT_EQ(hex(row, 37, 14), "01 00 09 00 00 00 02 00 00 00 03 00 00 00");  // the rest is slack
}

TEST(ArrayColumnBytes, GrowingOnAGenericRowAppendsANewBodyAndAbandonsTheOld) {
  BaseRow row(fixedLength);
  set(row, {1, 2, 3});
  set(row, {5, 6, 7, 8, 9});
  EXPECT_EQ(row.rowLength(), 37 + 14 + 22);
  EXPECT_EQ(row.buffer()->length(), 73);
  EXPECT_EQ(hex(row, 29, 4), "33 00 16 80");
  EXPECT_EQ(hex(row, 37, 6), "03 00 01 00 00 00");
  EXPECT_EQ(hex(row, 51, 6), "05 00 05 00 00 00");
}

TEST(ArrayColumnBytes, GrowingAfterShrinkingLooksAtTheShrunkenLength) {
  BaseRow row(fixedLength);
  set(row, {1, 2, 3});
  set(row, {9});
  set(row, {1, 2});  // would fit the slack; but 10 bytes are more than the 6 described
  EXPECT_EQ(hex(row, 29, 4), "33 00 0a 80");
  EXPECT_EQ(row.rowLength(), 61);
}

TEST(ArrayColumnBytes, EmptyingKeepsOnlyTheWrittenMark) {
  BaseRow row(fixedLength);
  set(row, {1, 2, 3});
  set(row, {});
  EXPECT_EQ(hex(row, 29, 4), "00 00 00 80");
  EXPECT_EQ(row.rowLength(), 51);  // the body stays as dead bytes
  EXPECT_THAT(arrayOf(row, col), IsEmpty());
  set(row, {4});
  EXPECT_EQ(hex(row, 29, 4), "33 00 06 80");  // an emptied column has no place to reuse
}

TEST(ArrayColumnBytes, EmptyIntoAnAbsentColumnLeavesNoMark) {
  BaseRow row(fixedLength);
  set(row, {});
  EXPECT_EQ(hex(row, 29, 4), "00 00 00 00");
  EXPECT_EQ(row.rowLength(), 37);
}

TEST(ArrayColumnBytes, SpareCapacityIsUsedBeforeTheBufferGrows) {
  BaseRow row(fixedLength, 51);
  const auto* const data = row.buffer()->data();
  set(row, {1, 2, 3});
  EXPECT_EQ(row.rowLength(), 51);
  EXPECT_EQ(row.buffer()->length(), 51);
  EXPECT_EQ(row.buffer()->data(), data);
  set(row, {1}, 33);
  EXPECT_EQ(row.buffer()->length(), 57);  // exactly what it needs
}

TEST(ArrayColumnBytes, CountKeepsBits13To15AndClearsBit12OfAReusedBody) {
  BaseRow row(fixedLength);
  set(row, {1, 2, 3});
  poke16(row, 37, 0xF003);
  EXPECT_THAT(arrayOf(row, col), ElementsAre(1, 2, 3));
  set(row, {4, 5});
  EXPECT_EQ(hex(row, 37, 2), "02 e0");
}

TEST(ArrayColumnBytes, CountKeepsBits13To15AsSpareCapacityHoldsThem) {
  BaseRow row(fixedLength, 64);
  row.buffer()->data()[38] = 0xFF;
  set(row, {1});
  EXPECT_EQ(hex(row, 37, 2), "01 e0");
}

TEST(ArrayColumnBytes, CountInFreshlyGrownMemoryHasNoOtherBits) {
  for (int i = 0; i < 50; ++i) {
    std::make_unique<VaRowBuf>(64)->data()[38] = 0xFF;  // dirt for the allocator to hand out
    BaseRow row(fixedLength);
    set(row, {1});
    ASSERT_EQ(hex(row, 37, 2), "01 00");
  }
}

TEST(ArrayColumn, ReadingAppends) {
  BaseRow row(fixedLength);
  set(row, {1, 2, 3});
  Array values{7, 8};
  row.getFixElemArray<uint32_t>(col, values);
  EXPECT_THAT(values, ElementsAre(7, 8, 1, 2, 3));
}

TEST(ArrayColumn, ReadingAnAbsentArrayOrANullRowDoesNothing) {
  Array values{7};
  BaseRow(fixedLength).getFixElemArray<uint32_t>(col, values);
  BaseRow().getFixElemArray<uint32_t>(col, values);
  EXPECT_THAT(values, ElementsAre(7));
}

TEST(ArrayColumn, ReadingReservesOnce) {
  BaseRow row(fixedLength);
  set(row, ascending(100));
  Array values;
  row.getFixElemArray<uint32_t>(col, values);
  EXPECT_EQ(values.capacity(), 100u);
  const uint32_t* const storage = values.data();
  values.clear();
  row.getFixElemArray<uint32_t>(col, values);
  EXPECT_EQ(values.data(), storage);
  EXPECT_EQ(values, ascending(100));
}

TEST(ArrayColumn, IsReadIntoAPlaceOfTheCallersAsFarAsThatReaches) {
  enum class Port : uint32_t {};
  BaseRow row(fixedLength);
  set(row, {1, 0xFFFFFFFE, 3});
  std::array<Port, 2> two{};
  EXPECT_EQ(row.readFixElemArray(col, std::span<Port>(two)), 3u);
  EXPECT_THAT(two, ElementsAre(Port{1}, Port{0xFFFFFFFE}));
  Array five(5, 9);
  EXPECT_EQ(row.readFixElemArray(col, std::span<uint32_t>(five)), 3u);
  EXPECT_THAT(five, ElementsAre(1, 0xFFFFFFFE, 3, 9, 9));
  EXPECT_EQ(row.readFixElemArray(col, std::span<uint32_t>()), 3u);
}

TEST(ArrayColumn, NothingIsReadOfAnAbsentArrayOrANullRow) {
  Array values{7};
  EXPECT_EQ(BaseRow(fixedLength).readFixElemArray(col, std::span<uint32_t>(values)), 0u);
  EXPECT_EQ(BaseRow().readFixElemArray(col, std::span<uint32_t>(values)), 0u);
  EXPECT_THAT(values, ElementsAre(7));
}

TEST(ArrayColumn, TwoColumnsOfOneRowDoNotDisturbEachOther) {
  BaseRow row(fixedLength);
  set(row, {1, 2});
  set(row, {10, 20, 30}, 33);
  set(row, {3, 4, 5}, col);
  EXPECT_THAT(arrayOf(row, col), ElementsAre(3, 4, 5));
  EXPECT_THAT(arrayOf(row, 33), ElementsAre(10, 20, 30));
}

TEST(ArrayColumn, AliasedScratchVectorIsCopiedNotKept) {
  BaseRow row(fixedLength);
  Array scratch{1, 2};
  set(row, scratch);
  scratch[0] = 9;
  EXPECT_THAT(arrayOf(row, col), ElementsAre(1, 2));
}

TEST(ArrayColumn, RewritingInPlaceAllocatesNothing) {
  BaseRow row(fixedLength);
  set(row, {1, 2, 3});
  const auto* const data = row.buffer()->data();
  set(row, {4, 5, 6});
  EXPECT_EQ(row.buffer()->data(), data);
  EXPECT_THAT(arrayOf(row, col), ElementsAre(4, 5, 6));
}

TEST(ArrayColumn, WritingASharedRowLeavesTheSourceAlone) {
  BaseRow source(fixedLength);
  set(source, {1, 2, 3});
  const std::string before = hex(source);
  for (const Array& values : {Array{9}, Array{5, 6, 7, 8, 9}, Array{}}) {
    BaseRow copy(source);
    set(copy, values);
    EXPECT_EQ(hex(source), before);
    EXPECT_EQ(arrayOf(copy, col), values);
  }
}

TEST(ArrayColumn, WritingAViewLeavesTheParentAlone) {
  BaseRow nested(fixedLength);
  set(nested, {1, 2, 3});
  BaseRow parent(8);
  setNested(parent, 4, nested, 8);
  const std::string before = hex(parent);
  BaseRow view;
  parent.getColumnStruct(4, view);
  EXPECT_THAT(arrayOf(view, col), ElementsAre(1, 2, 3));
  set(view, {9});
  EXPECT_EQ(hex(parent), before);
  EXPECT_THAT(arrayOf(view, col), ElementsAre(9));
  EXPECT_EQ(view.rowOffset(), 0);
}

TEST(ArrayColumn, OfANullRowCannotBeWritten) {
  BaseRow null;
  expectThrows<VaNullRow>([&] { set(null, {1}); }, nullRow);
  expectThrows<VaNullRow>([&] { set(null, {}); }, nullRow);
  expectThrows<VaNullRow>([&] { null.updateFixElemArray<uint32_t>(col, 37, {1u, 2u}); }, nullRow);
  VColType vct;
  expectThrows<VaNullRow>([&] { null.makeFreeSpace(vct, 4, 37); }, nullRow);
  expectThrows<VaNullRow>([&] { null.updateVCT(col, 37, 4); }, nullRow);
  expectThrows<VaNullRow>([&] { null.compactVariableData(37); }, nullRow);
}

TEST(ArrayColumnDeathTest, ZeroFixedLengthFailsTheAssertions) {
  BaseRow row(fixedLength);
  EXPECT_DEATH(row.setColumn<uint32_t>(col, Array{1}, 0), "Assertion `fdLen != 0' failed");
  EXPECT_DEATH(row.setColumn<uint32_t>(col, Array{}, 0), "Assertion `fdLen != 0' failed");
  EXPECT_DEATH(row.updateFixElemArray<uint32_t>(col, 0, {1u}),
               "Assertion `baseRowLength != 0' failed");
}

TEST(ArrayColumn, EmptyUpdateChecksNothingElse) {
  BaseRow row(fixedLength);
  row.updateFixElemArray<uint32_t>(col, 0, Array{});
  EXPECT_EQ(row.rowLength(), fixedLength);
}

TEST(ReadOnlyArray, RewriteInPlaceThrowsAndWritesNothing) {
  BaseRow row(fixedLength);
  set(row, {1, 2, 3});
  const std::string before = hex(row);
  row.readOnlyIs(true);
  expectThrows<VaPermissionViolation>([&] { set(row, {9}); }, readOnly);
  EXPECT_EQ(hex(row), before);
}

TEST(ReadOnlyArray, EmptyingIsLenient) {
  BaseRow row(fixedLength);
  set(row, {1, 2, 3});
  row.readOnlyIs(true);
  set(row, {});
  EXPECT_EQ(hex(row, 29, 4), "00 00 00 80");
}

TEST(ReadOnlyArray, FirstWriteThrowsWithAndWithoutSpareCapacity) {
  for (const len_t capacity : {37, 64}) {
    BaseRow row(fixedLength, capacity);
    row.readOnlyIs(true);
    expectThrows<VaPermissionViolation>([&] { set(row, {1}); }, readOnly);
    EXPECT_EQ(row.buffer()->length(), capacity);
    EXPECT_EQ(hex(row), hex(BaseRow(fixedLength)));
  }
}

TEST(ReadOnlyArray, GrowingClearsTheDescriptorBeforeItThrows) {
  BaseRow row(fixedLength);
  set(row, {1, 2, 3});
  row.readOnlyIs(true);
  expectThrows<VaPermissionViolation>([&] { set(row, {1, 2, 3, 4}); }, readOnly);
  EXPECT_EQ(hex(row, 29, 4), "00 00 00 80");
  EXPECT_EQ(row.rowLength(), 51);
  EXPECT_EQ(row.buffer()->length(), 51);
}

TEST(ReadOnlyArray, SharedRowIsPrivateWhenItThrows) {
  BaseRow source(fixedLength);
  set(source, {1, 2, 3});
  BaseRow copy(source);
  copy.readOnlyIs(true);
  expectThrows<VaPermissionViolation>([&] { set(copy, {1, 2, 3, 4}); }, readOnly);
  EXPECT_NE(copy.buffer(), source.buffer());
  EXPECT_THAT(arrayOf(source, col), ElementsAre(1, 2, 3));
}

TEST(ReadOnlyArray, TooLargeARowIsToldBeforeReadOnly) {
  BaseRow row(65000);
  row.readOnlyIs(true);
  expectThrows<VaOutOfRange>([&] { row.setColumn<uint32_t>(4, ascending(200), 65000); },
                             "desired row size 65802 is greater than maxRowLength: 65535");
}

TEST(LongArray, OfTheMostElementsTheCountHoldsReadsBack) {
  BaseRow row(fixedLength);
  set(row, ascending(4095));
  EXPECT_EQ(hex(row, 37, 2), "ff 0f");
  EXPECT_EQ(arrayOf(row, col), ascending(4095));
}

TEST(LongArray, CountOf4096WrapsToZero) {
  BaseRow row(fixedLength);
  set(row, ascending(4096));
  EXPECT_EQ(row.rowLength(), 37 + 16386);
  EXPECT_EQ(hex(row, 29, 4), "25 00 02 c0");
  EXPECT_EQ(hex(row, 37, 6), "00 00 01 00 00 00");
  EXPECT_THAT(arrayOf(row, col), IsEmpty());
}

TEST(LongArray, LongestBodyThatADescriptorHoldsIsWritten) {
  BaseRow row(fixedLength);
  set(row, ascending(8191));  // 2 + 4 * 8191 = 32766
  EXPECT_EQ(hex(row, 29, 4), "25 00 fe ff");
  EXPECT_EQ(hex(row, 37, 2), "ff 0f");
}

TEST(LongArray, BodyTooLongForADescriptorIsWrittenBeforeTheAssertion) {
  BaseRow row(fixedLength);
  expectTooLong([&] { set(row, ascending(8192)); });  // 32770 bytes
  EXPECT_EQ(row.rowLength(), 37 + 32770);
  EXPECT_EQ(row.buffer()->length(), 37 + 32770);
  EXPECT_EQ(hex(row, 37, 6), "00 00 01 00 00 00");
  EXPECT_EQ(hex(row, 37 + 32766, 4), "00 20 00 00");
  EXPECT_EQ(hex(row, 29, 4), "00 00 00 00");  // not recorded
}

TEST(LongArray, ReplacingABodyByOneTooLongLeavesTheColumnAbsent) {
  BaseRow row(fixedLength);
  set(row, {1});
  expectTooLong([&] { set(row, ascending(8192)); });
  EXPECT_EQ(hex(row, 29, 4), "00 00 00 80");
  EXPECT_EQ(row.rowLength(), 43 + 32770);
}

TEST(LongArray, RowTooLongIsToldFirstAndChangesNothing) {
  BaseRow row(fixedLength);
  const auto message = "desired row size 65539 is greater than maxRowLength: 65535";
  expectThrows<VaOutOfRange>([&] { set(row, ascending(16375)); }, message);  // 65502 bytes
  EXPECT_EQ(hex(row), hex(BaseRow(fixedLength)));
}

TEST(LongArray, RowTooLongForAGrowingArrayLeavesItAbsent) {
  BaseRow row(60000);
  row.setColumn<uint32_t>(4, Array{1, 2}, 60000);
  EXPECT_THROW(row.setColumn<uint32_t>(4, ascending(2000), 60000), VaOutOfRange);
  EXPECT_EQ(hex(row, 4, 4), "00 00 00 80");
  EXPECT_EQ(row.rowLength(), 60010);
}

TEST(LongArray, RowMayReachTheMaximumLengthExactly) {
  BaseRow row(65535 - 10);
  row.setColumn<uint32_t>(4, Array{1, 2}, 65525);
  EXPECT_EQ(row.rowLength(), 65535);
  EXPECT_THAT(arrayOf(row, 4), ElementsAre(1, 2));
}

// The 16 bits of a length cannot tell 65538 bytes from 2.
TEST(LongArray, BodyOf64KiBOrMoreIsRefusedBeforeAnythingChanges) {
  for (const size_t count : {16384u, 16385u, 20000u, 32768u}) {
    BaseRow row(fixedLength);
    set(row, {1, 2, 3});
    const std::string before = hex(row);
    expectTooLong([&] { set(row, ascending(count)); });
    EXPECT_EQ(hex(row), before) << count;
    EXPECT_EQ(row.buffer()->length(), 51) << count;
  }
}

BaseRow rowOf(const Array& values) {
  BaseRow row(fixedLength);
  set(row, values);
  return row;
}

TEST(ArrayColumnOrder, IsByElementsThenByLength) {
  const Array inOrder[] = {{}, {0}, {1}, {1, 0}, {1, 2}, {1, 256}, {2}, {0xFFFFFFFF}};
  for (const Array& a : inOrder) {
    for (const Array& b : inOrder) {
      const BaseRow x = rowOf(a);
      const BaseRow y = rowOf(b);
      EXPECT_EQ(x.columnEqual<Array>(col, y, col), &a == &b);
      EXPECT_EQ(x.columnLess<Array>(col, y, col), &a < &b);
      EXPECT_EQ(x.columnHash<Array>(col) == y.columnHash<Array>(col), &a == &b);
    }
  }
}

// MurmurHash3 block steps over the count and the elements, then the avalanche; worked out apart.
TEST(ArrayColumnOrder, HashIsMurmurOverCountAndElements) {
  EXPECT_EQ(rowOf({}).columnHash<Array>(col), 0xFF19274A);
  EXPECT_EQ(rowOf({1, 2, 3}).columnHash<Array>(col), 0x6AC2E09F);
}

TEST(ArrayColumnOrder, OfANullRowIsAnError) {
  const BaseRow null;
  const BaseRow row = rowOf({1});
  expectThrows<VaNullRow>([&] { null.columnHash<Array>(col); }, nullRow);
  expectThrows<VaNullRow>([&] { row.columnEqual<Array>(col, null, col); }, nullRow);
  expectThrows<VaNullRow>([&] { null.columnLess<Array>(col, row, col); }, nullRow);
}

}  // namespace
}  // namespace Vane::Test
