// The adapters of the ECMP tables: names for TableAdapter over each table, with what differs
// between them.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <vector>

#include "platform/State/EcmpTypes.h"
#include "routing-types/EcmpMemberListRow.h"
#include "routing-types/NexthopInfoRow.h"
#include "src-includes/P4RuntimeVane/TableAdapter.h"

namespace P4RuntimeRouting::EcmpMemberVaneWrappers {

uint32_t nexthopInfoKeyRuneHasher(P4Runtime::MemberOrGroupId id);

// Fills the row from the entry.
void vaneP4RuntimeRoutingNexthopInfo(const NexthopInfo& entry, NexthopInfoRow& row);

struct NexthopInfoTraits {
  using Table = EcmpMember;
  using Entry = NexthopInfo;
  using Key = P4Runtime::MemberOrGroupId;
  using Row = NexthopInfoRow;

  static constexpr auto name = "NexthopInfoVaneWrapper";
  static constexpr auto source = "src-includes/P4RuntimeVane/P4RuntimeRoutingEcmpTypesVaneWrappers";
  static constexpr P4RuntimeVane::AssertionLines lines{
      .notMounted = 251, .notWriter = 255, .row = 315, .begin = 325, .end = 331, .find = 339};

  static constexpr auto key = &Entry::id;
  static constexpr auto keyHash = &nexthopInfoKeyRuneHasher;
  static constexpr auto map = &Table::nexthopInfo;
  static constexpr auto set = &Table::nexthopInfoIs;
  static constexpr auto del = &Table::nexthopInfoDel;
  static constexpr auto delAll = &Table::nexthopInfoDelAll;
  static constexpr auto toRow = &vaneP4RuntimeRoutingNexthopInfo;

  // clang-format off
  using KeyColumns = P4RuntimeVane::FieldColumns<Row,
      P4RuntimeVane::Field<"id">>;
  using Columns = P4RuntimeVane::FieldColumns<Row,
      P4RuntimeVane::Field<"genId", &Entry::genId>,
      P4RuntimeVane::Field<"entryHandle", &Entry::entryHandle>,
      P4RuntimeVane::Field<"valid", &Entry::valid>,
      P4RuntimeVane::Field<"entryId", &Entry::entryId>,
      P4RuntimeVane::Group<key, KeyColumns>,
      P4RuntimeVane::Field<"egressPort", &Entry::egressPort>,
      P4RuntimeVane::Field<"srcMac", &Entry::srcMac>,
      P4RuntimeVane::Field<"dstMac", &Entry::dstMac>,
      P4RuntimeVane::Field<"vlanTagged", &Entry::vlanTagged>,
      P4RuntimeVane::Field<"encapType", &Entry::encapType>,
      P4RuntimeVane::Field<"vlanId", &Entry::vlanId>>;
  // clang-format on
};

class NexthopInfoVaneWrapper
    : public P4RuntimeVane::TableAdapter<NexthopInfoVaneWrapper, NexthopInfoTraits> {
 public:
  using TableAdapter::TableAdapter;
  using NexthopInfoVaneWrapperIterator = P4RuntimeVane::RowIterator<NexthopInfoTraits>;
  using NexthopInfoVaneWrapperChangeIterator = ChangeIterator;

  virtual void kitNexthopInfoModified(const NexthopInfoRow& row, bool deleted,
                                      const P4Runtime::MemberOrGroupId& key);
  static constexpr auto changeHandler = &NexthopInfoVaneWrapper::kitNexthopInfoModified;
};

}  // namespace P4RuntimeRouting::EcmpMemberVaneWrappers

namespace P4RuntimeRouting::EcmpGroupVaneWrappers {

// One of a group's two lists, in an array column, by member index. A list longer than its slots is
// MemberIndex's range error, in both directions.
template <RoutingTypes::ColumnName name, auto count, auto list>
struct MemberArray {
  template <class Row, class Object, class Target>
  static void toRow(const Object& object, Target& row) {
    needSlots(object.*count);
    std::vector<uint32_t>& values = scratch();
    values.resize(object.*count);
    copy(values.data(), (object.*list).data(), values.size());
    P4RuntimeVane::ValueColumn<Row, name>::write(row, values);
  }
  template <class Object>
  static Vane::len_t bodyBytes(const Object& object) {
    needSlots(object.*count);
    return object.*count == 0 ? 0 : static_cast<Vane::len_t>(2 + 4 * (object.*count));
  }
  template <class Row, class Object>
  static void read(const Vane::BaseRow& row, Object& object) {
    std::vector<uint32_t>& values = scratch();
    values.clear();
    P4RuntimeVane::ValueColumn<Row, name>::read(row, values);
    needSlots(values.size());
    copy((object.*list).data(), values.data(), values.size());
    object.*count = std::max(object.*count, static_cast<uint32_t>(values.size()));
  }
  template <class Row>
  static constexpr Vane::len_t end = P4RuntimeVane::ValueColumn<Row, name>::end;
  template <class Row>
  static constexpr Vane::len_t endAfter(Vane::len_t at) {
    return P4RuntimeVane::ValueColumn<Row, name>::endAfter(at);
  }

 private:
  static void needSlots(size_t elements) {
    if (elements > EcmpMemberList::slots) static_cast<void>(MemberIndex(EcmpMemberList::slots));
  }

  // Numbers of 32 bits all of them, whatever their names.
  template <class To, class From>
  static void copy(To* to, const From* from, size_t elements) {
    static_assert(std::is_same_v<std::make_unsigned_t<To>, std::make_unsigned_t<From>>);
    if (elements != 0) std::memcpy(to, from, elements * sizeof(To));
  }

  // This list's own. It keeps its room for the life of the process, so that a conversion allocates
  // nothing; only the agent's thread converts.
  static std::vector<uint32_t>& scratch() {
    static std::vector<uint32_t> values;
    return values;
  }
};

uint32_t ecmpMemberListKeyRuneHasher(P4Runtime::MemberOrGroupId id);

void vaneP4RuntimeRoutingEcmpMemberList(const EcmpMemberList& entry, EcmpMemberListRow& row);

struct EcmpMemberListTraits {
  using Table = EcmpGroup;
  using Entry = EcmpMemberList;
  using Key = P4Runtime::MemberOrGroupId;
  using Row = EcmpMemberListRow;

  static constexpr auto name = "EcmpMemberListVaneWrapper";
  static constexpr auto source = "src-includes/P4RuntimeVane/P4RuntimeRoutingEcmpTypesVaneWrappers";
  static constexpr P4RuntimeVane::AssertionLines lines{
      .notMounted = 673, .notWriter = 677, .row = 737, .begin = 747, .end = 753, .find = 761};

  static constexpr auto key = &Entry::id;
  static constexpr auto keyHash = &ecmpMemberListKeyRuneHasher;
  static constexpr auto map = &Table::ecmpMemberList;
  static constexpr auto set = &Table::ecmpMemberListIs;
  static constexpr auto del = &Table::ecmpMemberListDel;
  static constexpr auto delAll = &Table::ecmpMemberListDelAll;
  static constexpr auto toRow = &vaneP4RuntimeRoutingEcmpMemberList;

  // clang-format off
  using KeyColumns = P4RuntimeVane::FieldColumns<Row,
      P4RuntimeVane::Field<"id">>;
  using Columns = P4RuntimeVane::FieldColumns<Row,
      P4RuntimeVane::Field<"genId", &Entry::genId>,
      P4RuntimeVane::Field<"entryHandle", &Entry::entryHandle>,
      P4RuntimeVane::Field<"valid", &Entry::valid>,
      P4RuntimeVane::Field<"entryId", &Entry::entryId>,
      P4RuntimeVane::Group<key, KeyColumns>,
      MemberArray<"members", &Entry::memberCount, &Entry::members>,
      MemberArray<"watchPorts", &Entry::watchCount, &Entry::watches>>;
  // clang-format on
};

class EcmpMemberListVaneWrapper
    : public P4RuntimeVane::TableAdapter<EcmpMemberListVaneWrapper, EcmpMemberListTraits> {
 public:
  using TableAdapter::TableAdapter;
  using EcmpMemberListVaneWrapperIterator = P4RuntimeVane::RowIterator<EcmpMemberListTraits>;
  using EcmpMemberListVaneWrapperChangeIterator = ChangeIterator;

  virtual void kitEcmpMemberListModified(const EcmpMemberListRow& row, bool deleted,
                                         const P4Runtime::MemberOrGroupId& key);
  static constexpr auto changeHandler = &EcmpMemberListVaneWrapper::kitEcmpMemberListModified;
};

}  // namespace P4RuntimeRouting::EcmpGroupVaneWrappers

extern template class P4RuntimeVane::TableAdapter<
    P4RuntimeRouting::EcmpMemberVaneWrappers::NexthopInfoVaneWrapper,
    P4RuntimeRouting::EcmpMemberVaneWrappers::NexthopInfoTraits>;
extern template class P4RuntimeVane::TableAdapter<
    P4RuntimeRouting::EcmpGroupVaneWrappers::EcmpMemberListVaneWrapper,
    P4RuntimeRouting::EcmpGroupVaneWrappers::EcmpMemberListTraits>;
