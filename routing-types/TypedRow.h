// What every row type is: a view of a packed row by its column list, with no state of its own.
//
// A row type derives from TypedRow of itself, tells its typeName and its Columns, and gives each
// column an accessor. Rows are made in three ways: empty, by key, and of values; the last two take
// a buffer that holds the variable-size values as well, so that nothing grows later.
//
// A generic row becomes a typed one when its type id is the row type's. The id is the row
// database's: it is asked for once and kept until reset(), which comes with another database.
#pragma once

#include <algorithm>
#include <atomic>
#include <concepts>
#include <cstdint>
#include <sstream>
#include <string>
#include <utility>

#include "Vane/baseRow.h"
#include "platform/Vane/VaExceptions.h"
#include "platform/Vane/VaneDB.h"
#include "routing-types/ColumnList.h"
#include "routing-types/RowOps.h"
#include "routing-types/RowText.h"

namespace RoutingTypes {

template <class Row>
class TypedRow : public Vane::BaseRow {
 public:
  static constexpr uint16_t unknownRowType = 65535;
  // Threads that look the id up at the same time store the same value.
  static inline std::atomic<uint16_t> rowType_ = unknownRowType;
  static constexpr uint16_t baseRowLength_ = Row::Columns::fixedLength;

  static std::string rowTypeName() { return Row::typeName; }
  // A one-line JSON object: column names, in order, to type words.
  static std::string vaTypeSignature();
  static bool isBaseRow() { return false; }
  static uint16_t protRowType() {
    const uint16_t known = rowType_.load(std::memory_order_relaxed);
    return known < unknownRowType ? known : lookUpRowType();
  }
  // Forgets the type id: the next protRowType() asks the database again.
  static void reset() { rowType_.store(unknownRowType, std::memory_order_relaxed); }

  // The text of a generic row of this type.
  static std::string browToString(const Vane::BaseRow& row) { return Row(row).toString(); }

  // An empty row: zero, but for the columns that have a default.
  TypedRow();
  // A row whose columns, each with its value, `fill` writes through a Vane::RowWriter: so many
  // bytes of bodies, and all of them columns that a row can hold.
  template <std::invocable<Vane::RowWriter&> Fill>
  TypedRow(len_t bodies, Fill fill)
      : BaseRow(baseRowLength_, static_cast<len_t>(baseRowLength_ + bodies)) {
    Vane::RowWriter writer(*this, baseRowLength_);
    writer.typeIs(protRowType());
    fill(writer);
  }
  TypedRow(const TypedRow&) = default;
  TypedRow(TypedRow&&) noexcept = default;
  TypedRow& operator=(const TypedRow&) = default;
  TypedRow& operator=(TypedRow&&) noexcept = default;

  // A generic row as a row of this type; null stays null. A row of another type is VaBadCast, one
  // without the type's whole fixed area VaOutOfRange. A source that was moved from is empty even
  // then.
  TypedRow(const Vane::BaseRow& row) : BaseRow(row) { checkType(); }
  TypedRow(Vane::BaseRow&& row) : BaseRow(std::move(row)) { checkType(); }
  // The row is taken over first and checked afterwards: when the check throws, this row holds the
  // bytes of the wrong type.
  Row& operator=(const Vane::BaseRow& row) {
    BaseRow::operator=(row);
    return checked();
  }
  Row& operator=(Vane::BaseRow&& row) {
    BaseRow::operator=(std::move(row));
    return checked();
  }

  Row clone() const { return Row(BaseRow::clone()); }

  // The key alone: hash, equality and order of tables of this type.
  uint32_t hash() const { return hashOf<typename Row::Columns::Keys>(*this); }
  bool operator==(const Row& other) const {
    return areEqual<typename Row::Columns::Keys>(*this, other);
  }
  bool operator<(const Row& other) const {
    return isLess<typename Row::Columns::Keys>(*this, other);
  }

  const Vane::vcdType& vcd() const override;
  // "name = value, ..."; "len: 0, NULL" for a null row.
  std::string toString() const override;
  std::string toJson() const override;
  bool rowEqual(const Vane::BaseRow& other) const override {
    if (rowType() != other.rowType()) return false;
    other.needFixedArea(baseRowLength_);
    return areEqual<typename Row::Columns::All>(*this, other);
  }
  bool rowLess(const Vane::BaseRow& other) const override {
    other.needFixedArea(baseRowLength_);
    return isLess<typename Row::Columns::All>(*this, other);
  }
  uint32_t rowHash() const override { return hashOf<typename Row::Columns::All>(*this); }
  len_t baseRowLength() override { return baseRowLength_; }
  bool isFullyDefined() const override { return true; }
  // Makes this an empty row of the type, all columns zero.
  void clearRow() override;

 protected:
  // What a row type's column list is written with.
  template <ColumnName name, ColumnKind T, auto... defaults>
  using Column = RoutingTypes::Column<name, T, defaults...>;
  template <ColumnName name, ColumnKind T, auto... defaults>
  using KeyColumn = RoutingTypes::KeyColumn<name, T, defaults...>;
  template <class... Cs>
  using ColumnList = RoutingTypes::ColumnList<Cs...>;

  struct Values {};
  struct Key {};
  static constexpr Values ofValues{};
  static constexpr Key ofKey{};

  // A row of one value per column.
  template <class... Vs>
  explicit TypedRow(Values, const Vs&... vs);
  // A row of one value per key column; the rest as in an empty row.
  template <class... Vs>
  explicit TypedRow(Key, const Vs&... vs);

  template <ColumnName name>
  auto get() const {
    using C = typename Row::Columns::template Named<name>;
    return Vane::columnValue<typename C::Type>(*this, C::offset);
  }
  template <ColumnName name, class V>
  void set(const V& value) {
    place(typename Row::Columns::template Named<name>(), value);
  }

 private:
  template <PlacedColumn C>
  void place(C, const typename C::Type& value) {
    Vane::setColumnValue(*this, C::offset, value, baseRowLength_);
  }

  // What no row can hold is left for setColumn to refuse.
  template <class Columns, class... Vs>
  void placeAll(const Vs&... vs) {
    if (wantedLength(vs...) <= Vane::maxRowLength && (isHeld(vs) && ...)) {
      Vane::RowWriter writer(*this, baseRowLength_);
      Columns::forEachWith([&](auto c, const auto& value) { writer.set(c.offset, value); }, vs...);
    } else {
      Columns::forEachWith([this](auto c, const auto& value) { this->place(c, value); }, vs...);
    }
  }
  template <class V>
  static bool isHeld(const V& value) {
    if constexpr (Vane::ArrayColumn<V>) return value.size() <= Vane::RowWriter::maxElements;
    return true;
  }

  // Of the fixed area and these values.
  template <class... Vs>
  static uint64_t wantedLength(const Vs&... vs) {
    return (uint64_t{baseRowLength_} + ... + Vane::bodyBytes(vs));
  }
  template <class... Vs>
  static len_t bufferLength(const Vs&... vs) {
    return static_cast<len_t>(std::min<uint64_t>(wantedLength(vs...), Vane::maxRowLength));
  }

  // Of this type, and with all of its fixed area: columns are then read without looking.
  void checkType() const {
    if (isNull()) return;
    if (rowType() != protRowType()) [[unlikely]]
      throwOtherType();
    needFixedArea(baseRowLength_);
  }
  Row& checked() {
    checkType();
    return static_cast<Row&>(*this);
  }
  [[noreturn]] void throwOtherType() const;
  static uint16_t lookUpRowType();
};

template <class Row>
TypedRow<Row>::TypedRow() : BaseRow(baseRowLength_) {
  rowTypeIs(protRowType());
  Row::Columns::Defaults::forEach(
      [this]<PlacedColumn C>(C c) { this->place(c, C::defaultValue()); });
}

template <class Row>
template <class... Vs>
TypedRow<Row>::TypedRow(Values, const Vs&... vs) : BaseRow(baseRowLength_, bufferLength(vs...)) {
  placeAll<typename Row::Columns::All>(vs...);
  rowTypeIs(protRowType());
}

template <class Row>
template <class... Vs>
TypedRow<Row>::TypedRow(Key, const Vs&... vs) : BaseRow(baseRowLength_, bufferLength(vs...)) {
  rowTypeIs(protRowType());
  placeAll<typename Row::Columns::Keys>(vs...);
  Row::Columns::NonKeyDefaults::forEach(
      [this]<PlacedColumn C>(C c) { this->place(c, C::defaultValue()); });
}

template <class Row>
void TypedRow<Row>::clearRow() {
  if (isNull()) return;
  clear(baseRowLength());
  rowTypeIs(protRowType());
}

template <class Row>
const Vane::vcdType& TypedRow<Row>::vcd() const {
  static const Vane::vcdType columns = [] {
    Vane::vcdType offsets;
    Row::Columns::Variable::forEach([&]<PlacedColumn C>(C) { offsets.push_back(C::offset); });
    return offsets;
  }();
  return columns;
}

template <class Row>
void TypedRow<Row>::throwOtherType() const {
  std::ostringstream message;
  message << "row type " << rowType() << " does not match row type " << rowType_ << " "
          << rowOffset();
  Vane::VaBadCast::throwException(message.str());
}

// The class record's first column is the type's id.
template <class Row>
uint16_t TypedRow<Row>::lookUpRowType() {
  const std::string name = rowTypeName();
  Vane::BaseRow record = Vane::VaneDB::vaClass(name);
  if (record.isNull()) {
    Vane::VaneDB::loadMetadata(name);
    record = Vane::VaneDB::vaClass(name);
  }
  rowType_ = record.getScalar<uint16_t>(Vane::va_contentOffset);
  return rowType_;
}

namespace detail {

// Has `write` append each column, with ", " between them.
template <class Columns>
void writeColumns(RowText& out, auto write) {
  std::string_view separator = "";
  Columns::forEach([&]<PlacedColumn C>(C c) {
    out << separator;
    write(c);
    separator = ", ";
  });
}

// Enough for the text of a row whose columns each take `perColumn` bytes besides name and value.
template <class Columns>
constexpr size_t longestText(size_t perColumn) {
  size_t length = 0;
  Columns::forEach([&]<PlacedColumn C>(C) {
    length += C::name.size() + textLength<typename C::Type> + perColumn;
  });
  return length;
}

}  // namespace detail

template <class Row>
std::string TypedRow<Row>::vaTypeSignature() {
  using Columns = typename Row::Columns::All;
  RowText out(detail::longestText<Columns>(0));
  out << "{";
  detail::writeColumns<Columns>(out, [&]<PlacedColumn C>(C) {
    out << "\"" << C::name << "\":\"" << Vane::typeWord<typename C::Type> << "\"";
  });
  out << "}";
  return std::move(out).take();
}

template <class Row>
std::string TypedRow<Row>::toJson() const {
  using Columns = typename Row::Columns::All;
  constexpr size_t length = detail::longestText<Columns>(std::string_view("\"\":, ").size());
  RowText out(length);
  out << "{";
  detail::writeColumns<Columns>(out, [&]<PlacedColumn C>(C) {
    out << "\"" << C::name << "\":";
    out.value(Vane::columnValue<typename C::Type>(*this, C::offset));
  });
  out << "}";
  return std::move(out).take();
}

template <class Row>
std::string TypedRow<Row>::toString() const {
  if (isNull()) return "len: 0, NULL";
  using Columns = typename Row::Columns::All;
  constexpr size_t length = detail::longestText<Columns>(std::string_view(" = , ").size());
  RowText out(length);
  detail::writeColumns<Columns>(out, [&]<PlacedColumn C>(C) {
    out << C::name << " = ";
    out.value(Vane::columnValue<typename C::Type>(*this, C::offset));
  });
  return std::move(out).take();
}

}  // namespace RoutingTypes
