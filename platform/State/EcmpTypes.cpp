#include "platform/State/EcmpTypes.h"

#include <algorithm>

#include "platform/State/TableType.h"

namespace P4RuntimeRouting {
namespace {

// Registered when the library is loaded, before anything can ask for a table of the type.
const Kit::TypeNode& memberType =
    State::registerTableType<EcmpMember>(EcmpMemberTraits::typeName, "nexthopInfo");
const Kit::TypeNode& groupType =
    State::registerTableType<EcmpGroup>(EcmpGroupTraits::typeName, "ecmpMemberList");

}  // namespace

void MemberIndex::throwOutOfRange() {
  Guard::RangeException::throwException(
      "MemberIndex::value < MemberIndex::min or > MemberIndex::max not allowed");
}

void EcmpMemberList::memberIs(MemberIndex index, P4Runtime::MemberOrGroupId member) {
  members[index.value()] = member;
  memberCount = std::max(memberCount, index.value() + 1);
}

void EcmpMemberList::watchIs(MemberIndex index, P4Runtime::P4PortId port) {
  watches[index.value()] = port;
  watchCount = std::max(watchCount, index.value() + 1);
}

const Kit::TypeNode* EcmpMember::fwkType() const { return &memberType; }
const Kit::TypeNode* EcmpGroup::fwkType() const { return &groupType; }

}  // namespace P4RuntimeRouting
