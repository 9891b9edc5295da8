#include "routing-types/IpVrfPrefixStatusEntryRow.h"

#include <ostream>

template class RoutingTypes::TypedRow<P4RuntimeRouting::IpVrfPrefixStatusEntryRow>;
template class RoutingTypes::RowOpsKey<P4RuntimeRouting::IpVrfPrefixStatusEntryRow>;

namespace P4RuntimeRouting {
namespace {

// The row database knows the type as soon as the library is loaded.
const RoutingTypes::RowDescription<IpVrfPrefixStatusEntryRow> description;

}  // namespace

IpVrfPrefixStatusEntryRowRowOpsGenerator IpVrfPrefixStatusEntryRowRowOpsGenerator::rowOpsGenerator_;

std::ostream& operator<<(std::ostream& out, const IpVrfPrefixStatusEntryRow& row) {
  return out << row.toString();
}

}  // namespace P4RuntimeRouting
