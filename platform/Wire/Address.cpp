#include "platform/Wire/Address.h"

#include <algorithm>
#include <charconv>
#include <ostream>
#include <stdexcept>

#include "platform/Wire/Hash.h"

namespace Wire {
namespace {

using Ip6Bytes = std::array<uint8_t, ip6Length>;

constexpr size_t groupCount = 8;    // 16-bit groups of an IPv6 address
constexpr size_t longestText = 64;  // more than the longest text below: 45 characters, "/128"

// Writing. Each function writes at `to` and returns the end of what it wrote.

char* put(char* to, std::string_view text) { return std::copy(text.begin(), text.end(), to); }

char* putNumber(char* to, unsigned number, int base = 10) {
  return std::to_chars(to, to + 10, number, base).ptr;
}

char* putIp4(char* to, const uint8_t* bytes) {
  for (size_t i = 0; i < ip4Length; ++i) {
    if (i != 0) *to++ = '.';
    to = putNumber(to, bytes[i]);
  }
  return to;
}

unsigned groupAt(const Ip6Bytes& bytes, size_t group) {
  return unsigned{bytes[2 * group]} << 8 | bytes[2 * group + 1];
}

struct Run {
  size_t start = groupCount;
  size_t length = 0;
};

// The first of the longest runs of zero groups, which "::" stands for; a single group is no run.
Run longestZeroRun(const Ip6Bytes& bytes, size_t groups) {
  Run longest;
  for (size_t start = 0; start < groups; ++start) {
    size_t end = start;
    while (end < groups && groupAt(bytes, end) == 0) ++end;
    if (end - start > std::max<size_t>(longest.length, 1)) longest = {start, end - start};
  }
  return longest;
}

bool isIp4Mapped(const Ip6Bytes& bytes) {
  constexpr Ip6Bytes mapped = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
  return std::equal(bytes.begin(), bytes.begin() + 12, mapped.begin());
}

// RFC 5952; an IPv4-mapped address ends in its dotted quad.
char* putIp6(char* to, const Ip6Bytes& bytes) {
  const size_t groups = isIp4Mapped(bytes) ? groupCount - 2 : groupCount;
  const Run run = longestZeroRun(bytes, groups);
  for (size_t group = 0; group < groups; ++group) {
    if (group == run.start) {
      to = put(to, "::");
      group += run.length - 1;
      continue;
    }
    if (group != 0 && group != run.start + run.length) *to++ = ':';
    to = putNumber(to, groupAt(bytes, group), 16);
  }
  if (groups == groupCount) return to;
  *to++ = ':';
  return putIp4(to, bytes.data() + 12);
}

char* putAddress(char* to, AddressFamily family, const Ip6Bytes& bytes) {
  switch (family) {
    case AddressFamily::ipv4:
      return putIp4(to, bytes.data());
    case AddressFamily::ipv6:
      return putIp6(to, bytes);
    default:
      return to;
  }
}

char* putValue(char* to, const IpGenAddr& addr) { return putAddress(to, addr.family, addr.bytes); }

char* putValue(char* to, const IpGenPrefix& prefix) {
  char* const end = putAddress(to, prefix.family, prefix.bytes);
  if (end == to) return to;
  return putNumber(put(end, "/"), prefix.length);
}

char* putValue(char* to, const EthAddr& addr) {
  constexpr std::string_view digits = "0123456789abcdef";
  for (const uint8_t byte : addr.bytes) {
    *to++ = digits[byte >> 4];
    *to++ = digits[byte & 15];
    *to++ = ':';
  }
  return to - 1;
}

template <class T>
std::string textOf(const T& value) {
  char text[longestText];
  return std::string(text, putValue(text, value));
}

template <class T>
std::ostream& write(std::ostream& out, const T& value) {
  char text[longestText];
  return out << std::string_view(text, static_cast<size_t>(putValue(text, value) - text));
}

// Reading. Each take...() removes what it took from the front of `text`.

bool take(std::string_view& text, std::string_view wanted) {
  if (!text.starts_with(wanted)) return false;
  text.remove_prefix(wanted.size());
  return true;
}

// A number of at most `maxDigits` digits: no sign, no blank, no prefix.
std::optional<unsigned> takeNumber(std::string_view& text, int base, size_t maxDigits) {
  unsigned number = 0;
  const char* const end = text.data() + std::min(text.size(), maxDigits);
  const auto [stop, error] = std::from_chars(text.data(), end, number, base);
  if (error != std::errc{}) return std::nullopt;
  text.remove_prefix(static_cast<size_t>(stop - text.data()));
  return number;
}

// A decimal number up to `max` (at most 3 digits) without leading zeros: "08" is octal to some
// readers.
std::optional<uint8_t> takeDecimal(std::string_view& text, unsigned max) {
  const bool leadingZero = text.size() > 1 && text[0] == '0' && text[1] >= '0' && text[1] <= '9';
  const auto number = takeNumber(text, 10, 3);
  if (leadingZero || !number || *number > max) return std::nullopt;
  return static_cast<uint8_t>(*number);
}

bool readIp4(std::string_view text, uint8_t* bytes) {
  for (size_t i = 0; i < ip4Length; ++i) {
    if (i != 0 && !take(text, ".")) return false;
    const auto octet = takeDecimal(text, 255);
    if (!octet) return false;
    bytes[i] = *octet;
  }
  return text.empty();
}

// Moves the bytes from `gap` to `end` to the back and fills the gap with zeros.
void openGap(Ip6Bytes& bytes, size_t gap, size_t end) {
  const auto tail = std::move_backward(bytes.begin() + gap, bytes.begin() + end, bytes.end());
  std::fill(bytes.begin() + gap, tail, uint8_t{0});
}

bool readIp6(std::string_view text, Ip6Bytes& bytes) {
  size_t end = 0;             // bytes read so far
  std::optional<size_t> gap;  // where "::" stood
  if (take(text, "::")) gap = 0;
  while (!text.empty()) {
    const bool quadIsLeft = text.find(':') == text.npos && text.find('.') != text.npos;
    if (quadIsLeft) {
      if (end + ip4Length > ip6Length || !readIp4(text, &bytes[end])) return false;
      end += ip4Length;
      break;
    }
    const auto group = takeNumber(text, 16, 4);
    if (!group || end == ip6Length) return false;
    bytes[end++] = static_cast<uint8_t>(*group >> 8);
    bytes[end++] = static_cast<uint8_t>(*group);
    if (text.empty()) break;
    if (take(text, "::")) {
      if (gap) return false;
      gap = end;
    } else if (!take(text, ":") || text.empty()) {
      return false;
    }
  }
  if (!gap) return end == ip6Length;
  if (end == ip6Length) return false;  // "::" stands for one group at least
  openGap(bytes, *gap, end);
  return true;
}

// Zeroes the bits past `length`.
void clearHostBits(Ip6Bytes& bytes, int length) {
  for (uint8_t& byte : bytes) {
    byte = static_cast<uint8_t>(byte & 0xFF00 >> std::clamp(length, 0, 8));
    length -= 8;
  }
}

IpGenPrefix prefixOf(const IpGenAddr& addr, uint8_t length) {
  const size_t most = 8 * addressLength(addr.family);
  if (length > most) {
    throw std::out_of_range("prefix length " + std::to_string(length) + " of address " +
                            addr.text() + ": expected at most " + std::to_string(most));
  }
  IpGenPrefix prefix;
  prefix.family = addr.family;
  prefix.length = length;
  prefix.bytes = addr.bytes;
  clearHostBits(prefix.bytes, length);
  return prefix;
}

}  // namespace

uint32_t Ip6Addr::hash() const {
  uint32_t h = 0;
  for (size_t i = 0; i < bytes.size(); i += 4) h = murmurBlock(h, networkWord(&bytes[i]));
  return murmurAvalanche(h);
}

IpGenAddr IpGenAddr::ipv4(uint32_t hostOrder) {
  IpGenAddr addr;
  addr.family = AddressFamily::ipv4;
  for (size_t i = 0; i < ip4Length; ++i) {
    addr.bytes[i] = static_cast<uint8_t>(hostOrder >> (24 - 8 * i));
  }
  return addr;
}

IpGenAddr IpGenAddr::ipv6(const Ip6Addr& ip6) {
  IpGenAddr addr;
  addr.family = AddressFamily::ipv6;
  addr.bytes = ip6.bytes;
  return addr;
}

std::string IpGenAddr::text() const { return textOf(*this); }

std::optional<IpGenAddr> IpGenAddr::parse(std::string_view text) {
  IpGenAddr addr;
  const bool isIp6 = text.find(':') != text.npos;
  addr.family = isIp6 ? AddressFamily::ipv6 : AddressFamily::ipv4;
  const bool isAddress = isIp6 ? readIp6(text, addr.bytes) : readIp4(text, addr.bytes.data());
  if (!isAddress) return std::nullopt;
  return addr;
}

uint32_t IpGenAddr::ip4HostOrder() const { return networkWord(bytes.data()); }

IpGenPrefix IpGenPrefix::ipv4(uint32_t hostOrder, uint8_t length) {
  return prefixOf(IpGenAddr::ipv4(hostOrder), length);
}

IpGenPrefix IpGenPrefix::ipv6(const Ip6Addr& addr, uint8_t length) {
  return prefixOf(IpGenAddr::ipv6(addr), length);
}

std::string IpGenPrefix::text() const { return textOf(*this); }

std::optional<IpGenPrefix> IpGenPrefix::parse(std::string_view text) {
  const size_t slash = text.find('/');
  if (slash == text.npos) return std::nullopt;
  const auto addr = IpGenAddr::parse(text.substr(0, slash));
  if (!addr) return std::nullopt;
  std::string_view rest = text.substr(slash + 1);
  const auto length = takeDecimal(rest, static_cast<unsigned>(8 * addressLength(addr->family)));
  if (!length || !rest.empty()) return std::nullopt;
  const IpGenPrefix prefix = prefixOf(*addr, *length);
  const bool hasHostBits = prefix.bytes != addr->bytes;
  if (hasHostBits) return std::nullopt;
  return prefix;
}

uint32_t IpGenPrefix::ip4HostOrder() const { return networkWord(bytes.data()); }

std::string EthAddr::text() const { return textOf(*this); }

std::optional<EthAddr> EthAddr::parse(std::string_view text) {
  constexpr size_t textLength = 17;
  if (text.size() != textLength) return std::nullopt;
  const std::string_view separator = text[2] == '-' ? "-" : ":";
  EthAddr addr;
  for (size_t i = 0; i < addr.bytes.size(); ++i) {
    if (i != 0 && !take(text, separator)) return std::nullopt;
    const size_t before = text.size();
    const auto byte = takeNumber(text, 16, 2);
    if (!byte || before - text.size() != 2) return std::nullopt;
    addr.bytes[i] = static_cast<uint8_t>(*byte);
  }
  return addr;
}

std::ostream& operator<<(std::ostream& out, const IpGenAddr& addr) { return write(out, addr); }
std::ostream& operator<<(std::ostream& out, const IpGenPrefix& prefix) {
  return write(out, prefix);
}
std::ostream& operator<<(std::ostream& out, const EthAddr& addr) { return write(out, addr); }

}  // namespace Wire
