// Groups for the subjects that make rows of them, with the row types that all such subjects name.
#pragma once

#include <cstdint>

#include "src-includes/P4RuntimeVane/P4RuntimeRoutingEcmpTypesVaneWrappers.h"
#include "src-includes/P4RuntimeVane/P4RuntimeRoutingTypesVaneWrappers.h"

namespace Bench {

using P4RuntimeRouting::EcmpMemberList;
using P4RuntimeRouting::EcmpMemberListRow;
using P4RuntimeRouting::IpDestinationRow;
using P4RuntimeRouting::MemberIndex;
using P4RuntimeRouting::EcmpGroupVaneWrappers::EcmpMemberListTraits;
using P4RuntimeRouting::IpDestinationTableVaneWrappers::IpDestinationTraits;

// As many members as a group can have.
inline EcmpMemberList largestGroup() {
  EcmpMemberList group;
  group.valid = true;
  group.id = 7;
  for (uint32_t i = 0; i < EcmpMemberList::slots; ++i) {
    group.memberIs(MemberIndex(i), 1000 + i);
    group.watchIs(MemberIndex(i), P4Runtime::P4PortId{i % 64});
  }
  return group;
}

}  // namespace Bench
