#include "routing-types/L2NexthopGroupEncapRow.h"

#include <ostream>

template class RoutingTypes::TypedRow<NexthopGroup::L2NexthopGroupEncapRow>;
template class RoutingTypes::RowOpsKey<NexthopGroup::L2NexthopGroupEncapRow>;

namespace NexthopGroup {
namespace {

// The row database knows the type as soon as the library is loaded.
const RoutingTypes::RowDescription<L2NexthopGroupEncapRow> description;

}  // namespace

L2NexthopGroupEncapRowRowOpsGenerator L2NexthopGroupEncapRowRowOpsGenerator::rowOpsGenerator_;

std::ostream& operator<<(std::ostream& out, const L2NexthopGroupEncapRow& row) {
  return out << row.toString();
}

}  // namespace NexthopGroup
