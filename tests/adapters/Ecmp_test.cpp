#include <numeric>

#include "tests/adapters/Samples.h"

namespace adapter_tests {
namespace {

constexpr auto tooMany = "MemberIndex::value < MemberIndex::min or > MemberIndex::max not allowed";

class EcmpGroups : public AdapterTest<EcmpMemberListVaneWrapper> {
 protected:
  static std::vector<uint32_t> numbers(size_t count, uint32_t from) {
    std::vector<uint32_t> values(count);
    std::iota(values.begin(), values.end(), from);
    return values;
  }
  static EcmpMemberListRow group(size_t members, size_t watches) {
    return {1, 2, true, 3, 4, numbers(members, 1000), numbers(watches, 5000)};
  }
  EcmpMemberList held() const {
    bool found = false;
    const EcmpMemberList entry = table->map().safeLookup(4, found);
    EXPECT_TRUE(found);
    return entry;
  }
  EcmpMemberListRow back() const { return adapter->row(EcmpMemberListRow::key(4), 0); }
  void rowIs(Vane::BaseRow row) { adapter->rowIs(row, false); }

  const std::unique_ptr<EcmpMemberListVaneWrapper> adapter = makeAdapter();
};

TEST_F(EcmpGroups, WithoutMembersGiveEmptyArraysAndComeBackWithoutMembers) {
  rowIs(group(0, 0));
  EXPECT_EQ(held().memberCount, 0u);
  EXPECT_EQ(held().watchCount, 0u);
  const EcmpMemberListRow row = back();
  EXPECT_TRUE(row.members().empty());
  EXPECT_TRUE(row.watchPorts().empty());
  EXPECT_EQ(hex(row), hex(group(0, 0)));
  rowIs(row);
  EXPECT_EQ(held().memberCount, 0u);
}

TEST_F(EcmpGroups, OfExactly1024MembersConvertInBothDirections) {
  rowIs(group(1024, 1024));
  EXPECT_EQ(held().memberCount, 1024u);
  EXPECT_EQ(held().watchCount, 1024u);
  EXPECT_EQ(held().member(MemberIndex(0)), 1000u);
  EXPECT_EQ(held().member(MemberIndex(1023)), 2023u);
  EXPECT_EQ(held().watch(MemberIndex(1023)), P4Runtime::P4PortId{6023});
  const EcmpMemberListRow row = back();
  EXPECT_EQ(row.rowLength(), 37 + 2 * (2 + 4 * 1024));
  EXPECT_EQ(row.members(), numbers(1024, 1000));
  EXPECT_EQ(row.watchPorts(), numbers(1024, 5000));
}

TEST_F(EcmpGroups, RowsOf1025MembersOrPortsFailAndLeaveTheTableUnchanged) {
  rowIs(group(3, 3));
  const EcmpMemberList before = held();
  EXPECT_EQ(messageOf<Guard::RangeException>([&] { rowIs(group(1025, 3)); }), tooMany);
  EXPECT_EQ(messageOf<Guard::RangeException>([&] { rowIs(group(3, 1025)); }), tooMany);
  EXPECT_EQ(messageOf<Guard::RangeException>([&] { rowIs(group(4095, 0)); }), tooMany);
  EXPECT_TRUE(held() == before);
  EXPECT_EQ(adapter->latestChangeIdx(), 2u);
}

TEST_F(EcmpGroups, EntriesThatCountMoreThan1024MembersAreARangeError) {
  for (const uint32_t count : {1025u, 0xFFFFFFFFu}) {
    EcmpMemberList members = s.entry(4);
    members.memberCount = count;
    setUntold(members);
    EXPECT_EQ(messageOf<Guard::RangeException>([&] { back(); }), tooMany);
    EcmpMemberList watches = s.entry(4);
    watches.watchCount = count;
    setUntold(watches);
    EXPECT_EQ(messageOf<Guard::RangeException>([&] { back(); }), tooMany);
    const auto at = adapter->begin(0);
    EXPECT_EQ(messageOf<Guard::RangeException>([&] { **at; }), tooMany);
  }
}

// 37 + (2 + 4 * 1024) + (2 + 4 * 15359) bytes are 65,573, and in the 16 bits of a row's length 37:
// the members would have no room in such a row.
TEST_F(EcmpGroups, AnEntryWhoseCountsMakeTheRowsLengthWrapIsARangeError) {
  EcmpMemberList wrapping = s.entry(4);
  wrapping.memberCount = 1024;
  wrapping.watchCount = 15359;
  setUntold(wrapping);
  EXPECT_EQ(messageOf<Guard::RangeException>([&] { back(); }), tooMany);
}

// A conversion that failed half-way leaves nothing behind for the next one.
TEST_F(EcmpGroups, ConvertRightlyAfterAConversionThatFailed) {
  EcmpMemberList bad = s.entry(9);
  bad.memberCount = 2000;
  setUntold(bad);
  EXPECT_THROW(adapter->row(s.keyRow(9), 0), Guard::RangeException);
  rowIs(group(2, 1));
  EXPECT_EQ(hex(back()), hex(group(2, 1)));
}

TEST_F(EcmpGroups, TheTwoListsHaveCountsOfTheirOwn) {
  rowIs(group(5, 2));
  EXPECT_EQ(held().memberCount, 5u);
  EXPECT_EQ(held().watchCount, 2u);
  EXPECT_EQ(hex(back()), hex(group(5, 2)));
}

TEST_F(EcmpGroups, AShorterListReplacesALongerOneWhole) {
  rowIs(group(100, 50));
  rowIs(group(1, 0));
  EXPECT_EQ(held().memberCount, 1u);
  EXPECT_EQ(held().member(MemberIndex(1)), 0u);
  EXPECT_EQ(hex(back()), hex(group(1, 0)));
}

TEST_F(EcmpGroups, AnAbsentIdGivesAnAllZeroRowWithEmptyLists) {
  const EcmpMemberListRow row = adapter->row(EcmpMemberListRow::key(99), 0);
  EXPECT_EQ(row.id(), 0u);
  EXPECT_TRUE(row.members().empty());
  EXPECT_TRUE(row.watchPorts().empty());
}

// Many changes of long and short groups through the same rows and vectors.
TEST_F(EcmpGroups, AreToldRightlyHoweverOftenTheyChange) {
  for (size_t n = 0; n < 200; ++n) {
    const EcmpMemberListRow row = group(n * 37 % 1025, n * 53 % 1025);
    rowIs(row);
    const auto at = adapter->nextChange(0);
    ASSERT_EQ(hex((**at).row()), hex(row));
  }
}

struct LastRow final : Vane::VaTableObserver {
  void onChange(uint64_t, uint64_t, bool, const Vane::BaseRow& row) override { told = hex(row); }
  std::string told;
};

// The spare bits of an array's count are what the bytes in its place were before.
TEST_F(EcmpGroups, AreToldWithoutBytesOfALargerGroupBefore) {
  const auto observer = std::make_shared<LastRow>();
  adapter->observerIs(observer);
  rowIs(EcmpMemberListRow(1, 2, true, 3, 4, std::vector<uint32_t>(100, 0xFFFFFFFF), {}));
  rowIs(group(2, 3));
  EXPECT_EQ(observer->told, hex(group(2, 3)));
}

class EcmpMembers : public AdapterTest<NexthopInfoVaneWrapper> {
 protected:
  const std::unique_ptr<NexthopInfoVaneWrapper> adapter = makeAdapter();
};

TEST_F(EcmpMembers, KeepAllSixBytesOfTheirMacAddressesInOrder) {
  const Wire::EthAddr src{{0x00, 0x11, 0x22, 0x33, 0x44, 0x55}};
  const Wire::EthAddr dst{{0xFF, 0xEE, 0xDD, 0xCC, 0xBB, 0xAA}};
  Vane::BaseRow row = NexthopInfoRow(1, 2, true, 3, 4, 5, src, dst, false, 6, 7);
  adapter->rowIs(row, false);
  bool found = false;
  const NexthopInfo entry = table->map().safeLookup(4, found);
  EXPECT_EQ(entry.srcMac, src);
  EXPECT_EQ(entry.dstMac, dst);
  EXPECT_EQ(hex(adapter->row(NexthopInfoRow::key(4), 0)), hex(row));
}

TEST_F(EcmpMembers, AnAbsentIdBehavesAsInEveryTable) {
  set(1);
  EXPECT_EQ(NexthopInfoRow(adapter->row(s.keyRow(9), 0)).id(), 0u);
  EXPECT_EQ(hex(**adapter->find(s.keyRow(9), 0)), hex(s.row(1)));
  adapter->rowDel(s.keyRow(9));
  EXPECT_EQ(adapter->size(), 1u);
}

}  // namespace
}  // namespace adapter_tests
