// The fixed-size column kinds: how each is loaded, stored and hashed.
//
// Raw is what equality and order look at. It differs from the value for bool, whose byte is
// compared as it is, and for a MAC, which is ordered by its bytes.
#pragma once

#include <array>
#include <concepts>
#include <cstdint>
#include <cstring>

#include "Vane/detail/bytes.h"
#include "platform/Vane/Values.h"

namespace Vane {

template <class T, class... Kinds>
concept OneOf = (std::same_as<T, Kinds> || ...);

template <class T>
concept ScalarColumn = OneOf<T, bool, uint16_t, int32_t, uint32_t, uint64_t, EthAddr>;

namespace detail {

template <class T>
struct Scalar {
  using Raw = T;
  static Raw load(const uint8_t* at) { return loadLe<T>(at); }
  static T value(Raw raw) { return raw; }
  static void store(uint8_t* at, T value) { storeLe(at, value); }
  // The low 32 bits: two uint64_t values that differ only above bit 31 hash alike.
  static uint32_t hash(Raw raw) { return static_cast<uint32_t>(raw); }
};

template <>
struct Scalar<bool> {
  using Raw = uint8_t;
  static Raw load(const uint8_t* at) { return *at; }
  static bool value(Raw raw) { return raw != 0; }
  static void store(uint8_t* at, bool value) { *at = value; }
  static uint32_t hash(Raw raw) { return raw; }
};

template <>
struct Scalar<EthAddr> {
  using Raw = std::array<uint8_t, 6>;
  static Raw load(const uint8_t* at) {
    Raw bytes;
    std::memcpy(bytes.data(), at, bytes.size());
    return bytes;
  }
  static EthAddr value(Raw raw) { return EthAddr{raw}; }
  static void store(uint8_t* at, const EthAddr& value) {
    std::memcpy(at, value.bytes.data(), value.bytes.size());
  }
  static uint32_t hash(Raw raw) {
    const uint32_t tail = uint32_t{raw[4]} << 8 | raw[5];
    const uint32_t h = Wire::murmurBlock(Wire::murmurBlock(0, Wire::networkWord(raw.data())), tail);
    return Wire::murmurAvalanche(h);
  }
};

}  // namespace detail
}  // namespace Vane
