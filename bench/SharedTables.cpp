// The shared-memory table by itself: filled, changed, asked, walked, emptied.
#include <array>

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
    routes_.map.forEach([&](const IpDestination& entry) { sum += entry.destinationId; });
    return sum;
  }
  void findBatch(std::span<const IpGenPrefix> prefixes, std::span<IpDestination> routes,
                 std::span<bool> found) const {
    routes_.map.lookupBatch(prefixes, routes, found);
  }
  uint64_t size() const { return routes_.map.size(); }
  void reserve(size_t routes) { routes_.map.reserve(routes); }
  void clear() { routes_.table->store()->clear(); }

 private:
  SharedRoutes routes_;
};

const MapSubjects<TableMap> subjects(allSizes());

// Sixteen present keys in one call.
void findBatch(State& state) {
  constexpr size_t inFlight = 16;
  TableMap& map = filled<TableMap>(static_cast<size_t>(state.range()));
  const auto list = prefixes(static_cast<size_t>(state.range()));
  std::array<IpDestination, inFlight> routes;
  std::array<bool, inFlight> found;
  map.findBatch(list.first(inFlight), routes, found);
  for (size_t i = 0; i < inFlight; ++i) {
    check(found[i] && routes[i].destinationId == i, "the entries of present keys");
  }
  size_t at = 0;
  uint64_t sum = 0;
  for (auto _ : state) {
    map.findBatch(list.subspan(at, inFlight), routes, found);
    for (const IpDestination& route : routes) sum += route.destinationId;
    if ((at += inFlight) + inFlight > list.size()) at = 0;
  }
  DoNotOptimize(sum);
  itemsPerStep(state, inFlight);
}
const Subject batch("BM_TableFind_Batch", findBatch, allSizes());

// Into a new table whose memory was claimed beforehand.
void insertClaimed(State& state) {
  const auto routes = static_cast<size_t>(state.range());
  insertInto<TableMap>(state, [routes](TableMap& map) { map.reserve(routes); });
}
const Subject claimed("BM_TableInsert_Claimed", insertClaimed, oneMillion);

// Into a table that has been full: each slot's last key has to be forgotten first.
void insertEmptied(State& state) {
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
const Subject emptied("BM_TableInsert_Emptied", insertEmptied, oneMillion);

}  // namespace
}  // namespace Bench
