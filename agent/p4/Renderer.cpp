#include "agent/p4/Renderer.h"

#include "agent/Log.h"
#include "agent/p4/ByteString.h"

namespace Agent::P4 {
namespace {

bool isClientId(uint32_t id) { return id != 0 && !isReservedId(id); }

// Hands out the parts of a list anew, one after the other, and makes those that are missing.
template <class Part>
class Parts {
 public:
  explicit Parts(google::protobuf::RepeatedPtrField<Part>* of) : of_(*of) {}
  ~Parts() {
    while (of_.size() > used_) of_.RemoveLast();
  }
  Parts(const Parts&) = delete;
  Parts& operator=(const Parts&) = delete;

  Part& next() { return used_ < of_.size() ? *of_.Mutable(used_++) : (++used_, *of_.Add()); }

 private:
  google::protobuf::RepeatedPtrField<Part>& of_;
  int used_ = 0;
};

}  // namespace

bool Renderer::entity(const Image& image, p4::v1::Entity& to) const {
  const Role& role = *image.role;
  if (role.kind == Kind::member) {
    return isClientId(idOf(role, image.row)) && member(image, *to.mutable_action_profile_member());
  }
  if (role.kind == Kind::group) {
    return isClientId(idOf(role, image.row)) && group(image, *to.mutable_action_profile_group());
  }
  if (tableEntry(image, *to.mutable_table_entry())) return true;
  Log::debug("rowLeftOut", {{"table", role.rowTable}},
             "table {}: a row that P4Runtime has no form for is left out of a read", role.rowTable);
  return false;
}

void Renderer::defaultEntry(const Role& table, p4::v1::Entity& to) {
  to.Clear();
  auto& entry = *to.mutable_table_entry();
  entry.set_table_id(table.id);
  entry.set_is_default_action(true);
  entry.mutable_action()->mutable_action()->set_action_id(noActionId);
}

bool Renderer::tableEntry(const Image& image, p4::v1::TableEntry& to) const {
  const Role& role = *image.role;
  if (to.is_default_action() || !to.metadata().empty() || to.controller_metadata() != 0) to.Clear();
  to.set_table_id(role.id);
  const EntityKey key = keyOf(role, image.row);
  Parts matches(to.mutable_match());
  for (const Field& field : role.keys) {
    if (field.isPrefix()) {
      const Wire::IpGenPrefix& prefix = key.prefix;
      if (prefix.family != role.family || !isCanonical(prefix)) return false;
      if (prefix.length == 0) continue;
      auto& match = matches.next();
      match.set_field_id(field.id);
      auto& lpm = *match.mutable_lpm();
      byteString(prefix, *lpm.mutable_value());
      lpm.set_prefix_len(prefix.length);
    } else {
      auto& match = matches.next();
      match.set_field_id(field.id);
      match.mutable_exact()->set_value(byteString(uint64_t{key.id}));
    }
  }
  if (image.side) {
    to.set_metadata(image.side->metadata);
    to.set_controller_metadata(image.side->controllerMetadata);
  }
  return action(image, *to.mutable_action());
}

bool Renderer::action(const Image& image, p4::v1::TableAction& to) const {
  const Role& role = *image.role;
  if (role.kind == Kind::encap) return call(role, image.row, *to.mutable_action());
  const Destination destination = destinationOf(role, image.row);
  if (destination.isOneShot()) return oneShot(image, *to.mutable_action_profile_action_set());
  if (!isClientId(destination.id)) return false;
  if (destination.type == DestinationType::member) {
    to.set_action_profile_member_id(destination.id);
    return true;
  }
  to.set_action_profile_group_id(destination.id);
  return destination.type == DestinationType::group;
}

bool Renderer::call(const Role& role, const Vane::BaseRow& row, p4::v1::Action& to) {
  to.set_action_id(role.actionId);
  Parts params(to.mutable_params());
  for (const Field& field : role.params) {
    const Vane::ColumnValue value = role.value(row, field);
    if (const auto* address = std::get_if<Wire::IpGenAddr>(&value)) {
      if (address->family != role.family) return false;
    }
    auto& param = params.next();
    param.set_param_id(field.id);
    param.set_value(byteString(value));
  }
  return true;
}

template <class Entry>
void Renderer::share(const Share& share, const SidePtr& side, size_t at, Entry& to) const {
  to.set_weight(pipeline_.areWeightsDisallowed ? 0 : static_cast<int32_t>(share.weight));
  if (side && at < side->watches.size() && side->watches[at]) {
    to.set_watch(static_cast<int32_t>(share.port));
  } else if (share.port != 0) {
    to.set_watch_port(byteString(uint64_t{share.port}));
  }
}

bool Renderer::oneShot(const Image& image, p4::v1::ActionProfileActionSet& to) const {
  to.Clear();
  if (!image.set) return false;
  const auto shares = sharesOf(roles_.group(), image.set->group);
  if (image.side) {
    using Set = p4::v1::ActionProfileActionSet;
    to.set_action_selection_mode(static_cast<Set::ActionSelectionMode>(image.side->selectionMode));
    to.set_size_semantics(static_cast<Set::SizeSemantics>(image.side->sizeSemantics));
  }
  for (size_t i = 0; i < shares.size(); ++i) {
    auto& each = *to.add_action_profile_actions();
    call(roles_.member(), image.set->members[i], *each.mutable_action());
    share(shares[i], image.side, i, each);
  }
  return true;
}

bool Renderer::member(const Image& image, p4::v1::ActionProfileMember& to) const {
  to.set_action_profile_id(image.role->id);
  to.set_member_id(idOf(*image.role, image.row));
  return call(*image.role, image.row, *to.mutable_action());
}

bool Renderer::group(const Image& image, p4::v1::ActionProfileGroup& to) const {
  to.Clear();
  to.set_action_profile_id(image.role->id);
  to.set_group_id(idOf(*image.role, image.row));
  if (image.side) to.set_max_size(image.side->maxSize);
  const auto shares = sharesOf(*image.role, image.row);
  for (size_t i = 0; i < shares.size(); ++i) {
    if (!isClientId(shares[i].member)) return false;
    auto& each = *to.add_members();
    each.set_member_id(shares[i].member);
    share(shares[i], image.side, i, each);
  }
  return true;
}

}  // namespace Agent::P4
