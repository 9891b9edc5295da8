#include "routing-types/VrfPrefixDestinationRow.h"

#include <ostream>

template class RoutingTypes::TypedRow<P4RuntimeRouting::VrfPrefixDestinationRow>;
template class RoutingTypes::RowOpsKey<P4RuntimeRouting::VrfPrefixDestinationRow>;

namespace P4RuntimeRouting {
namespace {

// The row database knows the type as soon as the library is loaded.
const RoutingTypes::RowDescription<VrfPrefixDestinationRow> description;

}  // namespace

VrfPrefixDestinationRowRowOpsGenerator VrfPrefixDestinationRowRowOpsGenerator::rowOpsGenerator_;

std::ostream& operator<<(std::ostream& out, const VrfPrefixDestinationRow& row) {
  return out << row.toString();
}

}  // namespace P4RuntimeRouting
