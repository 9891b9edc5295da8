// Reads: wildcards, keys and filters, faulty queries, and what a read sees of writes meanwhile.
#include "tests/agent-p4/Switch.h"

namespace P4Test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class Read : public testing::Test {
 protected:
  Read() {
    EXPECT_THAT(at.codes({insert(member(1)), insert(member(2)), insert(group(7, {{1}})),
                          insert(group(8, {{2}})), insert(toMember(prefix(1), 1)),
                          insert(toMember(prefix(2), 2)), insert(toGroup(prefix(1, fallback4), 7)),
                          insert(toMember(vrfPrefix(1, 1), 1)),
                          insert(toMember(vrfPrefix(2, 1), 1)), insert(encap(1))}),
                testing::Each(0));
  }
  Switch at;
};

TEST_F(Read, OfAllTablesGivesEveryEntryOnce) {
  EXPECT_THAT(
      at.read(allEntries()),
      UnorderedElementsAre(IsEntity(toMember(prefix(1), 1)), IsEntity(toMember(prefix(2), 2)),
                           IsEntity(toGroup(prefix(1, fallback4), 7)),
                           IsEntity(toMember(vrfPrefix(1, 1), 1)),
                           IsEntity(toMember(vrfPrefix(2, 1), 1)), IsEntity(encap(1))));
}

TEST_F(Read, OfOneTableOrOneKeyGivesNoMore) {
  EXPECT_THAT(at.read(entriesOf(vrf4)),
              UnorderedElementsAre(IsEntity(toMember(vrfPrefix(1, 1), 1)),
                                   IsEntity(toMember(vrfPrefix(2, 1), 1))));
  EXPECT_THAT(at.read(prefix(2)), ElementsAre(IsEntity(toMember(prefix(2), 2))));
  EXPECT_THAT(at.read(vrfPrefix(2, 1)), ElementsAre(IsEntity(toMember(vrfPrefix(2, 1), 1))));
  EXPECT_THAT(at.read(prefix(3)), IsEmpty()) << "nothing found is no fault";
  EXPECT_THAT(at.read(encap(2)), IsEmpty());
  EXPECT_THAT(at.read(entriesOf(encap6)), IsEmpty());
}

TEST_F(Read, OfMembersAndGroupsByProfileAndId) {
  EXPECT_EQ(at.read(allMembers()).size(), 2u);
  EXPECT_EQ(at.read(entity("action_profile_member { action_profile_id: 0x11000001 }")).size(), 2u);
  EXPECT_THAT(at.read(member(2)), ElementsAre(IsEntity(member(2))));
  EXPECT_THAT(at.read(member(3)), IsEmpty());
  EXPECT_EQ(at.read(allGroups()).size(), 2u);
  EXPECT_EQ(at.read(entity("action_profile_group { action_profile_id: 0x11000001 }")).size(), 2u);
  EXPECT_THAT(at.read(group(8, {})), ElementsAre(IsEntity(group(8, {{2}}))));
}

TEST_F(Read, IsNarrowedByMetadataAndByTheActionOfADirectTable) {
  Entity route = toMember(prefix(3), 1);
  route.mutable_table_entry()->set_metadata("red");
  route.mutable_table_entry()->set_controller_metadata(5);
  ASSERT_EQ(at.code(insert(route)), 0);
  EXPECT_THAT(at.read(entity("table_entry { table_id: 0x02000001 metadata: \"red\" }")),
              ElementsAre(IsEntity(route)));
  EXPECT_THAT(at.read(entity("table_entry { table_id: 0x02000001 metadata: \"blue\" }")),
              IsEmpty());
  EXPECT_THAT(at.read(entity("table_entry { table_id: 0x02000001 controller_metadata: 5 }")),
              ElementsAre(IsEntity(route)));
  EXPECT_THAT(at.read(entity("table_entry { table_id: 0x02000001 controller_metadata: 6 }")),
              IsEmpty());
  EXPECT_THAT(at.read(entity("table_entry { table_id: 0x02000007"
                             " action { action { action_id: 0x01000002 } } }")),
              ElementsAre(IsEntity(encap(1))));
}

TEST_F(Read, ByAnActionThatTheEntriesOfATableDoNotHaveFindsNothing) {
  for (const char* query : {"table_id: 0x02000007 action { action { action_id: 0x01000003 } }",
                            "table_id: 0x02000007 action { action { action_id: 99 } }",
                            "table_id: 0x02000007 action { action_profile_member_id: 1 }",
                            "table_id: 0x02000001 action { action { action_id: 0x01000001 } }"}) {
    EXPECT_THAT(at.read(entity(std::string("table_entry { ") + query + " }")), IsEmpty()) << query;
  }
}

TEST_F(Read, GivesWhatSeveralQueriesAskForAndEqualQueriesOnce) {
  Entity red = toMember(prefix(3), 1);
  red.mutable_table_entry()->set_metadata("red");
  ASSERT_EQ(at.code(insert(red)), 0);
  const auto byMetadata = [](const std::string& text) {
    return entity("table_entry { table_id: 0x02000001 metadata: \"" + text + "\" }");
  };
  p4::v1::ReadRequest request;
  for (int i = 0; i < 300; ++i) {
    for (const Entity& query : {byMetadata("red"), byMetadata("blue"), allMembers(), encap(1)}) {
      *request.add_entities() = query;
    }
  }
  const auto answer = at.read(request);
  EXPECT_EQ(answer.codes.size(), 1200u);
  EXPECT_THAT(answer.entities, UnorderedElementsAre(IsEntity(red), IsEntity(encap(1)),
                                                    IsEntity(member(1)), IsEntity(member(2))));
}

TEST_F(Read, WithFaultyQueriesAnswersTheGoodOnes) {
  p4::v1::ReadRequest request;
  for (const Entity& query :
       {member(1), Entity(), entriesOf(0x02000099), entity("meter_entry {}"),
        entity("action_profile_member { member_id: 1 }"),
        entity("action_profile_group { action_profile_id: 9 }"),
        entity("table_entry { metadata: \"x\" }"),
        entity("table_entry { is_default_action: true }"), entity("table_entry { priority: 1 }"),
        entity("table_entry { table_id: 0x02000001 is_default_action: true match {} }"),
        entity("table_entry { table_id: 0x02000001 priority: 1 }"),
        entity("table_entry { table_id: 0x02000003 match { field_id: 9 } }"), group(7, {})}) {
    *request.add_entities() = query;
  }
  const auto answer = at.read(request);
  EXPECT_TRUE(answer.refused.ok());
  EXPECT_THAT(answer.codes, ElementsAre(0, 3, 3, 12, 3, 3, 3, 3, 3, 3, 3, 3, 0));
  EXPECT_THAT(answer.entities,
              UnorderedElementsAre(IsEntity(member(1)), IsEntity(group(7, {{1}}))));
}

TEST_F(Read, WithoutQueriesOrWithNothingFoundSendsNoMessage) {
  EXPECT_EQ(at.read(p4::v1::ReadRequest()).messages, 0u);
  p4::v1::ReadRequest request;
  *request.add_entities() = member(99);
  const auto answer = at.read(request);
  EXPECT_TRUE(answer.refused.ok());
  EXPECT_EQ(answer.messages, 0u);
}

TEST_F(Read, OfADefaultEntryGivesItAlone) {
  EXPECT_EQ(at.read(entity("table_entry { table_id: 0x02000002 is_default_action: true }")).size(),
            1u);
}

// One entity to a message, and each message is made of the parts of the one before.
class ReadOneByOne : public testing::Test {
 protected:
  void check(const std::vector<Entity>& entities) {
    std::vector<Update> updates;
    for (const Entity& each : entities) updates.push_back(insert(each));
    ASSERT_THAT(at.codes(updates), testing::Each(0));
    for (const Entity& first : entities) {
      for (const Entity& second : entities) {
        if (&first == &second) continue;
        p4::v1::ReadRequest request;
        *request.add_entities() = first;
        *request.add_entities() = second;
        for (auto& query : *request.mutable_entities()) {
          if (!query.has_table_entry()) continue;
          auto& entry = *query.mutable_table_entry();
          entry.clear_action();
          entry.clear_metadata();
          entry.clear_controller_metadata();
        }
        const auto answer = at.read(request);
        EXPECT_THAT(answer.entities, ElementsAre(IsEntity(first), IsEntity(second)));
        EXPECT_EQ(answer.messages, 2u);
      }
    }
  }
  Entity withMetadata(Entity route) {
    route.mutable_table_entry()->set_metadata("red");
    route.mutable_table_entry()->set_controller_metadata(5);
    return route;
  }
  // The only one of a table without other keys: a query without a match is for all of a table.
  static Entity matchingAll(Entity route) {
    auto& match = *route.mutable_table_entry()->mutable_match();
    match.DeleteSubrange(0, 1);
    return route;
  }

  Switch at{{.reads = {.visits = 1}}};
};

TEST_F(ReadOneByOne, NothingOfOneEntityIsInTheNext) {
  check({member(1), member(2, 9), group(7, {{1}, {2, 3, bytes({4})}}, 9), group(8, {{2}}),
         toMember(prefix(1), 1), withMetadata(toGroup(prefix(2), 7)),
         toGroup(matchingAll(prefix(3, fallback4)), 8), toMember(vrfPrefix(1, 1), 1),
         toMember(matchingAll(vrfPrefix(2, 1)), 2), toMember(prefix6(1), 2),
         withMetadata(toMember(vrfPrefix6(1, 1), 2)), encap(1), withMetadata(encapIn6(2))});
}

TEST_F(ReadOneByOne, NothingOfAOneShotSetIsInTheNext) {
  Entity sized = toSet(prefix(3), {{1}});
  sized.mutable_table_entry()
      ->mutable_action()
      ->mutable_action_profile_action_set()
      ->set_size_semantics(p4::v1::ActionProfileActionSet::SUM_OF_WEIGHTS);
  check({toSet(prefix(1), {{1}, {2, 3, bytes({4})}}), toSet(prefix(2), {{3}}), withMetadata(sized),
         toSet(vrfPrefix(1, 1), {{1}, {4}}), member(1), encap(1)});
}

TEST_F(ReadOneByOne, NothingOfADefaultEntryIsInTheNext) {
  ASSERT_THAT(at.codes({insert(member(1)), insert(toMember(prefix(1), 1))}), testing::Each(0));
  p4::v1::ReadRequest request;
  *request.add_entities() = entity("table_entry { table_id: 0x02000001 is_default_action: true }");
  *request.add_entities() = prefix(1);
  *request.add_entities() = member(1);
  EXPECT_THAT(at.read(request).entities,
              ElementsAre(testing::_, IsEntity(toMember(prefix(1), 1)), IsEntity(member(1))));
}

// Two rows to a piece: writes come between the messages.
class SlowRead : public testing::Test {
 protected:
  SlowRead() {
    std::vector<Update> updates{insert(member(1)), insert(member(2))};
    for (uint8_t i = 0; i < 20; ++i) updates.push_back(insert(toMember(prefix(i), 1)));
    EXPECT_THAT(at.codes(updates), testing::Each(0));
  }
  // What a read of everything gives when `write` runs after its first message.
  Switch::Answer readWith(const std::function<void()>& write) {
    p4::v1::ReadRequest request;
    *request.add_entities() = allEntries();
    *request.add_entities() = allMembers();
    bool done = false;
    return at.readSlowly(request, [&] {
      if (!std::exchange(done, true)) write();
    });
  }
  static std::set<std::string> texts(const std::vector<Entity>& entities) {
    std::set<std::string> made;
    for (const Entity& each : entities) made.insert(each.ShortDebugString());
    return made;
  }

  Switch at{{.capacity = 64, .reads = {.visits = 2}}};
};

TEST_F(SlowRead, SeesNothingOfAWriteBetweenItsPieces) {
  const auto before = texts(readWith([] {}).entities);
  ASSERT_EQ(before.size(), 22u);
  const auto answer = readWith([&] {
    std::vector<Update> updates;
    for (uint8_t i = 0; i < 10; ++i) updates.push_back(modify(toMember(prefix(i), 2)));
    for (uint8_t i = 10; i < 20; ++i) updates.push_back(del(prefix(i)));
    for (uint8_t i = 20; i < 40; ++i) updates.push_back(insert(toMember(prefix(i), 2)));
    updates.push_back(modify(member(1, 99)));
    updates.push_back(insert(member(3)));
    EXPECT_THAT(at.codes(updates), testing::Each(0));
  });
  EXPECT_TRUE(answer.refused.ok());
  EXPECT_GT(answer.messages, 10u);
  EXPECT_EQ(texts(answer.entities), before);
  EXPECT_EQ(texts(readWith([] {}).entities).size(), 30u + 3u);
}

TEST_F(SlowRead, SeesEntriesThatComeAndGoMeanwhileAsTheyWere) {
  const auto before = texts(readWith([] {}).entities);
  const auto answer = readWith([&] {
    for (uint8_t i = 0; i < 20; ++i) {
      ASSERT_EQ(at.code(del(prefix(i))), 0);
      ASSERT_EQ(at.code(insert(toMember(prefix(i), 2))), 0);
      ASSERT_EQ(at.code(del(prefix(i))), 0);
    }
  });
  EXPECT_EQ(texts(answer.entities), before);
}

TEST_F(SlowRead, SeesOneShotSetsWholeThoughTheirMembersAreGone) {
  std::vector<Update> updates;
  for (uint8_t i = 0; i < 20; ++i) updates.push_back(del(prefix(i)));
  for (uint8_t i = 0; i < 8; ++i) updates.push_back(insert(toSet(prefix(i), {{i}, {5, 2, {}}})));
  ASSERT_THAT(at.codes(updates), testing::Each(0));
  const auto before = texts(readWith([] {}).entities);
  ASSERT_EQ(before.size(), 10u);
  const auto answer = readWith([&] {
    for (uint8_t i = 0; i < 4; ++i) ASSERT_EQ(at.code(del(prefix(i))), 0);
    for (uint8_t i = 4; i < 8; ++i) ASSERT_EQ(at.code(modify(toSet(prefix(i), {{77}}))), 0);
  });
  EXPECT_EQ(texts(answer.entities), before);
}

TEST_F(SlowRead, SeesKeysAsTheyWereToo) {
  p4::v1::ReadRequest request;
  for (uint8_t i = 0; i < 30; ++i) *request.add_entities() = prefix(i);
  *request.add_entities() = entriesOf(override4);
  bool done = false;
  const auto answer = at.readSlowly(request, [&] {
    if (std::exchange(done, true)) return;
    for (uint8_t i = 0; i < 20; ++i) ASSERT_EQ(at.code(modify(toMember(prefix(i), 2))), 0);
    for (uint8_t i = 20; i < 30; ++i) ASSERT_EQ(at.code(insert(toMember(prefix(i), 2))), 0);
  });
  EXPECT_TRUE(answer.refused.ok());
  std::set<std::string> expected;
  for (uint8_t i = 0; i < 20; ++i) expected.insert(toMember(prefix(i), 1).ShortDebugString());
  EXPECT_EQ(texts(answer.entities), expected);
}

// Was answered with what could be read, as if there were no more.
TEST_F(SlowRead, OfATableThatCannotBeReadOnIsADataLoss) {
  p4::v1::ReadRequest request;
  *request.add_entities() = allEntries();
  const uint32_t whole = at.slotsAre("VaneIpv4Override", 7);
  const auto answer = at.read(request);
  EXPECT_EQ(answer.refused.error_code(), StatusCode::DATA_LOSS);
  EXPECT_EQ(answer.refused.error_message(), "table VaneIpv4Override: 7 of 20 rows could be read");
  EXPECT_LE(answer.entities.size(), 7u);
  EXPECT_EQ(at.read(allMembers()).size(), 2u) << "other tables are none the worse";
  at.slotsAre("VaneIpv4Override", whole);
  EXPECT_EQ(at.read(request).entities.size(), 20u);
}

TEST_F(SlowRead, SeesNothingOfABatchThatIsRolledBack) {
  const auto before = texts(readWith([] {}).entities);
  const auto answer = readWith([&] {
    at.codes({del(prefix(1)), modify(toMember(prefix(2), 2)), insert(toMember(prefix(50), 1)),
              del(prefix(60))},
             WriteRequest::ROLLBACK_ON_ERROR);
  });
  EXPECT_EQ(texts(answer.entities), before);
}

TEST_F(SlowRead, EndsWhenNobodyListensAnyMore) {
  p4::v1::ReadRequest request;
  *request.add_entities() = allEntries();
  int messages = 0;
  const auto result = at.target().read(request, Agent::LoopGate::never,
                                       [&](const auto&) { return ++messages < 2; });
  EXPECT_EQ(messages, 2);
  EXPECT_TRUE(result.refused.ok());
  EXPECT_EQ(at.code(del(prefix(1))), 0);
}

TEST_F(SlowRead, EndsWhenACommitRemovesTheEntries) {
  p4::v1::SetForwardingPipelineConfigRequest request;
  request.set_action(p4::v1::SetForwardingPipelineConfigRequest::VERIFY_AND_COMMIT);
  *request.mutable_config()->mutable_p4info() = makeP4Info(at.target().roles());
  const auto answer = readWith([&] { EXPECT_TRUE(at.pipelineIs(request).ok()); });
  EXPECT_EQ(answer.refused.error_code(), StatusCode::ABORTED);
}

// A turn of the loop must not be as long as a client likes.
TEST(BoundedRead, ComesBackAfterSoManyKeysThoughNoneIsThere) {
  using Agent::P4::ActiveReads;
  Switch at;
  at.onLoop([&] {
    const Agent::P4::Roles roles({}, at.database().get());
    Agent::P4::Tally tally(roles);
    Agent::P4::RowStore store(roles, *at.database(), tally);
    ActiveReads reads(store, {.visits = 10});
    const auto& role = roles.member();
    const auto keyRow = [&](uint32_t id) {
      Vane::BaseRow row(role.layout.fixedLength());
      row.rowTypeIs(role.rowTypeId);
      role.layout.set(row, role.layout.columns()[role.keys.front().index], Vane::ColumnValue(id));
      return row;
    };
    ActiveReads::Plan plan;
    for (uint32_t id = 1; id <= 1000; ++id) plan.step(role, keyRow(id));
    EXPECT_EQ(plan.step(role, keyRow(3)), 2u) << "asked for once";
    EXPECT_EQ(plan.steps().size(), 1000u);
    const auto id = reads.begin(std::move(plan));
    ActiveReads::Piece piece;
    int pieces = 0;
    do {
      reads.next(id, piece);
      ++pieces;
    } while (!piece.isLast);
    EXPECT_EQ(pieces, 100);
  });
}

TEST(BoundedRead, FailsWhenItHasToKeepTooMuch) {
  Switch at{{.capacity = 64, .reads = {.visits = 2, .keptBytes = 2000}}};
  std::vector<Update> updates{insert(member(1)), insert(member(2))};
  for (uint8_t i = 0; i < 40; ++i) updates.push_back(insert(toMember(prefix(i), 1)));
  ASSERT_THAT(at.codes(updates), testing::Each(0));
  p4::v1::ReadRequest request;
  *request.add_entities() = allEntries();
  const auto answer = at.readSlowly(request, [&] {
    for (uint8_t i = 0; i < 40; ++i) at.code(modify(toMember(prefix(i), 2)));
  });
  EXPECT_EQ(answer.refused.error_code(), StatusCode::RESOURCE_EXHAUSTED);
  EXPECT_EQ(at.read(allEntries()).size(), 40u) << "the next one is none the worse";
}

TEST(LongRead, ComesInMessagesOfAboutAMegabyte) {
  Switch at{{.capacity = 40000}};
  std::vector<Update> updates{insert(member(1))};
  for (int i = 0; i < 30000; ++i) {
    Entity route = toMember(prefix(0), 1);
    auto& lpm = *route.mutable_table_entry()->mutable_match(0)->mutable_lpm();
    lpm.set_value(bytes({10, i >> 8 & 0xff, i & 0xff, 0}));
    lpm.set_prefix_len(24);
    route.mutable_table_entry()->set_metadata(std::string(200, 'x'));
    updates.push_back(insert(route));
  }
  ASSERT_THAT(at.codes(updates), testing::Each(0));
  p4::v1::ReadRequest request;
  *request.add_entities() = allEntries();
  const auto answer = at.read(request);
  EXPECT_EQ(answer.entities.size(), 30000u);
  EXPECT_GT(answer.messages, 5u);
}

}  // namespace
}  // namespace P4Test
