// The shared-memory table by itself: filled, changed, asked, walked, emptied.
#include "bench/SharedRoutes.h"
#include "bench/Tables.h"

namespace Bench {
namespace {

class TableMap {
 public:
  static constexpr auto name = "Table";

  explicit TableMap(size_t routes) : routes_(routes) {}
  void set(const IpDestination& route) { routes_.set(route); }
  bool find(const IpGenPrefix& prefix, IpDestination& route) const {
    bool found = false;
    route = routes_.map.safeLookup(prefix, found);
    return found;
  }
  uint64_t sum() const {
    uint64_t sum = 0;
    IpDestination entry;
    Shoal::IterHint hint;
    const auto& map = routes_.map;
    for (bool more = map.first(hint, entry); more;
         more = map.next(entry.destinationPrefix, hint, entry)) {
      sum += entry.destinationId;
    }
    return sum;
  }
  uint64_t size() const { return routes_.map.size(); }
  void clear() { routes_.table->store()->clear(); }

 private:
  SharedRoutes routes_;
};

const MapSubjects<TableMap> subjects(allSizes());

// Into a table that has been full once, so that its memory is there.
void insertClaimed(State& state) {
  const auto routes = static_cast<size_t>(state.range());
  const auto list = prefixes(routes);
  TableMap map(routes);
  fill(map, list);
  for (auto _ : state) {
    state.PauseTiming();
    map.clear();
    state.ResumeTiming();
    fill(map, list);
  }
  check(map.size() == routes, "the size after inserts");
  itemsPerStep(state, routes);
}
const Subject claimed("BM_TableInsert_Claimed", insertClaimed, oneMillion);

}  // namespace
}  // namespace Bench
