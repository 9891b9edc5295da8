// One ECMP group: its members and the port that each of them watches, by member index.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <vector>

#include "routing-types/TypedRow.h"

namespace P4RuntimeRouting {

class EcmpMemberListRow final : public RoutingTypes::TypedRow<EcmpMemberListRow> {
 public:
  static constexpr auto typeName = "P4RuntimeRouting::EcmpMemberListRow";
  // Offsets stand beside the columns; the fixed area ends at 37.
  // clang-format off
  using Columns = ColumnList<
      Column<"genId", uint64_t>,                     // 4
      Column<"entryHandle", uint64_t>,               // 12
      Column<"valid", bool>,                         // 20
      Column<"entryId", uint32_t>,                   // 21
      KeyColumn<"id", uint32_t>,                     // 25
      Column<"members", std::vector<uint32_t>>,      // 29
      Column<"watchPorts", std::vector<uint32_t>>>;  // 33
  // clang-format on

  using TypedRow::TypedRow;
  using TypedRow::operator=;
  using TypedRow::operator==;
  using TypedRow::operator<;
  EcmpMemberListRow() = default;
  EcmpMemberListRow(const uint64_t& genId, const uint64_t& entryHandle, const bool& valid,
                    const uint32_t& entryId, const uint32_t& id,
                    const std::vector<uint32_t>& members, const std::vector<uint32_t>& watchPorts)
      : TypedRow(ofValues, genId, entryHandle, valid, entryId, id, members, watchPorts) {}
  static EcmpMemberListRow key(const uint32_t& id) { return EcmpMemberListRow(ofKey, id); }

  auto genId() const { return get<"genId">(); }
  auto entryHandle() const { return get<"entryHandle">(); }
  auto valid() const { return get<"valid">(); }
  auto entryId() const { return get<"entryId">(); }
  auto id() const { return get<"id">(); }
  auto members() const { return get<"members">(); }
  auto watchPorts() const { return get<"watchPorts">(); }

  void genIdIs(Columns::Type<"genId"> v) { set<"genId">(v); }
  void entryHandleIs(Columns::Type<"entryHandle"> v) { set<"entryHandle">(v); }
  void validIs(Columns::Type<"valid"> v) { set<"valid">(v); }
  void entryIdIs(Columns::Type<"entryId"> v) { set<"entryId">(v); }
  void idIs(Columns::Type<"id"> v) { set<"id">(v); }
  void membersIs(const Columns::Type<"members">& v) { set<"members">(v); }
  void watchPortsIs(const Columns::Type<"watchPorts">& v) { set<"watchPorts">(v); }
};

static_assert(EcmpMemberListRow::Columns::offsetOf<"id"> == 25);
static_assert(EcmpMemberListRow::Columns::offsetOf<"watchPorts"> == 33);
static_assert(EcmpMemberListRow::baseRowLength_ == 37);
static_assert(sizeof(EcmpMemberListRow) == sizeof(Vane::BaseRow));

std::ostream& operator<<(std::ostream& out, const EcmpMemberListRow& row);

class EcmpMemberListRowRowOps_KEY final : public RoutingTypes::RowOpsKey<EcmpMemberListRow> {};

}  // namespace P4RuntimeRouting

extern template class RoutingTypes::TypedRow<P4RuntimeRouting::EcmpMemberListRow>;
extern template class RoutingTypes::RowOpsKey<P4RuntimeRouting::EcmpMemberListRow>;
