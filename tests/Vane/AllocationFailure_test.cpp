// Each allocation of the row layer fails once: the error is the documented one, the row is as it
// was, nothing leaks, and the next call works.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/Vane/FailingAllocator.h"
#include "tests/Vane/Rows.h"

namespace Vane::Test {
namespace {

using FailingAllocator::badAlloc;  // the shared pointer's block, the caller's vector
using FailingAllocator::failEach;

using Array = std::vector<uint32_t>;
using testing::ElementsAre;

using AllocationFailure = FailingAllocator::Test;

const auto nothingToCheck = [] {};

TEST_F(AllocationFailure, OfANewRow) {
  EXPECT_THAT(failEach([] { BaseRow row(20); }, nothingToCheck),
              ElementsAre(badAlloc, "calloc() failed requested length: 20"));
  EXPECT_THAT(failEach([] { BaseRow row(20, 64); }, nothingToCheck),
              ElementsAre(badAlloc, "calloc() failed requested length: 64"));
}

TEST_F(AllocationFailure, OfAClone) {
  const BaseRow row(20, 64);
  EXPECT_THAT(failEach([&] { row.clone(); }, [&] { EXPECT_EQ(row.buffer().use_count(), 1); }),
              ElementsAre(badAlloc, "malloc() failed requested length: 20"));
}

TEST_F(AllocationFailure, OfAPrivateCopyLeavesTheRowSharing) {
  const BaseRow source(20, 64);
  const auto stillShared = [&](const BaseRow& copy) {
    EXPECT_EQ(copy.buffer(), source.buffer());
    EXPECT_TRUE(copy.rowEqual(source));
  };
  BaseRow scalar(source);
  BaseRow array(source);
  BaseRow address(source);
  BaseRow cleared(source);
  const auto copyErrors = ElementsAre(badAlloc, "malloc() failed requested length: 20");
  EXPECT_THAT(failEach([&] { scalar.setColumn<uint32_t>(4, 1, 20); }, [&] { stillShared(scalar); }),
              copyErrors);
  EXPECT_THAT(
      failEach([&] { array.setColumn<uint32_t>(4, Array{}, 20); }, [&] { stillShared(array); }),
      copyErrors);
  EXPECT_THAT(failEach([&] { address.setColumn<IpGenAddr>(4, IpGenAddr{}, 20); },
                       [&] { stillShared(address); }),
              copyErrors);
  EXPECT_THAT(failEach([&] { cleared.clearRow(); }, [&] { stillShared(cleared); }), copyErrors);
  EXPECT_EQ(scalar.getScalar<uint32_t>(4), 1u);
  EXPECT_EQ(source.buffer().use_count(), 1);
}

TEST_F(AllocationFailure, OfAPrivateCopyLeavesAViewAView) {
  BaseRow parent(8);
  setNested(parent, 4, LinkRow(7, true), 8);
  BaseRow view;
  parent.getColumnStruct(4, view);
  EXPECT_THAT(failEach([&] { view.setColumn<bool>(8, false, 9); },
                       [&] {
                         EXPECT_TRUE(view.isView());
                         EXPECT_EQ(view.rowOffset(), 8);
                         EXPECT_EQ(view.buffer(), parent.buffer());
                       }),
              ElementsAre(badAlloc, "malloc() failed requested length: 9"));
}

TEST_F(AllocationFailure, OfClearingASharedRowLeavesItSharing) {
  const BaseRow source(20, 64);
  BaseRow copy(source);
  EXPECT_THAT(failEach([&] { copy.clear(12); },
                       [&] {
                         EXPECT_EQ(copy.buffer(), source.buffer());
                         EXPECT_EQ(copy.rowLength(), 20);
                       }),
              ElementsAre(badAlloc, "calloc() failed requested length: 64"));
  EXPECT_EQ(copy.rowLength(), 12);
}

TEST_F(AllocationFailure, OfAFirstArrayLeavesTheRowAsItWas) {
  BaseRow row(37);
  const Array values{1, 2, 3};
  const std::string before = hex(row);
  EXPECT_THAT(failEach([&] { row.setColumn<uint32_t>(29, values, 37); },
                       [&] {
                         EXPECT_EQ(hex(row), before);
                         EXPECT_EQ(row.buffer()->length(), 37);
                       }),
              ElementsAre("realloc() failed. previous length: 37 requested new length: 51"));
  EXPECT_EQ(arrayOf(row, 29), values);
}

TEST_F(AllocationFailure, OfAFirstAddressLeavesTheRowAsItWas) {
  BaseRow row(37);
  const auto prefix = IpGenPrefix::parse("10.0.0.0/8").value();
  const std::string before = hex(row);
  EXPECT_THAT(failEach([&] { row.setColumn<IpGenPrefix>(25, prefix, 37); },
                       [&] { EXPECT_EQ(hex(row), before); }),
              ElementsAre("realloc() failed. previous length: 37 requested new length: 42"));
}

TEST_F(AllocationFailure, OfAGrowingArrayLeavesItAbsentAndTheRestAlone) {
  BaseRow row(37);
  row.setColumn<uint32_t>(29, Array{1, 2}, 37);
  row.setColumn<uint32_t>(33, Array{7}, 37);
  const Array values{1, 2, 3};
  EXPECT_THAT(failEach([&] { row.setColumn<uint32_t>(29, values, 37); },
                       [&] {
                         EXPECT_EQ(hex(row, 29, 4), "00 00 00 80");
                         EXPECT_EQ(row.rowLength(), 53);
                         EXPECT_EQ(arrayOf(row, 33), Array{7});
                       }),
              ElementsAre("realloc() failed. previous length: 53 requested new length: 67"));
  EXPECT_EQ(arrayOf(row, 29), values);
}

TEST_F(AllocationFailure, OfAGrowingArrayOfAFullyDefinedRowComesAfterCompaction) {
  PathRow row;
  row.vcd();  // made once in a process
  row.setColumn<uint32_t>(PathRow::membersCol, Array{1, 2}, PathRow::fixedLength);
  row.setColumn<uint32_t>(PathRow::watchCol, Array{7}, PathRow::fixedLength);
  const Array values{1, 2, 3, 4, 5};
  EXPECT_THAT(
      failEach([&] { row.setColumn<uint32_t>(PathRow::membersCol, values, PathRow::fixedLength); },
               [&] {
                 EXPECT_EQ(row.rowLength(), 34);
                 EXPECT_EQ(arrayOf(row, PathRow::watchCol), Array{7});
               }),
      ElementsAre("realloc() failed. previous length: 44 requested new length: 56"));
  EXPECT_EQ(arrayOf(row, PathRow::membersCol), values);
}

TEST_F(AllocationFailure, OfTheReadersVectorLeavesItAsItWas) {
  BaseRow row(37);
  row.setColumn<uint32_t>(29, Array{1, 2, 3}, 37);
  Array values{9};
  EXPECT_THAT(failEach([&] { row.getFixElemArray<uint32_t>(29, values); },
                       [&] { EXPECT_EQ(values, Array{9}); }),
              testing::Each(badAlloc));
  EXPECT_EQ(values, (Array{9, 1, 2, 3}));
}

TEST_F(AllocationFailure, OfResizingLeavesTheBufferAsItWas) {
  const uint8_t bytes[] = {1, 2, 3};
  VaRowBuf buffer(bytes, 3);
  const uint8_t* const data = buffer.data();
  EXPECT_THAT(failEach([&] { buffer.resize(100); },
                       [&] {
                         EXPECT_EQ(buffer.data(), data);
                         EXPECT_EQ(buffer.length(), 3);
                         EXPECT_EQ(data[2], 3);
                       }),
              ElementsAre("realloc() failed. previous length: 3 requested new length: 100"));
}

TEST_F(AllocationFailure, IsNotMetByWritesInPlaceViewsAndComparisons) {
  BaseRow row(37);
  row.setColumn<uint32_t>(29, Array{1, 2, 3}, 37);
  setNested(row, 33, LinkRow(7, true), 37);
  const Array values{4, 5};
  LinkRow link{BaseRow()};
  EXPECT_THAT(failEach(
                  [&] {
                    row.setColumn<uint64_t>(4, 1, 37);
                    row.setColumn<uint32_t>(29, values, 37);
                    row.getColumnStruct(33, link);
                    link.rowHash();
                    row.rowEqual(row);
                    link = LinkRow(BaseRow());
                  },
                  nothingToCheck),
              testing::IsEmpty());
}

}  // namespace
}  // namespace Vane::Test
