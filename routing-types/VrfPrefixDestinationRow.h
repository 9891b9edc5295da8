// Where packets to a prefix go within one routing instance.
#pragma once

#include <cstdint>
#include <iosfwd>

#include "routing-types/TypedRow.h"

namespace P4RuntimeRouting {

class VrfPrefixDestinationRow final : public RoutingTypes::TypedRow<VrfPrefixDestinationRow> {
 public:
  static constexpr auto typeName = "P4RuntimeRouting::VrfPrefixDestinationRow";
  static constexpr uint32_t vrfId_DEFAULT = 0x00FFFFFF;  // the largest 24-bit number
  static constexpr int32_t destinationType_DEFAULT = 0;
  // Offsets stand beside the columns; the fixed area ends at 41.
  // clang-format off
  using Columns = ColumnList<
      Column<"genId", uint64_t>,                                    // 4
      Column<"entryHandle", uint64_t>,                              // 12
      Column<"valid", bool>,                                        // 20
      Column<"entryId", uint32_t>,                                  // 21
      KeyColumn<"vrfId", uint32_t, vrfId_DEFAULT>,                  // 25
      KeyColumn<"prefix", Vane::IpGenPrefix>,                       // 29
      Column<"destinationType", int32_t, destinationType_DEFAULT>,  // 33
      Column<"destinationId", uint32_t>>;                           // 37
  // clang-format on

  using TypedRow::TypedRow;
  using TypedRow::operator=;
  using TypedRow::operator==;
  using TypedRow::operator<;
  VrfPrefixDestinationRow() = default;
  VrfPrefixDestinationRow(const uint64_t& genId, const uint64_t& entryHandle, const bool& valid,
                          const uint32_t& entryId, const uint32_t& vrfId,
                          const Vane::IpGenPrefix& prefix, const int32_t& destinationType,
                          const uint32_t& destinationId)
      : TypedRow(ofValues, genId, entryHandle, valid, entryId, vrfId, prefix, destinationType,
                 destinationId) {}
  static VrfPrefixDestinationRow key(const uint32_t& vrfId, const Vane::IpGenPrefix& prefix) {
    return VrfPrefixDestinationRow(ofKey, vrfId, prefix);
  }

  auto genId() const { return get<"genId">(); }
  auto entryHandle() const { return get<"entryHandle">(); }
  auto valid() const { return get<"valid">(); }
  auto entryId() const { return get<"entryId">(); }
  auto vrfId() const { return get<"vrfId">(); }
  auto prefix() const { return get<"prefix">(); }
  auto destinationType() const { return get<"destinationType">(); }
  auto destinationId() const { return get<"destinationId">(); }

  void genIdIs(Columns::Type<"genId"> v) { set<"genId">(v); }
  void entryHandleIs(Columns::Type<"entryHandle"> v) { set<"entryHandle">(v); }
  void validIs(Columns::Type<"valid"> v) { set<"valid">(v); }
  void entryIdIs(Columns::Type<"entryId"> v) { set<"entryId">(v); }
  void vrfIdIs(Columns::Type<"vrfId"> v) { set<"vrfId">(v); }
  void prefixIs(const Columns::Type<"prefix">& v) { set<"prefix">(v); }
  void destinationTypeIs(Columns::Type<"destinationType"> v) { set<"destinationType">(v); }
  void destinationIdIs(Columns::Type<"destinationId"> v) { set<"destinationId">(v); }
};

static_assert(VrfPrefixDestinationRow::Columns::offsetOf<"vrfId"> == 25);
static_assert(VrfPrefixDestinationRow::Columns::offsetOf<"prefix"> == 29);
static_assert(VrfPrefixDestinationRow::Columns::offsetOf<"destinationId"> == 37);
static_assert(VrfPrefixDestinationRow::baseRowLength_ == 41);
static_assert(sizeof(VrfPrefixDestinationRow) == sizeof(Vane::BaseRow));

std::ostream& operator<<(std::ostream& out, const VrfPrefixDestinationRow& row);

class VrfPrefixDestinationRowRowOps_KEY final
    : public RoutingTypes::RowOpsKey<VrfPrefixDestinationRow> {};

class VrfPrefixDestinationRowRowOpsGenerator final
    : public RoutingTypes::RowOpsKeyGenerator<VrfPrefixDestinationRow,
                                              VrfPrefixDestinationRowRowOps_KEY> {
 public:
  static VrfPrefixDestinationRowRowOpsGenerator rowOpsGenerator_;
};

}  // namespace P4RuntimeRouting

extern template class RoutingTypes::TypedRow<P4RuntimeRouting::VrfPrefixDestinationRow>;
extern template class RoutingTypes::RowOpsKey<P4RuntimeRouting::VrfPrefixDestinationRow>;
