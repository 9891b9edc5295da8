// Members, groups and one-shot action sets, fault by fault.
#include "tests/agent-p4/Switch.h"

namespace P4Test {
namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class ActionProfile : public testing::Test {
 protected:
  void programMembers(uint32_t count) {
    std::vector<Update> updates;
    for (uint32_t id = 1; id <= count; ++id) updates.push_back(insert(member(id)));
    EXPECT_THAT(at.codes(updates), testing::Each(0));
  }
  int groupWith(const std::function<void(p4::v1::ActionProfileGroup&)>& change) {
    Entity made = group(7, {{1}, {2}});
    change(*made.mutable_action_profile_group());
    const int code = at.code(insert(made));
    if (code != 0) {
      EXPECT_THAT(at.read(allGroups()), IsEmpty());
    }
    return code;
  }
  int memberWith(const std::function<void(p4::v1::ActionProfileMember&)>& change) {
    Entity made = member(50);
    change(*made.mutable_action_profile_member());
    return at.code(insert(made));
  }
  int setWith(const std::function<void(p4::v1::ActionProfileActionSet&)>& change) {
    Entity made = toSet(prefix(1), {{1}, {2}});
    change(*made.mutable_table_entry()->mutable_action()->mutable_action_profile_action_set());
    const int code = at.code(insert(made));
    if (code != 0) {
      EXPECT_EQ(at.size("VaneEcmpMember") + at.size("VaneEcmpGroup"), 0u);
      EXPECT_THAT(at.read(allEntries()), IsEmpty());
    }
    return code;
  }

  Switch at;
};

TEST_F(ActionProfile, MembersAreInsertedReadModifiedAndDeleted) {
  EXPECT_THAT(at.codes({insert(member(1)), insert(member(0x7fffffff, 9))}), ElementsAre(0, 0));
  EXPECT_THAT(at.read(allMembers()),
              UnorderedElementsAre(IsEntity(member(1)), IsEntity(member(0x7fffffff, 9))));
  EXPECT_EQ(at.code(modify(member(1, 77))), 0);
  EXPECT_THAT(at.read(member(1)), ElementsAre(IsEntity(member(1, 77))));
  EXPECT_EQ(at.code(del(member(1))), 0);
  EXPECT_THAT(at.read(allMembers()), ElementsAre(IsEntity(member(0x7fffffff, 9))));
}

TEST_F(ActionProfile, AMembersParametersAreTheColumnsOfItsRow) {
  ASSERT_EQ(at.code(insert(member(3, 9))), 0);
  EXPECT_THAT(at.rows("VaneEcmpMember"),
              ElementsAre("{\"genId\":1, \"entryHandle\":1, \"valid\":true, \"entryId\":285212673, "
                          "\"id\":3, \"egressPort\":9, \"srcMac\":\"02:00:00:00:00:01\", "
                          "\"dstMac\":\"02:00:00:00:00:02\", \"vlanTagged\":true, "
                          "\"encapType\":-1, \"vlanId\":5}"));
}

TEST_F(ActionProfile, FaultyMembersAreInvalid) {
  EXPECT_EQ(memberWith([](auto& it) { it.set_action_profile_id(0); }), 3);
  EXPECT_EQ(memberWith([](auto& it) { it.set_action_profile_id(0x11000002); }), 3);
  EXPECT_EQ(memberWith([](auto& it) { it.set_member_id(0); }), 3);
  EXPECT_EQ(memberWith([](auto& it) { it.set_member_id(0x80000000); }), 3);
  EXPECT_EQ(memberWith([](auto& it) { it.clear_action(); }), 3);
  EXPECT_EQ(memberWith([](auto& it) { it.mutable_action()->set_action_id(setEncap4); }), 3);
  EXPECT_THAT(memberWith([](auto& it) { it.mutable_action()->set_action_id(noAction); }),
              AnyOf(3, 7));
  EXPECT_EQ(memberWith([](auto& it) { it.mutable_action()->mutable_params()->RemoveLast(); }), 3);
  EXPECT_THAT(
      memberWith([](auto& it) { it.mutable_action()->mutable_params(3)->set_value(bytes({2})); }),
      AnyOf(3, 11))
      << "one bit";
  EXPECT_THAT(memberWith([](auto& it) {
                it.mutable_action()->mutable_params(1)->set_value(bytes({1, 2, 3, 4, 5, 6, 7}));
              }),
              AnyOf(3, 11))
      << "48 bits";
  EXPECT_THAT(at.read(allMembers()), IsEmpty());
  programMembers(1);
  Entity bare = member(1);
  bare.mutable_action_profile_member()->clear_action();
  EXPECT_EQ(at.code(modify(bare)), 3);
}

TEST_F(ActionProfile, ExistenceDecidesForMembersAndGroups) {
  programMembers(1);
  EXPECT_EQ(at.code(insert(member(1, 9))), StatusCode::ALREADY_EXISTS);
  EXPECT_THAT(at.read(allMembers()), ElementsAre(IsEntity(member(1))));
  EXPECT_EQ(at.code(modify(member(2))), StatusCode::NOT_FOUND);
  EXPECT_EQ(at.code(del(member(2))), StatusCode::NOT_FOUND);
  ASSERT_EQ(at.code(insert(group(7, {{1}}))), 0);
  EXPECT_EQ(at.code(insert(group(7, {}))), StatusCode::ALREADY_EXISTS);
  EXPECT_EQ(at.code(modify(group(8, {}))), StatusCode::NOT_FOUND);
  EXPECT_EQ(at.code(del(group(8, {}))), StatusCode::NOT_FOUND);
  EXPECT_THAT(at.read(allGroups()), ElementsAre(IsEntity(group(7, {{1}}))));
}

TEST_F(ActionProfile, GroupsKeepMembersWeightsAndWatchPorts) {
  programMembers(4);
  const Entity made =
      group(7, {{2, 3, bytes({0xff, 0xff, 0xfe, 0xff})}, {1, 1, {}}, {4, 1, bytes({9})}}, 16);
  EXPECT_EQ(at.code(insert(made)), 0);
  EXPECT_THAT(at.read(allGroups()), ElementsAre(IsEntity(made)));
  // A member of weight w stands w times in the lists that the hardware hashes over.
  EXPECT_THAT(at.rows("VaneEcmpGroup"),
              ElementsAre(HasSubstr("\"members\":[2, 2, 2, 1, 4], "
                                    "\"watchPorts\":[4294967039, 4294967039, 4294967039, 0, 9]")));
  EXPECT_EQ(at.code(modify(group(7, {{3}}, 16))), 0);
  EXPECT_THAT(at.read(group(7, {})), ElementsAre(IsEntity(group(7, {{3}}, 16))));
  EXPECT_EQ(at.code(del(group(7, {}))), 0);
  EXPECT_THAT(at.read(allGroups()), IsEmpty());
}

TEST_F(ActionProfile, EmptyGroupsAndMembersInManyGroupsAreAllowed) {
  programMembers(1);
  EXPECT_THAT(at.codes({insert(group(1, {})), insert(group(2, {{1}})), insert(group(3, {{1}}))}),
              ElementsAre(0, 0, 0));
  EXPECT_EQ(at.read(allGroups()).size(), 3u);
}

TEST_F(ActionProfile, TheDeprecatedWatchIsTakenAsAPortAndGivenBack) {
  programMembers(2);
  const Entity made = entity(
      "action_profile_group { action_profile_id: 0x11000001 group_id: 7"
      " members { member_id: 1 weight: 1 watch: 12 }"
      " members { member_id: 2 weight: 2 watch_port: \"\\x0d\" } }");
  EXPECT_EQ(at.code(insert(made)), 0);
  EXPECT_THAT(at.read(allGroups()), ElementsAre(IsEntity(made)));
  EXPECT_THAT(at.rows("VaneEcmpGroup"), ElementsAre(HasSubstr("\"watchPorts\":[12, 13, 13]")));
}

TEST_F(ActionProfile, FaultyGroupsAreRefused) {
  programMembers(2);
  EXPECT_EQ(groupWith([](auto& it) { it.set_action_profile_id(0); }), 3);
  EXPECT_EQ(groupWith([](auto& it) { it.set_action_profile_id(5); }), 3);
  EXPECT_EQ(groupWith([](auto& it) { it.set_group_id(0); }), 3);
  EXPECT_EQ(groupWith([](auto& it) { it.set_group_id(0xffffffff); }), 3);
  EXPECT_EQ(groupWith([](auto& it) { it.mutable_members(0)->set_member_id(3); }),
            StatusCode::NOT_FOUND);
  EXPECT_EQ(groupWith([](auto& it) { it.mutable_members(0)->set_member_id(2); }), 3)
      << "the same member twice";
  EXPECT_EQ(groupWith([](auto& it) { it.mutable_members(0)->set_weight(0); }), 3);
  EXPECT_EQ(groupWith([](auto& it) { it.mutable_members(0)->set_weight(-1); }), 3);
  EXPECT_EQ(groupWith([](auto& it) { it.set_max_size(-1); }), 3);
  EXPECT_EQ(groupWith([](auto& it) { it.set_max_size(1025); }), 3);
  for (const auto& port : {bytes({0}), bytes({0xff, 0xff, 0xff, 0}), bytes({1, 0, 0, 0, 0})}) {
    EXPECT_EQ(groupWith([&](auto& it) { it.mutable_members(0)->set_watch_port(port); }), 3);
  }
  EXPECT_EQ(groupWith([](auto& it) { it.mutable_members(0)->set_watch(-3); }), 3);
}

TEST_F(ActionProfile, GroupsHoldWeightsUpTo1024AndUpToTheirMaxSize) {
  programMembers(3);
  EXPECT_EQ(groupWith([](auto& it) { it.mutable_members(0)->set_weight(1024); }),
            StatusCode::RESOURCE_EXHAUSTED);
  EXPECT_EQ(groupWith([](auto& it) { it.mutable_members(0)->set_weight(0x7fffffff); }),
            StatusCode::RESOURCE_EXHAUSTED);
  EXPECT_EQ(groupWith([](auto& it) { it.set_max_size(1); }), StatusCode::RESOURCE_EXHAUSTED);
  const Entity full = group(7, {{1, 1000}, {2, 20}, {3, 4}}, 1024);
  EXPECT_EQ(at.code(insert(full)), 0);
  EXPECT_THAT(at.read(allGroups()), ElementsAre(IsEntity(full)));
}

TEST_F(ActionProfile, AGroupsMaxSizeCannotBeChanged) {
  programMembers(3);
  ASSERT_EQ(at.code(insert(group(7, {{1}}, 4))), 0);
  EXPECT_EQ(at.code(modify(group(7, {{1}}, 5))), 3);
  EXPECT_EQ(at.code(modify(group(7, {{1}}))), 3);
  EXPECT_EQ(at.code(modify(group(7, {{1, 5}}, 4))), StatusCode::RESOURCE_EXHAUSTED);
  EXPECT_THAT(at.read(allGroups()), ElementsAre(IsEntity(group(7, {{1}}, 4))));
  EXPECT_EQ(at.code(modify(group(7, {{1}, {2}}, 4))), 0);
}

TEST_F(ActionProfile, WhatIsInUseIsNotDeleted) {
  programMembers(3);
  ASSERT_EQ(at.code(insert(group(7, {{1}, {2}}))), 0);
  ASSERT_EQ(at.code(insert(toGroup(prefix(1), 7))), 0);
  ASSERT_EQ(at.code(insert(toMember(vrfPrefix(1, 1), 3))), 0);
  for (const uint32_t id : {1u, 2u, 3u}) {
    EXPECT_EQ(at.code(del(member(id))), StatusCode::FAILED_PRECONDITION) << id;
  }
  EXPECT_EQ(at.code(del(group(7, {}))), StatusCode::FAILED_PRECONDITION);
  EXPECT_EQ(at.code(modify(group(7, {{2}}))), 0);
  EXPECT_EQ(at.code(del(member(1))), 0);
  EXPECT_EQ(at.code(modify(toMember(prefix(1), 3))), 0);
  EXPECT_EQ(at.code(del(group(7, {}))), 0);
  EXPECT_EQ(at.code(del(member(2))), 0);
  EXPECT_THAT(at.codes({del(prefix(1)), del(vrfPrefix(1, 1)), del(member(3))}),
              ElementsAre(0, 0, 0));
}

TEST_F(ActionProfile, MembersAndGroupsAreDeletedByTheirIdsWhateverElseIsSaid) {
  programMembers(1);
  ASSERT_EQ(at.code(insert(group(7, {}))), 0);
  Entity oddMember = member(1);
  oddMember.mutable_action_profile_member()->mutable_action()->set_action_id(99);
  Entity oddGroup = group(7, {{99, -3}, {99, 0}}, -1);
  EXPECT_THAT(at.codes({del(oddMember), del(oddGroup)}), ElementsAre(0, 0));
  EXPECT_EQ(at.size("VaneEcmpMember") + at.size("VaneEcmpGroup"), 0u);
}

TEST_F(ActionProfile, AGroupIsCheckedWhenItIsModifiedAsWhenItIsInserted) {
  programMembers(2);
  ASSERT_EQ(at.code(insert(group(7, {{1}}))), 0);
  EXPECT_THAT(at.codes({modify(group(7, {{3}})), modify(group(7, {{2}, {2}})),
                        modify(group(7, {{2, 0}})), modify(group(7, {{2, -1}})),
                        modify(group(7, {{2, 1025}})), modify(group(7, {{0}}))}),
              ElementsAre(5, 3, 3, 3, 8, 3));
  EXPECT_THAT(at.read(allGroups()), ElementsAre(IsEntity(group(7, {{1}}))));
}

TEST_F(ActionProfile, FullTablesOfMembersAndGroupsSaySo) {
  programMembers(64);
  EXPECT_EQ(at.code(insert(member(65))), StatusCode::RESOURCE_EXHAUSTED);
  for (uint32_t id = 1; id <= 64; ++id) ASSERT_EQ(at.code(insert(group(id, {{1}}))), 0);
  EXPECT_EQ(at.code(insert(group(65, {}))), StatusCode::RESOURCE_EXHAUSTED);
  EXPECT_EQ(at.size("VaneEcmpMember"), 64u);
  EXPECT_EQ(at.size("VaneEcmpGroup"), 64u);
}

TEST_F(ActionProfile, OneShotSetsComeBackAsTheyWereWritten) {
  Entity made = toSet(prefix(1), {{5, 2, bytes({3})}, {5, 2, bytes({3})}, {6, 1, {}}});
  auto& set = *made.mutable_table_entry()->mutable_action()->mutable_action_profile_action_set();
  set.set_action_selection_mode(p4::v1::ActionProfileActionSet::HASH);
  set.set_size_semantics(p4::v1::ActionProfileActionSet::SUM_OF_WEIGHTS);
  set.mutable_action_profile_actions(2)->set_watch(4);
  made.mutable_table_entry()->set_metadata("m");
  EXPECT_EQ(at.code(insert(made)), 0);
  const auto found = at.read(allEntries());
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0].DebugString(), made.DebugString()) << "in order, equal actions not merged";
  EXPECT_THAT(at.read(allMembers()), IsEmpty()) << "the members behind it are not shown";
  EXPECT_THAT(at.read(allGroups()), IsEmpty());
}

TEST_F(ActionProfile, OneShotSetsReachSharedMemoryAsAGroupAndMembersOfTheAgents) {
  ASSERT_EQ(at.code(insert(toSet(prefix(1), {{5, 2, bytes({3})}, {6, 1, {}}}))), 0);
  EXPECT_THAT(at.rows("VaneIpv4Override"),
              ElementsAre(HasSubstr("\"destinationType\":2, \"destinationId\":2147483651}")));
  EXPECT_THAT(at.rows("VaneEcmpGroup"),
              ElementsAre(HasSubstr("\"id\":2147483651, \"members\":[2147483649, 2147483649, "
                                    "2147483650], \"watchPorts\":[3, 3, 0]")));
  EXPECT_THAT(at.rows("VaneEcmpMember"),
              UnorderedElementsAre(HasSubstr("\"id\":2147483649, \"egressPort\":5"),
                                   HasSubstr("\"id\":2147483650, \"egressPort\":6")));
}

TEST_F(ActionProfile, OneShotSetsGoWithTheirEntryAndWhenItIsModified) {
  ASSERT_EQ(at.code(insert(toSet(prefix(1), {{1}, {2}, {3}}))), 0);
  const Entity other = toSet(prefix(1), {{4, 7, {}}});
  ASSERT_EQ(at.code(modify(other)), 0);
  EXPECT_EQ(at.size("VaneEcmpMember"), 1u);
  EXPECT_EQ(at.size("VaneEcmpGroup"), 1u);
  EXPECT_THAT(at.read(allEntries()), ElementsAre(IsEntity(other)));
  Entity bare = prefix(1);
  bare.mutable_table_entry()->set_metadata("kept");
  ASSERT_EQ(at.code(modify(bare)), 0) << "without action";
  EXPECT_EQ(at.size("VaneEcmpGroup"), 1u);
  ASSERT_EQ(at.code(del(prefix(1))), 0);
  EXPECT_EQ(at.size("VaneEcmpMember"), 0u);
  EXPECT_EQ(at.size("VaneEcmpGroup"), 0u);
}

TEST_F(ActionProfile, FaultyOneShotSetsAreRefusedWhole) {
  using Set = p4::v1::ActionProfileActionSet;
  EXPECT_EQ(setWith([](Set& it) { it.mutable_action_profile_actions(1)->set_weight(0); }), 3);
  EXPECT_EQ(setWith([](Set& it) { it.mutable_action_profile_actions(1)->set_weight(-4); }), 3);
  EXPECT_EQ(setWith([](Set& it) { it.mutable_action_profile_actions(1)->set_weight(1024); }), 3)
      << "too much weight";
  EXPECT_EQ(setWith([](Set& it) { it.mutable_action_profile_actions(1)->clear_action(); }), 3);
  EXPECT_EQ(setWith([](Set& it) {
              it.mutable_action_profile_actions(1)->mutable_action()->set_action_id(setEncap4);
            }),
            3);
  EXPECT_EQ(
      setWith([](Set& it) { it.mutable_action_profile_actions(1)->set_watch_port(bytes({0})); }),
      3);
  EXPECT_EQ(setWith([](Set& it) { it.set_action_selection_mode(Set::RANDOM); }),
            StatusCode::UNIMPLEMENTED);
  EXPECT_EQ(setWith([](Set& it) {
              it.set_action_selection_mode(static_cast<Set::ActionSelectionMode>(9));
            }),
            3);
  EXPECT_EQ(setWith([](Set& it) { it.set_size_semantics(Set::SUM_OF_MEMBERS); }),
            StatusCode::UNIMPLEMENTED);
  EXPECT_EQ(setWith([](Set& it) { it.mutable_group_action(); }), StatusCode::UNIMPLEMENTED);
}

TEST_F(ActionProfile, AOneShotSetThatDoesNotFitLeavesNothingBehind) {
  std::vector<SetAction> actions;
  for (uint8_t i = 0; i < 40; ++i) actions.push_back({i});
  EXPECT_EQ(at.code(insert(toSet(prefix(1), actions))), 0);
  EXPECT_EQ(at.code(insert(toSet(prefix(2), actions))), StatusCode::RESOURCE_EXHAUSTED);
  EXPECT_EQ(at.size("VaneEcmpMember"), 40u);
  EXPECT_EQ(at.size("VaneEcmpGroup"), 1u);
  EXPECT_EQ(at.size("VaneIpv4Override"), 1u);
  EXPECT_THAT(at.read(allEntries()), ElementsAre(IsEntity(toSet(prefix(1), actions))));
}

// Was RESOURCE_EXHAUSTED: the new set was written before the old one went.
TEST_F(ActionProfile, AOneShotSetIsExchangedForAnotherThoughBothTogetherDoNotFit) {
  const auto set = [](uint8_t from, uint8_t count) {
    std::vector<SetAction> actions;
    for (uint8_t i = 0; i < count; ++i) actions.push_back({static_cast<uint8_t>(from + i)});
    return toSet(prefix(1), actions);
  };
  ASSERT_EQ(at.code(insert(set(0, 40))), 0);
  for (const Entity& next : {set(100, 64), set(50, 40), set(7, 1), set(9, 64)}) {
    ASSERT_EQ(at.code(modify(next)), 0);
    const auto found = at.read(allEntries());
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].DebugString(), next.DebugString()) << "in order";
    const auto& actions = next.table_entry().action().action_profile_action_set();
    EXPECT_EQ(at.size("VaneEcmpMember"),
              static_cast<uint64_t>(actions.action_profile_actions_size()));
    EXPECT_EQ(at.size("VaneEcmpGroup"), 1u);
  }
  EXPECT_EQ(at.code(modify(set(0, 65))), StatusCode::RESOURCE_EXHAUSTED);
  EXPECT_EQ(at.read(allEntries()).at(0).DebugString(), set(9, 64).DebugString()) << "as it was";
  EXPECT_EQ(at.size("VaneEcmpMember"), 64u);
  ASSERT_EQ(at.code(del(prefix(1))), 0);
  EXPECT_EQ(at.size("VaneEcmpMember") + at.size("VaneEcmpGroup"), 0u);
}

TEST_F(ActionProfile, AOneShotSetIsExchangedThoughTheTableOfGroupsIsFull) {
  std::vector<Update> updates{insert(toSet(prefix(1), {{1, 3}}))};
  for (uint32_t id = 1; id < 64; ++id) updates.push_back(insert(group(id, {})));
  ASSERT_THAT(at.codes(updates), testing::Each(0));
  EXPECT_EQ(at.code(insert(group(64, {}))), StatusCode::RESOURCE_EXHAUSTED);
  EXPECT_EQ(at.code(modify(toSet(prefix(1), {{2, 3}, {3}}))), 0);
  EXPECT_THAT(at.read(allEntries()), ElementsAre(IsEntity(toSet(prefix(1), {{2, 3}, {3}}))));
}

TEST_F(ActionProfile, AnExchangedSetOfRowsThatOthersUseLeavesThese) {
  ASSERT_EQ(at.code(insert(toSet(prefix(1), {{1}}))), 0);
  at.writeRow("VaneIpv4Override",
              {uint64_t{0}, uint64_t{0}, false, uint32_t{0},
               *Wire::IpGenPrefix::parse("10.2.0.0/16"), int32_t{2}, 0x80000002u});
  ASSERT_EQ(at.code(modify(toSet(prefix(1), {{9}}))), 0);
  EXPECT_THAT(at.read(allEntries()), UnorderedElementsAre(IsEntity(toSet(prefix(1), {{9}})),
                                                          IsEntity(toSet(prefix(2), {{1}}))));
  EXPECT_THAT(at.codes({del(prefix(1)), del(prefix(2))}), ElementsAre(0, 0));
  EXPECT_EQ(at.size("VaneEcmpMember") + at.size("VaneEcmpGroup"), 0u);
}

TEST_F(ActionProfile, OneShotSetsAndMembersAreNotMixedInItsTables) {
  programMembers(1);
  ASSERT_EQ(at.code(insert(toMember(prefix(1), 1))), 0);
  EXPECT_EQ(at.code(insert(toSet(vrfPrefix(1, 1), {{1}}))), 3);
  EXPECT_EQ(at.code(modify(toSet(prefix(1), {{1}}))), 0) << "it was the only one";
  EXPECT_EQ(at.code(insert(toMember(prefix(2), 1))), 3);
  EXPECT_EQ(at.code(modify(toMember(prefix(1), 1))), 0);
  EXPECT_EQ(at.size("VaneEcmpMember"), 1u);
  EXPECT_EQ(at.size("VaneEcmpGroup"), 0u);
}

TEST_F(ActionProfile, TheAgentsOwnMembersAreNotForClients) {
  ASSERT_EQ(at.code(insert(toSet(prefix(1), {{1}}))), 0);
  EXPECT_EQ(at.code(del(member(0x80000001))), StatusCode::NOT_FOUND);
  EXPECT_EQ(at.code(modify(member(0x80000001))), StatusCode::NOT_FOUND);
  EXPECT_EQ(at.code(insert(member(0x80000001))), 3);
  EXPECT_EQ(at.code(del(group(0x80000002, {}))), StatusCode::NOT_FOUND);
  EXPECT_EQ(at.code(modify(group(0x80000002, {}))), StatusCode::NOT_FOUND);
  EXPECT_EQ(at.code(insert(group(0x80000002, {}))), 3);
  EXPECT_EQ(at.code(insert(group(7, {{0x80000001}}))), StatusCode::NOT_FOUND);
  EXPECT_THAT(at.read(member(0x80000001)), IsEmpty());
  EXPECT_THAT(at.read(allEntries()), ElementsAre(IsEntity(toSet(prefix(1), {{1}}))));
}

}  // namespace
}  // namespace P4Test
