#include "src-includes/P4RuntimeVane/P4RuntimeRoutingEcmpTypesVaneWrappers.h"

#include "platform/Kit/Entity.h"

namespace P4RuntimeRouting::EcmpMemberVaneWrappers {

uint32_t nexthopInfoKeyRuneHasher(P4Runtime::MemberOrGroupId id) {
  return Kit::hashSingleAttr(0, id);
}

void vaneP4RuntimeRoutingNexthopInfo(const NexthopInfo& entry, NexthopInfoRow& row) {
  NexthopInfoTraits::Columns::toRow(entry, row);
}

void NexthopInfoVaneWrapper::kitNexthopInfoModified(const NexthopInfoRow& row, bool deleted,
                                                    const P4Runtime::MemberOrGroupId& key) {
  logChange(row, deleted, key);
}

}  // namespace P4RuntimeRouting::EcmpMemberVaneWrappers

namespace P4RuntimeRouting::EcmpGroupVaneWrappers {

uint32_t ecmpMemberListKeyRuneHasher(P4Runtime::MemberOrGroupId id) {
  return Kit::hashSingleAttr(0, id);
}

void vaneP4RuntimeRoutingEcmpMemberList(const EcmpMemberList& entry, EcmpMemberListRow& row) {
  EcmpMemberListTraits::Columns::toRow(entry, row);
}

void EcmpMemberListVaneWrapper::kitEcmpMemberListModified(const EcmpMemberListRow& row,
                                                          bool deleted,
                                                          const P4Runtime::MemberOrGroupId& key) {
  logChange(row, deleted, key);
}

}  // namespace P4RuntimeRouting::EcmpGroupVaneWrappers

template class P4RuntimeVane::TableAdapter<
    P4RuntimeRouting::EcmpMemberVaneWrappers::NexthopInfoVaneWrapper,
    P4RuntimeRouting::EcmpMemberVaneWrappers::NexthopInfoTraits>;
template class P4RuntimeVane::TableAdapter<
    P4RuntimeRouting::EcmpGroupVaneWrappers::EcmpMemberListVaneWrapper,
    P4RuntimeRouting::EcmpGroupVaneWrappers::EcmpMemberListTraits>;
