// The body of an address or prefix column in a row's variable data.
//
//   IpGenAddr     4 or 16 bytes    | address          |
//   IpGenPrefix   5 or 17 bytes    | length | address |    length in bits, address in network order
//
// The body's length tells the family. A value of no family has no body: its descriptor is absent.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "Vane/detail/scalar.h"
#include "Vane/rowBuffer.h"
#include "platform/Vane/Values.h"

namespace Vane {

template <class T>
concept AddressColumn = OneOf<T, IpGenAddr, IpGenPrefix>;

// Bytes of variable data that a value takes: 0 for a value of no family.
template <AddressColumn T>
constexpr len_t bodyLength(const T& value) {
  const auto address = static_cast<len_t>(Wire::addressLength(value.family));
  if constexpr (std::same_as<T, IpGenPrefix>) {
    return address == 0 ? 0 : address + 1;
  } else {
    return address;
  }
}

namespace detail {

// A body as it lies in a row, once its length is known to be one that T has. Order: unset, IPv4,
// IPv6; then by address bytes; then the shorter prefix first.
template <AddressColumn T>
struct AddressBody {
  static constexpr len_t prefixByte = std::same_as<T, IpGenPrefix> ? 1 : 0;
  static constexpr len_t ipv4Length = Wire::ip4Length + prefixByte;
  static constexpr len_t ipv6Length = Wire::ip6Length + prefixByte;

  static constexpr bool isLength(len_t length) {
    return length == 0 || length == ipv4Length || length == ipv6Length;
  }

  const uint8_t* at;
  len_t length;  // 0: unset, and `at` is not looked at

  len_t addressLength() const { return length - prefixByte; }  // requires: not unset
  const uint8_t* address() const { return at + prefixByte; }
  uint8_t prefixLength() const { return prefixByte != 0 && length != 0 ? *at : 0; }
  Wire::AddressFamily family() const {
    return length == ipv4Length   ? Wire::AddressFamily::ipv4
           : length == ipv6Length ? Wire::AddressFamily::ipv6
                                  : Wire::AddressFamily::unset;
  }

  // Put together in registers, and written as the words that it is read as for a hash or a
  // comparison: read in other pieces than it was just written in, it would have to wait until the
  // pieces have left the store buffer.
  T value() const {
    uint64_t first = headWord(), second = 0;
    uint32_t last = 0;
    if (length == ipv4Length) {
      first |= addressWord(load<uint32_t>(0));
    } else if (length == ipv6Length) {
      first |= addressWord(load<uint32_t>(0));
      second = load<uint64_t>(4);
      last = load<uint32_t>(12);
    }
    T value;
    static_assert(sizeof value == sizeof first + sizeof second + sizeof last &&
                  offsetof(T, bytes) == sizeof(uint32_t));
    auto* const to = reinterpret_cast<uint8_t*>(&value);
    std::memcpy(to, &first, sizeof first);
    std::memcpy(to + sizeof first, &second, sizeof second);
    std::memcpy(to + sizeof first + sizeof second, &last, sizeof last);
    return value;
  }

  // requires: a value of a family.
  static void store(uint8_t* to, const T& value) {
    if constexpr (prefixByte != 0) *to = value.length;
    copyAddress(to + prefixByte, value.bytes.data(), value.family);
  }

  // One MurmurHash3 block step for family and prefix length, one for each four address bytes, then
  // the final avalanche: neighbouring prefixes end far apart.
  uint32_t hash() const {
    const uint32_t h =
        Wire::murmurBlock(0, uint32_t{static_cast<uint8_t>(family())} << 8 | prefixLength());
    return Wire::murmurAvalanche(length == ipv4Length   ? mixed<Wire::ip4Length>(h)
                                 : length == ipv6Length ? mixed<Wire::ip6Length>(h)
                                                        : h);
  }

  friend bool operator==(const AddressBody& a, const AddressBody& b) {
    if (a.length != b.length) return false;
    if (a.length == ipv4Length) return std::memcmp(a.at, b.at, ipv4Length) == 0;
    return a.length == 0 || std::memcmp(a.at, b.at, ipv6Length) == 0;
  }

  friend bool operator<(const AddressBody& a, const AddressBody& b) {
    if (a.length != b.length) return a.length < b.length;
    if (a.length == 0) return false;
    const int order = std::memcmp(a.address(), b.address(), a.addressLength());
    return order != 0 ? order < 0 : a.prefixLength() < b.prefixLength();
  }

 private:
  // The value's first eight bytes: family and prefix length in the first two, then the beginning of
  // the address.
  static constexpr bool isLittle = std::endian::native == std::endian::little;
  uint64_t headWord() const {
    const uint64_t kind = static_cast<uint8_t>(family()), bits = prefixLength();
    return isLittle ? bits << 8 | kind : kind << 56 | bits << 48;
  }
  static uint64_t addressWord(uint32_t bytes) { return isLittle ? uint64_t{bytes} << 32 : bytes; }

  template <class Word>
  Word load(len_t offset) const {
    Word word;
    std::memcpy(&word, address() + offset, sizeof word);
    return word;
  }
  // Of a length that the compiler knows: it then takes a move or two instead of a call.
  static void copyAddress(uint8_t* to, const uint8_t* from, Wire::AddressFamily family) {
    if (family == Wire::AddressFamily::ipv4) {
      std::memcpy(to, from, Wire::ip4Length);
    } else {
      std::memcpy(to, from, Wire::ip6Length);
    }
  }
  template <len_t bytes>
  uint32_t mixed(uint32_t h) const {
    for (len_t i = 0; i < bytes; i += 4) h = Wire::murmurBlock(h, Wire::networkWord(address() + i));
    return h;
  }
};

}  // namespace detail
}  // namespace Vane
