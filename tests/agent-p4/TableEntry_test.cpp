// Writes of table entries, fault by fault.
#include "tests/agent-p4/Switch.h"

namespace P4Test {
namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class TableEntry : public testing::Test {
 protected:
  TableEntry() {
    EXPECT_THAT(at.codes({insert(member(1)), insert(member(2))}), ElementsAre(0, 0));
    EXPECT_EQ(at.code(insert(group(7, {{1}, {2}}))), 0);
  }
  // What the update of a good route gives when something in it is changed first. Whatever is
  // refused leaves no entry behind.
  int codeWith(const std::function<void(p4::v1::TableEntry&)>& change,
               Entity from = toMember(prefix(1), 1)) {
    change(*from.mutable_table_entry());
    const int code = at.code(insert(from));
    if (code != 0) {
      EXPECT_THAT(at.read(allEntries()), IsEmpty());
    }
    return code;
  }
  static p4::v1::FieldMatch::LPM& lpm(p4::v1::TableEntry& entry) {
    return *entry.mutable_match(0)->mutable_lpm();
  }
  static p4::v1::Action& call(p4::v1::TableEntry& entry) {
    return *entry.mutable_action()->mutable_action();
  }

  Switch at;
};

TEST_F(TableEntry, IsInsertedReadModifiedAndDeleted) {
  const Entity route = toMember(prefix(1), 1);
  EXPECT_EQ(at.code(insert(route)), 0);
  EXPECT_THAT(at.read(allEntries()), ElementsAre(IsEntity(route)));
  const Entity changed = toGroup(prefix(1), 7);
  EXPECT_EQ(at.code(modify(changed)), 0);
  EXPECT_THAT(at.read(allEntries()), ElementsAre(IsEntity(changed)));
  EXPECT_EQ(at.code(del(prefix(1))), 0);
  EXPECT_THAT(at.read(allEntries()), IsEmpty());
}

TEST_F(TableEntry, BecomesARowWithTheAgentsColumnsFilled) {
  ASSERT_EQ(at.code(insert(toGroup(prefix(1), 7))), 0);
  // Handles 1 to 3 are those of two members and a group.
  EXPECT_THAT(at.rows("VaneIpv4Override"),
              ElementsAre("{\"genId\":1, \"entryHandle\":4, \"valid\":true, "
                          "\"entryId\":33554433, \"destinationPrefix\":\"10.1.0.0/16\", "
                          "\"destinationType\":2, \"destinationId\":7}"));
  ASSERT_EQ(at.code(modify(toMember(prefix(1), 2))), 0);
  EXPECT_THAT(at.rows("VaneIpv4Override"),
              ElementsAre("{\"genId\":1, \"entryHandle\":4, \"valid\":true, "
                          "\"entryId\":33554433, \"destinationPrefix\":\"10.1.0.0/16\", "
                          "\"destinationType\":1, \"destinationId\":2}"))
      << "an entry keeps its handle";
  ASSERT_EQ(at.code(del(prefix(1))), 0);
  ASSERT_EQ(at.code(insert(toMember(prefix(1), 2))), 0);
  EXPECT_THAT(at.rows("VaneIpv4Override"), ElementsAre(testing::HasSubstr("\"entryHandle\":5,")))
      << "a handle is not given twice";
}

TEST_F(TableEntry, OfEachTableComesBackAsItWasWritten) {
  std::vector<Entity> written{toMember(prefix(1), 1),
                              toMember(prefix(1, fallback4), 2),
                              toGroup(vrfPrefix(0, 1), 7),
                              toMember(vrfPrefix(3, 1), 1),
                              encap(0),
                              encap(255)};
  for (const Entity& each :
       {toMember(prefix6(1), 2), toGroup(prefix6(1, fallback6), 7), toMember(vrfPrefix6(0, 2), 1),
        toGroup(vrfPrefix6(9, 2), 7), encapIn6(0), encapIn6(200, 9)}) {
    written.push_back(each);
  }
  Entity all = toMember(prefix(1), 2);
  all.mutable_table_entry()->clear_match();
  written.push_back(all);
  for (const Entity& each : written) EXPECT_EQ(at.code(insert(each)), 0) << each.DebugString();
  const auto found = at.read(allEntries());
  EXPECT_EQ(found.size(), written.size());
  for (const Entity& each : written) {
    EXPECT_THAT(found, testing::Contains(IsEntity(each)));
    Entity key = each;
    key.mutable_table_entry()->clear_action();
    EXPECT_THAT(at.read(key), testing::Contains(IsEntity(each)));
  }
  EXPECT_THAT(at.rows("VaneIpv6Encap"), testing::Contains(testing::HasSubstr("2001:db8::1")));
  for (const Entity& each : written) EXPECT_EQ(at.code(del(each)), 0) << each.DebugString();
  EXPECT_THAT(at.read(allEntries()), IsEmpty());
}

TEST_F(TableEntry, IsTheSameWithLeadingZerosInItsKey) {
  Entity padded = toMember(vrfPrefix(3, 1), 1);
  padded.mutable_table_entry()->mutable_match(0)->mutable_lpm()->set_value(
      bytes({0, 0, 10, 1, 0, 0}));
  padded.mutable_table_entry()->mutable_match(1)->mutable_exact()->set_value(
      bytes({0, 0, 0, 0, 0, 0, 3}));
  EXPECT_EQ(at.code(insert(padded)), 0);
  EXPECT_THAT(at.read(allEntries()), ElementsAre(IsEntity(toMember(vrfPrefix(3, 1), 1))));
  EXPECT_EQ(at.code(insert(toMember(vrfPrefix(3, 1), 2))), StatusCode::ALREADY_EXISTS);
}

TEST_F(TableEntry, OfAnUnknownTableIsInvalid) {
  for (const uint32_t table : {0u, 1u, 0x02000009u, 0x01000001u}) {
    EXPECT_EQ(codeWith([&](auto& entry) { entry.set_table_id(table); }), 3) << table;
  }
}

TEST_F(TableEntry, WithAFaultyMatchIsInvalid) {
  EXPECT_EQ(codeWith([](auto& entry) { entry.mutable_match(0)->set_field_id(2); }), 3);
  EXPECT_EQ(codeWith([](auto& entry) { entry.mutable_match(0)->set_field_id(0); }), 3);
  EXPECT_EQ(codeWith([](auto& entry) { entry.mutable_match(0)->clear_lpm(); }), 3);
  EXPECT_EQ(codeWith([](auto& entry) {
              entry.mutable_match(0)->mutable_exact()->set_value(bytes({10, 1, 0, 0}));
            }),
            3);
  EXPECT_EQ(codeWith([](auto& entry) { entry.mutable_match(0)->mutable_ternary(); }), 3);
  EXPECT_EQ(codeWith([](auto& entry) { *entry.add_match() = entry.match(0); }), 3);
  EXPECT_EQ(codeWith([](auto& entry) { entry.mutable_match()->RemoveLast(); },
                     toMember(vrfPrefix(1, 1), 1)),
            3)
      << "the exact field is missing";
}

TEST_F(TableEntry, WithAFaultyPrefixIsInvalid) {
  for (const int length : {-1, 0, 33, 1 << 30}) {
    EXPECT_EQ(codeWith([&](auto& entry) { lpm(entry).set_prefix_len(length); }), 3) << length;
  }
  EXPECT_EQ(codeWith([](auto& entry) { lpm(entry).set_prefix_len(15); }), 3) << "10.1/15";
  EXPECT_THAT(codeWith([](auto& entry) { lpm(entry).set_value(""); }), AnyOf(3, 11));
  EXPECT_THAT(codeWith([](auto& entry) {
                lpm(entry).set_value(bytes({1, 0, 0, 0, 0}));
              }),
              AnyOf(3, 11));
}

TEST_F(TableEntry, WithAPriorityIsInvalid) {
  EXPECT_EQ(codeWith([](auto& entry) { entry.set_priority(1); }), 3);
  EXPECT_EQ(codeWith([](auto& entry) { entry.set_priority(-1); }), 3);
}

TEST_F(TableEntry, WithWhatTheTableDoesNotHaveIsInvalid) {
  EXPECT_EQ(codeWith([](auto& entry) { entry.set_is_const(true); }), 3);
  EXPECT_EQ(codeWith([](auto& entry) { entry.mutable_meter_config(); }), 3);
  EXPECT_EQ(codeWith([](auto& entry) { entry.mutable_counter_data(); }), 3);
  EXPECT_EQ(codeWith([](auto& entry) { entry.mutable_meter_counter_data(); }), 3);
  EXPECT_EQ(codeWith([](auto& entry) { entry.set_idle_timeout_ns(1); }), 3);
  EXPECT_EQ(codeWith([](auto& entry) { entry.mutable_time_since_last_hit(); }), 3);
}

TEST_F(TableEntry, WithoutAnActionOfItsTablesKindIsInvalid) {
  EXPECT_EQ(codeWith([](auto& entry) { entry.clear_action(); }), 3);
  EXPECT_EQ(codeWith([](auto& entry) { entry.mutable_action()->clear_type(); }), 3);
  EXPECT_EQ(codeWith([](auto& entry) { *entry.mutable_action()->mutable_action() = nexthop(1); }),
            3);
  const auto member = [](auto& entry) { entry.mutable_action()->set_action_profile_member_id(1); };
  EXPECT_EQ(codeWith(member, encap(1)), 3);
  EXPECT_EQ(codeWith([](auto& entry) { entry.clear_action(); }, encap(1)), 3);
}

TEST_F(TableEntry, OfADirectTableWithAFaultyCallIsRefused) {
  const auto encapWith = [&](const std::function<void(p4::v1::Action&)>& change) {
    return codeWith([&](auto& entry) { change(call(entry)); }, encap(1));
  };
  EXPECT_EQ(encapWith([](auto& action) { action.set_action_id(setEncap6); }), 3);
  EXPECT_EQ(encapWith([](auto& action) { action.set_action_id(0); }), 3);
  EXPECT_EQ(encapWith([](auto& action) { action.set_action_id(noAction); }),
            StatusCode::PERMISSION_DENIED)
      << "it is for default entries";
  EXPECT_EQ(encapWith([](auto& action) { action.mutable_params()->RemoveLast(); }), 3);
  EXPECT_EQ(encapWith([](auto& action) { action.mutable_params(2)->set_param_id(4); }), 3);
  EXPECT_EQ(encapWith([](auto& action) { action.mutable_params(2)->set_param_id(0); }), 3);
  EXPECT_EQ(encapWith([](auto& action) { *action.add_params() = action.params(0); }), 3);
  EXPECT_THAT(encapWith([](auto& action) { action.mutable_params(1)->set_value(""); }),
              AnyOf(3, 11));
  EXPECT_THAT(encapWith([](auto& action) {
                action.mutable_params(1)->set_value(bytes({1, 0, 0, 0, 0}));
              }),
              AnyOf(3, 11));
}

TEST_F(TableEntry, RefersToMembersAndGroupsThatAreThere) {
  EXPECT_EQ(at.code(insert(toMember(prefix(1), 3))), StatusCode::NOT_FOUND);
  EXPECT_EQ(at.code(insert(toGroup(prefix(1), 1))), StatusCode::NOT_FOUND);
  EXPECT_EQ(at.code(insert(toMember(prefix(1), 0x80000001))), StatusCode::NOT_FOUND);
  EXPECT_THAT(at.code(insert(toMember(prefix(1), 0))), AnyOf(3, 5));
  EXPECT_THAT(at.read(allEntries()), IsEmpty());
  ASSERT_EQ(at.code(insert(toMember(prefix(1), 1))), 0);
  EXPECT_EQ(at.code(modify(toMember(prefix(1), 3))), StatusCode::NOT_FOUND);
  EXPECT_THAT(at.read(allEntries()), ElementsAre(IsEntity(toMember(prefix(1), 1))));
}

TEST_F(TableEntry, ThatIsThereIsNotInsertedAndOneThatIsNotIsNotModifiedOrDeleted) {
  ASSERT_EQ(at.code(insert(toMember(prefix(1), 1))), 0);
  EXPECT_EQ(at.code(insert(toMember(prefix(1), 2))), StatusCode::ALREADY_EXISTS);
  EXPECT_THAT(at.read(allEntries()), ElementsAre(IsEntity(toMember(prefix(1), 1))));
  EXPECT_EQ(at.code(modify(toMember(prefix(2), 1))), StatusCode::NOT_FOUND);
  EXPECT_EQ(at.code(del(prefix(2))), StatusCode::NOT_FOUND);
  EXPECT_EQ(at.code(del(encap(0))), StatusCode::NOT_FOUND);
  EXPECT_EQ(at.code(insert(encap(0))), 0);
  EXPECT_EQ(at.code(insert(encap(0))), StatusCode::ALREADY_EXISTS);
}

TEST_F(TableEntry, IsDeletedByItsKeyWhateverElseIsSaid) {
  ASSERT_EQ(at.code(insert(toMember(prefix(1), 1))), 0);
  Entity nonsense = toMember(prefix(1), 99);
  auto& entry = *nonsense.mutable_table_entry();
  entry.set_is_const(true);
  entry.set_idle_timeout_ns(-5);
  entry.mutable_counter_data();
  EXPECT_EQ(at.code(del(nonsense)), 0);
  EXPECT_THAT(at.read(allEntries()), IsEmpty());
}

TEST_F(TableEntry, ModifiedWithoutActionKeepsItsAction) {
  ASSERT_EQ(at.code(insert(toGroup(prefix(1), 7))), 0);
  ASSERT_EQ(at.code(insert(encap(9))), 0);
  Entity bare = prefix(1);
  bare.mutable_table_entry()->set_metadata("new");
  EXPECT_EQ(at.code(modify(bare)), 0);
  Entity expected = toGroup(prefix(1), 7);
  expected.mutable_table_entry()->set_metadata("new");
  EXPECT_THAT(at.read(entriesOf(override4)), ElementsAre(IsEntity(expected)));
  Entity bareEncap = encap(9);
  bareEncap.mutable_table_entry()->clear_action();
  EXPECT_EQ(at.code(modify(bareEncap)), 0);
  EXPECT_THAT(at.read(entriesOf(encap4)), ElementsAre(IsEntity(encap(9))));
}

TEST_F(TableEntry, KeepsItsMetadataUntilItIsModifiedOrDeleted) {
  Entity route = toMember(prefix(1), 1);
  route.mutable_table_entry()->set_metadata(bytes({0, 255, 'x'}));
  route.mutable_table_entry()->set_controller_metadata(~uint64_t{0});
  ASSERT_EQ(at.code(insert(route)), 0);
  EXPECT_THAT(at.read(allEntries()), ElementsAre(IsEntity(route)));
  ASSERT_EQ(at.code(modify(toMember(prefix(1), 1))), 0);
  EXPECT_THAT(at.read(allEntries()), ElementsAre(IsEntity(toMember(prefix(1), 1))));
  ASSERT_EQ(at.code(modify(route)), 0);
  ASSERT_EQ(at.code(del(route)), 0);
  ASSERT_EQ(at.code(insert(toMember(prefix(1), 1))), 0);
  EXPECT_THAT(at.read(allEntries()), ElementsAre(IsEntity(toMember(prefix(1), 1))));
}

TEST_F(TableEntry, HasAtMost4096BytesOfMetadata) {
  Entity route = toMember(prefix(1), 1);
  route.mutable_table_entry()->set_metadata(std::string(4097, 'm'));
  EXPECT_EQ(at.messageOf(insert(route)),
            "table \"routing.ipv4.override\": metadata of 4097 bytes, expected at most 4096");
  route.mutable_table_entry()->set_metadata(std::string(4096, 'm'));
  EXPECT_EQ(at.code(insert(route)), 0);
  EXPECT_THAT(at.read(allEntries()), ElementsAre(IsEntity(route)));
}

TEST_F(TableEntry, IsCheckedWhenItIsModifiedAsWhenItIsInserted) {
  const Entity good = toMember(prefix(1), 1);
  ASSERT_EQ(at.code(insert(good)), 0);
  const auto modified = [&](const std::function<void(p4::v1::TableEntry&)>& change) {
    Entity changed = toMember(prefix(1), 2);
    change(*changed.mutable_table_entry());
    return at.code(modify(changed));
  };
  EXPECT_EQ(modified([](auto& entry) { entry.set_is_const(true); }), 3);
  EXPECT_EQ(modified([](auto& entry) { entry.mutable_meter_config(); }), 3);
  EXPECT_EQ(modified([](auto& entry) { entry.mutable_counter_data(); }), 3);
  EXPECT_EQ(modified([](auto& entry) { entry.mutable_meter_counter_data(); }), 3);
  EXPECT_EQ(modified([](auto& entry) { entry.set_idle_timeout_ns(1); }), 3);
  EXPECT_EQ(modified([](auto& entry) { entry.mutable_time_since_last_hit(); }), 3);
  EXPECT_EQ(modified([](auto& entry) { entry.set_metadata(std::string(4097, 'm')); }), 3);
  EXPECT_THAT(at.read(allEntries()), ElementsAre(IsEntity(good)));
}

TEST_F(TableEntry, DoesNotFitAFullTable) {
  for (uint8_t i = 0; i < 64; ++i) ASSERT_EQ(at.code(insert(toMember(prefix(i), 1))), 0);
  EXPECT_EQ(at.code(insert(toMember(prefix(64), 1))), StatusCode::RESOURCE_EXHAUSTED);
  EXPECT_EQ(at.size("VaneIpv4Override"), 64u);
  EXPECT_EQ(at.code(insert(toMember(prefix(1), 1))), StatusCode::ALREADY_EXISTS);
  EXPECT_EQ(at.code(modify(toMember(prefix(1), 2))), 0);
  EXPECT_EQ(at.code(del(prefix(1))), 0);
  EXPECT_EQ(at.code(insert(toMember(prefix(64), 1))), 0);
}

TEST_F(TableEntry, ByDefaultIsConstant) {
  const auto defaultOf = [](const std::string& more) {
    return entity("table_entry { table_id: 0x02000001 is_default_action: true " + more + " }");
  };
  EXPECT_EQ(at.code(insert(defaultOf(""))), 3);
  EXPECT_EQ(at.code(del(defaultOf(""))), 3);
  EXPECT_EQ(at.code(modify(defaultOf("match { field_id: 1 }"))), 3);
  EXPECT_EQ(at.code(modify(defaultOf("priority: 1"))), 3);
  EXPECT_EQ(at.code(modify(defaultOf("idle_timeout_ns: 1"))), 3);
  EXPECT_EQ(at.code(modify(defaultOf(""))), StatusCode::PERMISSION_DENIED);
  EXPECT_EQ(at.code(modify(defaultOf("action { action { action_id: 0x01000004 } }"))),
            StatusCode::PERMISSION_DENIED);
  EXPECT_THAT(at.read(defaultOf("")),
              ElementsAre(IsEntity(defaultOf("action { action { action_id: 0x01000004 } }"))));
}

TEST_F(TableEntry, FaultsSayWhatWhereAndWhatWasExpected) {
  Entity route = toMember(prefix(1), 1);
  lpm(*route.mutable_table_entry()).set_prefix_len(8);
  EXPECT_EQ(at.messageOf(insert(route)),
            "table \"routing.ipv4.override\": match field \"destination_prefix\": bits below the "
            "prefix length 8 are not zero");
  EXPECT_EQ(at.messageOf(insert(toGroup(vrfPrefix(3, 1), 9))),
            "table \"routing.ipv4.vrf_prefix\": VRF 3, 10.1.0.0/16: group 9 is not there");
  Entity bad = encap(1);
  call(*bad.mutable_table_entry()).mutable_params(0)->set_value("");
  EXPECT_EQ(at.messageOf(insert(bad)),
            "table \"routing.ipv4.encap\": parameter \"encap_type\": expected a number of 32 bits, "
            "found an empty byte string");
}

}  // namespace
}  // namespace P4Test
