// The switch's routing state as the shared-memory tables hold it: entries, keys and table entities.
//
// Entries are plain bytes in explicit layout without hidden padding, the same for a 32-bit and a
// 64-bit process; their sizes are part of the shared tables' contract. An entry whose bytes are all
// zero is the empty entry and stands for "no entry".
#pragma once

#include <array>
#include <cstdint>
#include <type_traits>

#include "platform/Shoal/TableEntity.h"
#include "platform/Wire/Address.h"

namespace P4RuntimeRouting {

// A route: where packets to a prefix go.
struct IpDestination {
  uint64_t genId = 0;        // the pipeline that the entry belongs to
  uint64_t entryHandle = 0;  // the agent's handle of the entry
  bool valid = false;
  uint8_t reserved1[3] = {};  // zero, as are all reserved bytes
  uint32_t entryId = 0;
  Wire::IpGenPrefix destinationPrefix;
  int32_t destinationType = 0;
  uint32_t destinationId = 0;
  uint8_t reserved2[4] = {};

  static constexpr std::array truths{&IpDestination::valid};
  friend bool operator==(const IpDestination&, const IpDestination&) = default;
};
static_assert(sizeof(IpDestination) == 56);

// A prefix within one routing instance.
struct IpVrfPrefixKey {
  uint32_t vrfId = 0;
  Wire::IpGenPrefix prefix;

  // 32-bit hash: MurmurHash3 block steps from state `seed` over vrfId, then family and prefix
  // length (family in bits 0-7, length in bits 8-15), then the address's 32-bit words in host order
  // (one for IPv4, four for IPv6, none when unset), then MurmurHash3's 32-bit final avalanche.
  uint32_t hash(uint32_t seed) const;

  friend bool operator==(const IpVrfPrefixKey&, const IpVrfPrefixKey&) = default;
};
static_assert(sizeof(IpVrfPrefixKey) == 24);

// A route within one routing instance.
struct VrfPrefixDestination {
  uint64_t genId = 0;
  uint64_t entryHandle = 0;
  bool valid = false;
  uint8_t reserved[3] = {};
  uint32_t entryId = 0;
  IpVrfPrefixKey key;
  int32_t destinationType = 0;
  uint32_t destinationId = 0;

  static constexpr std::array truths{&VrfPrefixDestination::valid};
  friend bool operator==(const VrfPrefixDestination&, const VrfPrefixDestination&) = default;
};
static_assert(sizeof(VrfPrefixDestination) == 56);

struct IpDestinationTableTraits {
  using Key = Wire::IpGenPrefix;
  using Entry = IpDestination;
  static constexpr auto key = &IpDestination::destinationPrefix;
  static constexpr auto typeName = "P4RuntimeRouting::IpDestinationTable";
};

class IpDestinationTable final : public Shoal::TableEntity<IpDestinationTableTraits> {
 public:
  explicit IpDestinationTable(Kit::Name name) : TableEntity(std::move(name)) {}
  const Kit::TypeNode* fwkType() const override;

  const Map& ipDestination() const { return map(); }
  void ipDestinationIs(const IpDestination& entry) { entryIs(entry); }
  void ipDestinationDel(const Wire::IpGenPrefix& key) { entryDel(key); }
  void ipDestinationDelAll() { entryDelAll(); }
};

struct IpVrfPrefixTableTraits {
  using Key = IpVrfPrefixKey;
  using Entry = VrfPrefixDestination;
  static constexpr auto key = &VrfPrefixDestination::key;
  static constexpr auto typeName = "P4RuntimeRouting::IpVrfPrefixTable";
};

class IpVrfPrefixTable final : public Shoal::TableEntity<IpVrfPrefixTableTraits> {
 public:
  explicit IpVrfPrefixTable(Kit::Name name) : TableEntity(std::move(name)) {}
  const Kit::TypeNode* fwkType() const override;

  const Map& vrfPrefixDestination() const { return map(); }
  void vrfPrefixDestinationIs(const VrfPrefixDestination& entry) { entryIs(entry); }
  void vrfPrefixDestinationDel(const IpVrfPrefixKey& key) { entryDel(key); }
  void vrfPrefixDestinationDelAll() { entryDelAll(); }
};

}  // namespace P4RuntimeRouting

namespace NexthopGroup {

// The number of an encapsulation. 16 bits, as in the tables.
using EncapId = uint16_t;

// A layer-2 next-hop-group encapsulation: tunnel type and addresses.
struct L2NexthopGroupEncap {
  uint64_t entryHandle = 0;
  int32_t encapType = 0;
  Wire::IpGenAddr srcAddr;
  Wire::IpGenAddr dstAddr;
  EncapId encapId = 0;
  uint8_t reserved[2] = {};

  friend bool operator==(const L2NexthopGroupEncap&, const L2NexthopGroupEncap&) = default;
};
static_assert(sizeof(L2NexthopGroupEncap) == 56);

struct L2NexthopGroupEncapTableTraits {
  using Key = EncapId;
  using Entry = L2NexthopGroupEncap;
  static constexpr auto key = &L2NexthopGroupEncap::encapId;
  static constexpr auto typeName = "NexthopGroup::L2NexthopGroupEncapTable";
};

class L2NexthopGroupEncapTable final : public Shoal::TableEntity<L2NexthopGroupEncapTableTraits> {
 public:
  explicit L2NexthopGroupEncapTable(Kit::Name name) : TableEntity(std::move(name)) {}
  const Kit::TypeNode* fwkType() const override;

  const Map& l2NexthopGroupEncap() const { return map(); }
  void l2NexthopGroupEncapIs(const L2NexthopGroupEncap& entry) { entryIs(entry); }
  void l2NexthopGroupEncapDel(EncapId key) { entryDel(key); }
  void l2NexthopGroupEncapDelAll() { entryDelAll(); }
};

}  // namespace NexthopGroup
