#include "agent/p4/PackedRows.h"

#include "tests/agent-p4/Switch.h"

namespace P4Test {
namespace {

using Agent::P4::PackedRows;
using Agent::P4::Role;
using Agent::P4::Roles;
using Values = std::vector<Vane::ColumnValue>;

std::string hex(const Vane::BaseRow& row, size_t from, size_t count) {
  std::string text;
  for (size_t i = from; i < from + count; ++i) {
    text += fmt::format("{}{:02X}", i == from ? "" : " ", row.buffer()->data()[i]);
  }
  return text;
}

struct Packing : testing::Test {
  Vane::BaseRow rowAt(size_t place) const {
    Vane::BaseRow row;
    rows.get(place, row);
    return row;
  }
  Switch at;
  const Roles roles{{}, at.database().get()};
  PackedRows rows;

  Values group(uint32_t id, std::vector<uint32_t> members) const {
    const Role& role = roles.group();
    Values values;
    for (const auto& column : role.layout.columns()) values.push_back(zeroValue(column.type));
    values[role.keys.front().index] = id;
    values[role.watchPorts.index] = std::vector<uint32_t>(members.size());
    values[role.members.index] = std::move(members);
    return values;
  }
  Values route(uint64_t genId, Wire::IpGenPrefix prefix, uint32_t destination) const {
    return {genId, uint64_t{0}, true, uint32_t{override4}, prefix, int32_t{1}, destination};
  }
};

TEST_F(Packing, KeepsARowAsItsBytes) {
  const Role& role = *roles.table(override4);
  const size_t place = rows.add(role, route(7, Wire::IpGenPrefix::ipv4(0x0a000000, 8), 5));
  const Vane::BaseRow row = rowAt(place);
  EXPECT_EQ(row.rowLength(), 42);
  EXPECT_EQ(row.rowType(), role.rowTypeId);
  EXPECT_EQ(row.buffer()->length(), 42) << "no longer than the row";
  EXPECT_EQ(hex(row, 4, 16), "07 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
  EXPECT_EQ(hex(row, 20, 5), "01 01 00 00 02");
  EXPECT_EQ(hex(row, 25, 4), "25 00 05 80") << "the prefix lies at 37: 5 bytes, written";
  EXPECT_EQ(hex(row, 29, 8), "01 00 00 00 05 00 00 00");
  EXPECT_EQ(hex(row, 37, 5), "08 0A 00 00 00");
}

TEST_F(Packing, GivesEachRowAtItsPlace) {
  const Role& role = *roles.table(override4);
  const size_t first = rows.add(role, route(1, Wire::IpGenPrefix::ipv4(0x0a000000, 8), 5));
  const size_t second = rows.add(role, route(2, Wire::IpGenPrefix::ipv4(0x0b000000, 8), 6));
  EXPECT_EQ(role.get(rowAt(second), role.genId), 2u);
  EXPECT_EQ(role.get(rowAt(first), role.genId), 1u);
}

TEST_F(Packing, UsesABufferAgainThatNobodyElseHas) {
  const Role& role = *roles.table(override4);
  const size_t first = rows.add(role, route(1, Wire::IpGenPrefix::ipv4(0x0a000000, 8), 5));
  const size_t second = rows.add(role, route(2, Wire::IpGenPrefix::ipv4(0x0b000000, 8), 6));
  const size_t longer = rows.add(role, route(3, Wire::IpGenPrefix::ipv6({{0x20, 1}}, 16), 6));
  Vane::BaseRow row = rowAt(first);
  const uint8_t* const bytes = row.buffer()->data();
  rows.get(second, row);
  EXPECT_EQ(row.buffer()->data(), bytes);
  EXPECT_EQ(role.get(row, role.genId), 2u);

  const Vane::BaseRow held = row;
  rows.get(first, row);
  EXPECT_EQ(role.get(held, role.genId), 2u) << "what somebody holds stays as it is";
  EXPECT_EQ(role.get(row, role.genId), 1u);

  rows.get(longer, row);
  EXPECT_EQ(row.buffer()->length(), row.rowLength());
  EXPECT_EQ(role.get(row, role.genId), 3u);
}

TEST_F(Packing, LeavesNothingOfALongRowInTheNext) {
  const Role& role = roles.group();
  const size_t longest =
      rows.add(role, group(7, std::vector<uint32_t>(Agent::P4::maxGroupSlots, ~uint32_t{0})));
  const size_t empty = rows.add(role, group(8, {}));
  EXPECT_EQ(rowAt(longest).rowLength(), role.longestRow);
  EXPECT_EQ(role.get(rowAt(longest), role.members).size(), Agent::P4::maxGroupSlots);
  EXPECT_TRUE(rowAt(empty).rowEqual(role.layout.row(role.rowTypeId, group(8, {}))));
}

TEST_F(Packing, MakesTheRowOfEveryRoleAsItsLayoutDoes) {
  for (const Role& role : roles.all()) {
    Values values;
    for (const auto& column : role.layout.columns()) {
      values.push_back(zeroValue(column.type));
      if (auto* prefix = std::get_if<Wire::IpGenPrefix>(&values.back())) {
        *prefix = Wire::IpGenPrefix::ipv6({{0x20, 1}}, 16);
      } else if (auto* address = std::get_if<Wire::IpGenAddr>(&values.back())) {
        *address = Wire::IpGenAddr::ipv4(0xc0000201);
      } else if (auto* list = std::get_if<std::vector<uint32_t>>(&values.back())) {
        *list = {1, 2, 3};
      }
    }
    const size_t place = rows.add(role, values);
    EXPECT_TRUE(rowAt(place).rowEqual(role.layout.row(role.rowTypeId, values))) << role.rowTable;
  }
}

}  // namespace
}  // namespace P4Test
