// What was there before the agent, and what others write meanwhile through the row database.
#include "tests/agent-p4/Switch.h"

namespace P4Test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using Ids = std::vector<uint32_t>;

class Adoption : public testing::Test {
 protected:
  // Rows in column order.
  void writeRoute(const std::string& prefix, int32_t type, uint32_t id, uint64_t handle = 0,
                  const std::string& table = "VaneIpv4Override") {
    at.writeRow(table, {uint64_t{0}, handle, false, uint32_t{0}, prefixOf(prefix), type, id});
  }
  void deleteRoute(const std::string& prefix) {
    at.deleteRow("VaneIpv4Override", {uint64_t{0}, uint64_t{0}, false, uint32_t{0},
                                      prefixOf(prefix), int32_t{0}, uint32_t{0}});
  }
  void writeGroup(uint32_t id, const Ids& members, const Ids& ports) {
    at.writeRow("VaneEcmpGroup",
                {uint64_t{0}, uint64_t{0}, false, uint32_t{0}, id, members, ports});
  }
  static Wire::IpGenPrefix prefixOf(const std::string& text) {
    return text.empty() ? Wire::IpGenPrefix{} : *Wire::IpGenPrefix::parse(text);
  }

  Switch at;
};

TEST_F(Adoption, AfterARestartReadsShowWhatIsThere) {
  const std::vector<Entity> entries{toGroup(prefix(1), 7), toMember(vrfPrefix(4, 1), 1), encap(3)};
  ASSERT_THAT(
      at.codes({insert(member(1)), insert(member(2)), insert(group(7, {{1, 3, bytes({9})}, {2}})),
                insert(entries[0]), insert(entries[1]), insert(entries[2])}),
      testing::Each(0));
  at.restart();
  EXPECT_THAT(
      at.read(allEntries()),
      UnorderedElementsAre(IsEntity(entries[0]), IsEntity(entries[1]), IsEntity(entries[2])));
  EXPECT_THAT(at.read(allMembers()),
              UnorderedElementsAre(IsEntity(member(1)), IsEntity(member(2))));
  EXPECT_THAT(at.read(allGroups()), ElementsAre(IsEntity(group(7, {{1, 3, bytes({9})}, {2}}))));
}

TEST_F(Adoption, AfterARestartReferencesHoldAndHandlesAndPipelineNumbersGoOn) {
  ASSERT_THAT(at.codes({insert(member(1)), insert(member(2)), insert(group(7, {{1}})),
                        insert(toGroup(prefix(1), 7))}),
              testing::Each(0));
  at.restart();
  EXPECT_EQ(at.code(insert(toMember(prefix(1), 2))), StatusCode::ALREADY_EXISTS);
  EXPECT_EQ(at.code(del(member(1))), StatusCode::FAILED_PRECONDITION);
  EXPECT_EQ(at.code(del(group(7, {}))), StatusCode::FAILED_PRECONDITION);
  ASSERT_EQ(at.code(insert(encap(1))), 0);
  EXPECT_THAT(at.rows("VaneIpv4Encap"), ElementsAre(HasSubstr("\"entryHandle\":5,")));
  ASSERT_EQ(at.code(modify(member(2, 9))), 0);
  EXPECT_THAT(at.rows("VaneEcmpMember"),
              testing::Contains(HasSubstr("\"genId\":2, \"entryHandle\":2,")));
  EXPECT_THAT(at.codes({del(prefix(1)), del(group(7, {})), del(member(1))}), ElementsAre(0, 0, 0));
}

TEST_F(Adoption, AfterARestartOneShotSetsAreStillThatAndGoWithTheirEntry) {
  const Entity made = toSet(prefix(1), {{1, 2, bytes({7})}, {1, 1, {}}});
  ASSERT_EQ(at.code(insert(made)), 0);
  at.restart();
  EXPECT_THAT(at.read(allEntries()), ElementsAre(IsEntity(made)));
  EXPECT_EQ(at.code(insert(toSet(prefix(2), {{3}}))), 0) << "with ids of its own";
  EXPECT_THAT(at.read(allEntries()),
              UnorderedElementsAre(IsEntity(made), IsEntity(toSet(prefix(2), {{3}}))));
  ASSERT_THAT(at.codes({insert(member(1)), insert(toMember(prefix(3), 1))}), ElementsAre(0, 3))
      << "still not mixed";
  EXPECT_THAT(at.codes({del(prefix(1)), del(prefix(2))}), ElementsAre(0, 0));
  EXPECT_EQ(at.size("VaneEcmpMember"), 1u);
  EXPECT_EQ(at.size("VaneEcmpGroup"), 0u);
}

TEST_F(Adoption, AfterARestartWhatRowsHaveNoColumnForIsGone) {
  Entity route = toMember(prefix(1), 1);
  route.mutable_table_entry()->set_metadata("m");
  ASSERT_THAT(at.codes({insert(member(1)), insert(group(7, {{1}}, 8)), insert(route)}),
              testing::Each(0));
  at.restart();
  EXPECT_THAT(at.read(allEntries()), ElementsAre(IsEntity(toMember(prefix(1), 1))));
  EXPECT_THAT(at.read(allGroups()), ElementsAre(IsEntity(group(7, {{1}}))));
  EXPECT_EQ(at.code(modify(group(7, {{1}}, 8))), 0) << "any max_size is taken for an adopted group";
}

TEST_F(Adoption, PartsOfOneShotSetsThatNoEntryUsesAreRemovedAtTheStart) {
  ASSERT_EQ(at.code(insert(toSet(prefix(1), {{1}, {2}}))), 0);
  deleteRoute("10.1.0.0/16");
  EXPECT_EQ(at.size("VaneEcmpMember"), 2u);
  at.restart();
  EXPECT_EQ(at.size("VaneEcmpMember"), 0u);
  EXPECT_EQ(at.size("VaneEcmpGroup"), 0u);
}

TEST_F(Adoption, RowsOfOthersAreReadAsEntries) {
  at.writeRow("VaneEcmpMember",
              {uint64_t{0}, uint64_t{0}, false, uint32_t{0}, uint32_t{1}, uint32_t{1},
               *Wire::EthAddr::parse("02:00:00:00:00:01"),
               *Wire::EthAddr::parse("02:00:00:00:00:02"), true, int32_t{-1}, uint16_t{5}});
  writeGroup(7, {1, 1, 1}, {4, 4});
  writeRoute("10.1.0.0/16", 2, 7);
  writeRoute("0.0.0.0/0", 2, 99);
  EXPECT_THAT(at.read(allMembers()), ElementsAre(IsEntity(member(1))));
  EXPECT_THAT(at.read(allGroups()), ElementsAre(IsEntity(group(7, {{1, 2, bytes({4})}, {1, 1}}))));
  Entity all = toGroup(prefix(1), 99);
  all.mutable_table_entry()->clear_match();
  EXPECT_THAT(at.read(allEntries()),
              UnorderedElementsAre(IsEntity(toGroup(prefix(1), 7)), IsEntity(all)));
}

TEST_F(Adoption, RowsThatP4RuntimeHasNoFormForAreLeftOut) {
  writeRoute("10.1.0.0/16", 0, 7);
  writeRoute("10.2.0.0/16", 3, 7);
  writeRoute("10.3.0.0/16", 1, 0);
  writeRoute("10.4.0.0/16", 2, 0x80000005);
  writeRoute("10.5.0.0/16", 1, 0x80000005);
  writeRoute("2001:db8::/32", 2, 7);
  writeRoute("", 2, 7);
  writeGroup(7, {0}, {});
  writeGroup(8, {0x80000001}, {});
  writeGroup(0, {1}, {});
  at.writeRow("VaneIpv4Encap",
              {uint16_t{4}, uint64_t{0}, int32_t{1}, Wire::IpGenAddr{}, Wire::IpGenAddr{}});
  EXPECT_THAT(at.read(allEntries()), IsEmpty());
  EXPECT_THAT(at.read(allGroups()), IsEmpty());
  EXPECT_THAT(at.read(prefix(1)), IsEmpty());
  // They are there all the same, and can be put right or removed.
  ASSERT_EQ(at.code(insert(member(1))), 0);
  EXPECT_EQ(at.code(insert(toMember(prefix(1), 1))), StatusCode::ALREADY_EXISTS);
  EXPECT_EQ(at.code(modify(toMember(prefix(1), 1))), 3)
      << "10.4.0.0/16 counts as a one-shot action set, though its group is not there";
  EXPECT_THAT(at.codes({del(prefix(4)), del(prefix(2))}), ElementsAre(0, 0));
  EXPECT_EQ(at.code(modify(toMember(prefix(1), 1))), 0);
  EXPECT_EQ(at.code(modify(encap(4))), 0);
  EXPECT_THAT(at.read(allEntries()),
              UnorderedElementsAre(IsEntity(toMember(prefix(1), 1)), IsEntity(encap(4))));
}

TEST_F(Adoption, ReferencesFollowWhatOthersWrite) {
  ASSERT_THAT(at.codes({insert(member(1)), insert(group(7, {{1}})), insert(toGroup(prefix(1), 7))}),
              testing::Each(0));
  writeRoute("10.2.0.0/16", 1, 1);
  deleteRoute("10.1.0.0/16");
  EXPECT_EQ(at.code(del(group(7, {}))), 0);
  EXPECT_EQ(at.code(del(member(1))), StatusCode::FAILED_PRECONDITION);
  at.clearRows("VaneIpv4Override");
  EXPECT_EQ(at.code(del(member(1))), 0);
  EXPECT_EQ(at.code(insert(toMember(prefix(1), 1))), StatusCode::NOT_FOUND);
}

TEST_F(Adoption, AMemberThatOthersRemovedIsNotThere) {
  ASSERT_THAT(at.codes({insert(member(1)), insert(toMember(prefix(1), 1))}), ElementsAre(0, 0));
  at.clearRows("VaneEcmpMember");
  EXPECT_EQ(at.code(insert(toMember(prefix(2), 1))), StatusCode::NOT_FOUND);
  EXPECT_THAT(at.read(allEntries()), ElementsAre(IsEntity(toMember(prefix(1), 1))));
}

TEST_F(Adoption, HandlesGoOnAboveThoseOfOthers) {
  writeRoute("10.9.0.0/16", 2, 7, 1000);
  ASSERT_EQ(at.code(insert(encap(1))), 0);
  EXPECT_THAT(at.rows("VaneIpv4Encap"), ElementsAre(HasSubstr("\"entryHandle\":1001,")));
  writeRoute("10.9.0.0/16", 2, 7, ~uint64_t{0});
  ASSERT_EQ(at.code(insert(encap(2))), 0);
  EXPECT_THAT(at.rows("VaneIpv4Encap"), testing::Contains(HasSubstr("\"entryHandle\":1002,")));
}

TEST_F(Adoption, MetadataIsNotGivenToARowThatSomebodyElsePutInItsPlace) {
  Entity route = toMember(prefix(1), 1);
  route.mutable_table_entry()->set_metadata("m");
  ASSERT_THAT(at.codes({insert(member(1)), insert(route)}), ElementsAre(0, 0));
  writeRoute("10.1.0.0/16", 1, 1);
  EXPECT_THAT(at.read(allEntries()), ElementsAre(IsEntity(toMember(prefix(1), 1))));
}

TEST_F(Adoption, MetadataIsNotGivenToARowThatCopiesAHandle) {
  Entity route = toMember(prefix(1), 1);
  route.mutable_table_entry()->set_metadata("m");
  ASSERT_THAT(at.codes({insert(member(1)), insert(route)}), ElementsAre(0, 0));
  writeRoute("10.2.0.0/16", 1, 1, 2);  // the route's
  EXPECT_THAT(at.read(allEntries()),
              UnorderedElementsAre(IsEntity(route), IsEntity(toMember(prefix(2), 1))));
  ASSERT_EQ(at.code(del(prefix(2))), 0);
  EXPECT_THAT(at.read(allEntries()), ElementsAre(IsEntity(route)));
}

// Was taken for the whole table: what a route that could not be read uses was an orphan.
TEST_F(Adoption, OfATableThatCannotBeReadOnRemovesNothing) {
  std::vector<Update> updates;
  for (uint8_t i = 0; i < 5; ++i) updates.push_back(insert(toSet(prefix(i), {{i}})));
  ASSERT_THAT(at.codes(updates), testing::Each(0));
  const uint32_t whole = at.slotsAre("VaneIpv4Override", 2);
  at.onLoop([&] {
    const Agent::P4::Roles roles({}, at.database().get());
    Agent::P4::Tally tally(roles);
    Agent::P4::RowStore store(roles, *at.database(), tally);
    EXPECT_THROW(store.references(), Guard::CorruptionDetectedException);
  });
  at.slotsAre("VaneIpv4Override", whole);
  EXPECT_EQ(at.size("VaneEcmpGroup"), 5u);
  EXPECT_EQ(at.size("VaneEcmpMember"), 5u);
  EXPECT_EQ(at.read(allEntries()).size(), 5u);
}

TEST_F(Adoption, WhatMayBeInUseIsNotDeletedWhileATableCannotBeReadOn) {
  ASSERT_THAT(at.codes({insert(member(1)), insert(member(2)), insert(toMember(prefix(1), 2)),
                        insert(toMember(prefix(2), 1))}),
              testing::Each(0));
  writeRoute("10.9.0.0/16", 1, 2);
  const uint32_t whole = at.slotsAre("VaneIpv4Override", 1);
  EXPECT_EQ(at.code(del(member(1))), StatusCode::DATA_LOSS);
  at.slotsAre("VaneIpv4Override", whole);
  EXPECT_EQ(at.code(del(member(1))), StatusCode::FAILED_PRECONDITION);
  EXPECT_EQ(at.size("VaneEcmpMember"), 2u);
}

TEST_F(Adoption, OneShotSetsThatOthersWroteKeepPlainRoutesOut) {
  ASSERT_THAT(at.codes({insert(member(1)), insert(toSet(prefix(1), {{1}}))}), ElementsAre(0, 0));
  const uint32_t group = 0x80000002;  // of the set: its one member came before
  deleteRoute("10.1.0.0/16");
  EXPECT_THAT(at.codes({insert(toMember(prefix(2), 1)), del(prefix(2))}), ElementsAre(0, 0));
  writeRoute("10.1.0.0/16", 2, group);
  EXPECT_EQ(at.code(insert(toMember(prefix(2), 1))), 3);
  EXPECT_THAT(at.read(allEntries()), ElementsAre(IsEntity(toSet(prefix(1), {{1}}))));
}

}  // namespace
}  // namespace P4Test
