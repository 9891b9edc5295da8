#include "agent/p4/Query.h"

#include "agent/p4/Fault.h"

namespace Agent::P4 {
namespace {

class Maker {
 public:
  Maker(const Roles& roles, const Pipeline& pipeline, Translator& translator, size_t at)
      : roles_(roles), pipeline_(pipeline), translator_(translator), at_(at) {}

  Query make(const p4::v1::Entity& from) {
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
    return std::move(made_);
  }

 private:
  void tableEntry(const p4::v1::TableEntry& from) {
    if (from.table_id() == 0) return allTables(from);
    const Role& role = translator_.table(from.table_id());
    if (from.is_default_action()) {
      if (from.match_size() != 0 || from.priority() != 0) {
        invalid("the default entry has no match and no priority");
      }
      made_.defaults.push_back(&role);
      return;
    }
    const auto where = [&] { return fmt::format("table \"{}\"", role.name); };
    within(where, [&] { filters(role, from); });
    if (from.match_size() == 0) return step(role, {});
    within(where, [&] { step(role, translator_.keyRow(role, from)); });
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

  void filters(const Role& role, const p4::v1::TableEntry& from) {
    if (from.priority() != 0) {
      invalid("priority {}: expected 0, the table's entries have none", from.priority());
    }
    made_.metadata = from.metadata();
    made_.controllerMetadata = from.controller_metadata();
    if (from.action().type_case() == p4::v1::TableAction::TYPE_NOT_SET) return;
    // Every entry of a direct table has its one action.
    if (role.kind != Kind::encap || !from.action().has_action() ||
        from.action().action().action_id() != role.actionId) {
      invalid("entries can be selected by the action of a direct table only");
    }
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

  void step(const Role& role, Vane::BaseRow key) {
    made_.steps.push_back({&role, std::move(key), at_});
  }

  const Roles& roles_;
  const Pipeline& pipeline_;
  Translator& translator_;
  const size_t at_;
  Query made_;
};

}  // namespace

bool Query::selects(const p4::v1::Entity& entity) const {
  if (!entity.has_table_entry()) return true;
  const auto& entry = entity.table_entry();
  return (metadata.empty() || metadata == entry.metadata()) &&
         (controllerMetadata == 0 || controllerMetadata == entry.controller_metadata());
}

Query makeQuery(const Roles& roles, const Pipeline& pipeline, Translator& translator,
                const p4::v1::Entity& from, size_t at) {
  return Maker(roles, pipeline, translator, at).make(from);
}

}  // namespace Agent::P4
