// The table entities and the values in them.
#include <gtest/gtest.h>

#include "platform/State/EcmpTypes.h"
#include "platform/State/RoutingTypes.h"

namespace {

using P4RuntimeRouting::EcmpMemberList;
using P4RuntimeRouting::MemberIndex;

template <class T>
class TableEntities : public testing::Test {};
using Tables =
    testing::Types<P4RuntimeRouting::IpDestinationTable, P4RuntimeRouting::IpVrfPrefixTable,
                   NexthopGroup::L2NexthopGroupEncapTable, P4RuntimeRouting::EcmpMember,
                   P4RuntimeRouting::EcmpGroup>;
TYPED_TEST_SUITE(TableEntities, Tables);

TYPED_TEST(TableEntities, AreMadeByTheNameOfTheirType) {
  const TypeParam table("probe");
  const Kit::Ptr<Kit::Dir> dir = new Kit::Dir("dir");
  const auto made = dir->createEntity("table", Kit::String(table.layout().typeName));
  ASSERT_TRUE(Kit::dynamicCast<TypeParam>(made));
  EXPECT_EQ(made->name(), Kit::Name("table"));
  EXPECT_EQ(made->fullName().str(), "dir/table");
  EXPECT_FALSE(Kit::dynamicCast<TypeParam>(made)->map().initialized());
}

TYPED_TEST(TableEntities, KnowTheirType) {
  const Kit::Ptr<TypeParam> table = new TypeParam("table");
  ASSERT_NE(table->fwkType(), nullptr);
  EXPECT_EQ(table->fwkType()->name.str(), table->layout().typeName);
  EXPECT_EQ(table->fwkType(), Kit::typeNode(table->fwkType()->name));
  EXPECT_EQ(table->fwkType()->attributeNames.size(), 1u);
}

TEST(TableTypeNames, AreWhatMountsAskFor) {
  for (const char* name :
       {"P4RuntimeRouting::IpDestinationTable", "P4RuntimeRouting::IpVrfPrefixTable",
        "NexthopGroup::L2NexthopGroupEncapTable", "P4RuntimeRouting::EcmpMember",
        "P4RuntimeRouting::EcmpGroup"}) {
    EXPECT_NE(Kit::typeNode(name), nullptr) << name;
  }
}

// Part of the shared tables' contract: size and place of the key.
TEST(EntryLayouts, AreTheSameInEveryProcess) {
  const auto layout = [](const char* name, uint32_t size, uint32_t keyAt, uint32_t keySize) {
    return Shoal::EntryLayout{name, size, keyAt, keySize};
  };
  EXPECT_EQ(P4RuntimeRouting::IpDestinationTable("t").layout(),
            layout("P4RuntimeRouting::IpDestinationTable", 56, 24, 20));
  EXPECT_EQ(P4RuntimeRouting::IpVrfPrefixTable("t").layout(),
            layout("P4RuntimeRouting::IpVrfPrefixTable", 56, 24, 24));
  EXPECT_EQ(NexthopGroup::L2NexthopGroupEncapTable("t").layout(),
            layout("NexthopGroup::L2NexthopGroupEncapTable", 56, 52, 2));
  EXPECT_EQ(P4RuntimeRouting::EcmpMember("t").layout(),
            layout("P4RuntimeRouting::EcmpMember", 56, 24, 4));
  EXPECT_EQ(P4RuntimeRouting::EcmpGroup("t").layout(),
            layout("P4RuntimeRouting::EcmpGroup", 8232, 24, 4));
}

TEST(MemberIndices, RunFrom0To1023) {
  EXPECT_EQ(MemberIndex(0).value(), 0u);
  EXPECT_EQ(MemberIndex(1023).value(), 1023u);
  for (const uint32_t value : {1024u, 0xFFFFFFFFu}) {
    try {
      const MemberIndex index(value);
      ADD_FAILURE() << index.value();
    } catch (const Guard::RangeException& error) {
      EXPECT_EQ(error.message(),
                "MemberIndex::value < MemberIndex::min or > MemberIndex::max not allowed");
    }
  }
}

TEST(MemberLists, ReachAsFarAsTheHighestSlotThatWasSet) {
  EcmpMemberList list;
  list.memberIs(MemberIndex(4), 40);
  EXPECT_EQ(list.memberCount, 5u);
  EXPECT_EQ(list.member(MemberIndex(3)), 0u);
  list.memberIs(MemberIndex(1), 10);
  EXPECT_EQ(list.memberCount, 5u);
  EXPECT_EQ(list.member(MemberIndex(1)), 10u);
  EXPECT_EQ(list.watchCount, 0u);
  list.watchIs(MemberIndex(1023), P4Runtime::P4PortId{7});
  EXPECT_EQ(list.watchCount, 1024u);
  EXPECT_EQ(list.watch(MemberIndex(1023)), P4Runtime::P4PortId{7});
}

}  // namespace
