// A route table in shared memory, and an adapter over one.
#pragma once

#include <memory>

#include "bench/Data.h"
#include "platform/Shoal/SharedTable.h"
#include "platform/State/RoutingTypes.h"
#include "platform/Vane/VaneDB.h"
#include "src-includes/P4RuntimeVane/P4RuntimeRoutingTypesVaneWrappers.h"

namespace Bench {

using P4RuntimeRouting::IpDestinationTable;
using P4RuntimeRouting::IpDestinationTableVaneWrappers::IpDestinationVaneWrapper;

class SharedRoutes {
  Directory directory_;

 public:
  static constexpr auto path = "routes";

  explicit SharedRoutes(size_t capacity) {
    table->storeIs(Shoal::attachWriter(root(), path, table->layout(), capacity));
    map.storeIs(table->store());
  }
  ~SharedRoutes() {
    map.storeIs(nullptr);
    table->storeIs(nullptr);
  }

  const std::filesystem::path& root() const { return directory_.path(); }
  // Past the entity: nobody is notified.
  void set(const IpDestination& route) { map.set(route.destinationPrefix, route); }

  const Kit::Ptr<IpDestinationTable> table = new IpDestinationTable("routes");
  IpDestinationTable::Map map;
};

// The current database of the process; the row types look themselves up there.
inline const std::shared_ptr<Vane::VaneDB>& database() {
  static const std::shared_ptr<Vane::VaneDB> db = [] {
    auto made = Vane::makeVaneDB();
    Vane::VaneDB::currentIs(made);
    return made;
  }();
  return db;
}

class AdaptedRoutes {
 public:
  explicit AdaptedRoutes(size_t capacity)
      : shared(capacity),
        adapter(std::make_unique<IpDestinationVaneWrapper>(shared.table, database(), nullptr,
                                                           /*allowModifiers=*/true)) {}

  SharedRoutes shared;
  std::unique_ptr<IpDestinationVaneWrapper> adapter;
};

}  // namespace Bench
