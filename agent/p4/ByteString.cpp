#include "agent/p4/ByteString.h"

#include <algorithm>
#include <array>
#include <bit>
#include <concepts>
#include <type_traits>
#include <variant>

#include "agent/p4/Fault.h"

namespace Agent::P4 {
namespace {

size_t bitsOf(std::string_view significant) {
  if (significant.empty()) return 0;
  return 8 * (significant.size() - 1) + std::bit_width(static_cast<uint8_t>(significant.front()));
}

template <class T>
concept Addressed = std::same_as<T, Wire::IpGenAddr> || std::same_as<T, Wire::IpGenPrefix>;

template <Addressed T>
std::span<const uint8_t> addressBytes(const T& value) {
  return std::span(value.bytes).first(std::max<size_t>(Wire::addressLength(value.family), 1));
}

// Without leading zeros, but for the last digit.
std::span<const uint8_t> significant(std::span<const uint8_t> bigEndian) {
  return {std::find_if(bigEndian.begin(), bigEndian.end() - 1,
                       [](uint8_t digit) { return digit != 0; }),
          bigEndian.end()};
}

}  // namespace

void readBytes(std::string_view bytes, int width, std::span<uint8_t> out) {
  if (bytes.empty()) invalid("expected a number of {} bits, found an empty byte string", width);
  bytes.remove_prefix(std::min(bytes.find_first_not_of('\0'), bytes.size()));
  if (bitsOf(bytes) > static_cast<size_t>(width)) {
    invalid("expected a number of {} bits, found one of {}", width, bitsOf(bytes));
  }
  const size_t zeros = out.size() - bytes.size();
  std::fill_n(out.begin(), zeros, uint8_t{0});
  std::copy(bytes.begin(), bytes.end(), out.begin() + zeros);
}

uint64_t readNumber(std::string_view bytes, int width) {
  std::array<uint8_t, 8> digits;
  readBytes(bytes, width, digits);
  uint64_t number = 0;
  for (const uint8_t digit : digits) number = number << 8 | digit;
  return number;
}

std::string byteString(std::span<const uint8_t> bigEndian) {
  const auto bytes = significant(bigEndian);
  return std::string(bytes.begin(), bytes.end());
}

std::string byteString(uint64_t number) {
  std::array<uint8_t, 8> digits;
  for (size_t i = digits.size(); i-- > 0; number >>= 8) digits[i] = static_cast<uint8_t>(number);
  return byteString(std::span<const uint8_t>(digits));
}

void byteString(const Wire::IpGenPrefix& prefix, std::string& out) {
  const auto bytes = significant(addressBytes(prefix));
  out.assign(bytes.begin(), bytes.end());
}

void readColumn(std::string_view bytes, int width, Wire::AddressFamily family,
                Vane::ColumnValue& value) {
  std::visit(
      [&]<class T>(T& held) {
        if constexpr (std::same_as<T, bool>) {
          held = readNumber(bytes, width) != 0;
        } else if constexpr (std::integral<T>) {
          held = static_cast<T>(readNumber(bytes, width));
        } else if constexpr (Addressed<T>) {
          held = T{};
          held.family = family;
          readBytes(bytes, width, std::span(held.bytes).first(Wire::addressLength(family)));
          if constexpr (std::same_as<T, Wire::IpGenPrefix>) {
            held.length = static_cast<uint8_t>(width);
          }
        } else if constexpr (std::same_as<T, Wire::EthAddr>) {
          readBytes(bytes, width, held.bytes);
        }
      },
      value);
}

std::string byteString(const Vane::ColumnValue& value) {
  return std::visit(
      []<class T>(const T& held) -> std::string {
        if constexpr (std::same_as<T, bool>) {
          return byteString(uint64_t{held});
        } else if constexpr (std::integral<T>) {
          return byteString(uint64_t{static_cast<std::make_unsigned_t<T>>(held)});
        } else if constexpr (Addressed<T>) {
          return byteString(addressBytes(held));
        } else if constexpr (std::same_as<T, Wire::EthAddr>) {
          return byteString(std::span<const uint8_t>(held.bytes));
        } else {
          return {};
        }
      },
      value);
}

bool isCanonical(const Wire::IpGenPrefix& prefix) {
  const size_t bits = 8 * Wire::addressLength(prefix.family);
  if (prefix.length > bits) return false;
  for (size_t bit = prefix.length; bit < bits; bit = (bit | 7) + 1) {
    if (prefix.bytes[bit / 8] & (0xff >> bit % 8)) return false;
  }
  return true;
}

}  // namespace Agent::P4
