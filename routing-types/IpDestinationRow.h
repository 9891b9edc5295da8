// Where packets to a prefix go.
#pragma once

#include <cstdint>
#include <iosfwd>

#include "routing-types/TypedRow.h"

namespace P4RuntimeRouting {

class IpDestinationRow final : public RoutingTypes::TypedRow<IpDestinationRow> {
 public:
  static constexpr auto typeName = "P4RuntimeRouting::IpDestinationRow";
  static constexpr int32_t destinationType_DEFAULT = 0;
  // Offsets stand beside the columns; the fixed area ends at 37.
  // clang-format off
  using Columns = ColumnList<
      Column<"genId", uint64_t>,                                    // 4
      Column<"entryHandle", uint64_t>,                              // 12
      Column<"valid", bool>,                                        // 20
      Column<"entryId", uint32_t>,                                  // 21
      KeyColumn<"destinationPrefix", Vane::IpGenPrefix>,            // 25
      Column<"destinationType", int32_t, destinationType_DEFAULT>,  // 29
      Column<"destinationId", uint32_t>>;                           // 33
  // clang-format on

  using TypedRow::TypedRow;
  using TypedRow::operator=;
  using TypedRow::operator==;
  using TypedRow::operator<;
  IpDestinationRow() = default;
  IpDestinationRow(const uint64_t& genId, const uint64_t& entryHandle, const bool& valid,
                   const uint32_t& entryId, const Vane::IpGenPrefix& destinationPrefix,
                   const int32_t& destinationType, const uint32_t& destinationId)
      : TypedRow(ofValues, genId, entryHandle, valid, entryId, destinationPrefix, destinationType,
                 destinationId) {}
  static IpDestinationRow key(const Vane::IpGenPrefix& destinationPrefix) {
    return IpDestinationRow(ofKey, destinationPrefix);
  }

  auto genId() const { return get<"genId">(); }
  auto entryHandle() const { return get<"entryHandle">(); }
  auto valid() const { return get<"valid">(); }
  auto entryId() const { return get<"entryId">(); }
  auto destinationPrefix() const { return get<"destinationPrefix">(); }
  auto destinationType() const { return get<"destinationType">(); }
  auto destinationId() const { return get<"destinationId">(); }

  void genIdIs(Columns::Type<"genId"> v) { set<"genId">(v); }
  void entryHandleIs(Columns::Type<"entryHandle"> v) { set<"entryHandle">(v); }
  void validIs(Columns::Type<"valid"> v) { set<"valid">(v); }
  void entryIdIs(Columns::Type<"entryId"> v) { set<"entryId">(v); }
  void destinationPrefixIs(const Columns::Type<"destinationPrefix">& v) {
    set<"destinationPrefix">(v);
  }
  void destinationTypeIs(Columns::Type<"destinationType"> v) { set<"destinationType">(v); }
  void destinationIdIs(Columns::Type<"destinationId"> v) { set<"destinationId">(v); }
};

static_assert(IpDestinationRow::Columns::offsetOf<"destinationPrefix"> == 25);
static_assert(IpDestinationRow::Columns::offsetOf<"destinationId"> == 33);
static_assert(IpDestinationRow::baseRowLength_ == 37);
static_assert(sizeof(IpDestinationRow) == sizeof(Vane::BaseRow));

std::ostream& operator<<(std::ostream& out, const IpDestinationRow& row);

class IpDestinationRowRowOps_KEY final : public RoutingTypes::RowOpsKey<IpDestinationRow> {};

class IpDestinationRowRowOpsGenerator final
    : public RoutingTypes::RowOpsKeyGenerator<IpDestinationRow, IpDestinationRowRowOps_KEY> {
 public:
  static IpDestinationRowRowOpsGenerator rowOpsGenerator_;
};

}  // namespace P4RuntimeRouting

extern template class RoutingTypes::TypedRow<P4RuntimeRouting::IpDestinationRow>;
extern template class RoutingTypes::RowOpsKey<P4RuntimeRouting::IpDestinationRow>;
