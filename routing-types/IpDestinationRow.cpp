#include "routing-types/IpDestinationRow.h"

#include <ostream>

template class RoutingTypes::TypedRow<P4RuntimeRouting::IpDestinationRow>;
template class RoutingTypes::RowOpsKey<P4RuntimeRouting::IpDestinationRow>;

namespace P4RuntimeRouting {
namespace {

// The row database knows the type as soon as the library is loaded.
const RoutingTypes::RowDescription<IpDestinationRow> description;

}  // namespace

IpDestinationRowRowOpsGenerator IpDestinationRowRowOpsGenerator::rowOpsGenerator_;

std::ostream& operator<<(std::ostream& out, const IpDestinationRow& row) {
  return out << row.toString();
}

}  // namespace P4RuntimeRouting
