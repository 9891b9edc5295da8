// What became of a prefix within one routing instance: an error code, or its deletion.
#pragma once

#include <cstdint>
#include <iosfwd>

#include "routing-types/TypedRow.h"

namespace P4RuntimeRouting {

class IpVrfPrefixStatusEntryRow final : public RoutingTypes::TypedRow<IpVrfPrefixStatusEntryRow> {
 public:
  static constexpr auto typeName = "P4RuntimeRouting::IpVrfPrefixStatusEntryRow";
  static constexpr int32_t errorCode_DEFAULT = 0;
  static constexpr uint32_t vrfId_DEFAULT = 0x00FFFFFF;  // the largest 24-bit number
  // Offsets stand beside the columns; the fixed area ends at 33.
  // clang-format off
  using Columns = ColumnList<
      Column<"genId", uint64_t>,                        // 4
      Column<"entryHandle", uint64_t>,                  // 12
      Column<"errorCode", int32_t, errorCode_DEFAULT>,  // 20
      Column<"deleted", bool>,                          // 24
      KeyColumn<"vrfId", uint32_t, vrfId_DEFAULT>,      // 25
      KeyColumn<"prefix", Vane::IpGenPrefix>>;          // 29
  // clang-format on

  using TypedRow::TypedRow;
  using TypedRow::operator=;
  using TypedRow::operator==;
  using TypedRow::operator<;
  IpVrfPrefixStatusEntryRow() = default;
  IpVrfPrefixStatusEntryRow(const uint64_t& genId, const uint64_t& entryHandle,
                            const int32_t& errorCode, const bool& deleted, const uint32_t& vrfId,
                            const Vane::IpGenPrefix& prefix)
      : TypedRow(ofValues, genId, entryHandle, errorCode, deleted, vrfId, prefix) {}
  static IpVrfPrefixStatusEntryRow key(const uint32_t& vrfId, const Vane::IpGenPrefix& prefix) {
    return IpVrfPrefixStatusEntryRow(ofKey, vrfId, prefix);
  }

  auto genId() const { return get<"genId">(); }
  auto entryHandle() const { return get<"entryHandle">(); }
  auto errorCode() const { return get<"errorCode">(); }
  auto deleted() const { return get<"deleted">(); }
  auto vrfId() const { return get<"vrfId">(); }
  auto prefix() const { return get<"prefix">(); }

  void genIdIs(Columns::Type<"genId"> v) { set<"genId">(v); }
  void entryHandleIs(Columns::Type<"entryHandle"> v) { set<"entryHandle">(v); }
  void errorCodeIs(Columns::Type<"errorCode"> v) { set<"errorCode">(v); }
  void deletedIs(Columns::Type<"deleted"> v) { set<"deleted">(v); }
  void vrfIdIs(Columns::Type<"vrfId"> v) { set<"vrfId">(v); }
  void prefixIs(const Columns::Type<"prefix">& v) { set<"prefix">(v); }
};

static_assert(IpVrfPrefixStatusEntryRow::Columns::offsetOf<"vrfId"> == 25);
static_assert(IpVrfPrefixStatusEntryRow::Columns::offsetOf<"prefix"> == 29);
static_assert(IpVrfPrefixStatusEntryRow::baseRowLength_ == 33);
static_assert(sizeof(IpVrfPrefixStatusEntryRow) == sizeof(Vane::BaseRow));

std::ostream& operator<<(std::ostream& out, const IpVrfPrefixStatusEntryRow& row);

class IpVrfPrefixStatusEntryRowRowOps_KEY final
    : public RoutingTypes::RowOpsKey<IpVrfPrefixStatusEntryRow> {};

class IpVrfPrefixStatusEntryRowRowOpsGenerator final
    : public RoutingTypes::RowOpsKeyGenerator<IpVrfPrefixStatusEntryRow,
                                              IpVrfPrefixStatusEntryRowRowOps_KEY> {
 public:
  static IpVrfPrefixStatusEntryRowRowOpsGenerator rowOpsGenerator_;
};

}  // namespace P4RuntimeRouting

extern template class RoutingTypes::TypedRow<P4RuntimeRouting::IpVrfPrefixStatusEntryRow>;
extern template class RoutingTypes::RowOpsKey<P4RuntimeRouting::IpVrfPrefixStatusEntryRow>;
