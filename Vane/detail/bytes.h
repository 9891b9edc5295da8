// Little-endian numbers at any alignment. On a little-endian host a load or store is one move.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <concepts>
#include <cstdint>
#include <cstring>

namespace Vane::detail {

template <std::integral T>
T loadLe(const uint8_t* from) {
  std::array<uint8_t, sizeof(T)> bytes;
  std::memcpy(bytes.data(), from, sizeof(T));
  if constexpr (std::endian::native == std::endian::big) std::reverse(bytes.begin(), bytes.end());
  return std::bit_cast<T>(bytes);
}

template <std::integral T>
void storeLe(uint8_t* to, T value) {
  auto bytes = std::bit_cast<std::array<uint8_t, sizeof(T)>>(value);
  if constexpr (std::endian::native == std::endian::big) std::reverse(bytes.begin(), bytes.end());
  std::memcpy(to, bytes.data(), sizeof(T));
}

}  // namespace Vane::detail
