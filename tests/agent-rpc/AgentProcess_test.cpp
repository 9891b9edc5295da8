// The agent as a process that controllers talk to, and what other processes then see.
#include <google/protobuf/text_format.h>
#include <google/protobuf/util/message_differencer.h>

#include <csignal>
#include <fstream>
#include <map>
#include <set>
#include <thread>

#include "tests/agent-rpc/ServingAgent.h"

namespace RpcTest {
namespace {

namespace fs = std::filesystem;
using E2e::Json;
using google::protobuf::util::MessageDifferencer;

// What a controller finds in a P4Info, by name.
template <class Objects>
const auto& named(const Objects& objects, const std::string& name) {
  for (const auto& object : objects) {
    if (object.preamble().name() == name) return object;
  }
  throw std::runtime_error("the P4Info has no " + name);
}

template <class Fields>
uint32_t fieldId(const Fields& fields, const std::string& name) {
  for (const auto& field : fields) {
    if (field.name() == name) return field.id();
  }
  throw std::runtime_error("there is no field " + name);
}

p4::v1::Entity& insertion(p4::v1::WriteRequest& request) {
  p4::v1::Update& update = *request.add_updates();
  update.set_type(p4::v1::Update::INSERT);
  return *update.mutable_entity();
}

p4::v1::Action setNexthop(const P4Info& info, char value) {
  const auto& action = named(info.actions(), "routing.set_nexthop");
  p4::v1::Action call;
  call.set_action_id(action.preamble().id());
  for (const auto& each : action.params()) {
    auto& param = *call.add_params();
    param.set_param_id(each.id());
    param.set_value(std::string(1, each.bitwidth() == 1 ? '\1' : value));
  }
  return call;
}

p4::v1::ActionProfileMember member(const P4Info& info, uint32_t id, char value) {
  p4::v1::ActionProfileMember member;
  member.set_action_profile_id(info.action_profiles(0).preamble().id());
  member.set_member_id(id);
  *member.mutable_action() = setNexthop(info, value);
  return member;
}

p4::v1::ActionProfileGroup group(const P4Info& info, uint32_t id) {
  p4::v1::ActionProfileGroup group;
  group.set_action_profile_id(info.action_profiles(0).preamble().id());
  group.set_group_id(id);
  for (const uint32_t memberId : {11, 12}) {
    auto& slot = *group.add_members();
    slot.set_member_id(memberId);
    slot.set_weight(1);
    slot.set_watch_port(std::string(1, static_cast<char>(memberId)));
  }
  return group;
}

p4::v1::TableEntry route(const P4Info& info, uint8_t firstByte, uint32_t groupId) {
  const auto& table = named(info.tables(), "routing.ipv4.override");
  p4::v1::TableEntry entry;
  entry.set_table_id(table.preamble().id());
  auto& match = *entry.add_match();
  match.set_field_id(fieldId(table.match_fields(), "destination_prefix"));
  match.mutable_lpm()->set_value(std::string{static_cast<char>(firstByte), 0, 0, 0});
  match.mutable_lpm()->set_prefix_len(8);
  entry.mutable_action()->set_action_profile_group_id(groupId);
  entry.set_metadata("\xff mine");
  return entry;
}

p4::v1::TableEntry encap(const P4Info& info, char id) {
  const auto& table = named(info.tables(), "routing.ipv4.encap");
  const auto& action = named(info.actions(), "routing.ipv4.set_encap");
  p4::v1::TableEntry entry;
  entry.set_table_id(table.preamble().id());
  auto& match = *entry.add_match();
  match.set_field_id(fieldId(table.match_fields(), "encap_id"));
  match.mutable_exact()->set_value(std::string(1, id));
  p4::v1::Action& call = *entry.mutable_action()->mutable_action();
  call.set_action_id(action.preamble().id());
  const std::map<std::string, std::string> values = {
      {"encap_type", "\x02"}, {"src_addr", "\x0a\x01\x01\x01"}, {"dst_addr", "\x0a\x02\x02\x02"}};
  for (const auto& [name, value] : values) {
    auto& param = *call.add_params();
    param.set_param_id(fieldId(action.params(), name));
    param.set_value(value);
  }
  return entry;
}

// Everything of the kinds that this agent has.
std::vector<p4::v1::Entity> everything(p4::v1::P4Runtime::Stub& stub) {
  p4::v1::ReadRequest request = readOf();
  request.add_entities()->mutable_table_entry();
  request.add_entities()->mutable_action_profile_member();
  request.add_entities()->mutable_action_profile_group();
  std::vector<p4::v1::ReadResponse> answers;
  EXPECT_TRUE(read(stub, request, &answers).ok());
  std::vector<p4::v1::Entity> entities;
  for (const auto& answer : answers) {
    entities.insert(entities.end(), answer.entities().begin(), answer.entities().end());
  }
  return entities;
}

bool contains(const std::vector<p4::v1::Entity>& entities, const p4::v1::Entity& wanted) {
  MessageDifferencer differencer;
  differencer.set_repeated_field_comparison(MessageDifferencer::AS_SET);
  for (const auto& entity : entities) {
    if (differencer.Compare(entity, wanted)) return true;
  }
  return false;
}

TEST(Controller, ProgramsRoutesThatOtherProcessesSee) {
  const E2e::Scratch scratch;
  ServingAgent agent(scratch);
  const P4Info info = agent.p4Info();
  Stream primary(*agent.stub, stating(1));
  p4::v1::WriteRequest members = writeAs(1), groups = writeAs(1), entries = writeAs(1);
  *insertion(members).mutable_action_profile_member() = member(info, 11, 5);
  *insertion(members).mutable_action_profile_member() = member(info, 12, 6);
  *insertion(groups).mutable_action_profile_group() = group(info, 7);
  *insertion(entries).mutable_table_entry() = route(info, 10, 7);
  *insertion(entries).mutable_table_entry() = encap(info, 3);
  std::vector<p4::v1::Entity> written;
  for (const auto& request : {members, groups, entries}) {
    const grpc::Status status = write(*agent.stub, request);
    ASSERT_TRUE(status.ok()) << status.error_message();
    for (const auto& update : request.updates()) written.push_back(update.entity());
  }

  const auto back = everything(*agent.stub);
  EXPECT_EQ(back.size(), 5u);
  for (const auto& entity : written) {
    EXPECT_TRUE(contains(back, entity)) << entity.ShortDebugString();
  }

  const auto routes = E2e::shownRows(scratch.root(), "VaneIpv4Override");
  ASSERT_EQ(routes.size(), 1u);
  EXPECT_EQ(routes[0].at("destinationPrefix"), "10.0.0.0/8");
  EXPECT_EQ(routes[0].at("destinationType"), 2);
  EXPECT_EQ(routes[0].at("destinationId"), 7);
  EXPECT_EQ(routes[0].at("valid"), true);
  const auto shownGroups = E2e::shownRows(scratch.root(), "VaneEcmpGroup");
  ASSERT_EQ(shownGroups.size(), 1u);
  EXPECT_EQ(shownGroups[0].at("members"), (Json{11, 12}));
  EXPECT_EQ(shownGroups[0].at("watchPorts"), (Json{11, 12}));
  EXPECT_EQ(E2e::shownRows(scratch.root(), "VaneEcmpMember").size(), 2u);
  const auto encaps = E2e::shownRows(scratch.root(), "VaneIpv4Encap");
  ASSERT_EQ(encaps.size(), 1u);
  EXPECT_EQ(encaps[0].at("encapId"), 3);
}

TEST(Controller, IsToldWhichUpdateFailed) {
  const E2e::Scratch scratch;
  ServingAgent agent(scratch);
  const P4Info info = agent.p4Info();
  Stream primary(*agent.stub, stating(1));
  p4::v1::WriteRequest request = writeAs(1);
  *insertion(request).mutable_table_entry() = encap(info, 3);
  *insertion(request).mutable_table_entry() = route(info, 10, 7);
  const grpc::Status status = write(*agent.stub, request);
  EXPECT_EQ(status.error_code(), StatusCode::UNKNOWN);
  const auto errors = errorsOf(status);
  ASSERT_EQ(errors.size(), 2u);
  EXPECT_EQ(errors[0].canonical_code(), StatusCode::OK);
  EXPECT_EQ(errors[1].canonical_code(), StatusCode::NOT_FOUND) << "no such group";
}

TEST(Controller, FindsWhatAnEarlierAgentLeft) {
  const E2e::Scratch scratch;
  {
    ServingAgent agent(scratch);
    Stream primary(*agent.stub, stating(1));
    p4::v1::WriteRequest request = writeAs(1);
    *insertion(request).mutable_table_entry() = encap(agent.p4Info(), 3);
    ASSERT_TRUE(write(*agent.stub, request).ok());
    agent.process.signal(SIGKILL);
    agent.process.wait();
  }
  ServingAgent next(scratch);
  EXPECT_EQ(everything(*next.stub).size(), 1u);
}

TEST(Controller, MustGiveAPipelineWhenTheAgentBeginsWithNone) {
  const E2e::Scratch scratch;
  ServingAgent agent(scratch, {"--pipeline", "none", "--device-id", "42"});
  EXPECT_EQ(read(*agent.stub, readOf(1)).error_code(), StatusCode::NOT_FOUND);
  EXPECT_EQ(read(*agent.stub, readOf(42)).error_code(), StatusCode::FAILED_PRECONDITION);
}

TEST(PrintedP4Info, IsTheOneThatIsServed) {
  const E2e::Scratch scratch;
  const auto printed = E2e::run(E2e::agentOn(scratch.root(), {"--print-p4info"}));
  EXPECT_EQ(printed.status, 0) << printed.err;
  EXPECT_FALSE(fs::exists(scratch.root())) << "no table is made for it";
  P4Info info;
  ASSERT_TRUE(google::protobuf::TextFormat::ParseFromString(printed.out, &info));
  EXPECT_TRUE(MessageDifferencer::Equals(info, ServingAgent(scratch).p4Info()));
}

// Writes members 1, 2 ... of a range until one is not answered with OK.
struct MemberWriter {
  static constexpr uint32_t range = 10'000;

  void run(p4::v1::P4Runtime::Stub& stub, const P4Info& info, std::atomic<uint32_t>& accepted) {
    while (acknowledged + 1 < range) {
      p4::v1::WriteRequest request = writeAs(1);
      *insertion(request).mutable_action_profile_member() =
          member(info, first + acknowledged + 1, 5);
      Context context;
      context.set_wait_for_ready(false);  // an agent that has gone is not waited for
      p4::v1::WriteResponse response;
      end = stub.Write(&context, request, &response).error_code();
      if (end != StatusCode::OK) return;
      ++acknowledged;
      ++accepted;
    }
  }

  uint32_t first;
  uint32_t acknowledged = 0;
  StatusCode end = StatusCode::OK;
};

TEST(AgentsEnd, EndsStreamsAndWritesAndKeepsWhateverItAcknowledged) {
  const E2e::Scratch scratch;
  ServingAgent agent(scratch);
  const P4Info info = agent.p4Info();
  Stream primary(*agent.stub, stating(1)), backup(*agent.stub, unset());
  std::atomic<uint32_t> accepted = 0;
  std::vector<MemberWriter> writers;
  for (uint32_t i = 0; i < 4; ++i) writers.push_back({.first = i * MemberWriter::range});
  std::vector<std::thread> threads;
  for (MemberWriter& writer : writers) {
    threads.emplace_back([&] { writer.run(*agent.stub, info, accepted); });
  }
  while (accepted < 20) std::this_thread::yield();
  agent.process.signal(SIGTERM);
  const auto ended = agent.process.wait();
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(ended.status, 0) << ended.err;
  EXPECT_EQ(primary.end().error_code(), StatusCode::UNAVAILABLE);
  EXPECT_EQ(backup.end().error_code(), StatusCode::UNAVAILABLE);
  EXPECT_FALSE(fs::exists(runDirectory(scratch) / "p4runtime.addr"));

  std::set<uint32_t> kept;
  for (const auto& row : E2e::shownRows(scratch.root(), "VaneEcmpMember")) {
    kept.insert(row.at("id").get<uint32_t>());
  }
  size_t expected = 0;
  for (const MemberWriter& writer : writers) {
    // Refused, or its connection went; or the server had stopped before it looked at the write; or
    // the primary had gone before the write came.
    EXPECT_TRUE(writer.end == StatusCode::UNAVAILABLE || writer.end == StatusCode::CANCELLED ||
                writer.end == StatusCode::PERMISSION_DENIED)
        << writer.end;
    for (uint32_t n = 1; n <= writer.acknowledged; ++n) {
      ASSERT_TRUE(kept.contains(writer.first + n)) << writer.first + n;
    }
    // The write that had no answer may have been done.
    expected += writer.acknowledged + kept.count(writer.first + writer.acknowledged + 1);
  }
  EXPECT_EQ(kept.size(), expected);
}

TEST(AgentsListening, IsLeftOutWithOnceAndWithNone) {
  const E2e::Scratch scratch;
  const auto once = E2e::run(E2e::agentOn(scratch.root(), {"--once"}));
  EXPECT_EQ(once.status, 0) << once.err;
  EXPECT_EQ(once.err.find("P4Runtime on"), std::string::npos) << once.err;
  const auto asked = E2e::run(E2e::agentOn(scratch.root(), {"--once", "--listen", "127.0.0.1:0"}));
  EXPECT_NE(asked.err.find("P4Runtime on 127.0.0.1:"), std::string::npos) << asked.err;
}

TEST(AgentsListening, WhereAnotherAgentListensIsOneClearLine) {
  const E2e::Scratch scratch, elsewhere;
  const ServingAgent first(scratch);
  const std::string address = addressIn(runDirectory(scratch));
  const auto second =
      E2e::run(E2e::agentOn(elsewhere.root(), {"--listen", address, "--log-level", "error"}));
  EXPECT_EQ(second.status, 1);
  EXPECT_EQ(second.err, "p4rt-agent: cannot listen on " + address + ": Address already in use\n");
}

TEST(AgentsListening, WithWrongOptionsIsRefusedBeforeAnythingIsMounted) {
  const E2e::Scratch scratch;
  const std::vector<std::pair<std::vector<std::string>, std::string>> wrong{
      {{"--listen", "nowhere"}, "nowhere"},
      {{"--listen", "none", "--listen", "127.0.0.1:0"}, "none alone"},
      {{"--device-id", "0"}, "--device-id"},
      {{"--tls-cert", "x.pem"}, "all three"},
      {{"--pipeline", "borrowed"}, "--pipeline"},
      {{"--max-calls", "0"}, "--max-calls"},
  };
  for (const auto& [arguments, text] : wrong) {
    const auto ended = E2e::run(E2e::agentOn(scratch.root(), arguments));
    EXPECT_NE(ended.status, 0);
    EXPECT_NE(ended.err.find(text), std::string::npos) << ended.err;
  }
  EXPECT_FALSE(fs::exists(scratch.root()));
}

}  // namespace
}  // namespace RpcTest
