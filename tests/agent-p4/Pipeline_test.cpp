// The agent's P4Info, what is accepted in its place, and what becomes of entries when one is
// committed.
#include "tests/agent-p4/Switch.h"

namespace P4Test {
namespace {

using p4::config::v1::P4Info;
using p4::v1::ForwardingPipelineConfig;
using Get = p4::v1::GetForwardingPipelineConfigRequest;
using Set = p4::v1::SetForwardingPipelineConfigRequest;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class Pipeline : public testing::Test {
 protected:
  explicit Pipeline(bool fixed = true) : at({.capacity = 64, .hasFixedPipeline = fixed}) {}

  P4Info own() { return makeP4Info(at.target().roles()); }
  grpc::Status set(Set::Action action, std::optional<P4Info> info, uint64_t cookie = 0) {
    Set request;
    request.set_action(action);
    if (info) *request.mutable_config()->mutable_p4info() = *info;
    if (cookie != 0) request.mutable_config()->mutable_cookie()->set_cookie(cookie);
    return at.pipelineIs(request);
  }
  ForwardingPipelineConfig get(Get::ResponseType type = Get::ALL) {
    Get request;
    request.set_response_type(type);
    p4::v1::GetForwardingPipelineConfigResponse response;
    EXPECT_TRUE(at.pipeline(request, response).ok());
    return response.config();
  }
  // The message with which our own P4Info is refused once something in it is changed.
  std::string refusal(const std::function<void(P4Info&)>& change) {
    P4Info info = own();
    change(info);
    const grpc::Status status = set(Set::VERIFY, info);
    EXPECT_EQ(status.error_code(), StatusCode::INVALID_ARGUMENT);
    return status.error_message();
  }
  // Our own, with these tables only and what they need.
  P4Info withTables(const std::vector<uint32_t>& ids) {
    P4Info info = own();
    const auto unwanted = [&](uint32_t id) { return std::ranges::find(ids, id) == ids.end(); };
    auto& tables = *info.mutable_tables();
    tables.erase(std::remove_if(tables.begin(), tables.end(),
                                [&](const auto& each) { return unwanted(each.preamble().id()); }),
                 tables.end());
    auto& used = *info.mutable_action_profiles(0)->mutable_table_ids();
    used.erase(std::remove_if(used.begin(), used.end(), unwanted), used.end());
    return info;
  }

  Switch at;
};

TEST_F(Pipeline, IsTheAgentsOwnFromTheStart) {
  EXPECT_EQ(get().p4info().DebugString(), own().DebugString());
  EXPECT_FALSE(get().has_cookie());
}

TEST_F(Pipeline, NamesTablesKeysAndSizes) {
  const P4Info info = own();
  ASSERT_EQ(info.tables_size(), 8);
  EXPECT_EQ(info.tables(0).DebugString(), parse<p4::config::v1::Table>(R"(
              preamble { id: 0x02000001 name: "routing.ipv4.override" alias: "ipv4.override" }
              match_fields { id: 1 name: "destination_prefix" bitwidth: 32 match_type: LPM }
              action_refs { id: 0x01000001 scope: TABLE_ONLY }
              action_refs { id: 0x01000004 scope: DEFAULT_ONLY }
              const_default_action_id: 0x01000004
              implementation_id: 0x11000001
              size: 64)")
                                              .DebugString());
  EXPECT_EQ(info.tables(5).DebugString(), parse<p4::config::v1::Table>(R"(
              preamble { id: 0x02000006 name: "routing.ipv6.vrf_prefix" alias: "ipv6.vrf_prefix" }
              match_fields { id: 1 name: "vrf_id" bitwidth: 32 match_type: EXACT }
              match_fields { id: 2 name: "prefix" bitwidth: 128 match_type: LPM }
              action_refs { id: 0x01000001 scope: TABLE_ONLY }
              action_refs { id: 0x01000004 scope: DEFAULT_ONLY }
              const_default_action_id: 0x01000004
              implementation_id: 0x11000001
              size: 64)")
                                              .DebugString());
  EXPECT_EQ(info.tables(7).DebugString(), parse<p4::config::v1::Table>(R"(
              preamble { id: 0x02000008 name: "routing.ipv6.encap" alias: "ipv6.encap" }
              match_fields { id: 1 name: "encap_id" bitwidth: 16 match_type: EXACT }
              action_refs { id: 0x01000003 scope: TABLE_ONLY }
              action_refs { id: 0x01000004 scope: DEFAULT_ONLY }
              const_default_action_id: 0x01000004
              size: 64)")
                                              .DebugString());
}

TEST_F(Pipeline, NamesActionsAndTheActionProfile) {
  const P4Info info = own();
  ASSERT_EQ(info.actions_size(), 4);
  EXPECT_EQ(info.actions(0).DebugString(), parse<p4::config::v1::Action>(R"(
              preamble { id: 0x01000001 name: "routing.set_nexthop" alias: "set_nexthop" }
              params { id: 1 name: "egress_port" bitwidth: 32 }
              params { id: 2 name: "src_mac" bitwidth: 48 }
              params { id: 3 name: "dst_mac" bitwidth: 48 }
              params { id: 4 name: "vlan_tagged" bitwidth: 1 }
              params { id: 5 name: "encap_type" bitwidth: 32 }
              params { id: 6 name: "vlan_id" bitwidth: 16 })")
                                               .DebugString());
  EXPECT_EQ(info.actions(2).DebugString(), parse<p4::config::v1::Action>(R"(
              preamble { id: 0x01000003 name: "routing.ipv6.set_encap" alias: "ipv6.set_encap" }
              params { id: 1 name: "encap_type" bitwidth: 32 }
              params { id: 2 name: "src_addr" bitwidth: 128 }
              params { id: 3 name: "dst_addr" bitwidth: 128 })")
                                               .DebugString());
  ASSERT_EQ(info.action_profiles_size(), 1);
  EXPECT_EQ(info.action_profiles(0).DebugString(), parse<p4::config::v1::ActionProfile>(R"(
              preamble { id: 0x11000001 name: "routing.ecmp" alias: "ecmp" }
              table_ids: [0x02000001, 0x02000002, 0x02000003, 0x02000004, 0x02000005, 0x02000006]
              with_selector: true size: 65536 max_group_size: 1024 sum_of_weights {})")
                                                       .DebugString());
}

TEST_F(Pipeline, PrintsItsP4InfoAsTextThatReadsBack) {
  EXPECT_EQ(parse<P4Info>(p4InfoText(at.target().roles())).DebugString(), own().DebugString());
}

TEST_F(Pipeline, ThatCannotBeRealisedIsRefusedWithTheReason) {
  EXPECT_THAT(refusal([](auto& info) { info.mutable_tables(0)->mutable_preamble()->set_id(0); }),
              HasSubstr("this switch has none of this id"));
  EXPECT_THAT(refusal([](auto& info) { *info.add_tables() = info.tables(0); }),
              HasSubstr("the id stands twice"));
  EXPECT_EQ(refusal([](auto& info) {
              info.mutable_tables(0)->mutable_match_fields(0)->set_bitwidth(128);
            }),
            "table \"routing.ipv4.override\" (id 0x02000001): match field \"destination_prefix\" "
            "has 128 bits, expected 32");
  EXPECT_THAT(refusal([](auto& info) {
                info.mutable_tables(0)->mutable_match_fields(0)->set_match_type(
                    p4::config::v1::MatchField::TERNARY);
              }),
              HasSubstr("expected match type LPM"));
  EXPECT_THAT(
      refusal([](auto& info) { info.mutable_tables(2)->mutable_match_fields()->RemoveLast(); }),
      HasSubstr("1 match fields, expected 2"));
  EXPECT_THAT(refusal([](auto& info) { info.mutable_tables(0)->set_implementation_id(0); }),
              HasSubstr("implementation_id 0x00000000, expected 0x11000001"));
  EXPECT_THAT(refusal([](auto& info) { info.clear_action_profiles(); }),
              HasSubstr("is no action profile of this P4Info"));
  EXPECT_THAT(
      refusal([](auto& info) { info.mutable_actions(0)->mutable_params(1)->set_bitwidth(32); }),
      HasSubstr("parameter \"src_mac\" has 32 bits, expected 48"));
  EXPECT_THAT(refusal([](auto& info) { info.mutable_actions(0)->mutable_params()->RemoveLast(); }),
              HasSubstr("5 parameters, expected 6"));
  EXPECT_THAT(refusal([](auto& info) { info.mutable_actions()->erase(info.actions().begin()); }),
              HasSubstr("is no action of this P4Info"));
  EXPECT_THAT(refusal([](auto& info) {
                info.mutable_tables(0)->mutable_action_refs(0)->set_id(0x01000002);
              }),
              HasSubstr("none of this table"));
  EXPECT_THAT(refusal([](auto& info) {
                info.mutable_tables(0)->mutable_action_refs(1)->set_scope(
                    p4::config::v1::ActionRef::TABLE_AND_DEFAULT);
              }),
              HasSubstr("has scope TABLE_AND_DEFAULT, expected DEFAULT_ONLY"));
  EXPECT_THAT(refusal([](auto& info) {
                info.mutable_tables(6)->mutable_action_refs(0)->set_scope(
                    p4::config::v1::ActionRef::TABLE_AND_DEFAULT);
              }),
              HasSubstr("has scope TABLE_AND_DEFAULT, expected TABLE_ONLY"));
  EXPECT_THAT(refusal([](auto& info) { info.mutable_tables(6)->clear_const_default_action_id(); }),
              HasSubstr("const_default_action_id is not set, expected NoAction"));
  EXPECT_THAT(
      refusal([](auto& info) { info.mutable_tables(0)->set_const_default_action_id(0x01000001); }),
      HasSubstr("the default action is NoAction"));
  EXPECT_THAT(refusal([](auto& info) { info.mutable_tables(0)->set_size(65); }),
              HasSubstr("size 65, expected 0 to 64"));
  EXPECT_THAT(refusal([](auto& info) { info.mutable_tables(0)->set_is_const_table(true); }),
              HasSubstr("constant"));
  EXPECT_THAT(
      refusal([](auto& info) {
        info.mutable_tables(0)->set_idle_timeout_behavior(p4::config::v1::Table::NOTIFY_CONTROL);
      }),
      HasSubstr("idle timeouts"));
  EXPECT_THAT(refusal([](auto& info) { info.mutable_tables(0)->add_direct_resource_ids(1); }),
              HasSubstr("direct resources"));
  EXPECT_THAT(
      refusal([](auto& info) { info.mutable_action_profiles(0)->set_with_selector(false); }),
      HasSubstr("with_selector"));
  EXPECT_THAT(
      refusal([](auto& info) { info.mutable_action_profiles(0)->mutable_sum_of_members(); }),
      HasSubstr("sum_of_members"));
  EXPECT_THAT(
      refusal([](auto& info) { info.mutable_action_profiles(0)->set_max_group_size(1025); }),
      HasSubstr("max_group_size 1025, expected 0 to 1024"));
  EXPECT_THAT(
      refusal([](auto& info) { info.mutable_action_profiles(0)->add_table_ids(0x02000007); }),
      HasSubstr("does not use this profile"));
  EXPECT_THAT(refusal([](auto& info) { info.mutable_action_profiles(0)->add_table_ids(5); }),
              HasSubstr("is no table of this P4Info"));
  EXPECT_THAT(refusal([](auto& info) { info.add_counters(); }), HasSubstr("counters"));
  EXPECT_THAT(refusal([](auto& info) { info.add_digests(); }), HasSubstr("digests"));
  EXPECT_THAT(refusal([](auto& info) { info.add_controller_packet_metadata(); }),
              HasSubstr("packet metadata"));
  EXPECT_THAT(
      refusal([](auto& info) {
        info.mutable_pkg_info()->mutable_platform_properties()->set_multicast_group_table_size(1);
      }),
      HasSubstr("platform_properties"));
  EXPECT_EQ(get().p4info().DebugString(), own().DebugString());
}

TEST_F(Pipeline, NeedsAConfigExceptForACommit) {
  for (const auto action :
       {Set::VERIFY, Set::VERIFY_AND_SAVE, Set::VERIFY_AND_COMMIT, Set::RECONCILE_AND_COMMIT}) {
    EXPECT_EQ(set(action, {}).error_code(), StatusCode::INVALID_ARGUMENT);
    Set empty;
    empty.set_action(action);
    empty.mutable_config();
    EXPECT_EQ(at.pipelineIs(empty).error_code(), StatusCode::INVALID_ARGUMENT);
  }
  EXPECT_EQ(set(Set::COMMIT, {}).error_code(), StatusCode::NOT_FOUND);
  ASSERT_TRUE(set(Set::VERIFY_AND_SAVE, own()).ok());
  EXPECT_EQ(set(Set::COMMIT, own()).error_code(), StatusCode::INVALID_ARGUMENT);
  EXPECT_TRUE(set(Set::COMMIT, {}).ok());
  EXPECT_EQ(set(Set::COMMIT, {}).error_code(), StatusCode::NOT_FOUND);
  EXPECT_EQ(set(Set::UNSPECIFIED, own()).error_code(), StatusCode::INVALID_ARGUMENT);
  EXPECT_EQ(set(static_cast<Set::Action>(6), own()).error_code(), StatusCode::INVALID_ARGUMENT);
}

TEST_F(Pipeline, ComesBackInThePartsThatAreAskedFor) {
  Set request;
  request.set_action(Set::VERIFY_AND_COMMIT);
  *request.mutable_config()->mutable_p4info() = withTables({override4});
  request.mutable_config()->set_p4_device_config("device");
  request.mutable_config()->mutable_cookie()->set_cookie(0);
  ASSERT_TRUE(at.pipelineIs(request).ok());
  EXPECT_EQ(get(Get::ALL).DebugString(), request.config().DebugString());
  EXPECT_FALSE(get(Get::COOKIE_ONLY).has_p4info());
  EXPECT_TRUE(get(Get::COOKIE_ONLY).has_cookie());
  EXPECT_TRUE(get(Get::P4INFO_AND_COOKIE).has_p4info());
  EXPECT_EQ(get(Get::P4INFO_AND_COOKIE).p4_device_config(), "");
  EXPECT_FALSE(get(Get::DEVICE_CONFIG_AND_COOKIE).has_p4info());
  EXPECT_EQ(get(Get::DEVICE_CONFIG_AND_COOKIE).p4_device_config(), "device");
  Get unknown;
  unknown.set_response_type(static_cast<Get::ResponseType>(9));
  p4::v1::GetForwardingPipelineConfigResponse response;
  EXPECT_EQ(at.pipeline(unknown, response).error_code(), StatusCode::INVALID_ARGUMENT);
}

TEST_F(Pipeline, KeepsFieldsThatItDoesNotKnow) {
  P4Info info = own();
  info.GetReflection()->MutableUnknownFields(&info)->AddVarint(5000, 42);
  ASSERT_TRUE(set(Set::VERIFY_AND_COMMIT, info).ok());
  EXPECT_EQ(get().p4info().SerializeAsString(), info.SerializeAsString());
}

TEST_F(Pipeline, OfASubsetOffersThatOnly) {
  ASSERT_TRUE(set(Set::VERIFY_AND_COMMIT, withTables({override4, encap4})).ok());
  EXPECT_THAT(at.codes({insert(member(1)), insert(toMember(prefix(1), 1)), insert(encap(1)),
                        insert(toMember(prefix(1, fallback4), 1))}),
              ElementsAre(0, 0, 0, 3));
  EXPECT_THAT(at.readCodes({entriesOf(override4), entriesOf(fallback4)}), ElementsAre(0, 3));
  EXPECT_EQ(at.read(allEntries()).size(), 2u);
}

TEST_F(Pipeline, KnowsTheActionsThatItNamesOnly) {
  Entity none = encap(1);
  auto& action = *none.mutable_table_entry()->mutable_action()->mutable_action();
  action.Clear();
  action.set_action_id(noAction);
  EXPECT_EQ(at.code(insert(none)), StatusCode::PERMISSION_DENIED);
  P4Info info = own();
  info.mutable_tables(6)->mutable_action_refs()->RemoveLast();
  ASSERT_TRUE(set(Set::VERIFY_AND_COMMIT, info).ok());
  EXPECT_EQ(at.code(insert(none)), StatusCode::INVALID_ARGUMENT);
}

TEST_F(Pipeline, WithSmallerSizesEnforcesThem) {
  P4Info info = own();
  info.mutable_tables(0)->set_size(2);
  info.mutable_action_profiles(0)->set_size(6);
  info.mutable_action_profiles(0)->set_max_group_size(4);
  ASSERT_TRUE(set(Set::VERIFY_AND_COMMIT, info).ok());
  EXPECT_THAT(
      at.codes({insert(member(1)), insert(toMember(prefix(1), 1)), insert(toMember(prefix(2), 1)),
                insert(toMember(prefix(3), 1)), insert(toMember(prefix(3, fallback4), 1))}),
      ElementsAre(0, 0, 0, StatusCode::RESOURCE_EXHAUSTED, 0));
  EXPECT_THAT(
      at.codes({insert(group(1, {{1, 5}})), insert(group(1, {{1, 4}})), insert(group(2, {{1, 3}})),
                insert(group(2, {{1, 2}})), modify(group(2, {{1, 3}})), modify(group(1, {{1, 1}})),
                modify(group(2, {{1, 3}}))}),
      ElementsAre(8, 0, 8, 0, 8, 0, 0));
}

TEST_F(Pipeline, WithSmallerSizesEnforcesThemForOneShotSetsAndMaxSizesToo) {
  P4Info info = own();
  info.mutable_action_profiles(0)->set_size(4);
  info.mutable_action_profiles(0)->set_max_group_size(3);
  ASSERT_TRUE(set(Set::VERIFY_AND_COMMIT, info).ok());
  EXPECT_THAT(
      at.codes({insert(group(1, {}, 4)), insert(group(1, {}, 3)),
                insert(toSet(prefix(1), {{1, 4}})), insert(toSet(prefix(1), {{1, 3}})),
                insert(toSet(prefix(2), {{1}, {2}})), insert(toSet(prefix(2), {{1}})),
                modify(toSet(prefix(1), {{2}, {3, 2}})), modify(toSet(prefix(2), {{4}, {5}}))}),
      ElementsAre(3, 0, 3, 0, 8, 0, 0, 8));
  EXPECT_THAT(at.read(allEntries()), UnorderedElementsAre(IsEntity(toSet(prefix(1), {{2}, {3, 2}})),
                                                          IsEntity(toSet(prefix(2), {{1}}))));
}

TEST_F(Pipeline, ThatDisallowsWeightsTakesAndGivesNone) {
  P4Info info = own();
  info.mutable_action_profiles(0)->set_weights_disallowed(true);
  ASSERT_TRUE(set(Set::VERIFY_AND_COMMIT, info).ok());
  EXPECT_THAT(at.codes({insert(member(1)), insert(group(1, {{1, 1}})), insert(group(1, {{1, 0}}))}),
              ElementsAre(0, 3, 0));
  EXPECT_THAT(at.read(allGroups()), ElementsAre(IsEntity(group(1, {{1, 0}}))));
  EXPECT_THAT(at.codes({insert(toSet(prefix(1), {{1, 1}})), insert(toSet(prefix(1), {{1, 0}}))}),
              ElementsAre(3, 0));
  EXPECT_THAT(at.read(allEntries()), ElementsAre(IsEntity(toSet(prefix(1), {{1, 0}}))));
}

// Both calls wait for the loop, the commit first.
TEST_F(Pipeline, CommittedBeforeAReadBeginsIsWhatTheReadGoesBy) {
  ASSERT_EQ(at.code(insert(encap(1))), 0);
  std::promise<void> begun;
  std::promise<void> goOn;
  std::thread busy([&] {
    at.onLoop([&] {
      begun.set_value();
      goOn.get_future().get();
    });
  });
  begun.get_future().get();
  const auto inTurn = [](auto work) {
    auto result = std::async(std::launch::async, work);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    return result;
  };
  auto commit = inTurn([&] { return set(Set::RECONCILE_AND_COMMIT, withTables({encap4})); });
  auto read = inTurn([&] {
    p4::v1::ReadRequest request;
    *request.add_entities() = entriesOf(encap4);
    *request.add_entities() = entriesOf(override4);
    return at.read(request);
  });
  goOn.set_value();
  busy.join();
  EXPECT_TRUE(commit.get().ok());
  const auto answer = read.get();
  EXPECT_TRUE(answer.refused.ok()) << answer.refused.error_message();
  EXPECT_THAT(answer.codes, ElementsAre(0, 3)) << "the new one has no such table";
  EXPECT_THAT(answer.entities, ElementsAre(IsEntity(encap(1))));
}

TEST_F(Pipeline, CommittedAtOnceClearsEverything) {
  ASSERT_THAT(at.codes({insert(member(1)), insert(group(7, {{1}})), insert(toGroup(prefix(1), 7)),
                        insert(encap(1))}),
              ElementsAre(0, 0, 0, 0));
  ASSERT_TRUE(set(Set::VERIFY, own()).ok());
  EXPECT_EQ(at.read(allEntries()).size(), 2u);
  ASSERT_TRUE(set(Set::VERIFY_AND_COMMIT, own()).ok());
  for (const auto& table : Agent::routingTables()) {
    EXPECT_EQ(at.size(std::string(table.name)), 0u) << table.name;
  }
  EXPECT_EQ(at.code(insert(member(1))), 0);
  EXPECT_THAT(at.rows("VaneEcmpMember"), ElementsAre(HasSubstr("\"genId\":2, \"entryHandle\":5,")));
  EXPECT_EQ(at.code(del(member(1))), 0) << "no reference is left";
}

TEST_F(Pipeline, SavedIsWhatReadsAndWritesGoBy) {
  ASSERT_EQ(at.code(insert(member(1))), 0);
  ASSERT_TRUE(set(Set::VERIFY_AND_SAVE, withTables({fallback4}), 9).ok());
  EXPECT_EQ(get().cookie().cookie(), 9u);
  EXPECT_EQ(at.read(allMembers()).size(), 1u) << "forwarding is untouched";
  EXPECT_THAT(at.codes({insert(toMember(prefix(1), 1)), insert(toMember(prefix(1, fallback4), 1))}),
              ElementsAre(3, 0));
  EXPECT_THAT(at.rows("VaneIpv4Fallback"), ElementsAre(HasSubstr("\"genId\":2,")));
}

TEST_F(Pipeline, CommittedLaterKeepsWhatWasWrittenSinceTheSaveAndWhatThatNeeds) {
  ASSERT_THAT(
      at.codes({insert(member(1)), insert(member(2)), insert(member(3)), insert(member(4)),
                insert(group(7, {{1}})), insert(group(8, {{2}})), insert(toGroup(prefix(1), 8)),
                insert(toMember(prefix(2), 4)), insert(encap(1)), insert(encap(2))}),
      testing::Each(0));
  ASSERT_TRUE(set(Set::VERIFY_AND_SAVE, own()).ok());
  ASSERT_THAT(
      at.codes({insert(toGroup(prefix(3), 7)), modify(toMember(prefix(2), 4)), insert(member(5)),
                modify(encap(2, 9)), insert(encap(3)), insert(encap(4)), del(encap(4))}),
      testing::Each(0));
  ASSERT_TRUE(set(Set::COMMIT, {}).ok());
  EXPECT_THAT(
      at.read(allEntries()),
      UnorderedElementsAre(IsEntity(toGroup(prefix(3), 7)), IsEntity(toMember(prefix(2), 4)),
                           IsEntity(encap(2, 9)), IsEntity(encap(3))));
  EXPECT_THAT(at.read(allGroups()), ElementsAre(IsEntity(group(7, {{1}}))));
  EXPECT_THAT(at.read(allMembers()),
              UnorderedElementsAre(IsEntity(member(1)), IsEntity(member(4)), IsEntity(member(5))));
  EXPECT_EQ(at.code(del(member(1))), StatusCode::FAILED_PRECONDITION);
}

// Was ALREADY_EXISTS for each, and the commit then removed them.
TEST_F(Pipeline, SavedTakesTheSameEntriesAnewAndKeepsThemWhenCommitted) {
  const std::vector<Update> all{insert(member(1)), insert(group(7, {{1, 2}}, 8)),
                                insert(toGroup(prefix(1), 7)), insert(toMember(vrfPrefix(1, 1), 1)),
                                insert(encap(1))};
  ASSERT_THAT(at.codes(all), testing::Each(0));
  ASSERT_EQ(at.code(insert(toMember(prefix(9), 1))), 0);
  ASSERT_TRUE(set(Set::VERIFY_AND_SAVE, own()).ok());
  EXPECT_THAT(at.codes(all), testing::Each(0));
  EXPECT_THAT(at.codes(all), testing::Each(6)) << "the second time they are there";
  EXPECT_EQ(at.read(allEntries()).size(), 4u) << "the old one is still there, too";
  ASSERT_TRUE(set(Set::COMMIT, {}).ok());
  EXPECT_THAT(at.read(allEntries()),
              UnorderedElementsAre(IsEntity(toGroup(prefix(1), 7)),
                                   IsEntity(toMember(vrfPrefix(1, 1), 1)), IsEntity(encap(1))));
  EXPECT_THAT(at.read(allGroups()), ElementsAre(IsEntity(group(7, {{1, 2}}, 8))));
  EXPECT_EQ(at.code(del(member(1))), StatusCode::FAILED_PRECONDITION);
  EXPECT_EQ(at.code(insert(encap(1))), 6) << "nothing is old any more";
}

TEST_F(Pipeline, SavedCountsWhatStaysOnly) {
  P4Info info = own();
  info.mutable_tables(0)->set_size(2);
  info.mutable_action_profiles(0)->set_size(4);
  ASSERT_TRUE(set(Set::VERIFY_AND_COMMIT, info).ok());
  ASSERT_THAT(at.codes({insert(toSet(prefix(1), {{1, 3}})), insert(toSet(prefix(2), {{2}}))}),
              ElementsAre(0, 0));
  ASSERT_TRUE(set(Set::VERIFY_AND_SAVE, info).ok());
  // Also in the other style: the old sets go.
  EXPECT_THAT(
      at.codes({insert(member(1)), insert(group(1, {{1, 4}})), insert(toGroup(prefix(3), 1)),
                insert(toMember(prefix(1), 1)), modify(toMember(prefix(2), 1)),
                insert(group(2, {{1}})), insert(toSet(prefix(3, fallback4), {{1}}))}),
      ElementsAre(0, 0, 0, 0, 8, 8, 3));
  ASSERT_TRUE(set(Set::COMMIT, {}).ok());
  EXPECT_THAT(at.read(allEntries()), UnorderedElementsAre(IsEntity(toGroup(prefix(3), 1)),
                                                          IsEntity(toMember(prefix(1), 1))));
  EXPECT_EQ(at.size("VaneEcmpGroup"), 1u);
  EXPECT_EQ(at.size("VaneEcmpMember"), 1u);
}

TEST_F(Pipeline, SavedTakesBackWhatReplacedOldEntriesWithTheBatch) {
  ASSERT_THAT(at.codes({insert(member(1)), insert(toMember(prefix(1), 1)), insert(encap(1))}),
              testing::Each(0));
  ASSERT_TRUE(set(Set::VERIFY_AND_SAVE, own()).ok());
  EXPECT_THAT(at.codes({insert(member(1, 9)), insert(encap(1, 9)), del(prefix(9))},
                       WriteRequest::ROLLBACK_ON_ERROR),
              ElementsAre(10, 10, 5));
  EXPECT_THAT(at.read(encap(1)), ElementsAre(IsEntity(encap(1))));
  EXPECT_EQ(at.code(insert(encap(1, 8))), 0) << "it is old again";
  ASSERT_TRUE(set(Set::COMMIT, {}).ok());
  EXPECT_THAT(at.read(allEntries()), ElementsAre(IsEntity(encap(1, 8))));
}

// Rows of others may have any genId, also that of the pipeline that is saved.
TEST_F(Pipeline, CommittedLaterRemovesWhatOthersWroteWhateverItsNumber) {
  const auto write = [&](const char* prefix, uint64_t number) {
    at.writeRow("VaneIpv4Override", {number, uint64_t{0}, true, uint32_t{0},
                                     *Wire::IpGenPrefix::parse(prefix), int32_t{1}, uint32_t{1}});
  };
  ASSERT_EQ(at.code(insert(member(1))), 0);
  for (uint64_t number = 0; number < 5; ++number) {
    write(("10." + std::to_string(number) + ".0.0/16").c_str(), number);
  }
  ASSERT_TRUE(set(Set::VERIFY_AND_SAVE, own()).ok());
  ASSERT_THAT(at.codes({insert(toMember(prefix(7), 1)), insert(toMember(prefix(8), 1))}),
              ElementsAre(0, 0));
  write("10.8.0.0/16", 2);
  ASSERT_TRUE(set(Set::COMMIT, {}).ok());
  EXPECT_THAT(at.read(allEntries()), ElementsAre(IsEntity(toMember(prefix(7), 1))));
}

TEST_F(Pipeline, CommittedLaterRemovesOldOneShotSetsWhole) {
  ASSERT_THAT(at.codes({insert(toSet(prefix(1), {{1}, {2}})), insert(toSet(prefix(2), {{3}}))}),
              ElementsAre(0, 0));
  ASSERT_TRUE(set(Set::VERIFY_AND_SAVE, own()).ok());
  Entity bare = prefix(2);
  bare.mutable_table_entry()->set_metadata("stays");
  ASSERT_EQ(at.code(modify(bare)), 0);
  ASSERT_TRUE(set(Set::COMMIT, {}).ok());
  Entity expected = toSet(prefix(2), {{3}});
  expected.mutable_table_entry()->set_metadata("stays");
  EXPECT_THAT(at.read(allEntries()), ElementsAre(IsEntity(expected)));
  EXPECT_EQ(at.size("VaneEcmpMember"), 1u);
  EXPECT_EQ(at.size("VaneEcmpGroup"), 1u);
}

TEST_F(Pipeline, ReconciledKeepsEverythingIfItCan) {
  ASSERT_THAT(
      at.codes({insert(member(1)), insert(group(7, {{1, 3}}, 8)), insert(toGroup(prefix(1), 7)),
                insert(toMember(prefix(2), 1)), insert(encap(1))}),
      testing::Each(0));
  EXPECT_EQ(set(Set::RECONCILE_AND_COMMIT, withTables({override4})).error_code(),
            StatusCode::INVALID_ARGUMENT)
      << "the encap table is left out and holds an entry";
  const auto refused = [&](const std::function<void(P4Info&)>& change) {
    P4Info info = own();
    change(info);
    return set(Set::RECONCILE_AND_COMMIT, info).error_code() == StatusCode::INVALID_ARGUMENT;
  };
  EXPECT_TRUE(refused([](auto& info) { info.mutable_tables(0)->set_size(1); }));
  EXPECT_TRUE(refused([](auto& info) { info.mutable_action_profiles(0)->set_size(2); }));
  EXPECT_TRUE(refused([](auto& info) { info.mutable_action_profiles(0)->set_max_group_size(2); }));
  EXPECT_TRUE(refused([](auto& info) { info.mutable_action_profiles(0)->set_max_group_size(7); }))
      << "below the group's max_size";
  EXPECT_TRUE(
      refused([](auto& info) { info.mutable_action_profiles(0)->set_weights_disallowed(true); }));
  EXPECT_TRUE(refused([](auto& info) {
    auto& refs = *info.mutable_tables(6)->mutable_action_refs();
    refs.erase(refs.begin());
  }));
  EXPECT_EQ(get().p4info().DebugString(), own().DebugString());

  P4Info fits = withTables({override4, encap4});
  fits.mutable_tables(0)->set_size(2);
  EXPECT_TRUE(set(Set::RECONCILE_AND_COMMIT, fits).ok());
  EXPECT_EQ(at.read(allEntries()).size(), 3u);
  EXPECT_EQ(at.code(insert(toMember(prefix(3), 1))), StatusCode::RESOURCE_EXHAUSTED);
}

class NoPipeline : public Pipeline {
 protected:
  NoPipeline() : Pipeline(false) {}
};

TEST_F(NoPipeline, RefusesReadsAndWritesUntilOneIsPushed) {
  EXPECT_EQ(get().DebugString(), "");
  EXPECT_EQ(at.write({insert(member(1))}).refused.error_code(), StatusCode::FAILED_PRECONDITION);
  p4::v1::ReadRequest request;
  *request.add_entities() = allMembers();
  EXPECT_EQ(at.read(request).refused.error_code(), StatusCode::FAILED_PRECONDITION);
  ASSERT_TRUE(set(Set::VERIFY_AND_SAVE, own()).ok());
  EXPECT_EQ(at.code(insert(member(1))), 0);
}

}  // namespace
}  // namespace P4Test
