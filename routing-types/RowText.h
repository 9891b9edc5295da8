// A row's text under construction: how a value of each kind is printed.
#pragma once

#include <charconv>
#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/Vane/ColumnKinds.h"
#include "platform/Vane/Values.h"

namespace RoutingTypes {

// A value whose text is quoted.
template <class T>
concept QuotedColumn = Vane::AddressColumn<T> || std::same_as<T, Vane::EthAddr>;

// Appended to rather than streamed into: tools print rows by the million.
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
template <Vane::ColumnKind T>
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
