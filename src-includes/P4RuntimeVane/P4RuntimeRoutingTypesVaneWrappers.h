// The adapters of the route and encapsulation tables: names for TableAdapter over each table, with
// what differs between them.
#pragma once

#include <cstdint>

#include "platform/State/RoutingTypes.h"
#include "routing-types/IpDestinationRow.h"
#include "routing-types/L2NexthopGroupEncapRow.h"
#include "routing-types/VrfPrefixDestinationRow.h"
#include "src-includes/P4RuntimeVane/TableAdapter.h"

namespace P4RuntimeRouting::IpDestinationTableVaneWrappers {

// Address and length mixed; 0 for a prefix that is neither IPv4 nor IPv6.
uint32_t ipDestinationKeyRuneHasher(const Wire::IpGenPrefix& prefix);

// Fills the row from the entry.
void vaneP4RuntimeRoutingIpDestination(const IpDestination& entry, IpDestinationRow& row);

struct IpDestinationTraits {
  using Table = IpDestinationTable;
  using Entry = IpDestination;
  using Key = Wire::IpGenPrefix;
  using Row = IpDestinationRow;

  static constexpr auto name = "IpDestinationVaneWrapper";
  static constexpr auto source = "src-includes/P4RuntimeVane/P4RuntimeRoutingTypesVaneWrappers";
  static constexpr P4RuntimeVane::AssertionLines lines{
      .notMounted = 236, .notWriter = 240, .row = 300, .begin = 310, .end = 316, .find = 324};

  static constexpr auto key = &Entry::destinationPrefix;
  static constexpr auto keyHash = &ipDestinationKeyRuneHasher;
  static constexpr auto map = &Table::ipDestination;
  static constexpr auto set = &Table::ipDestinationIs;
  static constexpr auto del = &Table::ipDestinationDel;
  static constexpr auto delAll = &Table::ipDestinationDelAll;
  static constexpr auto toRow = &vaneP4RuntimeRoutingIpDestination;

  // clang-format off
  using KeyColumns = P4RuntimeVane::FieldColumns<Row,
      P4RuntimeVane::Field<"destinationPrefix">>;
  using Columns = P4RuntimeVane::FieldColumns<Row,
      P4RuntimeVane::Field<"genId", &Entry::genId>,
      P4RuntimeVane::Field<"entryHandle", &Entry::entryHandle>,
      P4RuntimeVane::Field<"valid", &Entry::valid>,
      P4RuntimeVane::Field<"entryId", &Entry::entryId>,
      P4RuntimeVane::Group<key, KeyColumns>,
      P4RuntimeVane::Field<"destinationType", &Entry::destinationType>,
      P4RuntimeVane::Field<"destinationId", &Entry::destinationId>>;
  // clang-format on
};

class IpDestinationVaneWrapper
    : public P4RuntimeVane::TableAdapter<IpDestinationVaneWrapper, IpDestinationTraits> {
 public:
  using TableAdapter::TableAdapter;
  using IpDestinationVaneWrapperIterator = P4RuntimeVane::RowIterator<IpDestinationTraits>;
  using IpDestinationVaneWrapperChangeIterator = ChangeIterator;

  virtual void kitIpDestinationModified(const IpDestinationRow& row, bool deleted,
                                        const Wire::IpGenPrefix& key);
  static constexpr auto changeHandler = &IpDestinationVaneWrapper::kitIpDestinationModified;
};

}  // namespace P4RuntimeRouting::IpDestinationTableVaneWrappers

namespace P4RuntimeRouting::IpVrfPrefixTableVaneWrappers {

uint32_t vrfPrefixDestinationKeyRuneHasher(const IpVrfPrefixKey& key);

void vaneP4RuntimeRoutingVrfPrefixDestination(const VrfPrefixDestination& entry,
                                              VrfPrefixDestinationRow& row);

struct VrfPrefixDestinationTraits {
  using Table = IpVrfPrefixTable;
  using Entry = VrfPrefixDestination;
  using Key = IpVrfPrefixKey;
  using Row = VrfPrefixDestinationRow;

  static constexpr auto name = "VrfPrefixDestinationVaneWrapper";
  static constexpr auto source = "src-includes/P4RuntimeVane/P4RuntimeRoutingTypesVaneWrappers";
  static constexpr P4RuntimeVane::AssertionLines lines{
      .notMounted = 652, .notWriter = 656, .row = 716, .begin = 726, .end = 732, .find = 740};

  static constexpr auto key = &Entry::key;
  static constexpr auto keyHash = &vrfPrefixDestinationKeyRuneHasher;
  static constexpr auto map = &Table::vrfPrefixDestination;
  static constexpr auto set = &Table::vrfPrefixDestinationIs;
  static constexpr auto del = &Table::vrfPrefixDestinationDel;
  static constexpr auto delAll = &Table::vrfPrefixDestinationDelAll;
  static constexpr auto toRow = &vaneP4RuntimeRoutingVrfPrefixDestination;

  // clang-format off
  using KeyColumns = P4RuntimeVane::FieldColumns<Row,
      P4RuntimeVane::Field<"vrfId", &Key::vrfId>,
      P4RuntimeVane::Field<"prefix", &Key::prefix>>;
  using Columns = P4RuntimeVane::FieldColumns<Row,
      P4RuntimeVane::Field<"genId", &Entry::genId>,
      P4RuntimeVane::Field<"entryHandle", &Entry::entryHandle>,
      P4RuntimeVane::Field<"valid", &Entry::valid>,
      P4RuntimeVane::Field<"entryId", &Entry::entryId>,
      P4RuntimeVane::Group<key, KeyColumns>,
      P4RuntimeVane::Field<"destinationType", &Entry::destinationType>,
      P4RuntimeVane::Field<"destinationId", &Entry::destinationId>>;
  // clang-format on
};

class VrfPrefixDestinationVaneWrapper
    : public P4RuntimeVane::TableAdapter<VrfPrefixDestinationVaneWrapper,
                                         VrfPrefixDestinationTraits> {
 public:
  using TableAdapter::TableAdapter;
  using VrfPrefixDestinationVaneWrapperIterator =
      P4RuntimeVane::RowIterator<VrfPrefixDestinationTraits>;
  using VrfPrefixDestinationVaneWrapperChangeIterator = ChangeIterator;

  virtual void kitVrfPrefixDestinationModified(const VrfPrefixDestinationRow& row, bool deleted,
                                               const IpVrfPrefixKey& key);
  static constexpr auto changeHandler =
      &VrfPrefixDestinationVaneWrapper::kitVrfPrefixDestinationModified;
};

}  // namespace P4RuntimeRouting::IpVrfPrefixTableVaneWrappers

namespace NexthopGroup::L2NexthopGroupEncapTableVaneWrappers {

uint32_t l2NexthopGroupEncapKeyRuneHasher(EncapId id);

void vaneNexthopGroupL2NexthopGroupEncap(const L2NexthopGroupEncap& entry,
                                         L2NexthopGroupEncapRow& row);

struct L2NexthopGroupEncapTraits {
  using Table = L2NexthopGroupEncapTable;
  using Entry = L2NexthopGroupEncap;
  using Key = EncapId;
  using Row = L2NexthopGroupEncapRow;

  static constexpr auto name = "L2NexthopGroupEncapVaneWrapper";
  static constexpr auto source = "src-includes/P4RuntimeVane/P4RuntimeRoutingTypesVaneWrappers";
  static constexpr P4RuntimeVane::AssertionLines lines{
      .notMounted = 1068, .notWriter = 1072, .row = 1132, .begin = 1142, .end = 1148, .find = 1156};

  static constexpr auto key = &Entry::encapId;
  static constexpr auto keyHash = &l2NexthopGroupEncapKeyRuneHasher;
  static constexpr auto map = &Table::l2NexthopGroupEncap;
  static constexpr auto set = &Table::l2NexthopGroupEncapIs;
  static constexpr auto del = &Table::l2NexthopGroupEncapDel;
  static constexpr auto delAll = &Table::l2NexthopGroupEncapDelAll;
  static constexpr auto toRow = &vaneNexthopGroupL2NexthopGroupEncap;

  // clang-format off
  using KeyColumns = P4RuntimeVane::FieldColumns<Row,
      P4RuntimeVane::Field<"encapId">>;
  using Columns = P4RuntimeVane::FieldColumns<Row,
      P4RuntimeVane::Group<key, KeyColumns>,
      P4RuntimeVane::Field<"entryHandle", &Entry::entryHandle>,
      P4RuntimeVane::Field<"encapType", &Entry::encapType>,
      P4RuntimeVane::Field<"srcAddr", &Entry::srcAddr>,
      P4RuntimeVane::Field<"dstAddr", &Entry::dstAddr>>;
  // clang-format on
};

class L2NexthopGroupEncapVaneWrapper
    : public P4RuntimeVane::TableAdapter<L2NexthopGroupEncapVaneWrapper,
                                         L2NexthopGroupEncapTraits> {
 public:
  using TableAdapter::TableAdapter;
  using L2NexthopGroupEncapVaneWrapperIterator =
      P4RuntimeVane::RowIterator<L2NexthopGroupEncapTraits>;
  using L2NexthopGroupEncapVaneWrapperChangeIterator = ChangeIterator;

  virtual void kitL2NexthopGroupEncapModified(const L2NexthopGroupEncapRow& row, bool deleted,
                                              const EncapId& key);
  static constexpr auto changeHandler =
      &L2NexthopGroupEncapVaneWrapper::kitL2NexthopGroupEncapModified;
};

}  // namespace NexthopGroup::L2NexthopGroupEncapTableVaneWrappers

extern template class P4RuntimeVane::TableAdapter<
    P4RuntimeRouting::IpDestinationTableVaneWrappers::IpDestinationVaneWrapper,
    P4RuntimeRouting::IpDestinationTableVaneWrappers::IpDestinationTraits>;
extern template class P4RuntimeVane::TableAdapter<
    P4RuntimeRouting::IpVrfPrefixTableVaneWrappers::VrfPrefixDestinationVaneWrapper,
    P4RuntimeRouting::IpVrfPrefixTableVaneWrappers::VrfPrefixDestinationTraits>;
extern template class P4RuntimeVane::TableAdapter<
    NexthopGroup::L2NexthopGroupEncapTableVaneWrappers::L2NexthopGroupEncapVaneWrapper,
    NexthopGroup::L2NexthopGroupEncapTableVaneWrappers::L2NexthopGroupEncapTraits>;
