#include "routing-types/EcmpMemberListRow.h"

#include <ostream>

template class RoutingTypes::TypedRow<P4RuntimeRouting::EcmpMemberListRow>;
template class RoutingTypes::RowOpsKey<P4RuntimeRouting::EcmpMemberListRow>;

namespace P4RuntimeRouting {
namespace {

// The row database knows the type as soon as the library is loaded.
const RoutingTypes::RowDescription<EcmpMemberListRow> description;

}  // namespace

std::ostream& operator<<(std::ostream& out, const EcmpMemberListRow& row) {
  return out << row.toString();
}

}  // namespace P4RuntimeRouting
