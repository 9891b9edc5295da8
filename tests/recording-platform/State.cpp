// The recording platform's table entities: what their headers leave to the platform.
#include "platform/State/EcmpTypes.h"
#include "platform/State/RoutingTypes.h"

namespace P4RuntimeRouting {

void MemberIndex::throwOutOfRange() { Guard::RangeException::throwException("member index"); }
void EcmpMemberList::memberIs(MemberIndex index, P4Runtime::MemberOrGroupId member) {
  members[index.value()] = member;
}
void EcmpMemberList::watchIs(MemberIndex index, P4Runtime::P4PortId port) {
  watches[index.value()] = port;
}
uint32_t IpVrfPrefixKey::hash(uint32_t seed) const { return seed ^ vrfId; }

const Kit::TypeNode* EcmpMember::fwkType() const { return nullptr; }
const Kit::TypeNode* EcmpGroup::fwkType() const { return nullptr; }
const Kit::TypeNode* IpDestinationTable::fwkType() const { return nullptr; }
const Kit::TypeNode* IpVrfPrefixTable::fwkType() const { return nullptr; }

}  // namespace P4RuntimeRouting

namespace NexthopGroup {

const Kit::TypeNode* L2NexthopGroupEncapTable::fwkType() const { return nullptr; }

}  // namespace NexthopGroup
