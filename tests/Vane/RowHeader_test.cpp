// Header, sharing, clearing and comparing of whole rows.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>
#include <type_traits>

#include "tests/Vane/Rows.h"
#include "tests/Vane/VirtualSlots.h"

namespace Vane::Test {
namespace {

TEST(NullRow, HasNoHeader) {
  BaseRow row;
  EXPECT_TRUE(row.isNull());
  EXPECT_EQ(row.buffer(), nullptr);
  EXPECT_EQ(row.rowOffset(), 0);
  EXPECT_FALSE(row.isView());
  EXPECT_FALSE(row.isReadOnly());
  expectThrows<VaNullRow>([&] { row.rowLength(); }, nullRow);
  expectThrows<VaNullRow>([&] { row.rowType(); }, nullRow);
  expectThrows<VaNullRow>([&] { row.rowLengthIs(4); }, nullRow);
  expectThrows<VaNullRow>([&] { row.rowTypeIs(1); }, nullRow);
}

TEST(NullRow, IsClearedWithoutEffect) {
  BaseRow row;
  row.clearRow();
  EXPECT_TRUE(row.isNull());
}

TEST(NullRow, HasANullClone) { EXPECT_TRUE(BaseRow().clone().isNull()); }

TEST(NullRow, CannotBeLaidOut) {
  BaseRow row;
  expectThrows<VaNullRow>([&] { row.clear(8); }, nullRow);
}

TEST(NullRow, CannotBeComparedOnEitherSide) {
  const BaseRow null;
  const BaseRow row(8);
  expectThrows<VaNullRow>([&] { null.rowEqual(row); }, nullRow);
  expectThrows<VaNullRow>([&] { row.rowEqual(null); }, nullRow);
  expectThrows<VaNullRow>([&] { null.rowEqual(null); }, nullRow);
}

TEST(NullRow, PrintsItselfAsNull) { EXPECT_EQ(BaseRow().toString(), "len: 0, NULL"); }

TEST(RowHeader, ShortestRowIsTheHeaderAlone) {
  const BaseRow row(4);
  EXPECT_EQ(hex(row), "04 00 00 00");
  EXPECT_EQ(row.rowLength(), 4);
  EXPECT_EQ(row.rowType(), 0);
  EXPECT_EQ(row.buffer()->length(), 4);
}

TEST(RowHeaderDeathTest, RowShorterThanItsHeaderFailsTheAssertion) {
  EXPECT_DEATH(BaseRow(3), "Assertion `len >= va_contentOffset' failed");
  EXPECT_DEATH(BaseRow(0), "Assertion `len >= va_contentOffset' failed");
  EXPECT_DEATH(BaseRow(3, 64), "Assertion `len >= va_contentOffset' failed");
}

TEST(RowHeader, BufferMayBeLongerThanTheRow) {
  const BaseRow row(20, 64);
  EXPECT_EQ(row.rowLength(), 20);
  EXPECT_EQ(row.buffer()->length(), 64);
  EXPECT_EQ(row.buffer().use_count(), 1);
  for (size_t i = 2; i < 64; ++i) EXPECT_EQ(row.buffer()->data()[i], 0) << i;
}

TEST(RowHeader, BufferMayBeShorterThanTheRowThatIsToBe) {
  const BaseRow row(20, 10);
  EXPECT_EQ(row.rowLength(), 20);
  EXPECT_EQ(row.buffer()->length(), 10);
}

TEST(RowHeader, BufferWithoutRoomForTheHeaderIsRefused) {
  expectThrows<VaOutOfRange>([] { BaseRow(20, 3); },
                             "row header at offset 0 lies outside the row's buffer of 3 bytes");
}

TEST(RowHeader, LengthAndTypeAreLittleEndian) {
  BaseRow row(6);
  row.rowTypeIs(0x0102);
  EXPECT_EQ(hex(row), "06 00 02 01 00 00");
  row.rowLengthIs(0x0304);
  EXPECT_EQ(hex(row, 0, 6), "04 03 02 01 00 00");
  EXPECT_EQ(row.rowLength(), 0x0304);
  EXPECT_EQ(row.rowType(), 0x0102);
}

TEST(RowHeader, LongestRow) {
  const BaseRow row(65535);
  EXPECT_EQ(hex(row, 0, 4), "ff ff 00 00");
  EXPECT_EQ(row.buffer()->length(), 65535);
  EXPECT_TRUE(row.clone().rowEqual(row));
}

TEST(RowHeader, TypeSetOnACopyIsSeenByItsSource) {
  BaseRow source(8);
  BaseRow copy(source);
  copy.rowTypeIs(5);
  EXPECT_EQ(source.rowType(), 5);
  EXPECT_EQ(copy.buffer(), source.buffer());
}

TEST(RowHeader, LengthSetOnACopyIsSeenByItsSource) {
  BaseRow source(8);
  BaseRow copy(source);
  copy.rowLengthIs(6);
  EXPECT_EQ(source.rowLength(), 6);
}

TEST(RowHeader, ReadOnlyIsToldBeforeNull) {
  BaseRow row;
  row.readOnlyIs(true);
  expectThrows<VaPermissionViolation>([&] { row.rowLengthIs(4); }, readOnly);
  expectThrows<VaPermissionViolation>([&] { row.rowTypeIs(4); }, readOnly);
}

TEST(RowHeader, ReadOnlyRowKeepsItsHeader) {
  BaseRow row(8);
  row.readOnlyIs(true);
  expectThrows<VaPermissionViolation>([&] { row.rowLengthIs(4); }, readOnly);
  expectThrows<VaPermissionViolation>([&] { row.rowTypeIs(4); }, readOnly);
  EXPECT_EQ(hex(row), "08 00 00 00 00 00 00 00");
}

TEST(RowSharing, CopyHoldsTheSameBytesOffsetAndFlags) {
  BaseRow source(8);
  source.readOnlyIs(true);
  const BaseRow constructed(source);
  BaseRow assigned;
  assigned = source;
  for (const BaseRow* copy : {&constructed, &std::as_const(assigned)}) {
    EXPECT_EQ(copy->buffer(), source.buffer());
    EXPECT_TRUE(copy->isReadOnly());
    EXPECT_FALSE(copy->isView());
    EXPECT_EQ(copy->rowOffset(), 0);
  }
  EXPECT_EQ(source.buffer().use_count(), 3);
}

TEST(RowSharing, WritingAColumnOfACopyLeavesTheSourceAlone) {
  for (const bool byAssignment : {false, true}) {
    BaseRow source(12, 64);
    source.rowTypeIs(7);
    BaseRow assigned;
    if (byAssignment) assigned = source;
    BaseRow copy = byAssignment ? std::move(assigned) : BaseRow(source);
    copy.setColumn<uint32_t>(4, 1, 12);
    EXPECT_EQ(hex(source), "0c 00 07 00 00 00 00 00 00 00 00 00");
    EXPECT_EQ(hex(copy), "0c 00 07 00 01 00 00 00 00 00 00 00");
    EXPECT_EQ(copy.buffer()->length(), 12);  // exactly the row: spare room is not carried over
    EXPECT_EQ(source.buffer()->length(), 64);
    EXPECT_EQ(source.buffer().use_count(), 1);
  }
}

TEST(RowSharing, SoleOwnerIsWrittenInPlace) {
  BaseRow row(12, 64);
  const auto* const before = row.buffer().get();
  row.setColumn<uint32_t>(4, 1, 12);
  EXPECT_EQ(row.buffer().get(), before);
}

TEST(RowSharing, MovedFromRowIsNull) {
  BaseRow source(8);
  source.readOnlyIs(true);
  BaseRow moved(std::move(source));
  EXPECT_TRUE(source.isNull());  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(moved.rowLength(), 8);
  EXPECT_TRUE(moved.isReadOnly());
  BaseRow assigned;
  assigned = std::move(moved);
  EXPECT_TRUE(moved.isNull());  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(assigned.rowLength(), 8);
  EXPECT_TRUE(assigned.isReadOnly());
  EXPECT_EQ(assigned.buffer().use_count(), 1);
}

TEST(RowSharing, AssignmentToItselfDoesNothing) {
  BaseRow row(8);
  BaseRow& self = row;
  const BaseRowCounters before = BaseRow::baseRowCounters;
  row = self;
  row = std::move(self);
  EXPECT_EQ(row.rowLength(), 8);
  EXPECT_EQ(row.buffer().use_count(), 1);
  EXPECT_EQ(BaseRow::baseRowCounters.copyAssignments, before.copyAssignments);
  EXPECT_EQ(BaseRow::baseRowCounters.moveAssignments, before.moveAssignments);
}

TEST(RowSharing, SharedContentsKeepOffsetAndFlags) {
  BaseRow parent(32);
  setNested(parent, 4, BaseRow(6), 32);
  BaseRow view;
  parent.getColumnStruct(4, view);
  ASSERT_EQ(view.rowOffset(), 32);
  view.readOnlyIs(true);
  const BaseRow other(64);
  view.shareContents(other);
  EXPECT_EQ(view.buffer(), other.buffer());
  EXPECT_EQ(view.rowOffset(), 32);
  EXPECT_TRUE(view.isView());
  EXPECT_TRUE(view.isReadOnly());
}

TEST(RowSharing, SharedContentsTooShortForTheOffsetAreNotRead) {
  BaseRow parent(32);
  setNested(parent, 4, BaseRow(6), 32);
  BaseRow view;
  parent.getColumnStruct(4, view);
  view.shareContents(BaseRow(8));
  const auto message = "row header at offset 32 lies outside the row's buffer of 8 bytes";
  expectThrows<VaOutOfRange>([&] { view.rowLength(); }, message);
  expectThrows<VaOutOfRange>([&] { view.rowTypeIs(1); }, message);
  expectThrows<VaOutOfRange>([&] { view.setColumn<bool>(4, true, 5); }, message);
  expectThrows<VaOutOfRange>([&] { view.clone(); }, message);
}

TEST(RowClone, HasExactlyTheRowsBytesInABufferOfItsOwn) {
  BaseRow row(8, 64);
  row.rowTypeIs(3);
  row.setColumn<uint32_t>(4, 0x01020304, 8);
  row.readOnlyIs(true);
  const BaseRow clone = row.clone();
  EXPECT_EQ(hex(clone), "08 00 03 00 04 03 02 01");
  EXPECT_EQ(clone.buffer()->length(), 8);
  EXPECT_NE(clone.buffer(), row.buffer());
  EXPECT_EQ(row.buffer().use_count(), 1);
  EXPECT_FALSE(clone.isReadOnly());
  EXPECT_EQ(clone.rowOffset(), 0);
}

TEST(RowClone, OfAViewStandsAlone) {
  BaseRow parent(8);
  BaseRow nested(6);
  nested.rowTypeIs(9);
  setNested(parent, 4, nested, 8);
  BaseRow view;
  parent.getColumnStruct(4, view);
  const BaseRow clone = view.clone();
  EXPECT_EQ(hex(clone), "06 00 09 00 00 00");
  EXPECT_EQ(clone.rowOffset(), 0);
  EXPECT_FALSE(clone.isView());
}

TEST(CopyOnWrite, ReadOnlyRowThatWasSharedIsPrivateWhenItThrows) {
  BaseRow source(8);
  BaseRow copy(source);
  copy.readOnlyIs(true);
  expectThrows<VaPermissionViolation>([&] { copy.setColumn<bool>(4, true, 8); }, readOnly);
  EXPECT_NE(copy.buffer(), source.buffer());
  EXPECT_TRUE(copy.rowEqual(source));
  EXPECT_EQ(hex(source), "08 00 00 00 00 00 00 00");
}

TEST(CopyOnWrite, NullReadOnlyRowIsToldToBeNull) {
  BaseRow row;
  row.readOnlyIs(true);
  expectThrows<VaNullRow>([&] { row.setColumn<bool>(4, true, 8); }, nullRow);
}

TEST(ClearRow, KeepsLengthAndTypeAndZeroesTheRest) {
  BaseRow row(8, 12);
  row.rowTypeIs(0x0102);
  row.setColumn<uint64_t>(4, ~uint64_t{0}, 8);  // four bytes beyond the row too
  row.clearRow();
  EXPECT_EQ(hex(row, 0, 12), "08 00 02 01 00 00 00 00 ff ff ff ff");
}

TEST(ClearRow, OfASharedRowTakesAPrivateCopyFirst) {
  BaseRow source(8);
  source.setColumn<uint32_t>(4, 5, 8);
  BaseRow copy(source);
  copy.clearRow();
  EXPECT_EQ(hex(source), "08 00 00 00 05 00 00 00");
  EXPECT_EQ(hex(copy), "08 00 00 00 00 00 00 00");
}

TEST(ClearRow, OfAReadOnlyRowThrowsBeforeItBecomesPrivate) {
  BaseRow source(8);
  BaseRow copy(source);
  copy.readOnlyIs(true);
  expectThrows<VaPermissionViolation>([&] { copy.clearRow(); }, readOnly);
  EXPECT_EQ(copy.buffer(), source.buffer());
}

TEST(ClearRow, OfANullReadOnlyRowThrows) {
  BaseRow row;
  row.readOnlyIs(true);
  expectThrows<VaPermissionViolation>([&] { row.clearRow(); }, readOnly);
}

TEST(Clear, LaysOutAZeroRowOfTheLengthInPlace) {
  BaseRow row(12, 16);
  row.rowTypeIs(3);
  row.setColumn<uint64_t>(4, ~uint64_t{0}, 12);
  const auto* const before = row.buffer().get();
  row.clear(8);
  EXPECT_EQ(row.buffer().get(), before);
  EXPECT_EQ(row.buffer()->length(), 16);
  // Bytes beyond the new row are not its business.
  EXPECT_EQ(hex(row, 0, 12), "08 00 00 00 00 00 00 00 ff ff ff ff");
}

TEST(Clear, MayMakeTheRowAsLongAsItsBuffer) {
  BaseRow row(4, 16);
  row.clear(16);
  EXPECT_EQ(row.rowLength(), 16);
}

TEST(Clear, OfASharedRowTakesAZeroBufferOfTheSameCapacity) {
  BaseRow source(12, 40);
  source.rowTypeIs(3);
  BaseRow copy(source);
  copy.clear(8);
  EXPECT_EQ(source.rowLength(), 12);
  EXPECT_EQ(source.rowType(), 3);
  EXPECT_EQ(copy.rowLength(), 8);
  EXPECT_EQ(copy.rowType(), 0);
  EXPECT_EQ(copy.buffer()->length(), 40);
  EXPECT_EQ(copy.buffer().use_count(), 1);
}

TEST(Clear, OfAViewKeepsOffsetAndViewFlag) {
  BaseRow parent(8);
  setNested(parent, 4, BaseRow(6), 8);
  BaseRow view;
  parent.getColumnStruct(4, view);
  const auto shared = parent.buffer();
  view.clear(4);
  EXPECT_NE(view.buffer(), shared);
  EXPECT_EQ(view.buffer()->length(), 14);
  EXPECT_EQ(view.rowOffset(), 8);
  EXPECT_TRUE(view.isView());
  EXPECT_EQ(view.rowLength(), 4);
  EXPECT_EQ(hex(parent), "0e 00 00 00 08 00 06 80 06 00 00 00 00 00");
}

TEST(Clear, OfAViewWhoseParentHasGoneTakesAFreshBuffer) {
  BaseRow parent(8);
  setNested(parent, 4, BaseRow(6), 8);
  BaseRow view;
  parent.getColumnStruct(4, view);
  parent = BaseRow();
  ASSERT_EQ(view.buffer().use_count(), 1);
  const VaRowBuf* before = view.buffer().get();
  view.clear(4);
  EXPECT_NE(view.buffer().get(), before);
  EXPECT_EQ(view.buffer()->length(), 14);
  EXPECT_EQ(hex(view), "04 00 00 00");
  EXPECT_TRUE(view.isView());
}

TEST(Clear, BeyondTheBufferRaisesTheAssertion) {
  BaseRow row(8, 16);
  try {
    row.clear(17);
    FAIL();
  } catch (const Guard::AssertException& e) {
    EXPECT_EQ(e.message(), "setting fixed data length forBaseRow longer than buffer size");
    EXPECT_EQ(e.file(), "Vane/baseRow");
    EXPECT_EQ(e.function(), "clear");
    EXPECT_GT(e.line(), 0);
  }
  EXPECT_EQ(row.rowLength(), 8);
}

TEST(Clear, OfAViewBeyondWhatItsBufferHasFromItsOffsetRaisesTheAssertion) {
  BaseRow parent(8);
  setNested(parent, 4, BaseRow(6), 8);
  BaseRow view;
  parent.getColumnStruct(4, view);
  EXPECT_THROW(view.clear(7), Guard::AssertException);  // 14 bytes of buffer, from 8 on there are 6
  view.clear(6);
  EXPECT_EQ(view.rowLength(), 6);
}

TEST(Clear, OfAReadOnlyRowThrowsBeforeBytesOrBufferChange) {
  BaseRow row(8);
  row.setColumn<uint32_t>(4, 5, 8);
  row.readOnlyIs(true);
  expectThrows<VaPermissionViolation>([&] { row.clear(8); }, readOnly);
  EXPECT_EQ(hex(row), "08 00 00 00 05 00 00 00");
  const BaseRow copy(row);
  expectThrows<VaPermissionViolation>([&] { row.clear(8); }, readOnly);
  EXPECT_EQ(row.buffer(), copy.buffer());
}

TEST(ClearDeathTest, ToLessThanAHeaderFailsTheAssertion) {
  BaseRow row(8);
  EXPECT_DEATH(row.clear(3), "Assertion `len >= va_contentOffset' failed");
}

TEST(RowEqual, LooksAtBytesOnlyWhateverBuffersAndOffsets) {
  BaseRow nested(6, 100);
  nested.rowTypeIs(9);
  BaseRow parent(8);
  setNested(parent, 4, nested, 8);
  BaseRow view;
  parent.getColumnStruct(4, view);
  EXPECT_TRUE(view.rowEqual(nested));
  EXPECT_TRUE(nested.rowEqual(view));
  EXPECT_TRUE(nested.rowEqual(nested));
}

TEST(RowEqual, SeesEveryByteOfHeaderAndContent) {
  const BaseRow row(8);
  for (const size_t at : {0, 2, 3, 4, 7}) {
    BaseRow other(8, 16);
    other.buffer()->data()[at] ^= 1;
    EXPECT_FALSE(row.rowEqual(other)) << at;
    EXPECT_FALSE(other.rowEqual(row)) << at;
  }
}

TEST(RowEqual, DoesNotLookBeyondTheRow) {
  BaseRow row(8, 16);
  row.buffer()->data()[8] = 1;
  EXPECT_TRUE(row.rowEqual(BaseRow(8)));
}

TEST(RowEqual, RowsOfDifferentLengthAreUnequal) {
  EXPECT_FALSE(BaseRow(8).rowEqual(BaseRow(9)));
  EXPECT_FALSE(BaseRow(9).rowEqual(BaseRow(8)));
  EXPECT_FALSE(BaseRow(8).rowEqual(BaseRow(8 + 256)));
}

TEST(GenericRow, HasNeitherOrderNorHash) {
  const BaseRow row(8);
  const BaseRow null;
  expectThrows<VaNotSupported>([&] { row.rowHash(); },
                               "rowHash not supported on generic base rows");
  expectThrows<VaNotSupported>([&] { row.rowLess(row); },
                               "rowLess not supported on generic base rows");
  expectThrows<VaNotSupported>([&] { null.rowHash(); },
                               "rowHash not supported on generic base rows");
  expectThrows<VaNotSupported>([&] { null.rowLess(null); },
                               "rowLess not supported on generic base rows");
}

TEST(GenericRow, HasEmptyJsonAndIsNotFullyDefined) {
  EXPECT_EQ(BaseRow(8).toJson(), "");
  EXPECT_EQ(BaseRow().toJson(), "");
  EXPECT_FALSE(BaseRow(8).isFullyDefined());
}

TEST(GenericRow, PrintsLengthTypeAndContent) {
  BaseRow row(6);
  row.rowTypeIs(258);
  row.setColumn<uint16_t>(4, 0x0AFF, 6);
  EXPECT_EQ(row.toString(), "len: 6, type: 258, content: ff 0a");
  EXPECT_EQ(BaseRow(4).toString(), "len: 4, type: 0, content:");
}

TEST(GenericRowDeathTest, CannotTellItsColumnsOrItsFixedLength) {
  BaseRow row(8);
  EXPECT_DEATH(row.vcd(), "Assertion `0' failed");
  EXPECT_DEATH(row.baseRowLength(), "Assertion `0' failed");
}

TEST(RowCounters, CountEachOperationOnItsOwn) {
  const auto counted = [](auto&& action) {
    const BaseRowCounters b = BaseRow::baseRowCounters;
    action();
    const BaseRowCounters& a = BaseRow::baseRowCounters;
    return std::vector<uint64_t>{a.defaultConstructions - b.defaultConstructions,
                                 a.bufferConstructions - b.bufferConstructions,
                                 a.copyConstructions - b.copyConstructions,
                                 a.moveConstructions - b.moveConstructions,
                                 a.copyAssignments - b.copyAssignments,
                                 a.moveAssignments - b.moveAssignments};
  };
  using testing::ElementsAre;
  BaseRow row(8);
  BaseRow other;
  EXPECT_THAT(counted([] { BaseRow r; }), ElementsAre(1, 0, 0, 0, 0, 0));
  EXPECT_THAT(counted([] { BaseRow r(8); }), ElementsAre(0, 1, 0, 0, 0, 0));
  EXPECT_THAT(counted([] { BaseRow r(8, 16); }), ElementsAre(0, 1, 0, 0, 0, 0));
  EXPECT_THAT(counted([&] { BaseRow r = row.clone(); }), ElementsAre(0, 1, 0, 0, 0, 0));
  EXPECT_THAT(counted([&] { BaseRow r(row); }), ElementsAre(0, 0, 1, 0, 0, 0));
  EXPECT_THAT(counted([&] { other = row; }), ElementsAre(0, 0, 0, 0, 1, 0));
  EXPECT_THAT(counted([&] { row = std::move(other); }), ElementsAre(0, 0, 0, 0, 0, 1));
  EXPECT_THAT(counted([&] { BaseRow r(std::move(row)); }), ElementsAre(0, 0, 0, 1, 0, 0));
}

TEST(RowCounters, AreEachThreadsOwn) {
  const uint64_t mine = BaseRow::baseRowCounters.bufferConstructions;
  uint64_t theirs = 99;
  std::thread([&] {
    BaseRow row(8);
    theirs = BaseRow::baseRowCounters.bufferConstructions;
  }).join();
  EXPECT_EQ(theirs, 1u);
  EXPECT_EQ(BaseRow::baseRowCounters.bufferConstructions, mine);
}

TEST(RowThreads, ReadersOfASharedBufferAreUndisturbedByAWriterOfACopy) {
  BaseRow source(64);
  source.setColumn<uint64_t>(4, 42, 64);
  std::vector<std::thread> threads;
  std::vector<uint64_t> seen(4);
  for (size_t i = 0; i < seen.size(); ++i) {
    threads.emplace_back([&seen, i, copy = BaseRow(source)]() mutable {
      for (uint64_t n = 0; n < 1000; ++n) {
        BaseRow reader(copy);
        reader.setColumn<uint64_t>(4, n, 64);
        seen[i] += copy.getScalar<uint64_t>(4) == 42;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_THAT(seen, testing::Each(1000u));
}

using RowVirtuals = VirtualSlots;

TEST_F(RowVirtuals, KeepTheirSlots) {
  EXPECT_EQ(slotOf(&BaseRow::shareContents), 0u);
  // Slots 1 and 2 are the destructor and its deleting form.
  EXPECT_EQ(slotOf(&BaseRow::vcd), 3u);
  EXPECT_EQ(slotOf(&BaseRow::toString), 4u);
  EXPECT_EQ(slotOf(&BaseRow::toJson), 5u);
  EXPECT_EQ(slotOf(&BaseRow::rowEqual), 6u);
  EXPECT_EQ(slotOf(&BaseRow::rowLess), 7u);
  EXPECT_EQ(slotOf(&BaseRow::rowHash), 8u);
  EXPECT_EQ(slotOf(&BaseRow::baseRowLength), 9u);
  EXPECT_EQ(slotOf(&BaseRow::isFullyDefined), 10u);
  EXPECT_EQ(slotOf(&BaseRow::clearRow), 11u);
}

TEST(RowHandle, SubRowsAndRowTypesAddNoState) {
  EXPECT_EQ(sizeof(SubRow), sizeof(BaseRow));
  EXPECT_EQ(sizeof(LinkRow), sizeof(BaseRow));
  EXPECT_TRUE((std::is_base_of_v<BaseRow, SubRow>));
  EXPECT_TRUE(std::has_virtual_destructor_v<BaseRow>);
}

}  // namespace
}  // namespace Vane::Test
