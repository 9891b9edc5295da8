// The five adapters under one set of rules: for each, entries and rows by number, and a table in
// memory with the adapter before it.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/Vane/VaneDB.h"
#include "src-includes/P4RuntimeVane/P4RuntimeRoutingEcmpTypesVaneWrappers.h"
#include "src-includes/P4RuntimeVane/P4RuntimeRoutingTypesVaneWrappers.h"
#include "tests/Guard/MessageOf.h"
#include "tests/adapters/MemoryStore.h"

namespace adapter_tests {

using GuardTest::messageOf;
using NexthopGroup::L2NexthopGroupEncap;
using NexthopGroup::L2NexthopGroupEncapRow;
using NexthopGroup::L2NexthopGroupEncapTableVaneWrappers::L2NexthopGroupEncapTraits;
using NexthopGroup::L2NexthopGroupEncapTableVaneWrappers::L2NexthopGroupEncapVaneWrapper;
using P4RuntimeRouting::EcmpMemberList;
using P4RuntimeRouting::EcmpMemberListRow;
using P4RuntimeRouting::IpDestination;
using P4RuntimeRouting::IpDestinationRow;
using P4RuntimeRouting::IpVrfPrefixKey;
using P4RuntimeRouting::MemberIndex;
using P4RuntimeRouting::NexthopInfo;
using P4RuntimeRouting::NexthopInfoRow;
using P4RuntimeRouting::VrfPrefixDestination;
using P4RuntimeRouting::VrfPrefixDestinationRow;
using P4RuntimeRouting::EcmpGroupVaneWrappers::EcmpMemberListTraits;
using P4RuntimeRouting::EcmpGroupVaneWrappers::EcmpMemberListVaneWrapper;
using P4RuntimeRouting::EcmpMemberVaneWrappers::NexthopInfoTraits;
using P4RuntimeRouting::EcmpMemberVaneWrappers::NexthopInfoVaneWrapper;
using P4RuntimeRouting::IpDestinationTableVaneWrappers::IpDestinationTraits;
using P4RuntimeRouting::IpDestinationTableVaneWrappers::IpDestinationVaneWrapper;
using P4RuntimeRouting::IpVrfPrefixTableVaneWrappers::VrfPrefixDestinationTraits;
using P4RuntimeRouting::IpVrfPrefixTableVaneWrappers::VrfPrefixDestinationVaneWrapper;

// IPv4 for even numbers, IPv6 for odd ones, so that rows of both lengths alternate.
inline Wire::IpGenPrefix prefix(uint32_t i) {
  if (i % 2 == 0) return Wire::IpGenPrefix::ipv4(0x0A000000 + (i << 8), 24);
  Wire::Ip6Addr addr;
  addr.bytes = {0x20, 0x01, 0x0D, 0xB8, 0, uint8_t(i >> 8), 0, uint8_t(i)};
  return Wire::IpGenPrefix::ipv6(addr, 64);
}
inline Wire::IpGenAddr address(uint32_t i) {
  if (i % 2 == 0) return Wire::IpGenAddr::ipv4(0xC0000200 + i);
  Wire::Ip6Addr addr;
  addr.bytes = {0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, uint8_t(i >> 8), uint8_t(i)};
  return Wire::IpGenAddr::ipv6(addr);
}
inline Wire::EthAddr mac(uint8_t first, uint32_t i) {
  return {{first, 2, 3, 4, uint8_t(i >> 8), uint8_t(i)}};
}
constexpr uint64_t wide(uint32_t i) { return 0x1234567800000000 + i; }

// entry(i, version): the entry of key number i, different in every version. row(i, version): the
// same, told once more with the row type's own constructor.
template <class Adapter>
struct Sample;

template <>
struct Sample<IpDestinationVaneWrapper> {
  using Traits = IpDestinationTraits;
  static Wire::IpGenPrefix key(uint32_t i) { return prefix(i); }
  static IpDestination entry(uint32_t i, uint32_t version = 1) {
    IpDestination e;
    e.genId = wide(version);
    e.entryHandle = wide(i);
    e.valid = version % 2 == 1;
    e.entryId = i;
    e.destinationPrefix = key(i);
    e.destinationType = -2;
    e.destinationId = 77;
    return e;
  }
  static IpDestinationRow row(uint32_t i, uint32_t version = 1) {
    return {wide(version), wide(i), version % 2 == 1, i, key(i), -2, 77};
  }
  static IpDestinationRow keyRow(uint32_t i) { return IpDestinationRow::key(key(i)); }
  static IpDestinationRow rowOfKeyAlone(uint32_t i) { return {0, 0, false, 0, key(i), 0, 0}; }
};

template <>
struct Sample<VrfPrefixDestinationVaneWrapper> {
  using Traits = VrfPrefixDestinationTraits;
  static IpVrfPrefixKey key(uint32_t i) { return {i / 3, prefix(i)}; }
  static VrfPrefixDestination entry(uint32_t i, uint32_t version = 1) {
    VrfPrefixDestination e;
    e.genId = wide(version);
    e.entryHandle = wide(i);
    e.valid = version % 2 == 1;
    e.entryId = i;
    e.key = key(i);
    e.destinationType = -2;
    e.destinationId = 77;
    return e;
  }
  static VrfPrefixDestinationRow row(uint32_t i, uint32_t version = 1) {
    return {wide(version), wide(i), version % 2 == 1, i, i / 3, prefix(i), -2, 77};
  }
  static VrfPrefixDestinationRow keyRow(uint32_t i) {
    return VrfPrefixDestinationRow::key(i / 3, prefix(i));
  }
  static VrfPrefixDestinationRow rowOfKeyAlone(uint32_t i) {
    return {0, 0, false, 0, i / 3, prefix(i), 0, 0};
  }
};

template <>
struct Sample<L2NexthopGroupEncapVaneWrapper> {
  using Traits = L2NexthopGroupEncapTraits;
  static uint16_t key(uint32_t i) { return static_cast<uint16_t>(i); }
  static L2NexthopGroupEncap entry(uint32_t i, uint32_t version = 1) {
    L2NexthopGroupEncap e;
    e.encapId = key(i);
    e.entryHandle = wide(version);
    e.encapType = -3;
    e.srcAddr = address(i);
    e.dstAddr = address(i + 1);
    return e;
  }
  static L2NexthopGroupEncapRow row(uint32_t i, uint32_t version = 1) {
    return {key(i), wide(version), -3, address(i), address(i + 1)};
  }
  static L2NexthopGroupEncapRow keyRow(uint32_t i) { return L2NexthopGroupEncapRow::key(key(i)); }
  static L2NexthopGroupEncapRow rowOfKeyAlone(uint32_t i) { return {key(i), 0, 0, {}, {}}; }
};

template <>
struct Sample<NexthopInfoVaneWrapper> {
  using Traits = NexthopInfoTraits;
  static uint32_t key(uint32_t i) { return i; }
  static NexthopInfo entry(uint32_t i, uint32_t version = 1) {
    NexthopInfo e;
    e.genId = wide(version);
    e.entryHandle = wide(i);
    e.valid = true;
    e.entryId = i + 1000;
    e.id = i;
    e.egressPort = 0xFFFFFFFF;
    e.srcMac = mac(0xAA, i);
    e.dstMac = mac(0xBB, i);
    e.vlanTagged = version % 2 == 1;
    e.encapType = -4;
    e.vlanId = 4094;
    return e;
  }
  static NexthopInfoRow row(uint32_t i, uint32_t version = 1) {
    return {wide(version), wide(i),          true, i + 1000,      i, 0xFFFFFFFF, mac(0xAA, i),
            mac(0xBB, i),  version % 2 == 1, -4,   uint16_t{4094}};
  }
  static NexthopInfoRow keyRow(uint32_t i) { return NexthopInfoRow::key(i); }
  static NexthopInfoRow rowOfKeyAlone(uint32_t i) {
    return {0, 0, false, 0, i, 0, {}, {}, false, 0, 0};
  }
};

template <>
struct Sample<EcmpMemberListVaneWrapper> {
  using Traits = EcmpMemberListTraits;
  static uint32_t key(uint32_t i) { return i; }
  // Groups grow and shrink from number to number; the two lists are of different lengths.
  static uint32_t memberCount(uint32_t i) { return i % 5 * 3; }
  static uint32_t watchCount(uint32_t i) { return i % 4; }
  static EcmpMemberList entry(uint32_t i, uint32_t version = 1) {
    EcmpMemberList e;
    e.genId = wide(version);
    e.entryHandle = wide(i);
    e.valid = true;
    e.entryId = i + 1000;
    e.id = i;
    for (uint32_t m = 0; m < memberCount(i); ++m) e.memberIs(MemberIndex(m), i * 100 + m);
    for (uint32_t w = 0; w < watchCount(i); ++w) {
      e.watchIs(MemberIndex(w), P4Runtime::P4PortId{i * 7 + w});
    }
    return e;
  }
  static EcmpMemberListRow row(uint32_t i, uint32_t version = 1) {
    std::vector<uint32_t> members(memberCount(i));
    for (uint32_t m = 0; m < members.size(); ++m) members[m] = i * 100 + m;
    std::vector<uint32_t> watches(watchCount(i));
    for (uint32_t w = 0; w < watches.size(); ++w) watches[w] = i * 7 + w;
    return {wide(version), wide(i), true, i + 1000, i, members, watches};
  }
  static EcmpMemberListRow keyRow(uint32_t i) { return EcmpMemberListRow::key(i); }
  static EcmpMemberListRow rowOfKeyAlone(uint32_t i) { return {0, 0, false, 0, i, {}, {}}; }
};

using Adapters = testing::Types<IpDestinationVaneWrapper, VrfPrefixDestinationVaneWrapper,
                                L2NexthopGroupEncapVaneWrapper, NexthopInfoVaneWrapper,
                                EcmpMemberListVaneWrapper>;

struct AdapterNames {
  template <class Adapter>
  static std::string GetName(int) {
    return Sample<Adapter>::Traits::name;
  }
};

// The row's bytes, header included.
inline std::vector<int> bytes(const Vane::BaseRow& row) {
  const uint8_t* const at = row.buffer()->data() + row.rowOffset();
  return {at, at + row.rowLength()};
}
// The row's bytes as text: "2A 00 01 00 ...".
inline std::string hex(const Vane::BaseRow& row) {
  static constexpr char digits[] = "0123456789ABCDEF";
  std::string text;
  for (const int byte : bytes(row)) {
    if (!text.empty()) text += ' ';
    text += {digits[byte / 16], digits[byte % 16]};
  }
  return text;
}

// What an assertion says: "message | file | function | line".
template <class Call>
std::string assertionOf(Call call) {
  try {
    call();
  } catch (const Guard::AssertException& failed) {
    return failed.message() + " | " + failed.file() + " | " + failed.function() + " | " +
           std::to_string(failed.line());
  }
  return "nothing was asserted";
}

// A database of its own.
class DatabaseTest : public testing::Test {
 protected:
  DatabaseTest() { Vane::VaneDB::currentIs(db); }
  ~DatabaseTest() override { Vane::VaneDB::currentIs(nullptr); }
  const std::shared_ptr<Vane::VaneDB> db = Vane::makeVaneDB();
};

// One adapter as the writer of a table in memory.
template <class A>
class AdapterTest : public DatabaseTest {
 protected:
  using Adapter = A;
  using S = Sample<A>;
  static constexpr S s{};
  using Traits = typename S::Traits;
  using Table = typename Traits::Table;
  using Row = typename Traits::Row;
  using Key = typename Traits::Key;
  using Entry = typename Traits::Entry;

  AdapterTest() { table->storeIs(store); }

  std::unique_ptr<Adapter> makeAdapter(bool allowModifiers = true) {
    return std::make_unique<Adapter>(table, db, nullptr, allowModifiers);
  }
  // Exchanges the table for an empty one.
  void storeIs(Shoal::Mode mode, uint64_t capacity = 64) {
    store = std::make_shared<MemoryStore>(table->layout(), mode, capacity);
    table->storeIs(store);
  }

  // By the switch, that is past the adapter.
  void set(uint32_t i, uint32_t version = 1) { ((*table).*Traits::set)(S::entry(i, version)); }
  void set(const Entry& entry) { ((*table).*Traits::set)(entry); }
  void del(uint32_t i) { ((*table).*Traits::del)(S::key(i)); }
  // By another process, which tells nobody.
  void setUntold(const Entry& entry) {
    const Key key = entry.*Traits::key;
    store->set(asBytes(key), asBytes(entry));
  }
  void delUntold(uint32_t i) {
    const Key key = S::key(i);
    store->erase(asBytes(key));
  }
  template <class T>
  static Shoal::Bytes asBytes(const T& value) {
    return std::as_bytes(std::span<const T, 1>(&value, 1));
  }
  bool holds(const Entry& entry) const {
    bool found = false;
    return table->map().safeLookup(entry.*Traits::key, found) == entry && found;
  }

  // What a walk from `at` to the end gives, as bytes.
  static std::vector<std::string> walk(std::unique_ptr<Vane::VaRowIteratorImpl> at,
                                       Vane::VaTableImplementation& adapter) {
    std::vector<std::string> rows;
    for (const auto end = adapter.end(0); *at != *end; ++*at) rows.push_back(hex(**at));
    return rows;
  }
  std::vector<std::string> rowsOf(std::initializer_list<uint32_t> numbers) {
    std::vector<std::string> rows;
    for (const uint32_t i : numbers) rows.push_back(hex(S::row(i)));
    return rows;
  }

  const Kit::Ptr<Table> table = new Table("table");
  std::shared_ptr<MemoryStore> store = std::make_shared<MemoryStore>(table->layout());
};

}  // namespace adapter_tests
