#include "agent/p4/Pipeline.h"

#include <algorithm>
#include <set>

#include "agent/p4/Fault.h"
#include "agent/p4/P4Info.h"

namespace Agent::P4 {
namespace {

using p4::config::v1::ActionRef;
using p4::config::v1::MatchField;
using p4::config::v1::P4Info;

// How messages call an object: its kind, name and id.
template <class Object>
std::string called(const char* kind, const Object& object) {
  return fmt::format("{} \"{}\" (id {:#010x})", kind, object.preamble().name(),
                     object.preamble().id());
}

template <class Objects>
auto find(const Objects& objects, uint32_t id) {
  return std::ranges::find_if(objects,
                              [&](const auto& each) { return each.preamble().id() == id; });
}
template <class Objects>
bool has(const Objects& objects, uint32_t id) {
  return find(objects, id) != objects.end();
}

// A size of 0 leaves the choice to us.
uint64_t sizeUpTo(uint64_t ours, int64_t wanted, const char* what) {
  if (wanted < 0 || static_cast<uint64_t>(wanted) > ours) {
    invalid("{} {}, expected 0 to {}", what, wanted, ours);
  }
  return wanted == 0 ? ours : static_cast<uint64_t>(wanted);
}

class Check {
 public:
  Check(const Roles& roles, const P4Info& info)
      : ours_(makeP4Info(roles)), info_(info), roles_(roles) {}

  void run(Pipeline& made) {
    made.parts.resize(roles_.all().size());
    needNothingElse();
    for (const auto& action : info_.actions()) checkAction(action);
    for (const auto& table : info_.tables()) {
      within([&] { return called("table", table); }, [&] { checkTable(table, made); });
    }
    for (const auto& profile : info_.action_profiles()) {
      within([&] { return called("action profile", profile); },
             [&] { checkProfile(profile, made); });
    }
  }

 private:
  // The object of ours that this one has to be like.
  template <class Objects, class Object>
  const Object& known(const char* kind, const Objects& objects, const Object& object) {
    const uint32_t id = object.preamble().id();
    const auto found = find(objects, id);
    if (found == objects.end())
      invalid("{}: this switch has none of this id", called(kind, object));
    if (!ids_.insert(id).second) invalid("{}: the id stands twice", called(kind, object));
    return *found;
  }

  void needNothingElse() const {
    const auto none = [](const auto& objects, const char* what) {
      if (!objects.empty()) invalid("the P4Info has {}; this switch has none", what);
    };
    none(info_.counters(), "counters");
    none(info_.direct_counters(), "direct counters");
    none(info_.meters(), "meters");
    none(info_.direct_meters(), "direct meters");
    none(info_.controller_packet_metadata(), "packet metadata");
    none(info_.value_sets(), "value sets");
    none(info_.registers(), "registers");
    none(info_.digests(), "digests");
    none(info_.externs(), "externs");
    const auto& wanted = info_.pkg_info().platform_properties();
    if (wanted.multicast_group_table_size() != 0 ||
        wanted.multicast_group_table_total_replicas() != 0 ||
        wanted.multicast_group_table_max_replicas_per_entry() != 0) {
      invalid("platform_properties ask for multicast groups; this switch has none");
    }
  }

  void checkAction(const p4::config::v1::Action& action) {
    const auto& mine = known("action", ours_.actions(), action);
    if (action.params_size() != mine.params_size()) {
      invalid("{}: {} parameters, expected {}", called("action", action), action.params_size(),
              mine.params_size());
    }
    std::set<uint32_t> ids;
    for (const auto& param : action.params()) {
      const auto same = std::ranges::find_if(
          mine.params(), [&](const auto& each) { return each.id() == param.id(); });
      if (same == mine.params().end() || !ids.insert(param.id()).second) {
        invalid("{}: parameter id {} is not known, or stands twice", called("action", action),
                param.id());
      }
      if (param.bitwidth() != same->bitwidth()) {
        invalid("{}: parameter \"{}\" has {} bits, expected {}", called("action", action),
                param.name(), param.bitwidth(), same->bitwidth());
      }
    }
  }

  void checkTable(const p4::config::v1::Table& table, Pipeline& made) {
    const auto& mine = known("table", ours_.tables(), table);
    checkKey(table, mine);
    if (table.implementation_id() != mine.implementation_id()) {
      invalid("implementation_id {:#010x}, expected {:#010x}", table.implementation_id(),
              mine.implementation_id());
    }
    if (table.implementation_id() != 0 &&
        !has(info_.action_profiles(), table.implementation_id())) {
      invalid("implementation_id {:#010x} is no action profile of this P4Info",
              table.implementation_id());
    }
    checkDefault(table);
    if (table.direct_resource_ids_size() != 0) invalid("direct resources are not supported");
    if (table.idle_timeout_behavior() != p4::config::v1::Table::NO_TIMEOUT) {
      invalid("idle timeouts are not supported");
    }
    if (table.is_const_table() || table.has_initial_entries()) {
      invalid("constant and initial entries are not supported");
    }
    if (table.has_other_properties()) invalid("other_properties are not supported");

    Pipeline::Part& part = made.parts[roles_.table(table.preamble().id())->index];
    part.isOffered = true;
    checkActionRefs(table, mine, part);
    part.size = sizeUpTo(static_cast<uint64_t>(mine.size()), table.size(), "size");
  }

  static void checkKey(const p4::config::v1::Table& table, const p4::config::v1::Table& mine) {
    if (table.match_fields_size() != mine.match_fields_size()) {
      invalid("{} match fields, expected {}", table.match_fields_size(), mine.match_fields_size());
    }
    std::set<uint32_t> ids;
    for (const MatchField& field : table.match_fields()) {
      const auto same = std::ranges::find_if(
          mine.match_fields(), [&](const auto& each) { return each.id() == field.id(); });
      if (same == mine.match_fields().end() || !ids.insert(field.id()).second) {
        invalid("match field id {} is not known, or stands twice", field.id());
      }
      if (field.bitwidth() != same->bitwidth()) {
        invalid("match field \"{}\" has {} bits, expected {}", field.name(), field.bitwidth(),
                same->bitwidth());
      }
      if (field.match_case() != MatchField::kMatchType ||
          field.match_type() != same->match_type()) {
        invalid("match field \"{}\": expected match type {}", field.name(),
                MatchField::MatchType_Name(same->match_type()));
      }
    }
  }

  void checkActionRefs(const p4::config::v1::Table& table, const p4::config::v1::Table& mine,
                       Pipeline::Part& part) const {
    std::set<uint32_t> ids;
    for (const ActionRef& ref : table.action_refs()) {
      const bool same = std::ranges::any_of(
          mine.action_refs(), [&](const auto& each) { return each.id() == ref.id(); });
      if (!same || !ids.insert(ref.id()).second) {
        invalid("action id {:#010x} is none of this table, or stands twice", ref.id());
      }
      if (!has(info_.actions(), ref.id())) {
        invalid("action id {:#010x} is no action of this P4Info", ref.id());
      }
      const auto scope = ref.id() == noActionId ? ActionRef::DEFAULT_ONLY : ActionRef::TABLE_ONLY;
      if (ref.scope() != scope) {
        invalid("action id {:#010x} has scope {}, expected {}", ref.id(),
                ActionRef::Scope_Name(ref.scope()), ActionRef::Scope_Name(scope));
      }
      (ref.id() == noActionId ? part.hasNoAction : part.hasAction) = true;
    }
  }

  void checkDefault(const p4::config::v1::Table& table) const {
    const uint32_t constant = table.const_default_action_id();
    if (constant == 0) {
      invalid("const_default_action_id is not set, expected NoAction (id {:#010x})", noActionId);
    }
    const uint32_t initial = table.initial_default_action().action_id();
    for (const uint32_t id : {constant, initial}) {
      if (id != 0 && id != noActionId) {
        invalid("the default action is NoAction (id {:#010x}), found {:#010x}", noActionId, id);
      }
      if (id != 0 && !has(info_.actions(), id)) {
        invalid("default action id {:#010x} is no action of this P4Info", id);
      }
    }
  }

  void checkProfile(const p4::config::v1::ActionProfile& profile, Pipeline& made) {
    const auto& mine = known("action profile", ours_.action_profiles(), profile);
    if (!profile.with_selector()) invalid("expected with_selector");
    if (profile.has_sum_of_members()) {
      invalid("sum_of_members: the groups of this switch count weights");
    }
    Pipeline::Part part{.isOffered = true};
    for (const uint32_t id : profile.table_ids()) {
      const auto table = find(info_.tables(), id);
      if (table == info_.tables().end())
        invalid("table id {:#010x} is no table of this P4Info", id);
      if (table->implementation_id() != profile.preamble().id()) {
        invalid("table id {:#010x} does not use this profile", id);
      }
    }
    for (const Role& role : roles_.tables()) {
      if (role.kind != Kind::route) continue;
      part.hasAction = part.hasAction || made.part(role).hasAction;
      part.hasNoAction = part.hasNoAction || made.part(role).hasNoAction;
    }
    part.size = sizeUpTo(static_cast<uint64_t>(mine.size()), profile.size(), "size");
    made.maxGroupSize =
        static_cast<uint32_t>(sizeUpTo(maxGroupSlots, profile.max_group_size(), "max_group_size"));
    made.areWeightsDisallowed = profile.weights_disallowed();
    made.parts[roles_.member().index] = made.parts[roles_.group().index] = part;
  }

  const P4Info ours_;
  const P4Info& info_;
  const Roles& roles_;
  std::set<uint32_t> ids_;
};

}  // namespace

std::shared_ptr<Pipeline> realise(const Roles& roles,
                                  const p4::v1::ForwardingPipelineConfig& config) {
  if (!config.has_p4info()) invalid("expected a config with a P4Info");
  auto made = std::make_shared<Pipeline>();
  made->config = config;
  Check(roles, config.p4info()).run(*made);
  return made;
}

}  // namespace Agent::P4
