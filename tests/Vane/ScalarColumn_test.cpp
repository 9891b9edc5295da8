#include <gtest/gtest.h>

#include <limits>

#include "tests/Vane/Rows.h"

namespace Vane::Test {
namespace {

constexpr EthAddr mac{{0x00, 0x1C, 0x73, 0xAA, 0xBB, 0xCC}};

template <class T>
BaseRow rowWith(len_t col, const T& value) {
  BaseRow row(16);
  row.setColumn<T>(col, value, 16);
  return row;
}

template <class T>
bool less(const T& a, const T& b) {
  // At different offsets, one of them odd: a column is where its offset says.
  return rowWith<T>(4, a).template columnLess<T>(4, rowWith<T>(7, b), 7);
}

template <class T>
bool equal(const T& a, const T& b) {
  return rowWith<T>(4, a).template columnEqual<T>(4, rowWith<T>(7, b), 7);
}

template <class T>
uint32_t hash(const T& value) {
  return rowWith<T>(5, value).template columnHash<T>(5);
}

TEST(ScalarColumn, NeverWrittenReadsAsZero) {
  const BaseRow row(16);
  EXPECT_EQ(row.getScalar<uint16_t>(4), 0);
  EXPECT_EQ(row.getScalar<int32_t>(4), 0);
  EXPECT_EQ(row.getScalar<uint32_t>(4), 0u);
  EXPECT_EQ(row.getScalar<uint64_t>(4), 0u);
  EXPECT_FALSE(row.getScalar<bool>(4));
  EthAddr out = mac;
  row.getColumn(4, out);
  EXPECT_EQ(out, EthAddr{});
}

TEST(ScalarColumn, NumbersAreStoredLowByteFirstAndChangeNothingElse) {
  EXPECT_EQ(hex(rowWith<uint32_t>(6, 0x01020304)),
            "10 00 00 00 00 00 04 03 02 01 00 00 00 00 00 00");
  EXPECT_EQ(hex(rowWith<uint16_t>(5, 0x0102)), "10 00 00 00 00 02 01 00 00 00 00 00 00 00 00 00");
  EXPECT_EQ(hex(rowWith<uint64_t>(7, 0x0102030405060708)),
            "10 00 00 00 00 00 00 08 07 06 05 04 03 02 01 00");
  EXPECT_EQ(hex(rowWith<int32_t>(4, -2)), "10 00 00 00 fe ff ff ff 00 00 00 00 00 00 00 00");
}

TEST(ScalarColumn, BoolIsOneByte) {
  EXPECT_EQ(hex(rowWith<bool>(4, true), 4, 3), "01 00 00");
  BaseRow row = rowWith<bool>(4, true);
  row.setColumn<bool>(4, false, 16);
  EXPECT_EQ(hex(row, 4, 1), "00");
}

TEST(ScalarColumn, MacKeepsItsBytesInTheirOrder) {
  EXPECT_EQ(hex(rowWith(9, mac), 8, 8), "00 00 1c 73 aa bb cc 00");
}

TEST(ScalarColumn, ReadsBackWhatWasWrittenAtAnyAlignment) {
  for (len_t col = 4; col < 8; ++col) {
    EXPECT_EQ((rowWith<uint16_t>(col, 0xFFFE).getScalar<uint16_t>(col)), 0xFFFE);
    EXPECT_EQ((rowWith<int32_t>(col, -5).getScalar<int32_t>(col)), -5);
    EXPECT_EQ((rowWith<uint32_t>(col, 0x89ABCDEF).getScalar<uint32_t>(col)), 0x89ABCDEF);
    EXPECT_EQ((rowWith<uint64_t>(col, 0x89ABCDEF01234567).getScalar<uint64_t>(col)),
              0x89ABCDEF01234567);
    EXPECT_TRUE((rowWith<bool>(col, true).getScalar<bool>(col)));
    EthAddr out;
    rowWith(col, mac).getColumn(col, out);
    EXPECT_EQ(out, mac);
  }
}

TEST(ScalarColumn, WritesAsFarAsTheLastByteOfTheRow) {
  BaseRow row(65535);
  row.setColumn<uint64_t>(65527, ~uint64_t{0}, 65535);
  EXPECT_EQ(hex(row, 65526, 9), "00 ff ff ff ff ff ff ff ff");
}

TEST(ScalarColumn, OfANullRowCannotBeWrittenOrRead) {
  BaseRow null;
  expectThrows<VaNullRow>([&] { null.setColumn<uint16_t>(4, 1, 16); }, nullRow);
  expectThrows<VaNullRow>([&] { null.setColumn<EthAddr>(4, mac, 16); }, nullRow);
  expectThrows<VaNullRow>([&] { null.getScalar<uint32_t>(4); }, nullRow);
  expectThrows<VaNullRow>([&] { null.getScalar<bool>(4); }, nullRow);
}

TEST(ScalarColumn, MacOfANullRowIsTheNullAddress) {
  EthAddr out = mac;
  BaseRow().getColumn(4, out);
  EXPECT_EQ(out, EthAddr{});
}

TEST(ScalarColumn, OfAReadOnlyRowIsNotWritten) {
  BaseRow row = rowWith<uint32_t>(4, 7);
  row.readOnlyIs(true);
  expectThrows<VaPermissionViolation>([&] { row.setColumn<uint32_t>(4, 8, 16); }, readOnly);
  EXPECT_EQ(row.getScalar<uint32_t>(4), 7u);
}

TEST(ScalarColumnDeathTest, ZeroFixedLengthFailsTheAssertion) {
  BaseRow row(16);
  EXPECT_DEATH(row.setColumn<uint32_t>(4, 1, 0), "Assertion `fdLen != 0' failed");
  BaseRow null;
  EXPECT_DEATH(null.setColumn<bool>(4, true, 0), "Assertion `fdLen != 0' failed");
}

TEST(ScalarColumnHash, Of32BitsIsTheValue) { EXPECT_EQ(hash<uint32_t>(0x89ABCDEF), 0x89ABCDEF); }

TEST(ScalarColumnHash, Of64BitsIgnoresTheHighHalf) {
  EXPECT_EQ(hash<uint64_t>(5), 5u);
  EXPECT_EQ(hash<uint64_t>(0x100000005), 5u);
}

TEST(ScalarColumnHash, OfNarrowKindsIsTheZeroExtendedValue) {
  EXPECT_EQ(hash<uint16_t>(0xFFFE), 0xFFFEu);
  EXPECT_EQ(hash<bool>(true), 1u);
  EXPECT_EQ(hash<int32_t>(-1), 0xFFFFFFFFu);
}

// Block steps over 0x001C73AA and 0xBBCC from 0, then the final avalanche; worked out apart from
// the code.
TEST(ScalarColumnHash, OfAMacMixesAllSixBytes) { EXPECT_EQ(hash(mac), 0xED8536C1); }

TEST(ScalarColumnLess, SignedNumbersCompareSigned) {
  EXPECT_TRUE(less<int32_t>(-1, 0));
  EXPECT_FALSE(less<int32_t>(0, -1));
  EXPECT_TRUE(less(std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()));
  EXPECT_FALSE(less<int32_t>(-1, -1));
}

TEST(ScalarColumnLess, UnsignedNumbersCompareUnsigned) {
  EXPECT_TRUE(less<uint32_t>(0, 0xFFFFFFFF));
  EXPECT_FALSE(less<uint32_t>(0xFFFFFFFF, 0));
  EXPECT_TRUE(less<uint16_t>(0x00FF, 0x0100));
  EXPECT_FALSE(less<uint32_t>(3, 3));
}

TEST(ScalarColumnLess, HighHalvesDecideBeforeLowOnes) {
  EXPECT_TRUE(less<uint64_t>(0xFFFFFFFF, 0x100000000));
  EXPECT_FALSE(less<uint64_t>(0x100000000, 0xFFFFFFFF));
  EXPECT_TRUE(less<uint64_t>(0x100000001, 0x100000002));
  EXPECT_TRUE(less<uint64_t>(1, 0x8000000000000000));
  EXPECT_FALSE(less<uint64_t>(0x8000000000000000, 0x8000000000000000));
}

TEST(ScalarColumnLess, FalseComesBeforeTrue) {
  EXPECT_TRUE(less(false, true));
  EXPECT_FALSE(less(true, false));
  EXPECT_FALSE(less(true, true));
}

TEST(ScalarColumnLess, MacsCompareByTheirBytesInOrder) {
  EXPECT_TRUE(less(EthAddr{{0, 0, 0, 0, 0, 255}}, EthAddr{{1, 0, 0, 0, 0, 0}}));
  EXPECT_FALSE(less(mac, mac));
}

TEST(ScalarColumnEqual, ComparesAtTheWidthOfItsKind) {
  EXPECT_TRUE(equal<uint16_t>(7, 7));
  EXPECT_FALSE(equal<uint16_t>(7, 0x0107));
  EXPECT_TRUE(equal<int32_t>(-7, -7));
  EXPECT_FALSE(equal<int32_t>(-7, 7));
  EXPECT_TRUE(equal<uint32_t>(7, 7));
  EXPECT_FALSE(equal<uint64_t>(0x100000005, 5));  // though they hash alike
  EXPECT_TRUE(equal(mac, mac));
  EXPECT_FALSE(equal(mac, EthAddr{}));
  const auto a = rowWith<uint32_t>(4, 0x00010007);
  EXPECT_TRUE((a.columnEqual<uint16_t>(4, rowWith<uint32_t>(4, 0x00020007), 4)));
}

TEST(ScalarColumnEqual, BoolsCompareTheirRawBytes) {
  BaseRow two = rowWith<bool>(4, true);
  bytesOf(two)[4] = 2;
  const BaseRow one = rowWith<bool>(4, true);
  EXPECT_TRUE(two.getScalar<bool>(4));
  EXPECT_FALSE(one.columnEqual<bool>(4, two, 4));
  EXPECT_TRUE(one.columnLess<bool>(4, two, 4));
  EXPECT_EQ(two.columnHash<bool>(4), 2u);
}

template <class T>
class ScalarKind : public testing::Test {};
using ScalarKinds = testing::Types<bool, uint16_t, int32_t, uint32_t, uint64_t, EthAddr>;
TYPED_TEST_SUITE(ScalarKind, ScalarKinds);

TYPED_TEST(ScalarKind, OfANullRowCannotBeHashedOrCompared) {
  const BaseRow null;
  const BaseRow row(16);
  using T = TypeParam;
  expectThrows<VaNullRow>([&] { null.columnHash<T>(4); }, nullRow);
  expectThrows<VaNullRow>([&] { null.columnEqual<T>(4, row, 4); }, nullRow);
  expectThrows<VaNullRow>([&] { row.columnEqual<T>(4, null, 4); }, nullRow);
  expectThrows<VaNullRow>([&] { null.columnLess<T>(4, row, 4); }, nullRow);
  expectThrows<VaNullRow>([&] { row.columnLess<T>(4, null, 4); }, nullRow);
  expectThrows<VaNullRow>([&] { null.columnLess<T>(4, null, 4); }, nullRow);
}

TYPED_TEST(ScalarKind, OfASharedRowIsWrittenToAPrivateCopy) {
  const BaseRow source(16);
  BaseRow copy(source);
  copy.setColumn<TypeParam>(4, TypeParam{}, 16);
  EXPECT_NE(copy.buffer(), source.buffer());
  EXPECT_TRUE(copy.rowEqual(source));
}

}  // namespace
}  // namespace Vane::Test
