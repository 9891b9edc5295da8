// The same work for every kind of map from prefixes to routes: filled, changed, asked, walked.
//
// A map says its name and has set(route), find(prefix, route), sum() of all destinationIds by a
// walk over every entry, size(), and a constructor that is told how many routes there will be.
#pragma once

#include <concepts>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "bench/Data.h"
#include "bench/Memory.h"
#include "bench/Runner.h"
#include "platform/Shoal/KeyHash.h"

namespace Bench {

// The shared table's hash, for the other maps too: it is quicker here than those that come with
// them.
struct PrefixHash {
  size_t operator()(const IpGenPrefix& prefix) const {
    return static_cast<size_t>(
        Shoal::keyHash(reinterpret_cast<const std::byte*>(&prefix), sizeof prefix));
  }
};

template <class M>
concept RouteMap = requires(M& map, const IpDestination& route, const IpGenPrefix& prefix,
                            IpDestination& found) {
  { M::name } -> std::convertible_to<std::string>;
  M(size_t{});
  map.set(route);
  { map.find(prefix, found) } -> std::same_as<bool>;
  { map.sum() } -> std::same_as<uint64_t>;
  { map.size() } -> std::convertible_to<uint64_t>;
};

// A hash map of the process. It grows as it fills, as whoever does not know the number of routes
// has it. Whoever derives from it says its name.
template <class Map>
class ProcessMap {
 public:
  explicit ProcessMap(size_t) {}
  void set(const IpDestination& route) { map_[route.destinationPrefix] = route; }
  bool find(const IpGenPrefix& prefix, IpDestination& route) const {
    const auto at = map_.find(prefix);
    if (at == map_.end()) return false;
    route = at->second;
    return true;
  }
  uint64_t sum() const {
    uint64_t sum = 0;
    for (const auto& [prefix, route] : map_) sum += route.destinationId;
    return sum;
  }
  uint64_t size() const { return map_.size(); }

 private:
  Map map_;
};

// Each prefix leads to its place in the list.
template <class M>
void fill(M& map, std::span<const IpGenPrefix> list, uint64_t version = 1) {
  uint32_t number = 0;
  for (const IpGenPrefix& prefix : list) map.set(routeTo(prefix, number++, version));
}

// Filled once and kept, so that repetitions and calibration find it.
template <RouteMap M>
M& filled(size_t routes) {
  static std::map<size_t, std::unique_ptr<M>> maps;
  std::unique_ptr<M>& map = maps[routes];
  if (!map) {
    map = std::make_unique<M>(routes);
    fill(*map, prefixes(routes));
    check(map->size() == routes, "the size of a filled map");
  }
  return *map;
}

// Into new maps, each of which `prepare` gets ready while the clock stands still.
template <RouteMap M, class Prepare>
void insertInto(State& state, Prepare prepare) {
  const auto routes = static_cast<size_t>(state.range());
  const auto list = prefixes(routes);
  for (auto _ : state) {
    state.PauseTiming();
    warmMemoryFor(routes);
    auto map = std::make_unique<M>(routes);
    prepare(*map);
    state.ResumeTiming();
    fill(*map, list);
    state.PauseTiming();
    check(map->size() == routes, "the size after inserts");
    map.reset();
    state.ResumeTiming();
  }
  itemsPerStep(state, routes);
}

template <RouteMap M>
void insertFresh(State& state) {
  insertInto<M>(state, [](M&) {});
}

template <RouteMap M>
void replace(State& state) {
  M& map = filled<M>(static_cast<size_t>(state.range()));
  const auto list = prefixes(static_cast<size_t>(state.range()));
  size_t i = 0;
  for (auto _ : state) {
    map.set(routeTo(list[i], static_cast<uint32_t>(i), 2));
    if (++i == list.size()) i = 0;
  }
  check(map.size() == list.size(), "the size after replaces");
  itemsPerStep(state, 1);
}

template <RouteMap M>
void findHit(State& state) {
  M& map = filled<M>(static_cast<size_t>(state.range()));
  const auto list = prefixes(static_cast<size_t>(state.range()));
  IpDestination found;
  check(map.find(list[3], found) && found.destinationId == 3, "the entry of a present key");
  Cycle<IpGenPrefix> cycle(list);
  uint64_t sum = 0;
  for (auto _ : state) {
    map.find(cycle.next(), found);
    sum += found.destinationId;
  }
  DoNotOptimize(sum);
  itemsPerStep(state, 1);
}

// Each key comes from the entry before: no look-up begins before the last one has ended.
template <RouteMap M>
void findInTurn(State& state) {
  M& map = filled<M>(static_cast<size_t>(state.range()));
  const auto list = prefixes(static_cast<size_t>(state.range()));
  IpDestination found;
  found.destinationId = 0;
  for (auto _ : state) {
    const size_t next = found.destinationId + size_t{1};
    map.find(list[next == list.size() ? 0 : next], found);
  }
  check(found.destinationPrefix == list[found.destinationId], "the entry of a present key");
  itemsPerStep(state, 1);
}

template <RouteMap M>
void findAbsent(State& state) {
  M& map = filled<M>(static_cast<size_t>(state.range()));
  const auto list = absentPrefixes(static_cast<size_t>(state.range()));
  IpDestination found;
  check(!map.find(list[3], found), "no entry of an absent key");
  Cycle<IpGenPrefix> cycle(list);
  uint64_t count = 0;
  for (auto _ : state) count += map.find(cycle.next(), found);
  check(count == 0, "absent keys");
  itemsPerStep(state, 1);
}

template <RouteMap M>
void scan(State& state) {
  M& map = filled<M>(static_cast<size_t>(state.range()));
  const auto routes = static_cast<uint64_t>(state.range());
  for (auto _ : state) check(map.sum() == routes * (routes - 1) / 2, "the sum of a scan");
  itemsPerStep(state, routes);
}

// The subjects of one map: BM_<name>Insert_Fresh and so on.
template <RouteMap M>
struct MapSubjects {
  explicit MapSubjects(const std::vector<int64_t>& sizes)
      : insert_(prefix() + "Insert_Fresh", insertFresh<M>, sizes),
        replace_(prefix() + "Replace", replace<M>, sizes),
        hit_(prefix() + "Find_Hit", findHit<M>, sizes),
        inTurn_(prefix() + "Find_InTurn", findInTurn<M>, oneMillion),
        absent_(prefix() + "Find_Absent", findAbsent<M>, sizes),
        scan_(prefix() + "Scan", scan<M>, sizes) {}

 private:
  static std::string prefix() { return std::string("BM_") + M::name; }
  Subject insert_, replace_, hit_, inTurn_, absent_, scan_;
};

}  // namespace Bench
