#include "agent/p4/P4Info.h"

#include <google/protobuf/text_format.h>

namespace Agent::P4 {
namespace {

using p4::config::v1::ActionRef;
using p4::config::v1::MatchField;
using p4::config::v1::P4Info;

constexpr std::string_view package = "routing.";

// The name without the package that all of them are in.
void describe(p4::config::v1::Preamble& preamble, uint32_t id, std::string_view name) {
  preamble.set_id(id);
  preamble.set_name(std::string(name));
  if (name.starts_with(package)) name.remove_prefix(package.size());
  preamble.set_alias(std::string(name));
}

void addTable(P4Info& info, const Role& role) {
  auto& table = *info.add_tables();
  describe(*table.mutable_preamble(), role.id, role.name);
  for (const Field& key : role.keys) {
    MatchField& field = *table.add_match_fields();
    field.set_id(key.id);
    field.set_name(key.name);
    field.set_bitwidth(key.width);
    field.set_match_type(key.isPrefix() ? MatchField::LPM : MatchField::EXACT);
  }
  ActionRef& action = *table.add_action_refs();
  action.set_id(role.kind == Kind::route ? setNexthopId : role.actionId);
  action.set_scope(ActionRef::TABLE_ONLY);
  ActionRef& noAction = *table.add_action_refs();
  noAction.set_id(noActionId);
  noAction.set_scope(ActionRef::DEFAULT_ONLY);
  table.set_const_default_action_id(noActionId);
  if (role.kind == Kind::route) table.set_implementation_id(ecmpProfileId);
  table.set_size(static_cast<int64_t>(role.capacity));
}

void addAction(P4Info& info, const Role& role) {
  auto& action = *info.add_actions();
  describe(*action.mutable_preamble(), role.actionId, role.actionName);
  for (const Field& field : role.params) {
    auto& param = *action.add_params();
    param.set_id(field.id);
    param.set_name(field.name);
    param.set_bitwidth(field.width);
  }
}

void addProfile(P4Info& info, const Roles& roles) {
  auto& profile = *info.add_action_profiles();
  describe(*profile.mutable_preamble(), ecmpProfileId, ecmpProfileName);
  for (const Role& role : roles.tables()) {
    if (role.kind == Kind::route) profile.add_table_ids(role.id);
  }
  profile.set_with_selector(true);
  profile.set_size(static_cast<int64_t>(roles.profileSize()));
  profile.set_max_group_size(maxGroupSlots);
  profile.mutable_sum_of_weights();
}

}  // namespace

P4Info makeP4Info(const Roles& roles) {
  P4Info info;
  info.mutable_pkg_info()->set_name("routing");
  info.mutable_pkg_info()->set_version("1");
  for (const Role& role : roles.tables()) addTable(info, role);
  for (const Role& role : roles.all()) {
    if (role.actionId != 0) addAction(info, role);
  }
  describe(*info.add_actions()->mutable_preamble(), noActionId, "NoAction");
  addProfile(info, roles);
  return info;
}

std::string p4InfoText(const Roles& roles) {
  std::string text;
  google::protobuf::TextFormat::PrintToString(makeP4Info(roles), &text);
  return text;
}

}  // namespace Agent::P4
