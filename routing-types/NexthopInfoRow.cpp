#include "routing-types/NexthopInfoRow.h"

#include <ostream>

template class RoutingTypes::TypedRow<P4RuntimeRouting::NexthopInfoRow>;
template class RoutingTypes::RowOpsKey<P4RuntimeRouting::NexthopInfoRow>;

namespace P4RuntimeRouting {
namespace {

// The row database knows the type as soon as the library is loaded.
const RoutingTypes::RowDescription<NexthopInfoRow> description;

}  // namespace

std::ostream& operator<<(std::ostream& out, const NexthopInfoRow& row) {
  return out << row.toString();
}

}  // namespace P4RuntimeRouting
