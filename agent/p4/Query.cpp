#include "agent/p4/Query.h"

#include <algorithm>

#include "agent/p4/Fault.h"

namespace Agent::P4 {
namespace {

class Maker {
 public:
  Maker(const Roles& roles, const Pipeline& pipeline, Translator& translator, Selection& to)
      : roles_(roles), pipeline_(pipeline), translator_(translator), to_(to) {}

  void make(const p4::v1::Entity& from) {
    switch (from.entity_case()) {
      case p4::v1::Entity::kTableEntry:
        tableEntry(from.table_entry());
        break;
      case p4::v1::Entity::kActionProfileMember:
        profileEntity(roles_.member(), from.action_profile_member().action_profile_id(),
                      from.action_profile_member().member_id());
        break;
      case p4::v1::Entity::kActionProfileGroup:
        profileEntity(roles_.group(), from.action_profile_group().action_profile_id(),
                      from.action_profile_group().group_id());
        break;
      case p4::v1::Entity::ENTITY_NOT_SET:
        invalid("the query has no entity");
      default:
        fail(grpc::StatusCode::UNIMPLEMENTED,
             "entities of this kind are not supported; expected "
             "table entries, action profile members and groups");
    }
  }

 private:
  void tableEntry(const p4::v1::TableEntry& from) {
    if (from.table_id() == 0) return allTables(from);
    const Role& role = translator_.table(from.table_id());
    within([&] { return fmt::format("table \"{}\"", role.name); },
           [&] {
             if (from.is_default_action()) {
               Translator::needBareDefault(from);
               return to_.defaultOf(role);
             }
             Translator::needNoPriority(from);
             Vane::BaseRow key;
             if (from.match_size() != 0) key = translator_.keyRow(role, from);
             if (!canHave(role, from.action())) return;
             to_.entitiesOf(role, std::move(key), {from.metadata(), from.controller_metadata()});
           });
  }

  void allTables(const p4::v1::TableEntry& from) {
    if (from.is_default_action() || from.match_size() != 0 || from.priority() != 0 ||
        from.has_action() || !from.metadata().empty() || from.controller_metadata() != 0) {
      invalid("table id 0 stands for all tables: nothing else can be asked for with it");
    }
    for (const Role& role : roles_.tables()) {
      if (pipeline_.part(role).isOffered) step(role, {});
    }
  }

  // Every entry of a direct table has its one action; those of others have none of their own.
  static bool canHave(const Role& role, const p4::v1::TableAction& action) {
    if (action.type_case() == p4::v1::TableAction::TYPE_NOT_SET) return true;
    return role.kind == Kind::encap && action.has_action() &&
           action.action().action_id() == role.actionId;
  }

  void profileEntity(const Role& role, uint32_t profile, uint32_t id) {
    if (profile == 0) {
      if (id != 0)
        invalid("action profile id 0 stands for all: expected id 0 with it, found {}", id);
      if (pipeline_.part(role).isOffered) step(role, {});
      return;
    }
    translator_.needProfile(profile);
    step(role, id == 0 ? Vane::BaseRow() : translator_.keyRow(role, id));
  }

  void step(const Role& role, Vane::BaseRow key) { to_.entitiesOf(role, std::move(key), {}); }

  const Roles& roles_;
  const Pipeline& pipeline_;
  Translator& translator_;
  Selection& to_;
};

}  // namespace

bool Filter::selects(const p4::v1::Entity& entity) const {
  if (!entity.has_table_entry()) return true;
  const auto& entry = entity.table_entry();
  return (metadata.empty() || metadata == entry.metadata()) &&
         (controllerMetadata == 0 || controllerMetadata == entry.controller_metadata());
}

void Selection::entitiesOf(const Role& role, Vane::BaseRow key, const Filter& filter) {
  const size_t step = plan_.step(role, std::move(key));
  filters_.resize(plan_.steps().size());
  filters_[step].insert(filter);
}

bool Selection::wants(size_t step, const p4::v1::Entity& entity) const {
  return std::ranges::any_of(filters_[step],
                             [&](const Filter& filter) { return filter.selects(entity); });
}

void addQuery(const Roles& roles, const Pipeline& pipeline, Translator& translator,
              const p4::v1::Entity& from, Selection& to) {
  Maker(roles, pipeline, translator, to).make(from);
}

}  // namespace Agent::P4
