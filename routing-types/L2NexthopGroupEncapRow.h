// How packets to a layer-2 next-hop group are encapsulated.
#pragma once

#include <cstdint>
#include <iosfwd>

#include "routing-types/TypedRow.h"

namespace NexthopGroup {

class L2NexthopGroupEncapRow final : public RoutingTypes::TypedRow<L2NexthopGroupEncapRow> {
 public:
  static constexpr auto typeName = "NexthopGroup::L2NexthopGroupEncapRow";
  static constexpr int32_t encapType_DEFAULT = 0;
  // Offsets stand beside the columns; the fixed area ends at 26.
  // clang-format off
  using Columns = ColumnList<
      KeyColumn<"encapId", uint16_t>,                   // 4
      Column<"entryHandle", uint64_t>,                  // 6
      Column<"encapType", int32_t, encapType_DEFAULT>,  // 14
      Column<"srcAddr", Vane::IpGenAddr>,               // 18
      Column<"dstAddr", Vane::IpGenAddr>>;              // 22
  // clang-format on

  using TypedRow::TypedRow;
  using TypedRow::operator=;
  using TypedRow::operator==;
  using TypedRow::operator<;
  L2NexthopGroupEncapRow() = default;
  L2NexthopGroupEncapRow(const uint16_t& encapId, const uint64_t& entryHandle,
                         const int32_t& encapType, const Vane::IpGenAddr& srcAddr,
                         const Vane::IpGenAddr& dstAddr)
      : TypedRow(ofValues, encapId, entryHandle, encapType, srcAddr, dstAddr) {}
  static L2NexthopGroupEncapRow key(const uint16_t& encapId) {
    return L2NexthopGroupEncapRow(ofKey, encapId);
  }

  auto encapId() const { return get<"encapId">(); }
  auto entryHandle() const { return get<"entryHandle">(); }
  auto encapType() const { return get<"encapType">(); }
  auto srcAddr() const { return get<"srcAddr">(); }
  auto dstAddr() const { return get<"dstAddr">(); }

  void encapIdIs(Columns::Type<"encapId"> v) { set<"encapId">(v); }
  void entryHandleIs(Columns::Type<"entryHandle"> v) { set<"entryHandle">(v); }
  void encapTypeIs(Columns::Type<"encapType"> v) { set<"encapType">(v); }
  void srcAddrIs(const Columns::Type<"srcAddr">& v) { set<"srcAddr">(v); }
  void dstAddrIs(const Columns::Type<"dstAddr">& v) { set<"dstAddr">(v); }
};

static_assert(L2NexthopGroupEncapRow::Columns::offsetOf<"encapId"> == 4);
static_assert(L2NexthopGroupEncapRow::Columns::offsetOf<"dstAddr"> == 22);
static_assert(L2NexthopGroupEncapRow::baseRowLength_ == 26);
static_assert(sizeof(L2NexthopGroupEncapRow) == sizeof(Vane::BaseRow));

std::ostream& operator<<(std::ostream& out, const L2NexthopGroupEncapRow& row);

class L2NexthopGroupEncapRowRowOps_KEY final
    : public RoutingTypes::RowOpsKey<L2NexthopGroupEncapRow> {};

class L2NexthopGroupEncapRowRowOpsGenerator final
    : public RoutingTypes::RowOpsKeyGenerator<L2NexthopGroupEncapRow,
                                              L2NexthopGroupEncapRowRowOps_KEY> {
 public:
  static L2NexthopGroupEncapRowRowOpsGenerator rowOpsGenerator_;
};

}  // namespace NexthopGroup

extern template class RoutingTypes::TypedRow<NexthopGroup::L2NexthopGroupEncapRow>;
extern template class RoutingTypes::RowOpsKey<NexthopGroup::L2NexthopGroupEncapRow>;
