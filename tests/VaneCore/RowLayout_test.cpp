#include "platform/Vane/RowLayout.h"

#include <gtest/gtest.h>

#include <cstdio>

namespace {

using Vane::BaseRow;
using Vane::ColumnType;
using Vane::ColumnValue;
using Vane::RowLayout;
using Vane::RowMetadata;

RowMetadata routeType() {
  return {"Test::RouteRow",
          "{\"genId\":\"uint64_t\", \"valid\":\"bool\", \"prefix\":\"IpGenPrefix\", "
          "\"kind\":\"int32_t\"}",
          {"prefix"},
          21};
}

// Every type word once; slots 8 4 4 2 1 6 4 4 4 after the four bytes of the header.
RowMetadata everyType() {
  return {"Test::EveryRow",
          "{\"a\":\"uint64_t\", \"b\":\"uint32_t\", \"c\":\"int32_t\", \"d\":\"uint16_t\", "
          "\"e\":\"bool\", \"f\":\"EthAddr\", \"g\":\"IpGenPrefix\", \"h\":\"IpGenAddr\", "
          "\"i\":\"uint32_t[]\"}",
          {"d", "b"},
          41};
}

std::vector<ColumnValue> zeros(const RowLayout& layout) {
  std::vector<ColumnValue> values;
  for (const auto& column : layout.columns()) values.push_back(Vane::zeroValue(column.type));
  return values;
}

std::string hex(const BaseRow& row) {
  std::string text;
  char byte[4];
  for (size_t i = 0; i < row.rowLength(); ++i) {
    std::snprintf(byte, sizeof byte, "%02X ", row.buffer()->data()[i]);
    text += byte;
  }
  return text;
}

std::string refusal(const RowMetadata& metadata) {
  try {
    const RowLayout layout(metadata);
  } catch (const Vane::VaNotSupported& refused) {
    return refused.message();
  }
  return "accepted";
}

TEST(RowLayout, SlotsFollowTheHeaderWithoutGaps) {
  const RowLayout layout(everyType());
  const std::vector<int> offsets{4, 12, 16, 20, 22, 23, 29, 33, 37};
  ASSERT_EQ(layout.columns().size(), offsets.size());
  for (size_t i = 0; i < offsets.size(); ++i) EXPECT_EQ(layout.columns()[i].offset, offsets[i]);
  EXPECT_EQ(layout.fixedLength(), 41);
}

TEST(RowLayout, ColumnsKeepTheirTypesAndOrder) {
  const RowLayout layout(everyType());
  std::string words;
  for (const auto& column : layout.columns()) {
    words += column.name + " " + std::string(Vane::wordOf(column.type)) + ";";
  }
  EXPECT_EQ(words,
            "a uint64_t;b uint32_t;c int32_t;d uint16_t;e bool;f EthAddr;g IpGenPrefix;"
            "h IpGenAddr;i uint32_t[];");
}

TEST(RowLayout, KeyColumnsAreMarkedWhereverTheyStand) {
  const RowLayout layout(everyType());
  for (const auto& column : layout.columns()) {
    EXPECT_EQ(column.isKey, column.name == "b" || column.name == "d") << column.name;
  }
}

TEST(RowLayout, AColumnIsFoundByNameOrNotAtAll) {
  const RowLayout layout(routeType());
  ASSERT_NE(layout.column("prefix"), nullptr);
  EXPECT_EQ(layout.column("prefix")->offset, 13);
  EXPECT_EQ(layout.column("prefi"), nullptr);
  EXPECT_EQ(layout.column(""), nullptr);
}

TEST(RowLayout, ARowHasItsTypeItsColumnsAndABufferOfExactlyItsLength) {
  const RowLayout layout(routeType());
  const std::vector<ColumnValue> values{uint64_t{0x0102030405060708}, true,
                                        Wire::IpGenPrefix::ipv4(0x0A000000, 8), int32_t{-2}};
  const BaseRow row = layout.row(0x0304, values);
  // Length 26 = 21 fixed + 5 of the prefix, whose descriptor says: at 21, 5 bytes, written.
  EXPECT_EQ(hex(row),
            "1A 00 04 03 08 07 06 05 04 03 02 01 01 15 00 05 80 FE FF FF FF 08 0A 00 00 00 ");
  EXPECT_EQ(row.buffer()->length(), 26);
}

TEST(RowLayout, AnUnsetAddressAndAnEmptyArrayTakeNoBytes) {
  const RowLayout layout(everyType());
  const BaseRow row = layout.row(7, zeros(layout));
  EXPECT_EQ(row.rowLength(), 41);
  EXPECT_EQ(row.buffer()->length(), 41);
}

TEST(RowLayout, EveryTypeOfValueComesBackFromARow) {
  const RowLayout layout(everyType());
  const std::vector<ColumnValue> values{uint64_t{0xFFFFFFFFFFFFFFFF},
                                        uint32_t{0xFFFFFFFF},
                                        int32_t{-2147483647 - 1},
                                        uint16_t{65535},
                                        true,
                                        Wire::EthAddr{{1, 2, 3, 4, 5, 6}},
                                        *Wire::IpGenPrefix::parse("2001:db8::/32"),
                                        *Wire::IpGenAddr::parse("192.0.2.1"),
                                        std::vector<uint32_t>{1, 0, 4294967295}};
  const BaseRow row = layout.row(7, values);
  EXPECT_EQ(row.buffer()->length(), 41 + 17 + 4 + 14);
  for (size_t i = 0; i < values.size(); ++i) {
    EXPECT_EQ(layout.value(row, layout.columns()[i]), values[i]) << layout.columns()[i].name;
  }
}

TEST(RowLayout, OneColumnOfARowCanBeSet) {
  const RowLayout layout(routeType());
  BaseRow row = layout.row(7, zeros(layout));
  layout.set(row, *layout.column("prefix"), *Wire::IpGenPrefix::parse("192.0.2.0/24"));
  EXPECT_EQ(std::get<Wire::IpGenPrefix>(layout.value(row, *layout.column("prefix"))).text(),
            "192.0.2.0/24");
  EXPECT_EQ(std::get<uint64_t>(layout.value(row, *layout.column("genId"))), 0u);
}

TEST(RowLayout, ARowAbove65535BytesIsRefusedWithItsLength) {
  RowMetadata metadata{"Test::LongRow", "{", {}, 24};
  for (int i = 0; i < 5; ++i) {
    metadata.signature += (i ? ", \"c" : "\"c") + std::to_string(i) + "\":\"uint32_t[]\"";
  }
  metadata.signature += "}";
  const RowLayout layout(metadata);
  const std::vector<ColumnValue> values(5, std::vector<uint32_t>(4095, 1));
  try {
    static_cast<void>(layout.row(7, values));
    FAIL() << "accepted";
  } catch (const Vane::VaOutOfRange& refused) {
    // 24 + 5 * (2 + 4 * 4095)
    EXPECT_EQ(refused.message(),
              "row of type \"Test::LongRow\": 81934 bytes, expected at most 65535");
  }
}

TEST(RowLayout, AnUnknownTypeWordIsRefusedByName) {
  RowMetadata metadata = routeType();
  metadata.signature = "{\"genId\":\"float\"}";
  EXPECT_EQ(
      refusal(metadata),
      "signature of row type \"Test::RouteRow\", position 16: type word \"float\" is not in use");
}

TEST(RowLayout, ASignatureThatIsNotOneIsRefused) {
  for (const char* text : {"", "{", "{\"a\"", "{\"a\":\"bool\"", "{\"a\":\"bool\",}", "[]",
                           "{\"a\":\"bool\"} x", "{\"a\":\"bool\", \"a\":\"bool\"}", "{\"a"}) {
    RowMetadata metadata = routeType();
    metadata.signature = text;
    EXPECT_TRUE(
        refusal(metadata).starts_with("signature of row type \"Test::RouteRow\", position "))
        << text;
  }
}

TEST(RowLayout, AFixedLengthThatDiffersFromTheTypesOwnIsRefused) {
  RowMetadata metadata = routeType();
  metadata.baseRowLength = 22;
  EXPECT_EQ(refusal(metadata),
            "row type \"Test::RouteRow\": its signature gives a fixed length of 21 bytes, the type "
            "states 22");
}

TEST(RowLayout, AKeyColumnThatIsNotThereIsRefused) {
  RowMetadata metadata = routeType();
  metadata.keyColumns = {"vrfId"};
  EXPECT_EQ(refusal(metadata),
            "row type \"Test::RouteRow\": key column \"vrfId\" is not in its signature");
}

TEST(RowLayout, IsFoundByTheNameOfARowTypeThatHasOfferedItself) {
  RowMetadata metadata = routeType();
  metadata.typeName = "Test::OfferedRow";
  Vane::installRowMetadata(metadata);
  EXPECT_EQ(RowLayout::of("Test::OfferedRow").columns().size(), 4u);
  EXPECT_THROW(RowLayout::of("Test::NobodyOfferedRow"), Vane::VaUnknownName);
}

}  // namespace
