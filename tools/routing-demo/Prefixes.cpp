#include "tools/routing-demo/Prefixes.h"

#include <fmt/format.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <random>
#include <span>
#include <stdexcept>
#include <string_view>

namespace Demo {
namespace {

using Wire::AddressFamily;
using Wire::IpGenPrefix;

struct Share {
  uint8_t length;
  uint32_t weight;
};

// Prefixes of each length among a thousand, as in today's table.
constexpr Share ipv4Shares[] = {{24, 596}, {22, 120}, {23, 107}, {21, 56}, {20, 47},
                                {19, 28},  {18, 15},  {16, 15},  {17, 9},  {15, 2},
                                {14, 1},   {13, 1},   {32, 1},   {12, 1},  {25, 1}};
constexpr Share ipv6Shares[] = {{48, 471}, {32, 141}, {44, 90}, {40, 84}, {36, 37},
                                {29, 27},  {47, 40},  {46, 40}, {33, 25}, {34, 15},
                                {45, 15},  {64, 10},  {128, 5}};

bool before(const IpGenPrefix& a, const IpGenPrefix& b) {
  const int order = std::memcmp(a.bytes.data(), b.bytes.data(), a.bytes.size());
  return order != 0 ? order < 0 : a.length < b.length;
}

// Sorts, drops repetitions and says how many there were.
uint64_t makeDistinct(std::vector<IpGenPrefix>& prefixes) {
  const size_t all = prefixes.size();
  std::ranges::sort(prefixes, before);
  const auto rest = std::ranges::unique(prefixes);
  prefixes.erase(rest.begin(), rest.end());
  return all - prefixes.size();
}

// The same numbers on every platform, unlike the standard distributions.
class Random {
 public:
  explicit Random(uint64_t seed) : engine_(seed) {}
  uint64_t bits() { return engine_(); }
  uint32_t below(uint32_t bound) { return static_cast<uint32_t>(engine_() % bound); }
  uint8_t length(std::span<const Share> shares) {
    uint32_t total = 0;
    for (const Share& share : shares) total += share.weight;
    uint32_t drawn = below(total);
    for (const Share& share : shares) {
      if (drawn < share.weight) return share.length;
      drawn -= share.weight;
    }
    return shares.back().length;
  }
  void shuffle(std::vector<IpGenPrefix>& prefixes) {
    for (size_t i = prefixes.size(); i > 1; --i) {
      std::swap(prefixes[i - 1], prefixes[below(static_cast<uint32_t>(i))]);
    }
  }

 private:
  std::mt19937_64 engine_;
};

// Unicast space: 1.0.0.0 to 223.255.255.255.
IpGenPrefix drawIpv4(Random& random) {
  const uint8_t length = random.length(ipv4Shares);
  const uint32_t address = (1 + random.below(223)) << 24 | random.below(1u << 24);
  return IpGenPrefix::ipv4(address & ~uint32_t{0} << (32 - length), length);
}

// Global unicast space: 2000::/3.
IpGenPrefix drawIpv6(Random& random) {
  const uint8_t length = random.length(ipv6Shares);
  Wire::Ip6Addr address;
  for (size_t i = 0; i < address.bytes.size(); i += 8) {
    const uint64_t bits = random.bits();
    std::memcpy(&address.bytes[i], &bits, sizeof bits);
  }
  address.bytes[0] = static_cast<uint8_t>(0x20 | (address.bytes[0] & 0x1F));
  for (size_t bit = length; bit < 128; ++bit) {
    address.bytes[bit / 8] &= static_cast<uint8_t>(~(0x80u >> bit % 8));
  }
  return IpGenPrefix::ipv6(address, length);
}

std::vector<IpGenPrefix> draw(Random& random, uint32_t count, IpGenPrefix (*one)(Random&)) {
  std::vector<IpGenPrefix> prefixes;
  while (prefixes.size() < count) {
    while (prefixes.size() < count) prefixes.push_back(one(random));
    makeDistinct(prefixes);
  }
  random.shuffle(prefixes);
  return prefixes;
}

[[noreturn]] void fail(const std::string& file, const std::string& what) {
  throw std::runtime_error(fmt::format("{}: {}", file, what));
}

void readFile(const std::string& file, PrefixLists& lists) {
  errno = 0;
  const std::unique_ptr<gzFile_s, int (*)(gzFile)> in(gzopen(file.c_str(), "rb"), gzclose);
  if (!in) fail(file, errno ? std::strerror(errno) : "no memory to read it");
  std::array<char, 256> buffer;
  for (uint64_t number = 1; gzgets(in.get(), buffer.data(), buffer.size()) != nullptr; ++number) {
    std::string_view line = buffer.data();
    line = line.substr(0, line.find_last_not_of(" \t\r\n") + 1);
    if (line.empty() || line.starts_with('#')) continue;
    const auto prefix = IpGenPrefix::parse(line);
    if (!prefix) fail(file, fmt::format("line {}: expected a prefix, found \"{}\"", number, line));
    (prefix->family == AddressFamily::ipv4 ? lists.ipv4 : lists.ipv6).push_back(*prefix);
  }
  int error = Z_OK;
  const char* message = gzerror(in.get(), &error);
  if (error == Z_ERRNO) fail(file, std::strerror(errno));
  if (error != Z_OK && error != Z_STREAM_END) fail(file, message);
}

}  // namespace

PrefixLists generatedPrefixes(uint64_t seed, uint32_t ipv4, uint32_t ipv6) {
  Random random(seed);
  PrefixLists lists;
  lists.ipv4 = draw(random, ipv4, drawIpv4);
  lists.ipv6 = draw(random, ipv6, drawIpv6);
  return lists;
}

PrefixLists readPrefixes(const std::vector<std::string>& files) {
  PrefixLists lists;
  for (const std::string& file : files) readFile(file, lists);
  lists.duplicates = makeDistinct(lists.ipv4) + makeDistinct(lists.ipv6);
  return lists;
}

}  // namespace Demo
