// The kinds of column a row type can have: how wide a column's slot is, how it is named in a type
// signature, and how its value is read and printed.
//
//   uint64_t 8   uint32_t 4   int32_t 4   uint16_t 2   bool 1   EthAddr 6
//   IpGenPrefix 4   IpGenAddr 4   uint32_t[] 4        (descriptors; the bodies are variable data)
//
// How a column is hashed and compared belongs to the row encoding, Vane/baseRow.h.
#pragma once

#include <charconv>
#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Vane/baseRow.h"
#include "platform/Vane/VaExceptions.h"
#include "platform/Vane/Values.h"

namespace RoutingTypes {

using Vane::len_t;

template <class T>
concept VariableColumn = Vane::AddressColumn<T> || Vane::ArrayColumn<T>;

template <class T>
concept ColumnKind = Vane::ScalarColumn<T> || VariableColumn<T>;

// A value whose text is quoted.
template <class T>
concept QuotedColumn = Vane::AddressColumn<T> || std::same_as<T, Vane::EthAddr>;

template <ColumnKind T>
inline constexpr len_t slotWidth = sizeof(T);
template <VariableColumn T>
inline constexpr len_t slotWidth<T> = sizeof(Vane::VColType);
static_assert(slotWidth<bool> == 1 && slotWidth<Vane::EthAddr> == 6);

template <ColumnKind T>
inline constexpr std::string_view typeWord = "";
template <>
inline constexpr std::string_view typeWord<uint64_t> = "uint64_t";
template <>
inline constexpr std::string_view typeWord<uint32_t> = "uint32_t";
template <>
inline constexpr std::string_view typeWord<int32_t> = "int32_t";
template <>
inline constexpr std::string_view typeWord<uint16_t> = "uint16_t";
template <>
inline constexpr std::string_view typeWord<bool> = "bool";
template <>
inline constexpr std::string_view typeWord<Vane::EthAddr> = "EthAddr";
template <>
inline constexpr std::string_view typeWord<Vane::IpGenPrefix> = "IpGenPrefix";
template <>
inline constexpr std::string_view typeWord<Vane::IpGenAddr> = "IpGenAddr";
template <>
inline constexpr std::string_view typeWord<std::vector<uint32_t>> = "uint32_t[]";

// Bytes of variable data that a value takes in a row.
template <ColumnKind T>
constexpr uint64_t bodyBytes(const T& value) {
  if constexpr (Vane::AddressColumn<T>) {
    return Vane::bodyLength(value);
  } else if constexpr (Vane::ArrayColumn<T>) {
    return value.empty() ? 0 : 2 + 4 * uint64_t{value.size()};
  } else {
    return 0;
  }
}

// The value of a column. Unlike getColumn, it throws "null row" for a null row whatever the kind.
template <ColumnKind T>
T columnValue(const Vane::BaseRow& row, len_t col) {
  if constexpr (Vane::ScalarColumn<T>) {
    return row.getScalar<T>(col);
  } else {
    if (row.isNull()) Vane::VaNullRow::throwException("null row");
    T value{};
    if constexpr (Vane::ArrayColumn<T>) {
      row.getFixElemArray<uint32_t>(col, value);
    } else {
      row.getColumn(col, value);
    }
    return value;
  }
}

template <ColumnKind T>
void setColumnValue(Vane::BaseRow& row, len_t col, const T& value, len_t fixedLength) {
  if constexpr (Vane::ArrayColumn<T>) {
    row.setColumn<uint32_t>(col, value, fixedLength);
  } else {
    row.setColumn<T>(col, value, fixedLength);
  }
}

// A row's text under construction. Appended to rather than streamed into: tools print rows by the
// million.
class RowText {
 public:
  explicit RowText(size_t expectedLength) { text_.reserve(expectedLength); }

  RowText& operator<<(std::string_view text) {
    text_.append(text);
    return *this;
  }
  std::string take() && { return std::move(text_); }

  void value(bool value) { *this << Vane::FMT<bool>(value); }
  template <std::integral N>
  void value(N number) {
    char digits[20];
    const auto end = std::to_chars(digits, digits + sizeof digits, number).ptr;
    text_.append(digits, end);
  }
  template <QuotedColumn T>
  void value(const T& address) {
    *this << "\"" << address.text() << "\"";
  }
  void value(const std::vector<uint32_t>& elements) {
    std::string_view separator = "[";
    for (const uint32_t element : elements) {
      *this << separator;
      value(element);
      separator = ", ";
    }
    *this << (elements.empty() ? "[]" : "]");
  }

 private:
  std::string text_;
};

// The longest text that a value of this kind has; of an array, the text of an empty one.
template <ColumnKind T>
inline constexpr size_t textLength = 2;
template <>
inline constexpr size_t textLength<uint64_t> = 20;
template <>
inline constexpr size_t textLength<uint32_t> = 10;
template <>
inline constexpr size_t textLength<int32_t> = 11;
template <>
inline constexpr size_t textLength<uint16_t> = 5;
template <>
inline constexpr size_t textLength<bool> = 5;
template <>
inline constexpr size_t textLength<Vane::EthAddr> = 19;
template <>
inline constexpr size_t textLength<Vane::IpGenPrefix> = 45;
template <>
inline constexpr size_t textLength<Vane::IpGenAddr> = 41;

}  // namespace RoutingTypes
