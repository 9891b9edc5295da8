// What clients say to the switch over P4Runtime, from the message on: no socket lies between. Every
// update has its error or none, what is refused changes nothing, what is accepted is there, nothing
// is ever answered with INTERNAL; and in the end everything that can be read can be deleted.
//
// An input is a message Steps (fuzz/steps.proto) in protobuf's text form. The mutator changes the
// message, not its text, so that most of what it makes is a message again.
#include <google/protobuf/io/tokenizer.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <google/protobuf/message.h>
#include <google/protobuf/text_format.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "agent/EventLoop.h"
#include "agent/LoopGate.h"
#include "agent/Tables.h"
#include "agent/p4/Arbitration.h"
#include "agent/p4/RowTarget.h"
#include "fuzz/Fuzz.h"
#include "fuzz/TempRoot.h"
#include "platform/Hub/Mount.h"
#include "platform/Hub/ReferenceHub.h"
#include "platform/P4Runtime/PluginLibrary.h"
#include "platform/Vane/VaneDB.h"
#include "steps.pb.h"

namespace {

using Agent::P4::RowTarget;
using Fuzz::need;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::Reflection;
using grpc::StatusCode;
using p4::v1::Entity;
using p4::v1::Update;
using p4::v1::WriteRequest;

constexpr uint32_t capacity = 32;

// The plug-in's tables, the agent's loop on a thread of its own, and a target that is made anew for
// each input.
class Switch {
 public:
  explicit Switch(std::filesystem::path root) : root_(std::move(root)) {
    std::promise<void> ready;
    std::thread([this, &ready] { serve(ready); }).detach();
    ready.get_future().get();
  }

  void reset() {
    onLoop([this] {
      target_.reset();
      for (const auto& name : database_->tableNames()) database_->table(name)->rowDelAll();
      RowTarget::Options options;
      for (const auto& table : Agent::routingTables()) {
        options.capacities[std::string(table.name)] = capacity;
      }
      target_ = std::make_unique<RowTarget>(database_, *gate_, std::move(options));
    });
  }
  RowTarget& target() { return *target_; }

  // What every table holds.
  std::vector<std::string> rows() {
    std::vector<std::string> found;
    onLoop([&] {
      for (const auto& name : database_->tableNames()) {
        const auto table = database_->table(name);
        const auto toJson = Vane::rowMetadata(table->rowTypeName())->toJson;
        for (const auto at = table->begin(0); *at; ++*at) found.push_back(name + toJson(**at));
      }
    });
    std::ranges::sort(found);
    return found;
  }

 private:
  void onLoop(const std::function<void()>& work) {
    need(gate_->run(work) == Agent::LoopGate::Outcome::done, "the loop does its work");
  }

  void serve(std::promise<void>& ready) {
    loop_ = std::make_unique<Agent::EventLoop>();
    gate_ = std::make_unique<Agent::LoopGate>(*loop_, 16);
    Hub::HubOptions hub;
    hub.shoalRoot = root_;
    hub.post = [this](std::function<void()> work) { loop_->post(std::move(work)); };
    for (const auto& table : Agent::routingTables()) {
      hub.capacities[std::string(table.path)] = capacity;
    }
    manager_ = Hub::makeEntityManager(std::move(hub));
    database_ = Vane::makeVaneDB();
    Vane::VaneDB::currentIs(database_);
    context_ =
        new P4Runtime::PluginContext("context", manager_, database_, new Kit::Dir("plugins"));
    for (const auto& table : Agent::routingTables()) {
      if (table.mountedBy != Agent::MountedBy::agent) continue;
      KitShoal::MountInfo info(KitShoal::KitShoalType::hashTable);
      info.collectionInfoIs({Kit::String(table.collection), capacity});
      KitShoal::Mount(manager_).doMount(Kit::String(table.path), Kit::String(table.entityType),
                                        info);
    }
    P4Runtime::startPlugins(&*context_, plugins_);
    loop_->post([&ready] { ready.set_value(); });
    loop_->run();
  }

  const std::filesystem::path root_;
  std::unique_ptr<Agent::EventLoop> loop_;
  std::unique_ptr<Agent::LoopGate> gate_;
  Kit::Ptr<Hub::EntityManager> manager_;
  Kit::Ptr<P4Runtime::PluginContext> context_;
  std::vector<Kit::Ptr<P4Runtime::P4RuntimePluginBase>> plugins_;
  std::shared_ptr<Vane::VaneDB> database_;
  std::unique_ptr<RowTarget> target_;
};

// A fault of the agent's own is never the answer.
void needHonest(int code) {
  need(code >= StatusCode::OK && code <= StatusCode::UNAUTHENTICATED, "a code that there is");
  need(code != StatusCode::INTERNAL && code != StatusCode::UNKNOWN, "no fault of the agent's own");
}

void needResults(const RowTarget::WriteResult& result, int asked) {
  needHonest(result.refused.error_code());
  if (!result.refused.ok()) {
    need(result.results.empty(), "a call that is refused has no results");
    need(!result.refused.error_message().empty(), "who is refused is told why");
    return;
  }
  need(result.results.size() == static_cast<size_t>(asked), "one result each");
  for (const auto& error : result.results) {
    needHonest(error.canonical_code());
    need((error.canonical_code() == StatusCode::OK) == error.message().empty(),
         "what is refused is told why, and only that");
  }
}

class Conversation {
 public:
  explicit Conversation(Switch& device) : device_(device), target_(device.target()) {}

  void hear(const fuzz::Step& step) {
    switch (step.said_case()) {
      case fuzz::Step::kWrite:
        return write(step.write());
      case fuzz::Step::kRead:
        read(step.read());
        return;
      case fuzz::Step::kSetPipeline:
        return pipelineIs(step.set_pipeline());
      case fuzz::Step::kGetPipeline:
        return pipeline(step.get_pipeline());
      case fuzz::Step::kStream:
        return stream(step.stream());
      default:
        return;
    }
  }

  // All that can be read is deleted, users before what they use; then the tables are empty.
  void deleteAll() {
    if (hasOtherPipeline_) return;
    for (const auto& query : allOfAKind()) {
      p4::v1::ReadRequest request;
      *request.add_entities() = query;
      WriteRequest deletion;
      for (const Entity& entity : read(request)) {
        auto& update = *deletion.add_updates();
        update.set_type(Update::DELETE);
        *update.mutable_entity() = entity;
      }
      const auto result = target_.write(deletion, Agent::LoopGate::never);
      needResults(result, deletion.updates_size());
      need(result.refused.ok() && isGood(result), "what is read can be deleted");
    }
    need(device_.rows().empty(), "and nothing is left");
  }

 private:
  static std::vector<Entity> allOfAKind() {
    std::vector<Entity> queries(3);
    queries[0].mutable_table_entry();
    queries[1].mutable_action_profile_group();
    queries[2].mutable_action_profile_member();
    return queries;
  }
  static bool isGood(const RowTarget::WriteResult& result) {
    return std::ranges::all_of(result.results,
                               [](const auto& error) { return error.canonical_code() == 0; });
  }

  void write(const WriteRequest& request) {
    const auto before = device_.rows();
    const auto result = target_.write(request, Agent::LoopGate::never);
    needResults(result, request.updates_size());
    const auto good = std::ranges::count_if(
        result.results, [](const auto& error) { return error.canonical_code() == 0; });
    const bool isAllOrNothing = request.atomicity() == WriteRequest::ROLLBACK_ON_ERROR;
    if (isAllOrNothing) {
      need(good == 0 || good == request.updates_size(), "a batch is applied as a whole or not");
    }
    if (good == 0) need(device_.rows() == before, "what is refused changes nothing");
    if (good == 1 && request.updates_size() == 1) repeat(request);
  }

  // An entity that was inserted is there, one that was deleted is not.
  void repeat(const WriteRequest& request) {
    const auto result = target_.write(request, Agent::LoopGate::never);
    needResults(result, 1);
    const int code = result.refused.ok() ? result.results[0].canonical_code() : -1;
    switch (request.updates(0).type()) {
      case Update::INSERT:
        return need(code == StatusCode::ALREADY_EXISTS, "what was inserted exists already");
      case Update::DELETE:
        return need(code == StatusCode::NOT_FOUND, "what was deleted is not found");
      default:
        return need(code == StatusCode::OK, "what was modified can be modified");
    }
  }

  std::vector<Entity> read(const p4::v1::ReadRequest& request) {
    std::vector<Entity> found;
    const auto result =
        target_.read(request, Agent::LoopGate::never, [&](const p4::v1::ReadResponse& message) {
          need(message.ByteSizeLong() < 4u << 20, "a message has less than 4 MB");
          found.insert(found.end(), message.entities().begin(), message.entities().end());
          return true;
        });
    needResults(result, request.entities_size());
    return found;
  }

  void pipelineIs(const p4::v1::SetForwardingPipelineConfigRequest& request) {
    const auto before = device_.rows();
    const grpc::Status status = target_.pipelineIs(request, Agent::LoopGate::never);
    needHonest(status.error_code());
    hasOtherPipeline_ = hasOtherPipeline_ || status.ok();
    need(status.ok() || device_.rows() == before, "a pipeline that is refused changes nothing");
  }

  void pipeline(const p4::v1::GetForwardingPipelineConfigRequest& request) {
    p4::v1::GetForwardingPipelineConfigResponse response;
    needHonest(target_.pipeline(request, response).error_code());
  }

  // A stream ends with its first fault.
  void stream(const p4::v1::StreamMessageRequest& message) {
    if (!message.has_arbitration()) return;
    auto& stream = streams_[message.arbitration().election_id().low() % streams_.size()];
    if (!stream) {
      stream = std::make_unique<Agent::P4::Arbitration::Stream>(
          arbitration_, [](const auto& notice) { needHonestNotice(notice); });
    }
    const int code = stream->update(message.arbitration()).code();
    needHonest(code);
    if (code != StatusCode::OK) stream.reset();
    const auto primaries =
        std::ranges::count_if(streams_, [](const auto& each) { return each && each->isPrimary(); });
    if (!message.arbitration().has_role()) need(primaries <= 3, "a role has one primary");
  }
  static void needHonestNotice(const p4::v1::MasterArbitrationUpdate& notice) {
    needHonest(notice.status().code());
  }

  Switch& device_;
  RowTarget& target_;
  bool hasOtherPipeline_ = false;
  Agent::P4::Arbitration arbitration_{{}};
  std::array<std::unique_ptr<Agent::P4::Arbitration::Stream>, 3> streams_;
};

// Reads a message's text; says nothing of what is wrong with it.
bool parse(std::string_view text, fuzz::Steps& steps) {
  struct Silent : google::protobuf::io::ErrorCollector {
    void AddError(int, int, const std::string&) override {}
  } silent;
  google::protobuf::TextFormat::Parser parser;
  parser.RecordErrorsTo(&silent);
  parser.SetRecursionLimit(60);
  google::protobuf::io::ArrayInputStream in(text.data(), static_cast<int>(text.size()));
  return parser.Parse(&in, &steps);
}

// One change of a message somewhere inside it.
class Mutation {
 public:
  explicit Mutation(unsigned seed) : random_(seed) {}

  void apply(Message& root) {
    std::vector<Message*> all;
    collect(root, all);
    Message& message = *all[below(all.size())];
    switch (below(5)) {
      case 0:
        return copyFromAnother(message, all);
      case 1:
        return remove(message);
      default:
        return set(message);
    }
  }

 private:
  size_t below(size_t bound) { return random_() % bound; }
  uint64_t number() {
    // Ids of tables, actions and the profile; small numbers; anything.
    switch (below(4)) {
      case 0:
        return 0x02000001 + below(8);
      case 1:
        return below(2) ? 0x01000001 + below(4) : 0x11000001;
      case 2:
        return below(6);
      default:
        return below(8) ? below(300) : uint64_t{random_()} << below(33);
    }
  }
  std::string bytes() {
    std::string made(below(4) ? below(7) : below(18), '\0');
    for (char& byte : made) byte = static_cast<char>(below(3) ? below(4) : below(256));
    return made;
  }

  static void collect(Message& message, std::vector<Message*>& all) {
    all.push_back(&message);
    const Reflection& reflection = *message.GetReflection();
    std::vector<const FieldDescriptor*> fields;
    reflection.ListFields(message, &fields);
    for (const auto* field : fields) {
      if (field->cpp_type() != FieldDescriptor::CPPTYPE_MESSAGE) continue;
      if (!field->is_repeated()) {
        collect(*reflection.MutableMessage(&message, field), all);
        continue;
      }
      for (int i = 0; i < reflection.FieldSize(message, field); ++i) {
        collect(*reflection.MutableRepeatedMessage(&message, field, i), all);
      }
    }
  }

  void copyFromAnother(Message& message, const std::vector<Message*>& all) {
    const Message& other = *all[below(all.size())];
    if (other.GetDescriptor() != message.GetDescriptor()) return;
    const std::unique_ptr<Message> copy(other.New());
    copy->CopyFrom(other);
    message.CopyFrom(*copy);
  }

  void remove(Message& message) {
    const Reflection& reflection = *message.GetReflection();
    std::vector<const FieldDescriptor*> fields;
    reflection.ListFields(message, &fields);
    if (fields.empty()) return;
    const auto* field = fields[below(fields.size())];
    if (!field->is_repeated()) return reflection.ClearField(&message, field);
    const int count = reflection.FieldSize(message, field);
    reflection.SwapElements(&message, field, static_cast<int>(below(count)), count - 1);
    if (below(2)) reflection.RemoveLast(&message, field);
  }

  void set(Message& message) {
    const auto& descriptor = *message.GetDescriptor();
    if (descriptor.field_count() == 0) return;
    const auto* field = descriptor.field(static_cast<int>(below(descriptor.field_count())));
    const Reflection& reflection = *message.GetReflection();
    if (field->is_repeated()) return add(message, field, reflection);
    switch (field->cpp_type()) {
      case FieldDescriptor::CPPTYPE_INT32:
        return reflection.SetInt32(&message, field, static_cast<int32_t>(number()));
      case FieldDescriptor::CPPTYPE_INT64:
        return reflection.SetInt64(&message, field, static_cast<int64_t>(number()));
      case FieldDescriptor::CPPTYPE_UINT32:
        return reflection.SetUInt32(&message, field, static_cast<uint32_t>(number()));
      case FieldDescriptor::CPPTYPE_UINT64:
        return reflection.SetUInt64(&message, field, number());
      case FieldDescriptor::CPPTYPE_BOOL:
        return reflection.SetBool(&message, field, below(2) != 0);
      case FieldDescriptor::CPPTYPE_ENUM:
        return reflection.SetEnumValue(&message, field, static_cast<int>(below(6)));
      case FieldDescriptor::CPPTYPE_STRING:
        return reflection.SetString(&message, field, text(field));
      case FieldDescriptor::CPPTYPE_MESSAGE:
        reflection.MutableMessage(&message, field);
        return;
      default:
        return;
    }
  }
  void add(Message& message, const FieldDescriptor* field, const Reflection& reflection) {
    if (reflection.FieldSize(message, field) > 20) return;
    if (field->cpp_type() == FieldDescriptor::CPPTYPE_MESSAGE) {
      Message* made = reflection.AddMessage(&message, field);
      const int count = reflection.FieldSize(message, field);
      const int model = static_cast<int>(below(count));
      if (model != count - 1) {
        made->CopyFrom(reflection.GetRepeatedMessage(message, field, model));
      }
    } else if (field->cpp_type() == FieldDescriptor::CPPTYPE_STRING) {
      reflection.AddString(&message, field, text(field));
    } else if (field->cpp_type() == FieldDescriptor::CPPTYPE_UINT32) {
      reflection.AddUInt32(&message, field, static_cast<uint32_t>(number()));
    }
  }
  std::string text(const FieldDescriptor* field) {
    if (field->type() == FieldDescriptor::TYPE_BYTES) return bytes();
    return std::string(below(8), static_cast<char>('a' + below(26)));
  }

  std::mt19937 random_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const Fuzz::TempRoot root;
  static Switch& device = *new Switch(root.path);  // its loop runs to the end of the process
  fuzz::Steps steps;
  if (!parse({reinterpret_cast<const char*>(data), size}, steps)) return 0;
  device.reset();
  Conversation conversation(device);
  for (const auto& step : steps.step()) conversation.hear(step);
  conversation.deleteAll();
  return 0;
}

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize,
                                          unsigned seed) {
  fuzz::Steps steps;
  if (!parse({reinterpret_cast<const char*>(data), size}, steps)) steps.Clear();
  Mutation mutation(seed);
  for (unsigned i = 0; i <= seed % 4; ++i) mutation.apply(steps);
  std::string text;
  google::protobuf::TextFormat::Printer printer;
  printer.SetSingleLineMode(true);
  printer.PrintToString(steps, &text);
  if (text.size() > maxSize) return size;
  std::memcpy(data, text.data(), text.size());
  return text.size();
}
