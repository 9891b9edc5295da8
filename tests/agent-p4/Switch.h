// A switch with P4Runtime: the reference platform over a directory of its own, the real plug-in,
// the agent's loop on a thread, the target, its service, and a client at the other end of a socket.
#pragma once

#include <fcntl.h>
#include <gmock/gmock.h>
#include <google/protobuf/text_format.h>
#include <google/protobuf/util/message_differencer.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "agent/EventLoop.h"
#include "agent/LoopGate.h"
#include "agent/RowTable.h"
#include "agent/Tables.h"
#include "agent/p4/P4Info.h"
#include "agent/p4/RowTarget.h"
#include "platform/Hub/Mount.h"
#include "platform/Hub/ReferenceHub.h"
#include "platform/Kit/FileDescriptor.h"
#include "platform/P4Runtime/PluginLibrary.h"
#include "platform/Shoal/TableFormat.h"
#include "tests/agent-p4/Socket.h"

namespace P4Test {

using Agent::P4::RowTarget;
using grpc::StatusCode;
using p4::v1::Entity;
using p4::v1::Update;
using p4::v1::WriteRequest;
using Codes = std::vector<int>;

inline constexpr uint32_t override4 = 0x02000001;
inline constexpr uint32_t fallback4 = 0x02000002;
inline constexpr uint32_t vrf4 = 0x02000003;
inline constexpr uint32_t override6 = 0x02000004;
inline constexpr uint32_t fallback6 = 0x02000005;
inline constexpr uint32_t vrf6 = 0x02000006;
inline constexpr uint32_t encap4 = 0x02000007;
inline constexpr uint32_t encap6 = 0x02000008;
inline constexpr uint32_t ecmp = 0x11000001;
inline constexpr uint32_t setNexthop = 0x01000001;
inline constexpr uint32_t setEncap4 = 0x01000002;
inline constexpr uint32_t setEncap6 = 0x01000003;
inline constexpr uint32_t noAction = 0x01000004;

class Directory {
 public:
  Directory() {
    std::string name = "/dev/shm/p4-test-XXXXXX";
    if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("no private directory");
    path = name;
  }
  Directory(const Directory&) = delete;
  ~Directory() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
  std::filesystem::path path;
};

class Switch {
 public:
  struct Options {
    uint32_t capacity = 64;  // of each table
    bool hasFixedPipeline = true;
    Agent::P4::ActiveReads::Limits reads{};
  };

  explicit Switch(Options options) : options_(options) { start(); }
  Switch() : Switch(Options{}) {}
  ~Switch() { stop(); }

  // As when the agent ends and comes again over the tables that it left.
  void restart() {
    stop();
    start();
  }
  // Changes how many slots a shared table says have ever been used, which is where a walk ends;
  // what it said before.
  uint32_t slotsAre(const std::string& table, uint32_t slots) {
    const Kit::FileDescriptor file(::open(fileOf(table).c_str(), O_RDWR));
    uint32_t before = 0;
    constexpr off_t at = offsetof(Shoal::Header, highWater);
    EXPECT_EQ(::pread(file.get(), &before, sizeof before, at), 4);
    EXPECT_EQ(::pwrite(file.get(), &slots, sizeof slots, at), 4);
    return before;
  }

  RowTarget& target() { return *target_; }
  Agent::LoopGate& gate() { return *gate_; }
  int batches() const { return batches_; }

  void onLoop(const std::function<void()>& work) {
    std::promise<void> done;
    loop_->post([&] {
      work();
      done.set_value();
    });
    done.get_future().get();
  }

  RowTarget::WriteResult write(const WriteRequest& request) { return socket_->write(request); }
  RowTarget::WriteResult write(
      const std::vector<Update>& updates,
      WriteRequest::Atomicity atomicity = WriteRequest::CONTINUE_ON_ERROR) {
    WriteRequest request;
    request.set_atomicity(atomicity);
    for (const Update& update : updates) *request.add_updates() = update;
    return write(request);
  }
  // The code of each update.
  Codes codes(const std::vector<Update>& updates,
              WriteRequest::Atomicity atomicity = WriteRequest::CONTINUE_ON_ERROR) {
    const auto result = write(updates, atomicity);
    EXPECT_TRUE(result.refused.ok()) << result.refused.error_message();
    Codes codes;
    for (const auto& error : result.results) {
      codes.push_back(error.canonical_code());
      EXPECT_EQ(error.canonical_code() == 0, error.message().empty());
    }
    return codes;
  }
  int code(const Update& update) { return codes({update}).at(0); }
  std::string messageOf(const Update& update) { return write({update}).results.at(0).message(); }

  struct Answer {
    grpc::Status refused;
    Codes codes;
    std::vector<Entity> entities;
    size_t messages = 0;
  };
  Answer read(const p4::v1::ReadRequest& request) {
    return answer([&](const auto& take) { return socket_->read(request, take); });
  }
  // Without the socket, which may hold several messages: nothing is read on before the last one
  // has been taken.
  Answer readSlowly(const p4::v1::ReadRequest& request,
                    const std::function<void()>& betweenMessages) {
    return answer([&](const auto& take) {
      return target_->read(request, Agent::LoopGate::never, [&](const auto& message) {
        take(message);
        betweenMessages();
        return true;
      });
    });
  }
  // The answer to one good query.
  std::vector<Entity> read(const Entity& query) {
    p4::v1::ReadRequest request;
    *request.add_entities() = query;
    Answer answer = read(request);
    EXPECT_TRUE(answer.refused.ok()) << answer.refused.error_message();
    EXPECT_THAT(answer.codes, testing::ElementsAre(0));
    return std::move(answer.entities);
  }
  Codes readCodes(const std::vector<Entity>& queries) {
    p4::v1::ReadRequest request;
    for (const Entity& query : queries) *request.add_entities() = query;
    return read(request).codes;
  }

  grpc::Status pipelineIs(const p4::v1::SetForwardingPipelineConfigRequest& request) {
    return socket_->pipelineIs(request);
  }
  grpc::Status pipeline(const p4::v1::GetForwardingPipelineConfigRequest& request,
                        p4::v1::GetForwardingPipelineConfigResponse& response) {
    return socket_->pipeline(request, response);
  }

  // Rows as others see and write them.
  std::string json(const std::string& table, const std::function<Vane::BaseRow()>& keyRow) {
    std::string text;
    onLoop([&] {
      auto& rows = *database_->table(table);
      text = Vane::rowMetadata(rows.rowTypeName())->toJson(rows.row(keyRow(), 0));
    });
    return text;
  }
  std::vector<std::string> rows(const std::string& table) {
    std::vector<std::string> found;
    onLoop([&] {
      auto& rows = *database_->table(table);
      const auto toJson = Vane::rowMetadata(rows.rowTypeName())->toJson;
      for (const auto at = rows.begin(0); *at; ++*at) found.push_back(toJson(**at));
    });
    return found;
  }
  uint64_t size(const std::string& table) {
    uint64_t size = 0;
    onLoop([&] { size = database_->table(table)->size(); });
    return size;
  }
  // A row by column values, in column order.
  void writeRow(const std::string& table, const std::vector<Vane::ColumnValue>& values) {
    onLoop([&] { Agent::RowTable(table, database_->table(table)).set(values); });
  }
  void deleteRow(const std::string& table, const std::vector<Vane::ColumnValue>& values) {
    onLoop([&] {
      const auto rows = database_->table(table);
      rows->rowDel(Vane::RowLayout::of(rows->rowTypeName()).row(rows->rowTypeId(), values));
    });
  }
  void clearRows(const std::string& table) {
    onLoop([&] { database_->table(table)->rowDelAll(); });
  }

  const std::shared_ptr<Vane::VaneDB>& database() const { return database_; }
  const std::filesystem::path& root() const { return directory_.path; }

 private:
  template <class Read>
  Answer answer(const Read& read) {
    Answer answer;
    const auto result = read([&](const p4::v1::ReadResponse& message) {
      EXPECT_LT(message.ByteSizeLong(), 4u << 20);
      for (const auto& entity : message.entities()) answer.entities.push_back(entity);
      ++answer.messages;
    });
    answer.refused = result.refused;
    for (const auto& error : result.results) answer.codes.push_back(error.canonical_code());
    return answer;
  }
  std::filesystem::path fileOf(const std::string& table) const {
    return directory_.path / (std::string(Agent::tableInfo(table)->path) + ".shoal");
  }
  void start() {
    std::promise<void> ready;
    thread_ = std::thread([this, &ready] { serve(ready); });
    ready.get_future().get();
    socket_ = std::make_unique<Socket>(*target_);
  }
  void stop() {
    socket_.reset();
    onLoop([this] { loop_->stop(); });
    thread_.join();
  }

  // The loop's thread, from the first mount to the last.
  void serve(std::promise<void>& ready) {
    loop_ = std::make_unique<Agent::EventLoop>();
    gate_ = std::make_unique<Agent::LoopGate>(*loop_, 16);
    Hub::HubOptions hub;
    hub.shoalRoot = directory_.path;
    hub.post = [this](std::function<void()> work) { loop_->post(std::move(work)); };
    RowTarget::Options options{.capacities = {},
                               .hasFixedPipeline = options_.hasFixedPipeline,
                               .reads = options_.reads,
                               .afterBatch = [this] { ++batches_; }};
    for (const auto& table : Agent::routingTables()) {
      hub.capacities[std::string(table.path)] = options_.capacity;
      options.capacities[std::string(table.name)] = options_.capacity;
    }
    const auto manager = Hub::makeEntityManager(std::move(hub));
    database_ = Vane::makeVaneDB();
    Vane::VaneDB::currentIs(database_);
    P4Runtime::loadPluginLibrary(ROUTING_PLUGIN_FILE);
    const Kit::Ptr<P4Runtime::PluginContext> context(
        new P4Runtime::PluginContext("context", manager, database_, new Kit::Dir("plugins")));
    mount(manager);
    std::vector<Kit::Ptr<P4Runtime::P4RuntimePluginBase>> plugins;
    P4Runtime::startPlugins(&*context, plugins);
    loop_->post([&] {
      target_ = std::make_unique<RowTarget>(database_, *gate_, std::move(options));
      ready.set_value();
    });
    loop_->run();
    gate_->close();
    target_.reset();
    for (const auto& plugin : plugins) context->pluginDir()->entityDel(plugin->name());
    plugins.clear();
    // The plug-in's loader keeps its tables until it starts another; as a process that ends would,
    // let them go.
    for (const auto& table : Agent::routingTables()) {
      KitShoal::Mount(manager).doUnmount(Kit::String(table.path));
    }
    Vane::VaneDB::currentIs(nullptr);
    database_.reset();
  }
  void mount(const Kit::Ptr<Hub::EntityManager>& manager) const {
    for (const auto& table : Agent::routingTables()) {
      if (table.mountedBy != Agent::MountedBy::agent) continue;
      KitShoal::MountInfo info(KitShoal::KitShoalType::hashTable);
      info.collectionInfoIs({Kit::String(table.collection), options_.capacity});
      KitShoal::Mount(manager).doMount(Kit::String(table.path), Kit::String(table.entityType),
                                       info);
    }
  }

  const Options options_;
  Directory directory_;
  std::thread thread_;
  std::unique_ptr<Agent::EventLoop> loop_;
  std::unique_ptr<Agent::LoopGate> gate_;
  std::shared_ptr<Vane::VaneDB> database_;
  std::unique_ptr<RowTarget> target_;
  std::unique_ptr<Socket> socket_;
  int batches_ = 0;
};

// From protobuf's text form.
template <class Message>
Message parse(const std::string& text) {
  Message message;
  EXPECT_TRUE(google::protobuf::TextFormat::ParseFromString(text, &message)) << text;
  return message;
}
inline Entity entity(const std::string& text) { return parse<Entity>(text); }

inline Update updateOf(Update::Type type, Entity entity) {
  Update update;
  update.set_type(type);
  *update.mutable_entity() = std::move(entity);
  return update;
}
inline Update insert(Entity entity) { return updateOf(Update::INSERT, std::move(entity)); }
inline Update modify(Entity entity) { return updateOf(Update::MODIFY, std::move(entity)); }
inline Update del(Entity entity) { return updateOf(Update::DELETE, std::move(entity)); }

// A byte string of these bytes.
inline std::string bytes(std::initializer_list<int> values) {
  std::string made;
  for (const int value : values) made += static_cast<char>(value);
  return made;
}

// A next hop out of this port: MACs 02:00:00:00:00:01 and :02, tagged, encap type -1, VLAN 5.
inline p4::v1::Action nexthop(uint8_t port) {
  p4::v1::Action action;
  action.set_action_id(setNexthop);
  const std::string values[] = {
      bytes({port}), bytes({2, 0, 0, 0, 0, 1}),       bytes({2, 0, 0, 0, 0, 2}),
      bytes({1}),    bytes({0xff, 0xff, 0xff, 0xff}), bytes({5})};
  for (uint32_t id = 1; id <= 6; ++id) {
    auto& param = *action.add_params();
    param.set_param_id(id);
    param.set_value(values[id - 1]);
  }
  return action;
}

inline Entity member(uint32_t id, uint8_t port = 1) {
  Entity entity;
  auto& member = *entity.mutable_action_profile_member();
  member.set_action_profile_id(ecmp);
  member.set_member_id(id);
  *member.mutable_action() = nexthop(port);
  return entity;
}

struct GroupMember {
  uint32_t id;
  int32_t weight = 1;
  std::string watchPort = {};
};
inline Entity group(uint32_t id, const std::vector<GroupMember>& members, int32_t maxSize = 0) {
  Entity entity;
  auto& group = *entity.mutable_action_profile_group();
  group.set_action_profile_id(ecmp);
  group.set_group_id(id);
  group.set_max_size(maxSize);
  for (const GroupMember& each : members) {
    auto& member = *group.add_members();
    member.set_member_id(each.id);
    member.set_weight(each.weight);
    if (!each.watchPort.empty()) member.set_watch_port(each.watchPort);
  }
  return entity;
}

// 10.<host>.0.0/16
inline Entity prefix(uint8_t second, uint32_t table = override4) {
  Entity entity;
  auto& entry = *entity.mutable_table_entry();
  entry.set_table_id(table);
  auto& match = *entry.add_match();
  match.set_field_id(table == vrf4 ? 2 : 1);
  match.mutable_lpm()->set_value(bytes({10, second, 0, 0}));
  match.mutable_lpm()->set_prefix_len(16);
  return entity;
}
inline Entity toMember(Entity route, uint32_t member) {
  route.mutable_table_entry()->mutable_action()->set_action_profile_member_id(member);
  return route;
}
inline Entity toGroup(Entity route, uint32_t group) {
  route.mutable_table_entry()->mutable_action()->set_action_profile_group_id(group);
  return route;
}
struct SetAction {
  uint8_t port;
  int32_t weight = 1;
  std::string watchPort = {};
};
inline Entity toSet(Entity route, const std::vector<SetAction>& actions) {
  auto& set = *route.mutable_table_entry()->mutable_action()->mutable_action_profile_action_set();
  for (const SetAction& each : actions) {
    auto& action = *set.add_action_profile_actions();
    *action.mutable_action() = nexthop(each.port);
    action.set_weight(each.weight);
    if (!each.watchPort.empty()) action.set_watch_port(each.watchPort);
  }
  return route;
}
// VRF `vrf`, 10.<second>.0.0/16
inline Entity vrfPrefix(uint8_t vrf, uint8_t second) {
  Entity made = prefix(second, vrf4);
  auto& match = *made.mutable_table_entry()->add_match();
  match.set_field_id(1);
  match.mutable_exact()->set_value(bytes({vrf}));
  return made;
}
inline Entity encap(uint8_t id, uint8_t type = 7) {
  Entity made;
  auto& entry = *made.mutable_table_entry();
  entry.set_table_id(encap4);
  auto& match = *entry.add_match();
  match.set_field_id(1);
  match.mutable_exact()->set_value(bytes({id}));
  auto& action = *entry.mutable_action()->mutable_action();
  action.set_action_id(setEncap4);
  const std::string values[] = {bytes({type}), bytes({192, 0, 2, 1}), bytes({192, 0, 2, 2})};
  for (uint32_t param = 1; param <= 3; ++param) {
    auto& to = *action.add_params();
    to.set_param_id(param);
    to.set_value(values[param - 1]);
  }
  return made;
}

// 2001:db8:<third>::/48
inline Entity prefix6(uint8_t third, uint32_t table = override6) {
  Entity made = prefix(0, table);
  auto& match = *made.mutable_table_entry()->mutable_match(0);
  match.set_field_id(table == vrf6 ? 2 : 1);
  match.mutable_lpm()->set_value(
      bytes({0x20, 1, 0xd, 0xb8, 0, third, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
  match.mutable_lpm()->set_prefix_len(48);
  return made;
}
inline Entity vrfPrefix6(uint8_t vrf, uint8_t third) {
  Entity made = prefix6(third, vrf6);
  auto& match = *made.mutable_table_entry()->add_match();
  match.set_field_id(1);
  match.mutable_exact()->set_value(bytes({vrf}));
  return made;
}
// From 2001:db8::1 to ::2
inline Entity encapIn6(uint8_t id, uint8_t type = 7) {
  Entity made = encap(id, type);
  auto& entry = *made.mutable_table_entry();
  entry.set_table_id(encap6);
  auto& action = *entry.mutable_action()->mutable_action();
  action.set_action_id(setEncap6);
  action.mutable_params(1)->set_value(
      bytes({0x20, 1, 0xd, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}));
  action.mutable_params(2)->set_value(bytes({2}));
  return made;
}

// Queries.
inline Entity allEntries() { return entity("table_entry {}"); }
inline Entity entriesOf(uint32_t table) {
  Entity made;
  made.mutable_table_entry()->set_table_id(table);
  return made;
}
inline Entity allMembers() { return entity("action_profile_member {}"); }
inline Entity allGroups() { return entity("action_profile_group {}"); }

// Whether two entities are the same; the order inside repeated fields does not count.
inline bool same(const Entity& a, const Entity& b) {
  google::protobuf::util::MessageDifferencer differencer;
  differencer.set_repeated_field_comparison(
      google::protobuf::util::MessageDifferencer::AS_SMART_SET);
  return differencer.Compare(a, b);
}
MATCHER_P(IsEntity, expected, expected.ShortDebugString()) { return same(arg, expected); }

}  // namespace P4Test
