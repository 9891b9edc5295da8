// The row types of the plug-in, to choose one by number, in a row database of the process.
#pragma once

#include <tuple>
#include <utility>

#include "platform/Vane/VaneDB.h"
#include "routing-types/EcmpMemberListRow.h"
#include "routing-types/IpDestinationRow.h"
#include "routing-types/IpVrfPrefixStatusEntryRow.h"
#include "routing-types/L2NexthopGroupEncapRow.h"
#include "routing-types/NexthopInfoRow.h"
#include "routing-types/VrfPrefixDestinationRow.h"

namespace Fuzz {

using RowTypes =
    std::tuple<P4RuntimeRouting::IpDestinationRow, P4RuntimeRouting::VrfPrefixDestinationRow,
               P4RuntimeRouting::NexthopInfoRow, P4RuntimeRouting::EcmpMemberListRow,
               NexthopGroup::L2NexthopGroupEncapRow, P4RuntimeRouting::IpVrfPrefixStatusEntryRow>;
inline constexpr size_t rowTypes = std::tuple_size_v<RowTypes>;

// Calls `visit` with the type of this number: visit.template operator()<Row>().
template <class Visit>
void withRowType(size_t number, const Visit& visit) {
  [&]<size_t... I>(std::index_sequence<I...>) {
    static_cast<void>(
        ((I == number && (visit.template operator()<std::tuple_element_t<I, RowTypes>>(), true)) ||
         ...));
  }
  (std::make_index_sequence<rowTypes>());
}

// Makes the process's row database, once.
inline void needRowDatabase() {
  static const bool made = [] {
    Vane::VaneDB::currentIs(Vane::makeVaneDB());
    return true;
  }();
  static_cast<void>(made);
}

}  // namespace Fuzz
