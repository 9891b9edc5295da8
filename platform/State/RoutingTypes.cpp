#include "platform/State/RoutingTypes.h"

#include "platform/State/TableType.h"
#include "platform/Wire/Hash.h"

namespace P4RuntimeRouting {
namespace {

// Registered when the library is loaded, before anything can ask for a table of the type.
const Kit::TypeNode& destinationType = State::registerTableType<IpDestinationTable>(
    IpDestinationTableTraits::typeName, "ipDestination");
const Kit::TypeNode& vrfPrefixType = State::registerTableType<IpVrfPrefixTable>(
    IpVrfPrefixTableTraits::typeName, "vrfPrefixDestination");

}  // namespace

uint32_t IpVrfPrefixKey::hash(uint32_t seed) const {
  uint32_t h = Wire::murmurBlock(seed, vrfId);
  h = Wire::murmurBlock(
      h, uint32_t{static_cast<uint8_t>(prefix.family)} | uint32_t{prefix.length} << 8);
  for (size_t i = 0; i < Wire::addressLength(prefix.family); i += 4) {
    h = Wire::murmurBlock(h, Wire::networkWord(&prefix.bytes[i]));
  }
  return Wire::murmurAvalanche(h);
}

const Kit::TypeNode* IpDestinationTable::fwkType() const { return &destinationType; }
const Kit::TypeNode* IpVrfPrefixTable::fwkType() const { return &vrfPrefixType; }

}  // namespace P4RuntimeRouting

namespace NexthopGroup {
namespace {

const Kit::TypeNode& encapType = State::registerTableType<L2NexthopGroupEncapTable>(
    L2NexthopGroupEncapTableTraits::typeName, "l2NexthopGroupEncap");

}  // namespace

const Kit::TypeNode* L2NexthopGroupEncapTable::fwkType() const { return &encapType; }

}  // namespace NexthopGroup
