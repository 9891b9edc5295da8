// Address, prefix and MAC values as the shared-memory tables store them.
//
// Every type is plain bytes with no hidden padding, the same on a 32-bit and a 64-bit build, and
// two equal values have equal bytes: unused address bytes are zero. So a value can be hashed,
// compared and copied as bytes, in a table or out of it. Address bytes are in network order.
#pragma once

#include <array>
#include <bit>
#include <compare>
#include <cstdint>
#include <cstring>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

namespace Wire {

// Which kind of address a value holds. The numbers are stored; they must not change.
enum class AddressFamily : uint8_t { unset = 0, ipv4 = 1, ipv6 = 2 };

inline constexpr size_t ip4Length = 4;   // bytes of an IPv4 address
inline constexpr size_t ip6Length = 16;  // bytes of an IPv6 address

// Bytes of an address of this family; 0 for any family that is not IPv4 or IPv6.
constexpr size_t addressLength(AddressFamily family) {
  return family == AddressFamily::ipv4 ? ip4Length : family == AddressFamily::ipv6 ? ip6Length : 0;
}

struct Ip6Addr {
  std::array<uint8_t, ip6Length> bytes{};

  // 32-bit hash: the four 32-bit words in host order (most significant first), one MurmurHash3
  // block step each from state 0, then MurmurHash3's 32-bit final avalanche.
  uint32_t hash() const;

  friend bool operator==(const Ip6Addr&, const Ip6Addr&) = default;
};

// An IPv4 or IPv6 address, or none. An IPv4 address stands in bytes 0 to 3; the rest is zero.
struct IpGenAddr {
  AddressFamily family = AddressFamily::unset;
  uint8_t reserved[3] = {};  // zero
  std::array<uint8_t, ip6Length> bytes{};

  static IpGenAddr ipv4(uint32_t hostOrder);
  static IpGenAddr ipv6(const Ip6Addr& addr);

  // "192.0.2.1", "2001:db8::1" (RFC 5952), "" for an unset address.
  std::string text() const;
  // The inverse of text(), also taking every usual IPv6 spelling; nothing for any other text.
  static std::optional<IpGenAddr> parse(std::string_view text);

  // The IPv4 address as a number; requires: family is ipv4.
  uint32_t ip4HostOrder() const;
  // The IPv6 address; requires: family is ipv6.
  Ip6Addr ip6() const { return Ip6Addr{bytes}; }

  friend bool operator==(const IpGenAddr&, const IpGenAddr&) = default;
};

// A prefix: an address whose bits past `length` are zero, or none.
struct IpGenPrefix {
  AddressFamily family = AddressFamily::unset;
  uint8_t length = 0;        // bits: 0 to 32 for IPv4, 0 to 128 for IPv6, 0 when unset
  uint8_t reserved[2] = {};  // zero
  std::array<uint8_t, ip6Length> bytes{};

  static IpGenPrefix ipv4(uint32_t hostOrder, uint8_t length);
  static IpGenPrefix ipv6(const Ip6Addr& addr, uint8_t length);

  // "10.0.0.0/8", "2001:db8::/32", "" for an unset prefix.
  std::string text() const;
  // The inverse of text(). Host bits that are set are refused, as is a length out of range.
  static std::optional<IpGenPrefix> parse(std::string_view text);

  uint32_t ip4HostOrder() const;
  Ip6Addr ip6() const { return Ip6Addr{bytes}; }

  // All of it in words, as it is copied: it has no bytes that mean nothing.
  friend bool operator==(const IpGenPrefix& a, const IpGenPrefix& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
  }
};

// A MAC address, in the order in which it is written. All zero is the null address.
struct EthAddr {
  std::array<uint8_t, 6> bytes{};

  // "aa:bb:cc:dd:ee:ff".
  std::string text() const;
  // Six pairs of hex digits with ':' or '-' between them; nothing for any other text.
  static std::optional<EthAddr> parse(std::string_view text);

  friend bool operator==(const EthAddr&, const EthAddr&) = default;
};

static_assert(sizeof(Ip6Addr) == 16 && sizeof(IpGenAddr) == 20 && sizeof(IpGenPrefix) == 20 &&
              sizeof(EthAddr) == 6);
static_assert(std::has_unique_object_representations_v<IpGenAddr> &&
              std::has_unique_object_representations_v<IpGenPrefix> &&
              std::has_unique_object_representations_v<EthAddr>);

std::ostream& operator<<(std::ostream& out, const IpGenAddr& addr);
std::ostream& operator<<(std::ostream& out, const IpGenPrefix& prefix);
std::ostream& operator<<(std::ostream& out, const EthAddr& addr);

}  // namespace Wire
