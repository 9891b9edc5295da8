#include "agent/p4/Translator.h"

#include <algorithm>

#include "agent/p4/ByteString.h"
#include "agent/p4/Fault.h"

namespace Agent::P4 {
namespace {

using grpc::StatusCode;
using p4::v1::ActionProfileActionSet;
using p4::v1::ActionProfileGroup;
using p4::v1::FieldMatch;
using Op = Update::Op;

constexpr uint32_t lastPort = 0xfffffeff;
constexpr size_t maxMetadata = 4096;  // bytes of an entry; held in memory

Op opOf(p4::v1::Update::Type type) {
  switch (type) {
    case p4::v1::Update::INSERT:
      return Op::insert;
    case p4::v1::Update::MODIFY:
      return Op::modify;
    case p4::v1::Update::DELETE:
      return Op::del;
    default:
      invalid("update type {}: expected INSERT, MODIFY or DELETE", static_cast<int>(type));
  }
}

std::string quoted(const std::string& name) { return '"' + name + '"'; }
std::string called(const Role& role) {
  return (role.isTable() ? "table " : "action profile ") + quoted(role.name);
}

// Members and groups of ours are not there for clients.
void needClientId(uint32_t id, const char* what, Op op) {
  if (id == 0) invalid("{} id 0", what);
  if (!isReservedId(id)) return;
  if (op != Op::insert) fail(StatusCode::NOT_FOUND, "{} {} is not there", what, id);
  invalid("{} id {}: expected 1 to {}; those above are kept for one-shot action sets", what, id,
          reservedIdBit - 1);
}

// What is left of a prefix value once its length is known.
void shorten(Vane::ColumnValue& value, int length, int width) {
  if (length <= 0 || length > width) {
    invalid("prefix length {}, expected 1 to {}; the field is left out to match everything", length,
            width);
  }
  auto& prefix = std::get<Wire::IpGenPrefix>(value);
  prefix.length = static_cast<uint8_t>(length);
  if (!isCanonical(prefix)) invalid("bits below the prefix length {} are not zero", length);
}

std::shared_ptr<SideData> unlessDefault(SideData side) {
  return side.isDefault() ? nullptr : std::make_shared<SideData>(std::move(side));
}

template <class Entry>
void noteWatch(SideData& side, const Entry& entry, size_t at, size_t count) {
  if (entry.watch_kind_case() != Entry::kWatch) return;
  side.watches.resize(count);
  side.watches[at] = true;
}

}  // namespace

template <class Entry>
uint32_t watchedPort(const Entry& entry) {
  uint32_t port = 0;
  switch (entry.watch_kind_case()) {
    case Entry::kWatch:
      port = static_cast<uint32_t>(entry.watch());
      if (port == 0) return 0;
      break;
    case Entry::kWatchPort:
      if (entry.watch_port().empty()) return 0;
      port = static_cast<uint32_t>(within([] { return std::string("watch_port"); },
                                          [&] { return readNumber(entry.watch_port(), 32); }));
      break;
    default:
      return 0;
  }
  if (port == 0 || port > lastPort) {
    invalid("watched port {:#x}: expected 0x1 to {:#x}", port, lastPort);
  }
  return port;
}
template uint32_t watchedPort(const ActionProfileGroup::Member&);
template uint32_t watchedPort(const p4::v1::ActionProfileAction&);

Translator::Translator(const Roles& roles, const Pipeline& pipeline)
    : roles_(roles), pipeline_(pipeline) {
  values_.reserve(roles.all().size());
  for (const Role& role : roles.all()) {
    Values& values = values_.emplace_back();
    for (const auto& column : role.layout.columns()) {
      values.push_back(Vane::zeroValue(column.type));
    }
    if (role.genId) values[role.genId.index] = pipeline.number;
    if (role.valid) values[role.valid.index] = true;
    if (role.entryId) values[role.entryId.index] = role.id;
  }
}

Update Translator::update(const p4::v1::Update& from) {
  role_ = nullptr;
  Update made;
  made.op = opOf(from.type());
  const p4::v1::Entity& entity = from.entity();
  switch (entity.entity_case()) {
    case p4::v1::Entity::kTableEntry:
      tableEntry(entity.table_entry(), made);
      break;
    case p4::v1::Entity::kActionProfileMember:
      member(entity.action_profile_member(), made);
      break;
    case p4::v1::Entity::kActionProfileGroup:
      group(entity.action_profile_group(), made);
      break;
    case p4::v1::Entity::ENTITY_NOT_SET:
      invalid("the update has no entity");
    default:
      fail(StatusCode::UNIMPLEMENTED,
           "entities of this kind are not supported; expected table "
           "entries, action profile members and groups");
  }
  return made;
}

const Role& Translator::table(uint32_t id) const {
  const Role* role = roles_.table(id);
  if (!role || !pipeline_.part(*role).isOffered) {
    invalid("table id {:#010x} is not in the P4Info", id);
  }
  return *role;
}

void Translator::needProfile(uint32_t id) const {
  if (id != ecmpProfileId || !pipeline_.part(roles_.member()).isOffered) {
    invalid("action profile id {:#010x} is not in the P4Info", id);
  }
}

Vane::BaseRow Translator::keyRow(const Role& table, const p4::v1::TableEntry& entry) {
  readKey(table, entry);
  clearAllButKey(table);
  return row(table);
}

Vane::BaseRow Translator::keyRow(const Role& role, uint32_t id) {
  keyIs(role, id);
  return row(role);
}

void Translator::keyIs(const Role& role, uint32_t id) {
  values(role)[role.keys.front().index] = id;
  clearAllButKey(role);
}

void Translator::clearAllButKey(const Role& role) {
  for (const Field& field : role.params) values(role)[field.index] = Vane::zeroValue(field.type);
  if (role.destinationType) destinationIs(role, DestinationType::none, 0);
  if (role.members) {
    values(role)[role.members.index] = std::vector<uint32_t>();
    values(role)[role.watchPorts.index] = std::vector<uint32_t>();
  }
}

void Translator::destinationIs(const Role& role, DestinationType type, uint32_t id) {
  values(role)[role.destinationType.index] = static_cast<int32_t>(type);
  values(role)[role.destinationId.index] = id;
}

void Translator::tableEntry(const p4::v1::TableEntry& entry, Update& made) {
  const Role& role = table(entry.table_id());
  made.role = role_ = &role;
  within([&] { return called(role); },
         [&] {
           if (entry.is_default_action()) defaultEntry(entry, made.op);
           readKey(role, entry);
           if (made.op == Op::del) {
             clearAllButKey(role);
             return pack(role, made);
           }
           if (entry.is_const()) invalid("is_const is not for clients to set");
           if (entry.has_meter_config() || entry.has_counter_data() ||
               entry.has_meter_counter_data()) {
             invalid("the table has no counters and no meters");
           }
           if (entry.idle_timeout_ns() != 0 || entry.has_time_since_last_hit()) {
             invalid("the table has no idle timeout");
           }
           if (entry.metadata().size() > maxMetadata) {
             invalid("metadata of {} bytes, expected at most {}", entry.metadata().size(),
                     maxMetadata);
           }
           if (!entry.metadata().empty() || entry.controller_metadata() != 0) {
             made.side = std::make_shared<SideData>(SideData{
                 .metadata = entry.metadata(), .controllerMetadata = entry.controller_metadata()});
           }
           made.keepsAction = !entry.has_action();
           if (!made.keepsAction) {
             readAction(entry.action(), made);
           } else if (made.op == Op::insert) {
             invalid("INSERT without action");
           } else {
             clearAllButKey(role);
           }
           pack(role, made);
         });
}

// It is NoAction for good, whatever is asked.
void Translator::defaultEntry(const p4::v1::TableEntry& entry, Op op) const {
  if (op != Op::modify) invalid("the default entry can only be modified");
  needBareDefault(entry);
  if (entry.idle_timeout_ns() != 0 || entry.has_time_since_last_hit()) {
    invalid("the default entry has no idle timeout");
  }
  fail(StatusCode::PERMISSION_DENIED, "the default entry is constant");
}

void Translator::needNoPriority(const p4::v1::TableEntry& entry) {
  if (entry.priority() != 0) {
    invalid("priority {}: expected 0, the table's entries have none", entry.priority());
  }
}

void Translator::needBareDefault(const p4::v1::TableEntry& entry) {
  if (entry.match_size() != 0 || entry.priority() != 0) {
    invalid("the default entry has no match and no priority");
  }
}

void Translator::readKey(const Role& role, const p4::v1::TableEntry& entry) {
  needNoPriority(entry);
  uint32_t given = 0;  // bit i: key i
  for (const FieldMatch& match : entry.match()) {
    const uint32_t at = match.field_id() - 1;
    if (at >= role.keys.size()) invalid("match field id {} is not known", match.field_id());
    const Field& field = role.keys[at];
    if (given >> at & 1) invalid("match field {} stands twice", quoted(field.name));
    given |= 1u << at;
    within([&] { return "match field " + quoted(field.name); },
           [&] { readField(role, field, match); });
  }
  for (size_t at = 0; at < role.keys.size(); ++at) {
    if (given >> at & 1) continue;
    const Field& field = role.keys[at];
    if (!field.isPrefix()) invalid("match field {}: expected, not found", quoted(field.name));
    values(role)[field.index] = Wire::IpGenPrefix{.family = role.family};
  }
}

void Translator::readField(const Role& role, const Field& field, const FieldMatch& match) {
  Vane::ColumnValue& value = values(role)[field.index];
  if (field.isPrefix()) {
    if (!match.has_lpm()) invalid("expected an LPM match");
    readColumn(match.lpm().value(), field.width, role.family, value);
    shorten(value, match.lpm().prefix_len(), field.width);
  } else {
    if (!match.has_exact()) invalid("expected an exact match");
    readColumn(match.exact().value(), field.width, role.family, value);
  }
}

void Translator::readAction(const p4::v1::TableAction& action, Update& made) {
  const Role& role = *made.role;
  if (!pipeline_.part(role).hasAction) invalid("the P4Info has no action for this table's entries");
  if (role.kind == Kind::encap) {
    if (!action.has_action()) invalid("expected an action");
    return readCall(role, action.action());
  }
  switch (action.type_case()) {
    case p4::v1::TableAction::kActionProfileMemberId:
      if (action.action_profile_member_id() == 0) invalid("member id 0");
      return destinationIs(role, DestinationType::member, action.action_profile_member_id());
    case p4::v1::TableAction::kActionProfileGroupId:
      if (action.action_profile_group_id() == 0) invalid("group id 0");
      return destinationIs(role, DestinationType::group, action.action_profile_group_id());
    case p4::v1::TableAction::kActionProfileActionSet:
      // The group's id is given when it is made.
      destinationIs(role, DestinationType::group, 0);
      return oneShot(action.action_profile_action_set(), made);
    default:
      invalid("expected a member, a group or an action set of the action profile");
  }
}

void Translator::readCall(const Role& role, const p4::v1::Action& call) {
  if (call.action_id() == noActionId && pipeline_.part(role).hasNoAction) {
    fail(StatusCode::PERMISSION_DENIED, "NoAction is for default entries only");
  }
  if (call.action_id() != role.actionId) {
    invalid("action id {:#010x}: expected {:#010x}, \"{}\"", call.action_id(), role.actionId,
            role.actionName);
  }
  uint32_t given = 0;  // bit i: parameter i
  for (const auto& param : call.params()) {
    const uint32_t at = param.param_id() - 1;
    if (at >= role.params.size()) invalid("parameter id {} is not known", param.param_id());
    const Field& field = role.params[at];
    if (given >> at & 1) invalid("parameter {} stands twice", quoted(field.name));
    given |= 1u << at;
    within([&] { return "parameter " + quoted(field.name); },
           [&] { readColumn(param.value(), field.width, role.family, values(role)[field.index]); });
  }
  for (size_t at = 0; at < role.params.size(); ++at) {
    if (!(given >> at & 1)) {
      invalid("parameter {}: expected, not found", quoted(role.params[at].name));
    }
  }
}

uint32_t Translator::weight(int32_t given) const {
  if (pipeline_.areWeightsDisallowed) {
    if (given != 0) invalid("weight {}: expected 0, the action profile has no weights", given);
    return 1;
  }
  if (given <= 0) invalid("weight {}: expected 1 or more", given);
  return static_cast<uint32_t>(given);
}

void Translator::oneShot(const ActionProfileActionSet& set, Update& made) {
  const Role& member = roles_.member();
  switch (set.action_selection_mode()) {
    case ActionProfileActionSet::DEFAULT_MODE_DETERMINED_BY_ACTION_SELECTOR:
    case ActionProfileActionSet::HASH:
      break;
    case ActionProfileActionSet::RANDOM:
      fail(StatusCode::UNIMPLEMENTED, "action_selection_mode RANDOM: this switch selects by hash");
    default:
      invalid("action_selection_mode {} is not known",
              static_cast<int>(set.action_selection_mode()));
  }
  switch (set.size_semantics()) {
    case ActionProfileActionSet::DEFAULT_SIZE_DETERMINED_BY_ACTION_SELECTOR:
    case ActionProfileActionSet::SUM_OF_WEIGHTS:
      break;
    case ActionProfileActionSet::SUM_OF_MEMBERS:
      fail(StatusCode::UNIMPLEMENTED, "size_semantics SUM_OF_MEMBERS: this switch counts weights");
    default:
      invalid("size_semantics {} is not known", static_cast<int>(set.size_semantics()));
  }
  if (set.has_group_action()) {
    fail(StatusCode::UNIMPLEMENTED, "group_action: groups of this switch have no action");
  }

  SideData side = made.side ? *made.side : SideData{};
  side.selectionMode = set.action_selection_mode();
  side.sizeSemantics = set.size_semantics();
  auto shot = std::make_unique<OneShot>();
  const int count = set.action_profile_actions_size();
  uint64_t slots = 0;
  for (int i = 0; i < count; ++i) {
    const auto& each = set.action_profile_actions(i);
    within([&] { return fmt::format("action {} of the set", i + 1); },
           [&] {
             shot->weights.push_back(weight(each.weight()));
             slots += shot->weights.back();
             if (slots > pipeline_.maxGroupSize) {
               invalid("the weights add up to more than {}", pipeline_.maxGroupSize);
             }
             shot->ports.push_back(watchedPort(each));
             noteWatch(side, each, static_cast<size_t>(i), static_cast<size_t>(count));
             readCall(member, each.action());
             values(member)[member.keys.front().index] = uint32_t{0};
             shot->members.push_back(row(member));
           });
  }
  made.oneShot = std::move(shot);
  made.side = unlessDefault(std::move(side));
}

void Translator::member(const p4::v1::ActionProfileMember& member, Update& made) {
  const Role& role = roles_.member();
  made.role = role_ = &role;
  needProfile(member.action_profile_id());
  within([&] { return called(role); },
         [&] {
           needClientId(member.member_id(), "member", made.op);
           if (made.op == Op::del) {
             keyIs(role, member.member_id());
             return pack(role, made);
           }
           within([&] { return fmt::format("member {}", member.member_id()); },
                  [&] {
                    if (!member.has_action()) invalid("expected an action");
                    if (!pipeline_.part(role).hasAction)
                      invalid("the profile's tables have no action for it");
                    readCall(role, member.action());
                  });
           values(role)[role.keys.front().index] = member.member_id();
           pack(role, made);
         });
}

void Translator::group(const ActionProfileGroup& group, Update& made) {
  const Role& role = roles_.group();
  made.role = role_ = &role;
  needProfile(group.action_profile_id());
  within([&] { return called(role); },
         [&] {
           needClientId(group.group_id(), "group", made.op);
           if (made.op == Op::del) {
             keyIs(role, group.group_id());
             return pack(role, made);
           }
           within([&] { return fmt::format("group {}", group.group_id()); },
                  [&] { readGroupMembers(group, made); });
           values(role)[role.keys.front().index] = group.group_id();
           pack(role, made);
         });
}

void Translator::readGroupMembers(const ActionProfileGroup& group, Update& made) {
  const Role& role = *made.role;
  const auto limit = static_cast<int32_t>(pipeline_.maxGroupSize);
  if (group.max_size() < 0 || group.max_size() > limit) {
    invalid("max_size {}: expected 0 to {}", group.max_size(), limit);
  }
  SideData side{.maxSize = group.max_size()};
  auto& members = std::get<std::vector<uint32_t>>(values(role)[role.members.index]);
  auto& ports = std::get<std::vector<uint32_t>>(values(role)[role.watchPorts.index]);
  members.clear();
  ports.clear();
  distinct_.clear();
  uint64_t slots = 0;
  for (int i = 0; i < group.members_size(); ++i) {
    const auto& each = group.members(i);
    within([&] { return fmt::format("member {}", each.member_id()); },
           [&] {
             if (each.member_id() == 0) invalid("the id is 0");
             const uint32_t width = weight(each.weight());
             const uint32_t port = watchedPort(each);
             noteWatch(side, each, static_cast<size_t>(i),
                       static_cast<size_t>(group.members_size()));
             slots += width;
             distinct_.push_back(each.member_id());
             if (slots > maxGroupSlots) return;
             members.insert(members.end(), width, each.member_id());
             ports.insert(ports.end(), width, port);
           });
  }
  std::ranges::sort(distinct_);
  const auto twice = std::ranges::adjacent_find(distinct_);
  if (twice != distinct_.end()) invalid("member {} stands twice", *twice);
  const int32_t room = group.max_size() != 0 ? group.max_size() : limit;
  if (slots > static_cast<uint64_t>(room)) {
    fail(StatusCode::RESOURCE_EXHAUSTED, "the weights add up to {}, the group has room for {}",
         slots, room);
  }
  made.side = std::make_shared<SideData>(std::move(side));
}

}  // namespace Agent::P4
