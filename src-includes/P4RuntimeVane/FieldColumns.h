// Pairs the fields of a table entry with the columns of its row: one list, read in both directions.
//
//   using KeyColumns = FieldColumns<VrfPrefixDestinationRow,
//                                   Field<"vrfId", &IpVrfPrefixKey::vrfId>,
//                                   Field<"prefix", &IpVrfPrefixKey::prefix>>;
//   using Columns = FieldColumns<VrfPrefixDestinationRow,
//                                Field<"genId", &VrfPrefixDestination::genId>,
//                                ...
//                                Group<&VrfPrefixDestination::key, KeyColumns>,
//                                ...>;
//
// The lists stand in column order. A row is written and read by offset; what its type field says is
// not looked at.
#pragma once

#include <algorithm>
#include <concepts>

#include "Vane/baseRow.h"
#include "platform/Vane/VaExceptions.h"
#include "routing-types/ColumnList.h"

namespace P4RuntimeVane {

using RoutingTypes::ColumnName;

inline void needBuffer(const Vane::BaseRow& row) {
  if (row.isNull()) Vane::VaNullRow::throwException("null row");
}

// One value in one column of Row, which has the value's type.
template <class Row, ColumnName name>
struct ValueColumn {
  using Type = typename Row::Columns::template Type<name>;
  static constexpr Vane::len_t offset = Row::Columns::template offsetOf<name>;

  static void write(Row& row, const std::same_as<Type> auto& value) {
    needBuffer(row);
    Vane::setColumnValue(row, offset, value, Row::baseRowLength_);
  }
  static void write(Vane::RowWriter& row, const std::same_as<Type> auto& value) {
    row.set(offset, value);
  }
  // Requires: the row has the column in its fixed area.
  static Type read(const Vane::BaseRow& row) { return Vane::columnValue<Type>(row, offset); }
  // The same, of an array, appended to `values`.
  static void read(const Vane::BaseRow& row, Type& values) requires Vane::ArrayColumn<Type> {
    row.getFixElemArray<uint32_t>(offset, values);
  }
  static constexpr Vane::len_t end = offset + Vane::slotWidth<Type>;
  static constexpr Vane::len_t endAfter(Vane::len_t at) { return at == offset ? end : 0; }
};

// The list of a row type's columns, or of some that follow each other. Every element of it, Field
// or Group, tells toRow (into a row, or through a Vane::RowWriter), read, how many bytes of bodies
// its columns take, and which columns those are: they end at `end`, and endAfter(`at`) is that too
// when they begin at `at`, and 0 when they do not.
template <class Row, class... Fields>
struct FieldColumns {
  template <class Object, class Target>
  static void toRow(const Object& object, Target& row) {
    (Fields::template toRow<Row>(object, row), ...);
  }
  template <class Object>
  static Vane::len_t bodyBytes(const Object& object) {
    return static_cast<Vane::len_t>((0 + ... + Fields::bodyBytes(object)));
  }
  // Somebody else's row may be shorter than its type's fixed area: one that has not all of these
  // columns is VaOutOfRange.
  template <class Object>
  static void fromRow(const Vane::BaseRow& row, Object& object) {
    row.needFixedArea(end);
    read(row, object);
  }
  // Requires: the row has these columns in its fixed area.
  template <class Object>
  static void read(const Vane::BaseRow& row, Object& object) {
    (Fields::template read<Row>(row, object), ...);
  }
  static constexpr Vane::len_t end = std::max({Fields::template end<Row>...});
  static constexpr Vane::len_t endAfter(Vane::len_t at) {
    ((at = Fields::template endAfter<Row>(at)), ...);
    return at;
  }
};

// One field of the object, in one column. `path` leads to it, member by member; without one it is
// the object itself that stands in the column.
template <ColumnName name, auto... path>
struct Field {
  template <class Row, class Object, class Target>
  static void toRow(const Object& object, Target& row) {
    ValueColumn<Row, name>::write(row, (object.*....*path));
  }
  template <class Object>
  static Vane::len_t bodyBytes(const Object& object) {
    return static_cast<Vane::len_t>(Vane::bodyBytes((object.*....*path)));
  }
  template <class Row, class Object>
  static void read(const Vane::BaseRow& row, Object& object) {
    (object.*....*path) = ValueColumn<Row, name>::read(row);
  }
  template <class Row>
  static constexpr Vane::len_t end = ValueColumn<Row, name>::end;
  template <class Row>
  static constexpr Vane::len_t endAfter(Vane::len_t at) {
    return ValueColumn<Row, name>::endAfter(at);
  }
};

// A field of the object that has a list of its own.
template <auto field, class Columns>
struct Group {
  template <class Row, class Object, class Target>
  static void toRow(const Object& object, Target& row) {
    Columns::toRow(object.*field, row);
  }
  template <class Object>
  static Vane::len_t bodyBytes(const Object& object) {
    return Columns::bodyBytes(object.*field);
  }
  template <class Row, class Object>
  static void read(const Vane::BaseRow& row, Object& object) {
    Columns::read(row, object.*field);
  }
  template <class Row>
  static constexpr Vane::len_t end = Columns::end;
  template <class Row>
  static constexpr Vane::len_t endAfter(Vane::len_t at) {
    return Columns::endAfter(at);
  }
};

}  // namespace P4RuntimeVane
