#include "agent/p4/ByteString.h"

#include <gtest/gtest.h>

#include <array>

#include "agent/p4/Fault.h"

namespace {

using namespace std::string_literals;
using Agent::P4::byteString;
using Agent::P4::Fault;
using Agent::P4::readNumber;

int codeOf(const std::function<void()>& work) {
  try {
    work();
  } catch (const Fault& fault) {
    return fault.code();
  }
  return 0;
}

TEST(ByteString, HoldsANumberInTheFewestBytes) {
  EXPECT_EQ(byteString(uint64_t{0}), "\0"s);
  EXPECT_EQ(byteString(uint64_t{1}), "\x01"s);
  EXPECT_EQ(byteString(uint64_t{0x100}), "\x01\0"s);
  EXPECT_EQ(byteString(uint64_t{0x0a000000}), "\x0a\0\0\0"s);
  EXPECT_EQ(byteString(~uint64_t{0}), "\xff\xff\xff\xff\xff\xff\xff\xff"s);
}

TEST(ByteString, IsReadByValueWhateverTheLeadingZeros) {
  EXPECT_EQ(readNumber("\x63"s, 12), 0x63u);
  EXPECT_EQ(readNumber("\0\x63"s, 12), 0x63u);
  EXPECT_EQ(readNumber("\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x63"s, 12), 0x63u);
  EXPECT_EQ(readNumber("\0"s, 12), 0u);
  EXPECT_EQ(readNumber("\0\0"s, 12), 0u);
  EXPECT_EQ(readNumber("\x0f\xff"s, 12), 0xfffu);
}

TEST(ByteString, OfMoreBitsThanTheFieldIsInvalid) {
  EXPECT_EQ(codeOf([] { readNumber("\x10\x63"s, 12); }), 3);
  EXPECT_EQ(codeOf([] { readNumber("\x01\0\x63"s, 12); }), 3);
  EXPECT_EQ(codeOf([] { readNumber("\x02"s, 1); }), 3);
  EXPECT_EQ(codeOf([] { readNumber("\x01\0\0\0\0\0\0\0\0"s, 64); }), 3);
}

TEST(ByteString, ThatIsEmptyIsInvalid) {
  EXPECT_EQ(codeOf([] { readNumber("", 32); }), 3);
}

TEST(ByteString, FillsAnAddressFromTheRight) {
  std::array<uint8_t, 4> address{9, 9, 9, 9};
  Agent::P4::readBytes("\x10\0\0"s, 32, address);
  EXPECT_EQ(address, (std::array<uint8_t, 4>{0, 16, 0, 0}));
}

TEST(ByteString, CarriesNegativeColumnsAsTwosComplement) {
  Vane::ColumnValue value = int32_t{0};
  Agent::P4::readColumn("\xff\xff\xff\xfe"s, 32, Wire::AddressFamily::unset, value);
  EXPECT_EQ(std::get<int32_t>(value), -2);
  EXPECT_EQ(byteString(value), "\xff\xff\xff\xfe"s);
}

TEST(ByteString, OfAnAddressColumnKeepsTrailingZeros) {
  const Vane::ColumnValue value = *Wire::IpGenAddr::parse("0.16.0.0");
  EXPECT_EQ(byteString(value), "\x10\0\0"s);
  const Vane::ColumnValue zero = *Wire::IpGenAddr::parse("::");
  EXPECT_EQ(byteString(zero), "\0"s);
}

TEST(PrefixBits, BelowTheLengthMakeAPrefixNoCanonicalOne) {
  using Agent::P4::isCanonical;
  Wire::IpGenPrefix prefix = *Wire::IpGenPrefix::parse("10.0.0.0/8");
  EXPECT_TRUE(isCanonical(prefix));
  prefix.bytes[3] = 1;
  EXPECT_FALSE(isCanonical(prefix));
  prefix.length = 32;
  EXPECT_TRUE(isCanonical(prefix));
  prefix.length = 33;
  EXPECT_FALSE(isCanonical(prefix));
  prefix = *Wire::IpGenPrefix::parse("10.128.0.0/9");
  EXPECT_TRUE(isCanonical(prefix));
  prefix.length = 8;
  EXPECT_FALSE(isCanonical(prefix));
}

}  // namespace
