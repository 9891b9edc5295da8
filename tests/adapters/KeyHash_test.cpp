#include "tests/adapters/Samples.h"

namespace adapter_tests {
namespace {

using NexthopGroup::L2NexthopGroupEncapTableVaneWrappers::l2NexthopGroupEncapKeyRuneHasher;
using P4RuntimeRouting::EcmpGroupVaneWrappers::ecmpMemberListKeyRuneHasher;
using P4RuntimeRouting::EcmpMemberVaneWrappers::nexthopInfoKeyRuneHasher;
using P4RuntimeRouting::IpDestinationTableVaneWrappers::ipDestinationKeyRuneHasher;
using P4RuntimeRouting::IpVrfPrefixTableVaneWrappers::vrfPrefixDestinationKeyRuneHasher;

// The mixing of a prefix in wide arithmetic, cut to 32 bits by hand.
uint32_t mixed(uint64_t x) {
  constexpr uint64_t cut = 0x100000000;
  x = (x * 32768 - x + cut * 0xFFFF - 1) % cut;
  x = x ^ (x / 4096);
  x = x * 5 % cut;
  x = x ^ (x / 16);
  x = x * 2057 % cut;
  x = x ^ (x / 65536);
  return static_cast<uint32_t>(x);
}

// The same hash steps as MurmurHash3's 32-bit form, in wide arithmetic.
class Murmur {
 public:
  explicit Murmur(uint32_t seed) : h_(seed) {}
  Murmur& word(uint64_t k) {
    k = k * 0xCC9E2D51 % cut;
    k = (k * 32768 + k / 131072) % cut;
    k = k * 0x1B873593 % cut;
    h_ ^= k;
    h_ = (h_ * 8192 + h_ / 524288) % cut;
    h_ = (h_ * 5 + 0xE6546B64) % cut;
    return *this;
  }
  uint32_t end() const {
    uint64_t h = h_;
    h = (h ^ h / 65536) * 0x85EBCA6B % cut;
    h = (h ^ h / 8192) * 0xC2B2AE35 % cut;
    return static_cast<uint32_t>(h ^ h / 65536);
  }

 private:
  static constexpr uint64_t cut = 0x100000000;
  uint64_t h_;
};

Wire::IpGenPrefix ipv4(uint32_t address, uint8_t length) {
  return Wire::IpGenPrefix::ipv4(address, length);
}
Wire::IpGenPrefix documentation(uint8_t length = 32) {
  return Wire::IpGenPrefix::ipv6({{0x20, 0x01, 0x0D, 0xB8}}, length);
}

// 0 * 32767 - 1 = FFFFFFFF; ^ 000FFFFF = FFF00000; * 5 = FFB00000 (mod 2^32); ^ 0FFB0000 =
// F04B0000; F04B * 809 = CAA3 (mod 2^16), so CAA30000; ^ 0000CAA3.
TEST(RouteKeyHash, OfTheDefaultRouteIsAsWorkedByHand) {
  EXPECT_EQ(ipDestinationKeyRuneHasher(ipv4(0, 0)), 0xCAA3CAA3u);
}

TEST(RouteKeyHash, OfAnIpv4PrefixMixesTheAddressInHostOrderWithTheLength) {
  EXPECT_EQ(ipDestinationKeyRuneHasher(ipv4(0x0A000000, 8)), 0xC13C560Au);
  EXPECT_EQ(ipDestinationKeyRuneHasher(ipv4(0x0A000000, 8)), mixed(0x0A000000 ^ 8));
  EXPECT_EQ(ipDestinationKeyRuneHasher(ipv4(0xFFFFFFFF, 32)), mixed(0xFFFFFFFF ^ 32));
  EXPECT_EQ(ipDestinationKeyRuneHasher(ipv4(0xC0000201, 32)), mixed(0xC0000201 ^ 32));
}

TEST(RouteKeyHash, OfAnIpv6PrefixMixesTheAddressesHashWithTheLength) {
  const uint32_t address = Murmur(0).word(0x20010DB8).word(0).word(0).word(0).end();
  EXPECT_EQ(address, 0x1F2B2C9Du);
  EXPECT_EQ(ipDestinationKeyRuneHasher(documentation()), 0x02AFDE89u);
  EXPECT_EQ(ipDestinationKeyRuneHasher(documentation()), mixed(address ^ 32));
  EXPECT_EQ(ipDestinationKeyRuneHasher(documentation(128)), mixed(address ^ 128));
}

TEST(RouteKeyHash, OfAPrefixThatIsNeitherIpv4NorIpv6IsZero) {
  EXPECT_EQ(ipDestinationKeyRuneHasher(Wire::IpGenPrefix{}), 0u);
  Wire::IpGenPrefix strange = ipv4(0x0A000000, 8);
  strange.family = Wire::AddressFamily{3};
  EXPECT_EQ(ipDestinationKeyRuneHasher(strange), 0u);
}

TEST(VrfKeyHash, IsTheKeysOwnHashWithSeedZero) {
  // Routing instance, then family and length (family in the low byte), then the address.
  const IpVrfPrefixKey v4{5, ipv4(0x0A000000, 8)};
  EXPECT_EQ(vrfPrefixDestinationKeyRuneHasher(v4), 0x41834A46u);
  EXPECT_EQ(vrfPrefixDestinationKeyRuneHasher(v4),
            Murmur(0).word(5).word(0x0801).word(0x0A000000).end());
  const IpVrfPrefixKey v6{5, documentation()};
  EXPECT_EQ(vrfPrefixDestinationKeyRuneHasher(v6), 0xBAB8FA47u);
  EXPECT_EQ(vrfPrefixDestinationKeyRuneHasher(v6),
            Murmur(0).word(5).word(0x2002).word(0x20010DB8).word(0).word(0).word(0).end());
}

TEST(VrfKeyHash, OfAnUnsetPrefixTakesNoAddress) {
  EXPECT_EQ(vrfPrefixDestinationKeyRuneHasher({5, {}}), 0x9A10C62Bu);
  EXPECT_EQ((IpVrfPrefixKey{5, {}}.hash(0)), Murmur(0).word(5).word(0).end());
}

TEST(VrfKeyHash, StartsFromTheSeed) {
  EXPECT_EQ((IpVrfPrefixKey{5, {}}.hash(77)), Murmur(77).word(5).word(0).end());
}

TEST(NumberKeyHash, IsTheHashOfOneAttributeWithSeedZero) {
  EXPECT_EQ(Murmur(0).word(0).end(), 0xFF19274Au);
  EXPECT_EQ(l2NexthopGroupEncapKeyRuneHasher(0), 0xFF19274Au);
  EXPECT_EQ(l2NexthopGroupEncapKeyRuneHasher(7), 0x891713D5u);
  EXPECT_EQ(l2NexthopGroupEncapKeyRuneHasher(0xFFFF), 0xEA4A7589u);
  EXPECT_EQ(nexthopInfoKeyRuneHasher(7), 0x891713D5u);
  EXPECT_EQ(nexthopInfoKeyRuneHasher(0x01020304), 0xF3EA7617u);
  EXPECT_EQ(ecmpMemberListKeyRuneHasher(1), 0x87BE548Au);
  EXPECT_EQ(ecmpMemberListKeyRuneHasher(0x01020304), Murmur(0).word(0x01020304).end());
}

}  // namespace
}  // namespace adapter_tests
