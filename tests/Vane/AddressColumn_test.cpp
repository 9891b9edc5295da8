#include <gtest/gtest.h>

#include "tests/Vane/Rows.h"

namespace Vane::Test {
namespace {

IpGenPrefix prefix(const char* text) { return IpGenPrefix::parse(text).value(); }
IpGenAddr addr(const char* text) { return IpGenAddr::parse(text).value(); }

constexpr len_t col = 25;
constexpr len_t fixedLength = 37;

template <class T>
BaseRow rowWith(const T& value) {
  BaseRow row(fixedLength);
  row.setColumn<T>(col, value, fixedLength);
  return row;
}

template <class T>
T read(const BaseRow& row, len_t at = col) {
  T out;
  out.family = Wire::AddressFamily::ipv4;  // to be overwritten, whatever the column holds
  row.getColumn(at, out);
  return out;
}

TEST(AddressColumnBytes, Ipv4PrefixFillsARowOfTheAnnouncedSizeWithoutGrowth) {
  BaseRow row(37, 42);
  const auto* const data = row.buffer()->data();
  row.setColumn<IpGenPrefix>(col, prefix("10.0.0.0/8"), 37);
  EXPECT_EQ(hex(row, 0, 4), "2a 00 00 00");
  EXPECT_EQ(hex(row, 25, 4), "25 00 05 80");
  EXPECT_EQ(hex(row, 37, 5), "08 0a 00 00 00");
  EXPECT_EQ(row.buffer()->length(), 42);
  EXPECT_EQ(row.buffer()->data(), data);
}

TEST(AddressColumnBytes, Ipv6PrefixFillsARowOfTheAnnouncedSizeWithoutGrowth) {
  BaseRow row(37, 54);
  row.setColumn<IpGenPrefix>(col, prefix("2001:db8:1:2:3:4:5:0/112"), 37);
  EXPECT_EQ(row.rowLength(), 54);
  EXPECT_EQ(hex(row, 25, 4), "25 00 11 80");
  EXPECT_EQ(hex(row, 37, 17), "70 20 01 0d b8 00 01 00 02 00 03 00 04 00 05 00 00");
  EXPECT_EQ(row.buffer()->length(), 54);
}

TEST(AddressColumnBytes, AddressesHaveNoLengthByte) {
  BaseRow row(37, 41);
  row.setColumn<IpGenAddr>(col, addr("192.0.2.1"), 37);
  EXPECT_EQ(hex(row, 25, 4), "25 00 04 80");
  EXPECT_EQ(hex(row, 37, 4), "c0 00 02 01");
  EXPECT_EQ(row.rowLength(), 41);
  BaseRow row6(37, 53);
  row6.setColumn<IpGenAddr>(col, addr("2001:db8::1"), 37);
  EXPECT_EQ(hex(row6, 25, 4), "25 00 10 80");
  EXPECT_EQ(hex(row6, 37, 16), "20 01 0d b8 00 00 00 00 00 00 00 00 00 00 00 01");
  EXPECT_EQ(row6.rowLength(), 53);
}

TEST(AddressColumn, BodyLengthsAreThoseThatConstructorsReserve) {
  EXPECT_EQ(bodyLength(IpGenPrefix{}), 0);
  EXPECT_EQ(bodyLength(prefix("0.0.0.0/0")), 5);
  EXPECT_EQ(bodyLength(prefix("::/0")), 17);
  EXPECT_EQ(bodyLength(IpGenAddr{}), 0);
  EXPECT_EQ(bodyLength(addr("0.0.0.0")), 4);
  EXPECT_EQ(bodyLength(addr("::")), 16);
  IpGenPrefix odd;
  odd.family = static_cast<Wire::AddressFamily>(3);
  EXPECT_EQ(bodyLength(odd), 0);
}

TEST(AddressColumn, ReadsBackWhatWasWritten) {
  for (const char* text : {"0.0.0.0/0", "10.0.0.0/8", "192.0.2.255/32", "::/0", "2001:db8::/32",
                           "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff/128"}) {
    EXPECT_EQ(read<IpGenPrefix>(rowWith(prefix(text))), prefix(text)) << text;
  }
  for (const char* text : {"0.0.0.0", "192.0.2.1", "::", "2001:db8::1"}) {
    EXPECT_EQ(read<IpGenAddr>(rowWith(addr(text))), addr(text)) << text;
  }
}

TEST(AddressColumn, NeverWrittenIsUnset) {
  EXPECT_EQ(read<IpGenPrefix>(BaseRow(fixedLength)), IpGenPrefix{});
  EXPECT_EQ(read<IpGenAddr>(BaseRow(fixedLength)), IpGenAddr{});
}

TEST(AddressColumn, OfANullRowIsUnset) {
  EXPECT_EQ(read<IpGenPrefix>(BaseRow()), IpGenPrefix{});
  EXPECT_EQ(read<IpGenAddr>(BaseRow()), IpGenAddr{});
}

TEST(AddressColumn, UnsetValueTakesNoRoomAndLeavesNoMark) {
  const BaseRow row = rowWith(IpGenPrefix{});
  EXPECT_EQ(row.rowLength(), fixedLength);
  EXPECT_EQ(hex(row, 25, 4), "00 00 00 00");
}

TEST(AddressColumn, UnsettingClearsTheDescriptorButKeepsTheWrittenMark) {
  BaseRow row = rowWith(prefix("10.0.0.0/8"));
  row.setColumn<IpGenPrefix>(col, IpGenPrefix{}, fixedLength);
  EXPECT_EQ(hex(row, 25, 4), "00 00 00 80");
  EXPECT_EQ(row.rowLength(), 42);
  EXPECT_EQ(read<IpGenPrefix>(row), IpGenPrefix{});
}

TEST(AddressColumn, FamilyThatIsNoneIsWrittenAsUnset) {
  IpGenAddr odd = addr("192.0.2.1");
  odd.family = static_cast<Wire::AddressFamily>(7);
  EXPECT_EQ(read<IpGenAddr>(rowWith(odd)), IpGenAddr{});
}

TEST(AddressColumn, SameFamilyIsRewrittenInPlace) {
  BaseRow row = rowWith(prefix("10.0.0.0/8"));
  row.setColumn<IpGenPrefix>(col, prefix("172.16.0.0/12"), fixedLength);
  EXPECT_EQ(row.rowLength(), 42);
  EXPECT_EQ(hex(row, 37, 5), "0c ac 10 00 00");
}

TEST(AddressColumn, ShorterFamilyReusesThePlace) {
  BaseRow row = rowWith(prefix("2001:db8::/32"));
  row.setColumn<IpGenPrefix>(col, prefix("10.0.0.0/8"), fixedLength);
  EXPECT_EQ(row.rowLength(), 54);
  EXPECT_EQ(hex(row, 25, 4), "25 00 05 80");
  EXPECT_EQ(read<IpGenPrefix>(row), prefix("10.0.0.0/8"));
}

TEST(AddressColumn, LongerFamilyMovesToTheEndOfAGenericRow) {
  BaseRow row = rowWith(prefix("10.0.0.0/8"));
  row.setColumn<IpGenPrefix>(col, prefix("2001:db8::/32"), fixedLength);
  EXPECT_EQ(row.rowLength(), 42 + 17);
  EXPECT_EQ(hex(row, 25, 4), "2a 00 11 80");
  EXPECT_EQ(read<IpGenPrefix>(row), prefix("2001:db8::/32"));
}

TEST(AddressColumn, LongerFamilyTakesTheOldPlaceOfAFullyDefinedRow) {
  PathRow row;
  row.setColumn<IpGenPrefix>(PathRow::prefixCol, prefix("10.0.0.0/8"), PathRow::fixedLength);
  row.setColumn<IpGenPrefix>(PathRow::prefixCol, prefix("2001:db8::/32"), PathRow::fixedLength);
  EXPECT_EQ(row.rowLength(), 28 + 17);
  EXPECT_EQ(hex(row, PathRow::prefixCol, 4), "1c 00 11 80");
}

TEST(AddressColumn, WritingASharedRowLeavesTheSourceAlone) {
  const BaseRow source = rowWith(prefix("10.0.0.0/8"));
  BaseRow copy(source);
  copy.setColumn<IpGenPrefix>(col, prefix("192.0.2.0/24"), fixedLength);
  EXPECT_EQ(read<IpGenPrefix>(source), prefix("10.0.0.0/8"));
  EXPECT_EQ(read<IpGenPrefix>(copy), prefix("192.0.2.0/24"));
}

TEST(AddressColumn, OfAReadOnlyRowIsNotWrittenNorUnset) {
  BaseRow row = rowWith(prefix("10.0.0.0/8"));
  row.readOnlyIs(true);
  const auto write = [&](const IpGenPrefix& value) {
    expectThrows<VaPermissionViolation>(
        [&] { row.setColumn<IpGenPrefix>(col, value, fixedLength); }, readOnly);
  };
  write(prefix("192.0.2.0/24"));
  write(IpGenPrefix{});
  EXPECT_EQ(read<IpGenPrefix>(row), prefix("10.0.0.0/8"));
}

TEST(AddressColumn, OfANullRowCannotBeWrittenHashedOrCompared) {
  BaseRow null;
  const BaseRow row = rowWith(prefix("10.0.0.0/8"));
  using P = IpGenPrefix;
  expectThrows<VaNullRow>([&] { null.setColumn<P>(col, prefix("10.0.0.0/8"), 37); }, nullRow);
  expectThrows<VaNullRow>([&] { null.setColumn<P>(col, P{}, 37); }, nullRow);
  expectThrows<VaNullRow>([&] { null.columnHash<P>(col); }, nullRow);
  expectThrows<VaNullRow>([&] { null.columnEqual<P>(col, row, col); }, nullRow);
  expectThrows<VaNullRow>([&] { row.columnEqual<P>(col, null, col); }, nullRow);
  expectThrows<VaNullRow>([&] { null.columnLess<P>(col, row, col); }, nullRow);
  expectThrows<VaNullRow>([&] { row.columnLess<P>(col, null, col); }, nullRow);
}

TEST(AddressColumnDeathTest, ZeroFixedLengthFailsTheAssertion) {
  BaseRow row(37);
  EXPECT_DEATH(row.setColumn<IpGenAddr>(25, IpGenAddr{}, 0), "Assertion `fdLen != 0' failed");
}

// In ascending order: unset, IPv4, IPv6; by address; the shorter prefix first.
TEST(AddressColumnOrder, IsTotalAndAgreesWithEqualityAndHash) {
  const IpGenPrefix ascending[] = {IpGenPrefix{},
                                   prefix("0.0.0.0/0"),
                                   prefix("0.0.0.0/32"),
                                   prefix("9.255.255.255/32"),
                                   prefix("10.0.0.0/8"),
                                   prefix("10.0.0.0/16"),
                                   prefix("10.0.1.0/24"),
                                   prefix("255.255.255.255/32"),
                                   prefix("::/0"),
                                   prefix("::/128"),
                                   prefix("a00::/8"),
                                   prefix("2001:db8::/32"),
                                   prefix("2001:db8::1/128")};
  for (const auto& a : ascending) {
    for (const auto& b : ascending) {
      const BaseRow x = rowWith(a);
      const BaseRow y = rowWith(b);
      SCOPED_TRACE(a.text() + " and " + b.text());
      EXPECT_EQ(x.columnEqual<IpGenPrefix>(col, y, col), &a == &b);
      EXPECT_EQ(x.columnLess<IpGenPrefix>(col, y, col), &a < &b);
      EXPECT_EQ(x.columnHash<IpGenPrefix>(col) == y.columnHash<IpGenPrefix>(col), &a == &b);
    }
  }
  const IpGenAddr addresses[] = {IpGenAddr{}, addr("0.0.0.0"), addr("10.0.0.1"), addr("::"),
                                 addr("a00:1::")};
  for (const auto& a : addresses) {
    for (const auto& b : addresses) {
      EXPECT_EQ(rowWith(a).columnEqual<IpGenAddr>(col, rowWith(b), col), &a == &b);
      EXPECT_EQ(rowWith(a).columnLess<IpGenAddr>(col, rowWith(b), col), &a < &b);
    }
  }
}

TEST(AddressColumnOrder, LooksAtTheValueNotAtItsPlace) {
  BaseRow moved(fixedLength);
  moved.setColumn<IpGenPrefix>(29, prefix("2001:db8::/32"), fixedLength);
  moved.setColumn<IpGenPrefix>(29, prefix("10.0.0.0/8"), fixedLength);  // slack behind it
  const BaseRow plain = rowWith(prefix("10.0.0.0/8"));
  EXPECT_TRUE(moved.columnEqual<IpGenPrefix>(29, plain, col));
  EXPECT_FALSE(moved.columnLess<IpGenPrefix>(29, plain, col));
  EXPECT_EQ(moved.columnHash<IpGenPrefix>(29), plain.columnHash<IpGenPrefix>(col));
}

TEST(AddressColumnOrder, UnsetIsAValueWhetherEverWrittenOrNot) {
  BaseRow emptied = rowWith(prefix("10.0.0.0/8"));
  emptied.setColumn<IpGenPrefix>(col, IpGenPrefix{}, fixedLength);
  const BaseRow fresh(fixedLength);
  EXPECT_TRUE(emptied.columnEqual<IpGenPrefix>(col, fresh, col));
  EXPECT_FALSE(emptied.columnLess<IpGenPrefix>(col, fresh, col));
  EXPECT_FALSE(fresh.columnLess<IpGenPrefix>(col, emptied, col));
  EXPECT_EQ(emptied.columnHash<IpGenPrefix>(col), fresh.columnHash<IpGenPrefix>(col));
}

// MurmurHash3 block steps over (family << 8 | length) and the address words, then the avalanche;
// the numbers were worked out apart from the code. They are the same on every host.
TEST(AddressColumnHash, IsMurmurOverFamilyLengthAndAddress) {
  EXPECT_EQ(rowWith(IpGenPrefix{}).columnHash<IpGenPrefix>(col), 0xFF19274A);
  EXPECT_EQ(rowWith(prefix("10.0.0.0/8")).columnHash<IpGenPrefix>(col), 0xF452FA0B);
  EXPECT_EQ(rowWith(prefix("2001:db8::/32")).columnHash<IpGenPrefix>(col), 0x33E743E4);
  EXPECT_EQ(rowWith(IpGenAddr{}).columnHash<IpGenAddr>(col), 0xFF19274A);
  EXPECT_EQ(rowWith(addr("192.0.2.1")).columnHash<IpGenAddr>(col), 0xCB2232E0);
  EXPECT_EQ(rowWith(addr("2001:db8::1")).columnHash<IpGenAddr>(col), 0xEFB37B0A);
}

}  // namespace
}  // namespace Vane::Test
