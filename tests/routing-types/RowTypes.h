// What the row type tests share: a database that hands out chosen type ids and counts what it is
// asked, and rows of every type to compare.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "platform/Vane/RowOps.h"
#include "platform/Vane/VaneDB.h"
#include "routing-types/EcmpMemberListRow.h"
#include "routing-types/IpDestinationRow.h"
#include "routing-types/IpVrfPrefixStatusEntryRow.h"
#include "routing-types/L2NexthopGroupEncapRow.h"
#include "routing-types/NexthopInfoRow.h"
#include "routing-types/VrfPrefixDestinationRow.h"
#include "tests/Vane/Rows.h"

namespace RoutingTypes::Test {

using NexthopGroup::L2NexthopGroupEncapRow;
using P4RuntimeRouting::EcmpMemberListRow;
using P4RuntimeRouting::IpDestinationRow;
using P4RuntimeRouting::IpVrfPrefixStatusEntryRow;
using P4RuntimeRouting::NexthopInfoRow;
using P4RuntimeRouting::VrfPrefixDestinationRow;
using Vane::BaseRow;
using Vane::Test::expectThrows;
using Vane::Test::hex;

using RouteTypes = testing::Types<IpDestinationRow, VrfPrefixDestinationRow,
                                  IpVrfPrefixStatusEntryRow, L2NexthopGroupEncapRow>;
using AllTypes =
    testing::Types<IpDestinationRow, VrfPrefixDestinationRow, IpVrfPrefixStatusEntryRow,
                   L2NexthopGroupEncapRow, NexthopInfoRow, EcmpMemberListRow>;

inline Vane::IpGenPrefix prefix(std::string_view text) { return *Vane::IpGenPrefix::parse(text); }
inline Vane::IpGenAddr addr(std::string_view text) { return *Vane::IpGenAddr::parse(text); }
inline Vane::EthAddr mac(std::string_view text) { return *Vane::EthAddr::parse(text); }

// Knows the types that `ids` lists, once their description has been loaded.
class TestDB final : public Vane::VaneDB {
 public:
  std::map<std::string, uint16_t> ids;
  mutable int recordsAsked = 0;
  int loadsAsked = 0;

  void registerTable(const std::string&, const std::string&, Vane::TableType, uint16_t, uint16_t,
                     const std::string&, Options) override {
    ADD_FAILURE() << "a row type registers no table";
  }
  void tableImplementationIs(const std::string&,
                             std::shared_ptr<Vane::VaTableImplementation>) override {
    ADD_FAILURE() << "a row type installs no table";
  }
  uint32_t tableTypeId(const std::string&) override {
    ADD_FAILURE() << "a row type asks for class records only";
    return 0;
  }
  std::vector<std::string> tableNames() const override { return {}; }
  std::shared_ptr<Vane::VaTableImplementation> table(const std::string&) const override {
    return nullptr;
  }
  BaseRow classRecord(const std::string& typeName) const override {
    ++recordsAsked;
    const auto found = loaded_.find(typeName);
    if (found == loaded_.end()) return BaseRow();
    BaseRow record(10);
    record.setColumn<uint16_t>(4, found->second, 10);
    return record;
  }
  void metadataIs(const std::string& typeName) override {
    ++loadsAsked;
    if (ids.contains(typeName)) loaded_[typeName] = ids[typeName];
  }

 private:
  std::map<std::string, uint16_t> loaded_;
};

// Each test starts with a database of its own, in which every row type has id 258, and with no id
// known.
class WithDB : public testing::Test {
 protected:
  static constexpr uint16_t typeId = 258;

  WithDB() {
    for (const char* name :
         {"P4RuntimeRouting::IpDestinationRow", "P4RuntimeRouting::VrfPrefixDestinationRow",
          "P4RuntimeRouting::IpVrfPrefixStatusEntryRow", "NexthopGroup::L2NexthopGroupEncapRow",
          "P4RuntimeRouting::NexthopInfoRow", "P4RuntimeRouting::EcmpMemberListRow"}) {
      db->ids[name] = typeId;
    }
    Vane::VaneDB::currentIs(db);
  }
  ~WithDB() override { Vane::VaneDB::currentIs(nullptr); }

  std::shared_ptr<TestDB> db = std::make_shared<TestDB>();
};

// Two values of a column, the first before the second.
template <class T>
using LowHigh = std::array<T, 2>;

inline const LowHigh<uint64_t> u64{0xFFFFFFFF, 0x100000000};
inline const LowHigh<uint32_t> u32{0, 0xFFFFFFFF};
inline const LowHigh<int32_t> i32{-1, 0};
inline const LowHigh<uint16_t> u16{1, 65535};
inline const LowHigh<bool> flag{false, true};
inline const LowHigh<Vane::IpGenPrefix> prefixes{prefix("9.255.255.0/24"), prefix("10.0.0.0/8")};
inline const LowHigh<Vane::IpGenAddr> addrs{addr("255.255.255.255"), addr("::1")};
inline const LowHigh<Vane::EthAddr> macs{mac("00:ff:ff:ff:ff:ff"), mac("01:00:00:00:00:00")};
inline const LowHigh<std::vector<uint32_t>> arrays{std::vector<uint32_t>{1, 0xFFFFFFFF},
                                                   std::vector<uint32_t>{2}};

// What the tests know of a row type: its columns as pairs of values, and which of them are its key.
template <class Row>
struct Known;

template <>
struct Known<IpDestinationRow> {
  static auto columns() { return std::tie(u64, u64, flag, u32, prefixes, i32, u32); }
  static constexpr unsigned keyBits = 1u << 4;
  static constexpr uint16_t fixedLength = 37;
  static const inline std::vector<uint16_t> variable{25};
  static const inline std::vector<std::string> keyNames{"destinationPrefix"};
};
template <>
struct Known<VrfPrefixDestinationRow> {
  static auto columns() { return std::tie(u64, u64, flag, u32, u32, prefixes, i32, u32); }
  static constexpr unsigned keyBits = 1u << 4 | 1u << 5;
  static constexpr uint16_t fixedLength = 41;
  static const inline std::vector<uint16_t> variable{29};
  static const inline std::vector<std::string> keyNames{"vrfId", "prefix"};
};
template <>
struct Known<IpVrfPrefixStatusEntryRow> {
  static auto columns() { return std::tie(u64, u64, i32, flag, u32, prefixes); }
  static constexpr unsigned keyBits = 1u << 4 | 1u << 5;
  static constexpr uint16_t fixedLength = 33;
  static const inline std::vector<uint16_t> variable{29};
  static const inline std::vector<std::string> keyNames{"vrfId", "prefix"};
};
template <>
struct Known<L2NexthopGroupEncapRow> {
  static auto columns() { return std::tie(u16, u64, i32, addrs, addrs); }
  static constexpr unsigned keyBits = 1u;
  static constexpr uint16_t fixedLength = 26;
  static const inline std::vector<uint16_t> variable{18, 22};
  static const inline std::vector<std::string> keyNames{"encapId"};
};
template <>
struct Known<NexthopInfoRow> {
  static auto columns() {
    return std::tie(u64, u64, flag, u32, u32, u32, macs, macs, flag, i32, u16);
  }
  static constexpr unsigned keyBits = 1u << 4;
  static constexpr uint16_t fixedLength = 52;
  static const inline std::vector<uint16_t> variable{};
  static const inline std::vector<std::string> keyNames{"id"};
};
template <>
struct Known<EcmpMemberListRow> {
  static auto columns() { return std::tie(u64, u64, flag, u32, u32, arrays, arrays); }
  static constexpr unsigned keyBits = 1u << 4;
  static constexpr uint16_t fixedLength = 37;
  static const inline std::vector<uint16_t> variable{29, 33};
  static const inline std::vector<std::string> keyNames{"id"};
};

template <class Row>
inline constexpr unsigned columnCount = std::tuple_size_v<decltype(Known<Row>::columns())>;
template <class Row>
inline constexpr unsigned allBits = (1u << columnCount<Row>)-1;

// A row whose column i has its high value where bit i of `high` is set, else its low one.
template <class Row>
Row rowOf(unsigned high) {
  const auto columns = Known<Row>::columns();
  return [&]<size_t... i>(std::index_sequence<i...>) {
    return Row(std::get<i>(columns)[high >> i & 1]...);
  }
  (std::make_index_sequence<columnCount<Row>>());
}

// A row of the type's key alone, of low or of high values.
template <class Row>
Row keyOf(unsigned high) {
  if constexpr (requires { Row::key(u32[high], prefixes[high]); }) {
    return Row::key(u32[high], prefixes[high]);
  } else if constexpr (requires { Row::key(prefixes[high]); }) {
    return Row::key(prefixes[high]);
  } else {
    return Row::key(u16[high]);
  }
}

// Runs `check` on every choice of values against itself and against each that differs from it in
// one or two columns.
template <class Row>
void forPairs(auto check) {
  for (unsigned a = 0; a <= allBits<Row>; ++a) {
    for (unsigned i = 0; i < columnCount<Row>; ++i) {
      for (unsigned j = i + 1; j < columnCount<Row>; ++j) check(a, a ^ 1u << i ^ 1u << j);
      check(a, a ^ 1u << i);
    }
    check(a, a);
  }
}

}  // namespace RoutingTypes::Test
