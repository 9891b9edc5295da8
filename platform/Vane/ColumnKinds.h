// The kinds of column a row type can have: how wide a column's slot is, how it is named in a type
// signature, and how its value is read and written, whatever the kind.
//
//   uint64_t 8   uint32_t 4   int32_t 4   uint16_t 2   bool 1   EthAddr 6
//   IpGenPrefix 4   IpGenAddr 4   uint32_t[] 4        (descriptors; the bodies are variable data)
//
// How a column is hashed and compared belongs to the row encoding, Vane/baseRow.h.
#pragma once

#include <concepts>
#include <cstdint>
#include <string_view>
#include <vector>

#include "Vane/baseRow.h"
#include "platform/Vane/VaExceptions.h"
#include "platform/Vane/Values.h"

namespace Vane {

template <class T>
concept VariableColumn = AddressColumn<T> || ArrayColumn<T>;

template <class T>
concept ColumnKind = ScalarColumn<T> || VariableColumn<T>;

template <ColumnKind T>
inline constexpr len_t slotWidth = sizeof(T);
template <VariableColumn T>
inline constexpr len_t slotWidth<T> = sizeof(VColType);
static_assert(slotWidth<bool> == 1 && slotWidth<EthAddr> == 6);

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
inline constexpr std::string_view typeWord<EthAddr> = "EthAddr";
template <>
inline constexpr std::string_view typeWord<IpGenPrefix> = "IpGenPrefix";
template <>
inline constexpr std::string_view typeWord<IpGenAddr> = "IpGenAddr";
template <>
inline constexpr std::string_view typeWord<std::vector<uint32_t>> = "uint32_t[]";

// Bytes of variable data that a value takes in a row.
template <ColumnKind T>
constexpr uint64_t bodyBytes(const T& value) {
  if constexpr (AddressColumn<T>) {
    return bodyLength(value);
  } else if constexpr (ArrayColumn<T>) {
    return value.empty() ? 0 : 2 + 4 * uint64_t{value.size()};
  } else {
    return 0;
  }
}

// The value of a column. Unlike getColumn, it throws "null row" for a null row whatever the kind.
template <ColumnKind T>
inline T columnValue(const BaseRow& row, len_t col) {
  if constexpr (ScalarColumn<T>) {
    return row.getScalar<T>(col);
  } else {
    if (row.isNull()) VaNullRow::throwException("null row");
    T value{};
    if constexpr (ArrayColumn<T>) {
      row.getFixElemArray<uint32_t>(col, value);
    } else {
      row.getColumn(col, value);
    }
    return value;
  }
}

template <ColumnKind T>
void setColumnValue(BaseRow& row, len_t col, const T& value, len_t fixedLength) {
  if constexpr (ArrayColumn<T>) {
    row.setColumn<uint32_t>(col, value, fixedLength);
  } else {
    row.setColumn<T>(col, value, fixedLength);
  }
}

}  // namespace Vane
