#include "src-includes/P4RuntimeVane/P4RuntimeRoutingTypesVaneWrappers.h"

#include "platform/Kit/Entity.h"

namespace P4RuntimeRouting::IpDestinationTableVaneWrappers {
namespace {

uint32_t mix(uint32_t x) {
  x = x * 32767 - 1;
  x ^= x >> 12;
  x *= 5;
  x ^= x >> 4;
  x *= 2057;
  return x ^ x >> 16;
}

}  // namespace

uint32_t ipDestinationKeyRuneHasher(const Wire::IpGenPrefix& prefix) {
  const uint32_t len = prefix.length;
  switch (prefix.family) {
    case Wire::AddressFamily::ipv4:
      return mix(prefix.ip4HostOrder() ^ len);
    case Wire::AddressFamily::ipv6:
      return mix(prefix.ip6().hash() ^ len);
    default:
      return 0;
  }
}

void vaneP4RuntimeRoutingIpDestination(const IpDestination& entry, IpDestinationRow& row) {
  IpDestinationTraits::Columns::toRow(entry, row);
}

void IpDestinationVaneWrapper::kitIpDestinationModified(const IpDestinationRow& row, bool deleted,
                                                        const Wire::IpGenPrefix& key) {
  logChange(row, deleted, key);
}

}  // namespace P4RuntimeRouting::IpDestinationTableVaneWrappers

namespace P4RuntimeRouting::IpVrfPrefixTableVaneWrappers {

uint32_t vrfPrefixDestinationKeyRuneHasher(const IpVrfPrefixKey& key) { return key.hash(0); }

void vaneP4RuntimeRoutingVrfPrefixDestination(const VrfPrefixDestination& entry,
                                              VrfPrefixDestinationRow& row) {
  VrfPrefixDestinationTraits::Columns::toRow(entry, row);
}

void VrfPrefixDestinationVaneWrapper::kitVrfPrefixDestinationModified(
    const VrfPrefixDestinationRow& row, bool deleted, const IpVrfPrefixKey& key) {
  logChange(row, deleted, key);
}

}  // namespace P4RuntimeRouting::IpVrfPrefixTableVaneWrappers

namespace NexthopGroup::L2NexthopGroupEncapTableVaneWrappers {

uint32_t l2NexthopGroupEncapKeyRuneHasher(EncapId id) { return Kit::hashSingleAttr(0, id); }

void vaneNexthopGroupL2NexthopGroupEncap(const L2NexthopGroupEncap& entry,
                                         L2NexthopGroupEncapRow& row) {
  L2NexthopGroupEncapTraits::Columns::toRow(entry, row);
}

void L2NexthopGroupEncapVaneWrapper::kitL2NexthopGroupEncapModified(
    const L2NexthopGroupEncapRow& row, bool deleted, const EncapId& key) {
  logChange(row, deleted, key);
}

}  // namespace NexthopGroup::L2NexthopGroupEncapTableVaneWrappers

template class P4RuntimeVane::TableAdapter<
    P4RuntimeRouting::IpDestinationTableVaneWrappers::IpDestinationVaneWrapper,
    P4RuntimeRouting::IpDestinationTableVaneWrappers::IpDestinationTraits>;
template class P4RuntimeVane::TableAdapter<
    P4RuntimeRouting::IpVrfPrefixTableVaneWrappers::VrfPrefixDestinationVaneWrapper,
    P4RuntimeRouting::IpVrfPrefixTableVaneWrappers::VrfPrefixDestinationTraits>;
template class P4RuntimeVane::TableAdapter<
    NexthopGroup::L2NexthopGroupEncapTableVaneWrappers::L2NexthopGroupEncapVaneWrapper,
    NexthopGroup::L2NexthopGroupEncapTableVaneWrappers::L2NexthopGroupEncapTraits>;
