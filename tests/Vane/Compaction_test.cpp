// Variable data of fully defined rows: a column that outgrows its place has the rest moved
// together.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>

#include "tests/Vane/Rows.h"

namespace Vane::Test {
namespace {

using Array = std::vector<uint32_t>;
using testing::ElementsAre;

constexpr len_t fixedLength = PathRow::fixedLength;  // 28, "1c" in hex

void setMembers(PathRow& row, const Array& values) {
  row.setColumn<uint32_t>(PathRow::membersCol, values, fixedLength);
}

void setWatch(PathRow& row, const Array& values) {
  row.setColumn<uint32_t>(PathRow::watchCol, values, fixedLength);
}

void setPrefix(PathRow& row, const char* text) {
  row.setColumn<IpGenPrefix>(PathRow::prefixCol, IpGenPrefix::parse(text).value(), fixedLength);
}

std::string prefixOf(const PathRow& row) {
  IpGenPrefix prefix;
  row.getColumn(PathRow::prefixCol, prefix);
  return prefix.text();
}

TEST(Compaction, GrowingTheOnlyArrayReclaimsItsOldBody) {
  PathRow row;
  setMembers(row, {1, 2, 3});
  setMembers(row, {5, 6, 7, 8, 9});
  EXPECT_EQ(row.rowLength(), 28 + 22);
  EXPECT_EQ(row.buffer()->length(), 50);
  EXPECT_EQ(hex(row, PathRow::membersCol, 4), "1c 00 16 80");
  EXPECT_THAT(arrayOf(row, PathRow::membersCol), ElementsAre(5, 6, 7, 8, 9));
}

TEST(Compaction, GrowingOneColumnMovesThoseBehindItForward) {
  PathRow row;
  setMembers(row, {1, 2});       // 28 to 38
  setPrefix(row, "10.0.0.0/8");  // 38 to 43
  setWatch(row, {7});            // 43 to 49
  setMembers(row, {1, 2, 3});
  EXPECT_EQ(hex(row, PathRow::prefixCol, 4), "1c 00 05 80");   // 28 to 33
  EXPECT_EQ(hex(row, PathRow::watchCol, 4), "21 00 06 80");    // 33 to 39
  EXPECT_EQ(hex(row, PathRow::membersCol, 4), "27 00 0e 80");  // 39 to 53
  EXPECT_EQ(row.rowLength(), 53);
  EXPECT_EQ(prefixOf(row), "10.0.0.0/8");
  EXPECT_THAT(arrayOf(row, PathRow::watchCol), ElementsAre(7));
  EXPECT_THAT(arrayOf(row, PathRow::membersCol), ElementsAre(1, 2, 3));
}

TEST(Compaction, KeepsTheBodiesInTheOrderInWhichTheyLie) {
  PathRow row;
  setWatch(row, {7});            // 28 to 34: the last column, the first body
  setMembers(row, {1, 2});       // 34 to 44
  setPrefix(row, "10.0.0.0/8");  // 44 to 49
  setMembers(row, {});           // a hole of 10 bytes
  EXPECT_EQ(row.compactVariableData(fixedLength), 28 + 6 + 5);
  EXPECT_EQ(hex(row, PathRow::watchCol, 4), "1c 00 06 80");
  EXPECT_EQ(hex(row, PathRow::prefixCol, 4), "22 00 05 80");
  EXPECT_EQ(hex(row, PathRow::membersCol, 4), "00 00 00 80");
}

TEST(Compaction, DropsTheSlackOfShrunkenBodies) {
  PathRow row;
  setMembers(row, {1, 2, 3, 4});
  setWatch(row, {7});
  setMembers(row, {9});
  EXPECT_EQ(row.compactVariableData(fixedLength), 28 + 6 + 6);
  EXPECT_THAT(arrayOf(row, PathRow::membersCol), ElementsAre(9));
  EXPECT_THAT(arrayOf(row, PathRow::watchCol), ElementsAre(7));
}

TEST(Compaction, MovesNestedRowsWhole) {
  LinkRow link(0x01020304, true);
  PathRow row;
  setMembers(row, {1, 2});
  setNested(row, PathRow::linkCol, link, fixedLength);
  setMembers(row, {1, 2, 3});
  LinkRow nested{BaseRow()};
  row.getColumnStruct(PathRow::linkCol, nested);
  EXPECT_EQ(nested.rowOffset(), 28);
  EXPECT_TRUE(nested.BaseRow::rowEqual(link));
}

TEST(Compaction, NestedRowsOwnBodiesStayWhereTheyAreInIt) {
  PathRow inner;
  setMembers(inner, {11, 12});
  setPrefix(inner, "2001:db8::/32");
  PathRow row;
  setMembers(row, {1, 2});
  setNested(row, PathRow::linkCol, inner, fixedLength);
  setMembers(row, {1, 2, 3});
  BaseRow nested;
  row.getColumnStruct(PathRow::linkCol, nested);
  EXPECT_TRUE(nested.rowEqual(inner));
  EXPECT_THAT(arrayOf(nested, PathRow::membersCol), ElementsAre(11, 12));
}

TEST(Compaction, DoesNotRecordTheLengthAndKeepsTheCapacity) {
  PathRow row(200);
  setMembers(row, {1, 2});
  setWatch(row, {7});
  setMembers(row, {});
  EXPECT_EQ(row.compactVariableData(fixedLength), 34);
  EXPECT_EQ(row.rowLength(), 44);
  EXPECT_EQ(row.buffer()->length(), 200);
}

TEST(Compaction, LeavesThoseAloneWhoShareTheBytes) {
  PathRow row;
  setMembers(row, {1, 2});
  setWatch(row, {7});
  setMembers(row, {});
  const BaseRow witness = row;
  const std::string before = hex(witness);
  EXPECT_EQ(row.compactVariableData(fixedLength), 34);
  EXPECT_EQ(hex(witness), before);
  EXPECT_NE(row.buffer(), witness.buffer());
  EXPECT_THAT(arrayOf(row, PathRow::watchCol), ElementsAre(7));
}

TEST(Compaction, OfARowWithoutVariableDataIsTheFixedLength) {
  PathRow row;
  EXPECT_EQ(row.compactVariableData(fixedLength), 28);
}

TEST(Compaction, OfACompactRowChangesNothing) {
  PathRow row;
  setMembers(row, {1, 2});
  setWatch(row, {7});
  setPrefix(row, "10.0.0.0/8");
  const std::string before = hex(row);
  EXPECT_EQ(row.compactVariableData(fixedLength), row.rowLength());
  EXPECT_EQ(hex(row), before);
}

TEST(Compaction, LetsARowGrowThatWouldNotFitBesideItsDeadBytes) {
  PathRow row;
  setMembers(row, Array(4000, 1));
  setWatch(row, Array(4000, 2));
  for (uint32_t i = 0; i < 20; ++i)
    setMembers(row, Array(4001 + i, i));  // 16 KiB abandoned each time
  EXPECT_EQ(arrayOf(row, PathRow::membersCol), Array(4020, 19));
  EXPECT_EQ(arrayOf(row, PathRow::watchCol), Array(4000, 2));
}

TEST(Compaction, LeavesACompactRowWhenTheNewBodyDoesNotFit) {
  PathRow row;
  setMembers(row, {1, 2});
  setWatch(row, Array(4095, 2));
  setNested(row, PathRow::linkCol, BaseRow(30000), fixedLength);
  EXPECT_THROW(setMembers(row, Array(8000, 1)), VaOutOfRange);
  EXPECT_EQ(row.rowLength(), 28 + 16382 + 30000);
  EXPECT_THAT(arrayOf(row, PathRow::membersCol), testing::IsEmpty());
  EXPECT_EQ(arrayOf(row, PathRow::watchCol), Array(4095, 2));
}

TEST(Compaction, OnAReadOnlyRowHappensBeforeTheError) {
  PathRow row;
  setMembers(row, {1, 2});
  setWatch(row, {7});
  row.readOnlyIs(true);
  expectThrows<VaPermissionViolation>([&] { setMembers(row, {1, 2, 3}); }, readOnly);
  EXPECT_EQ(hex(row, PathRow::membersCol, 4), "00 00 00 80");
  EXPECT_EQ(hex(row, PathRow::watchCol, 4), "1c 00 06 80");
  EXPECT_EQ(row.rowLength(), 44);
  EXPECT_THAT(arrayOf(row, PathRow::watchCol), ElementsAre(7));
}

TEST(CompactionDeathTest, OfAGenericRowFailsTheAssertion) {
  BaseRow row(28);
  EXPECT_DEATH(row.compactVariableData(28), "Assertion `0' failed");
}

}  // namespace
}  // namespace Vane::Test
