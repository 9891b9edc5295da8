// Makes rows of P4Runtime messages, and finds what is wrong with them.
//
// Faults carry the codes that P4Runtime gives them. Nothing here looks at a table, so it runs in
// any thread; a translator belongs to one.
#pragma once

#include <optional>
#include <utility>
#include <vector>

#include "agent/p4/PackedRows.h"
#include "agent/p4/Pipeline.h"
#include "agent/p4/Update.h"
#include "p4/v1/p4runtime.pb.h"

namespace Agent::P4 {

class Translator {
 public:
  Translator(const Roles& roles, const Pipeline& pipeline);

  // The row is packed, among those of takeRows(). Throws Fault.
  Update update(const p4::v1::Update& from);
  PackedRows takeRows() { return std::move(rows_); }
  // The role that the last update was for, as far as that was found out.
  const Role* role() const { return role_; }

  // The row with this key alone. Throws Fault.
  Vane::BaseRow keyRow(const Role& table, const p4::v1::TableEntry& entry);
  Vane::BaseRow keyRow(const Role& role, uint32_t id);
  // Throws Fault for an id that the pipeline does not offer.
  const Role& table(uint32_t id) const;
  void needProfile(uint32_t id) const;
  // What holds for every table here.
  static void needNoPriority(const p4::v1::TableEntry& entry);
  static void needBareDefault(const p4::v1::TableEntry& entry);

 private:
  using Values = std::vector<Vane::ColumnValue>;

  void tableEntry(const p4::v1::TableEntry& entry, Update& made);
  void member(const p4::v1::ActionProfileMember& member, Update& made);
  void group(const p4::v1::ActionProfileGroup& group, Update& made);

  [[noreturn]] void defaultEntry(const p4::v1::TableEntry& entry, Update::Op op) const;
  void readKey(const Role& role, const p4::v1::TableEntry& entry);
  void readField(const Role& role, const Field& field, const p4::v1::FieldMatch& match);
  void readAction(const p4::v1::TableAction& action, Update& made);
  void oneShot(const p4::v1::ActionProfileActionSet& set, Update& made);
  void destinationIs(const Role& role, DestinationType type, uint32_t id);
  // The arguments of the role's own action.
  void readCall(const Role& role, const p4::v1::Action& call);
  void readGroupMembers(const p4::v1::ActionProfileGroup& group, Update& made);
  uint32_t weight(int32_t given) const;

  Values& values(const Role& role) { return values_[role.index]; }
  // What the update does not say is zero.
  Vane::BaseRow row(const Role& role) { return role.layout.row(role.rowTypeId, values(role)); }
  void pack(const Role& role, Update& made) { made.packed = rows_.add(role, values(role)); }
  void keyIs(const Role& role, uint32_t id);
  void clearAllButKey(const Role& role);

  const Roles& roles_;
  const Pipeline& pipeline_;
  const Role* role_ = nullptr;
  std::vector<Values> values_;      // by role; used again for each row
  std::vector<uint32_t> distinct_;  // likewise
  PackedRows rows_;
};

// The watched port, 0 for none; throws Fault for a number that is no port. Entry is a group's
// member or an action of a one-shot set.
template <class Entry>
uint32_t watchedPort(const Entry& entry);

}  // namespace Agent::P4
