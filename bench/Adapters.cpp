// Adapters: tables as the row database sees them. A row is found, walked over, set; ten are built.
#include <algorithm>
#include <optional>
#include <vector>

#include "bench/Memory.h"
#include "bench/SharedRoutes.h"
#include "bench/Tables.h"

namespace Bench {
namespace {

using P4RuntimeRouting::IpDestinationRow;
using P4RuntimeRouting::IpDestinationTableVaneWrappers::IpDestinationTraits;

AdaptedRoutes& filledAdapter(size_t routes) {
  static std::map<size_t, std::unique_ptr<AdaptedRoutes>> all;
  std::unique_ptr<AdaptedRoutes>& adapted = all[routes];
  if (!adapted) {
    adapted = std::make_unique<AdaptedRoutes>(routes);
    fill(adapted->shared, prefixes(routes));
  }
  return *adapted;
}

// Rows that are asked for or set, made about a thousand at a time while the time stands still:
// whoever asks has just made the row.
template <class Make>
class Rows {
 public:
  Rows(size_t count, Make make, size_t atATime = 1000)
      : count_(count), make_(std::move(make)), atATime_(atATime) {}
  IpDestinationRow& next(State& state) {
    if (at_ == rows_.size()) refresh(state);
    return rows_[at_++];
  }

 private:
  void refresh(State& state) {
    state.PauseTiming();
    rows_.clear();
    for (size_t i = 0; i < atATime_; ++i) {
      rows_.push_back(make_(number_));
      if (++number_ == count_) number_ = 0;
    }
    at_ = 0;
    state.ResumeTiming();
  }

  size_t count_;
  Make make_;
  size_t atATime_;
  std::vector<IpDestinationRow> rows_;
  size_t at_ = 0;
  size_t number_ = 0;
};

auto keyRows(std::span<const IpGenPrefix> list, size_t atATime = 1000) {
  return Rows(
      list.size(), [list](size_t i) { return IpDestinationRow::key(list[i]); }, atATime);
}
auto fullRows(std::span<const IpGenPrefix> list, uint64_t version) {
  return Rows(list.size(), [list, version](size_t i) {
    return P4RuntimeVane::rowOf<IpDestinationTraits>(
        routeTo(list[i], static_cast<uint32_t>(i), version));
  });
}

void rowHit(State& state) {
  const auto list = prefixes(static_cast<size_t>(state.range()));
  AdaptedRoutes& routes = filledAdapter(list.size());
  check(
      IpDestinationRow(routes.adapter->row(IpDestinationRow::key(list[5]), 0)).destinationId() == 5,
      "the row of a key");
  auto keys = keyRows(list);
  for (auto _ : state) DoNotOptimize(routes.adapter->row(keys.next(state), 0));
  itemsPerStep(state, 1);
}
const Subject subjectRowHit("BM_AdapterRow_Hit", rowHit, allSizes());

// Sixteen keys a call.
void rowBatch(State& state) {
  const auto list = prefixes(static_cast<size_t>(state.range()));
  AdaptedRoutes& routes = filledAdapter(list.size());
  constexpr size_t atATime = 16;
  std::vector<const Vane::BaseRow*> wanted(atATime);
  std::vector<Vane::BaseRow> rows(atATime);
  const auto ask = [&](auto nextKey) {
    for (const Vane::BaseRow*& key : wanted) key = nextKey();
    routes.adapter->rows(wanted, rows, 0);
  };
  const auto sixth = IpDestinationRow::key(list[5]);
  ask([&] { return &sixth; });
  check(IpDestinationRow(rows[5]).destinationId() == 5, "the rows of some keys");
  auto keys = keyRows(list, 62 * atATime);
  for (auto _ : state) {
    ask([&] { return &keys.next(state); });
    DoNotOptimize(rows.data());
  }
  itemsPerStep(state, atATime);
}
const Subject subjectRowBatch("BM_AdapterRow_Batch", rowBatch, usualSizes());

void findHit(State& state) {
  const auto list = prefixes(static_cast<size_t>(state.range()));
  AdaptedRoutes& routes = filledAdapter(list.size());
  check(
      IpDestinationRow(**routes.adapter->find(IpDestinationRow::key(list[5]), 0)).destinationId() ==
          5,
      "the row that is found");
  auto keys = keyRows(list);
  for (auto _ : state) {
    const auto found = routes.adapter->find(keys.next(state), 0);
    DoNotOptimize(**found);
  }
  itemsPerStep(state, 1);
}
const Subject subjectFindHit("BM_AdapterFind_Hit", findHit, allSizes());

void scanRows(State& state) {
  AdaptedRoutes& routes = filledAdapter(static_cast<size_t>(state.range()));
  for (auto _ : state) {
    int64_t rows = 0;
    for (const auto at = routes.adapter->begin(0); *at; ++*at) {
      const Vane::BaseRow row = **at;
      DoNotOptimize(row);
      ++rows;
    }
    check(rows == state.range(), "rows of a scan");
  }
  itemsPerStep(state, static_cast<uint64_t>(state.range()));
}
const Subject subjectScanRows("BM_AdapterScan_Rows", scanRows, allSizes());

// From an empty table to a full one.
void rowIsFresh(State& state) {
  const auto list = prefixes(static_cast<size_t>(state.range()));
  for (auto _ : state) {
    state.PauseTiming();
    warmMemoryFor(list.size());
    auto routes = std::make_unique<AdaptedRoutes>(list.size());
    auto rows = fullRows(list, 1);
    state.ResumeTiming();
    for (size_t i = 0; i < list.size(); ++i) routes->adapter->rowIs(rows.next(state), false);
    state.PauseTiming();
    check(routes->adapter->size() == list.size(), "the size after rows were set");
    check(routes->adapter->latestChangeIdx() == 2 * list.size(), "the changes of rows set");
    routes.reset();
    state.ResumeTiming();
  }
  itemsPerStep(state, list.size());
}
const Subject subjectRowIsFresh("BM_AdapterRowIs_Fresh", rowIsFresh, allSizes());

void rowIsReplace(State& state) {
  const auto list = prefixes(static_cast<size_t>(state.range()));
  AdaptedRoutes& routes = filledAdapter(list.size());
  auto rows = fullRows(list, 2);
  for (auto _ : state) routes.adapter->rowIs(rows.next(state), false);
  check(routes.adapter->size() == list.size(), "the size after rows were replaced");
  itemsPerStep(state, 1);
}
const Subject subjectRowIsReplace("BM_AdapterRowIs_Replace", rowIsReplace, usualSizes());

// Over tables of a million slots each. The memory is what the first ten in the process touch, as at
// an agent's start: what the C allocator makes of blocks that have been freed is another matter.
void buildTen(State& state) {
  constexpr size_t slots = 1000000;
  std::vector<std::unique_ptr<SharedRoutes>> tables;
  for (int i = 0; i < 10; ++i) tables.push_back(std::make_unique<SharedRoutes>(slots));
  static std::optional<uint64_t> touched;
  for (auto _ : state) {
    state.PauseTiming();
    giveBackFreed();
    const uint64_t before = residentBytes();
    state.ResumeTiming();
    std::vector<std::unique_ptr<IpDestinationVaneWrapper>> adapters;
    for (const auto& routes : tables) {
      adapters.push_back(
          std::make_unique<IpDestinationVaneWrapper>(routes->table, database(), nullptr, true));
    }
    state.PauseTiming();
    if (!touched) touched = residentBytes() - std::min(before, residentBytes());
    adapters.clear();
    state.ResumeTiming();
  }
  state.counters["touched_bytes"] = static_cast<double>(*touched);
  itemsPerStep(state, 1);
}
const Subject subjectBuildTen("BM_AdaptersBuilt/adapters:10", buildTen);

// What a million routes take, every key once in the log.
void memoryPerRoute(State& state) {
  const auto list = prefixes(static_cast<size_t>(state.range()));
  const auto count = static_cast<double>(list.size());
  for (auto _ : state) {
    AdaptedRoutes routes(list.size());
    auto rows = fullRows(list, 1);
    rows.next(state);
    giveBackFreed();
    const uint64_t before = privateBytes();
    for (size_t i = 0; i < list.size(); ++i) routes.adapter->rowIs(rows.next(state), false);
    const auto after = privateBytes();
    state.counters["private_bytes_per_route"] =
        static_cast<double>(after - std::min(before, after)) / count;
    state.counters["shared_bytes_per_route"] =
        static_cast<double>(Shoal::tableStatus(routes.shared.root(), SharedRoutes::path).bytes) /
        count;
  }
  itemsPerStep(state, list.size());
}
const Subject subjectMemory("BM_Memory_PerRoute", memoryPerRoute, oneMillion);

}  // namespace
}  // namespace Bench
