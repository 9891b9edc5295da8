// One ECMP member: the next hop that its packets take.
#pragma once

#include <cstdint>
#include <iosfwd>

#include "routing-types/TypedRow.h"

namespace P4RuntimeRouting {

class NexthopInfoRow final : public RoutingTypes::TypedRow<NexthopInfoRow> {
 public:
  static constexpr auto typeName = "P4RuntimeRouting::NexthopInfoRow";
  // Offsets stand beside the columns; the fixed area ends at 52.
  // clang-format off
  using Columns = ColumnList<
      Column<"genId", uint64_t>,        // 4
      Column<"entryHandle", uint64_t>,  // 12
      Column<"valid", bool>,            // 20
      Column<"entryId", uint32_t>,      // 21
      KeyColumn<"id", uint32_t>,        // 25
      Column<"egressPort", uint32_t>,   // 29
      Column<"srcMac", Vane::EthAddr>,  // 33
      Column<"dstMac", Vane::EthAddr>,  // 39
      Column<"vlanTagged", bool>,       // 45
      Column<"encapType", int32_t>,     // 46
      Column<"vlanId", uint16_t>>;      // 50
  // clang-format on

  using TypedRow::TypedRow;
  using TypedRow::operator=;
  using TypedRow::operator==;
  using TypedRow::operator<;
  NexthopInfoRow() = default;
  NexthopInfoRow(const uint64_t& genId, const uint64_t& entryHandle, const bool& valid,
                 const uint32_t& entryId, const uint32_t& id, const uint32_t& egressPort,
                 const Vane::EthAddr& srcMac, const Vane::EthAddr& dstMac, const bool& vlanTagged,
                 const int32_t& encapType, const uint16_t& vlanId)
      : TypedRow(ofValues, genId, entryHandle, valid, entryId, id, egressPort, srcMac, dstMac,
                 vlanTagged, encapType, vlanId) {}
  static NexthopInfoRow key(const uint32_t& id) { return NexthopInfoRow(ofKey, id); }

  auto genId() const { return get<"genId">(); }
  auto entryHandle() const { return get<"entryHandle">(); }
  auto valid() const { return get<"valid">(); }
  auto entryId() const { return get<"entryId">(); }
  auto id() const { return get<"id">(); }
  auto egressPort() const { return get<"egressPort">(); }
  auto srcMac() const { return get<"srcMac">(); }
  auto dstMac() const { return get<"dstMac">(); }
  auto vlanTagged() const { return get<"vlanTagged">(); }
  auto encapType() const { return get<"encapType">(); }
  auto vlanId() const { return get<"vlanId">(); }

  void genIdIs(Columns::Type<"genId"> v) { set<"genId">(v); }
  void entryHandleIs(Columns::Type<"entryHandle"> v) { set<"entryHandle">(v); }
  void validIs(Columns::Type<"valid"> v) { set<"valid">(v); }
  void entryIdIs(Columns::Type<"entryId"> v) { set<"entryId">(v); }
  void idIs(Columns::Type<"id"> v) { set<"id">(v); }
  void egressPortIs(Columns::Type<"egressPort"> v) { set<"egressPort">(v); }
  void srcMacIs(const Columns::Type<"srcMac">& v) { set<"srcMac">(v); }
  void dstMacIs(const Columns::Type<"dstMac">& v) { set<"dstMac">(v); }
  void vlanTaggedIs(Columns::Type<"vlanTagged"> v) { set<"vlanTagged">(v); }
  void encapTypeIs(Columns::Type<"encapType"> v) { set<"encapType">(v); }
  void vlanIdIs(Columns::Type<"vlanId"> v) { set<"vlanId">(v); }
};

static_assert(NexthopInfoRow::Columns::offsetOf<"id"> == 25);
static_assert(NexthopInfoRow::Columns::offsetOf<"vlanId"> == 50);
static_assert(NexthopInfoRow::baseRowLength_ == 52);
static_assert(sizeof(NexthopInfoRow) == sizeof(Vane::BaseRow));

std::ostream& operator<<(std::ostream& out, const NexthopInfoRow& row);

class NexthopInfoRowRowOps_KEY final : public RoutingTypes::RowOpsKey<NexthopInfoRow> {};

}  // namespace P4RuntimeRouting

extern template class RoutingTypes::TypedRow<P4RuntimeRouting::NexthopInfoRow>;
extern template class RoutingTypes::RowOpsKey<P4RuntimeRouting::NexthopInfoRow>;
