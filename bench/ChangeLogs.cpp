// The change log by itself, beside a std::map by index and a std::unordered_map by key.
#include <map>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

#include "bench/Memory.h"
#include "bench/SharedRoutes.h"
#include "bench/Tables.h"

namespace Bench {
namespace {

using AdapterLog = IpDestinationVaneWrapper::Log;

// The plain way: two maps that name each other.
class MapsLog {
 public:
  explicit MapsLog(size_t keys) { indices_.reserve(keys); }
  uint64_t record(const IpGenPrefix& key, bool removed) {
    const uint64_t index = latest_ = ((latest_ + 2) & ~uint64_t{1}) | uint64_t{removed};
    const auto [at, isNew] = indices_.try_emplace(key, index);
    if (!isNew) changes_.erase(std::exchange(at->second, index));
    changes_.emplace_hint(changes_.end(), index, key);
    return index;
  }
  auto after(uint64_t index) const { return changes_.upper_bound(index); }
  uint64_t latest() const { return latest_; }
  void prune(uint64_t index) {
    while (!changes_.empty() && changes_.begin()->first <= index) {
      indices_.erase(changes_.begin()->second);
      changes_.erase(changes_.begin());
    }
  }

 private:
  std::map<uint64_t, IpGenPrefix> changes_;
  std::unordered_map<IpGenPrefix, uint64_t, PrefixHash> indices_;
  uint64_t latest_ = 1;
};

uint64_t indexOf(const auto& change) {
  if constexpr (requires { change.index; }) {
    return change.index;
  } else {
    return change.first;
  }
}

template <class Log>
std::unique_ptr<Log> filledLog(std::span<const IpGenPrefix> keys) {
  auto log = std::make_unique<Log>(keys.size());
  for (const IpGenPrefix& key : keys) log->record(key, false);
  return log;
}

template <class Log>
Log& keptLog(size_t keys) {
  static std::map<size_t, std::unique_ptr<Log>> logs;
  std::unique_ptr<Log>& log = logs[keys];
  if (!log) log = filledLog<Log>(prefixes(keys));
  return *log;
}

template <class Log>
void recordFresh(State& state) {
  const auto keys = prefixes(static_cast<size_t>(state.range()));
  for (auto _ : state) {
    state.PauseTiming();
    warmMemoryFor(keys.size());
    const uint64_t before = allocatedBytes();
    auto log = std::make_unique<Log>(keys.size());
    state.ResumeTiming();
    for (const IpGenPrefix& key : keys) log->record(key, false);
    state.PauseTiming();
    check(log->latest() == 2 * keys.size(), "the latest index");
    const auto taken = static_cast<double>(allocatedBytes() - before);
    state.counters["bytes_per_key_beyond_it"] =
        taken / static_cast<double>(keys.size()) - static_cast<double>(sizeof(IpGenPrefix));
    log.reset();
    state.ResumeTiming();
  }
  itemsPerStep(state, keys.size());
}

// Keys that are there already, in another order than they came.
template <class Log>
void recordAgain(State& state) {
  const auto keys = prefixes(static_cast<size_t>(state.range()));
  Log& log = keptLog<Log>(keys.size());
  std::vector<IpGenPrefix> order;
  // A prime stride comes to every key once.
  for (size_t i = 0; i < keys.size(); ++i) order.push_back(keys[i * 7919 % keys.size()]);
  Cycle<IpGenPrefix> cycle(order);
  for (auto _ : state) log.record(cycle.next(), false);
  itemsPerStep(state, 1);
}

template <class Log>
void upperBound(State& state) {
  const auto keys = prefixes(static_cast<size_t>(state.range()));
  static std::map<size_t, std::unique_ptr<Log>> logs;
  std::unique_ptr<Log>& kept = logs[keys.size()];
  if (!kept) kept = filledLog<Log>(keys);
  const Log& log = *kept;
  check(indexOf(*log.after(2)) == 4, "the change after an index");
  uint64_t index = 1;
  for (auto _ : state) {
    index = index * 6364136223846793005u + 1442695040888963407u;
    const auto at = log.after((index >> 32) * log.latest() >> 32);
    DoNotOptimize(at);
  }
  itemsPerStep(state, 1);
}

// All of it, a thousand at a time.
template <class Log>
void prune(State& state) {
  const auto keys = prefixes(static_cast<size_t>(state.range()));
  for (auto _ : state) {
    state.PauseTiming();
    auto log = filledLog<Log>(keys);
    state.ResumeTiming();
    for (uint64_t index = 0; index < log->latest(); index += 2000) log->prune(index);
    log->prune(log->latest());
    state.PauseTiming();
    check(log->after(0) == log->after(log->latest()), "nothing left after pruning");
    log.reset();
    state.ResumeTiming();
  }
  itemsPerStep(state, keys.size());
}

template <class Log>
struct LogSubjects {
  explicit LogSubjects(const std::string& name)
      : fresh_("BM_" + name + "Record_Fresh", recordFresh<Log>, allSizes()),
        again_("BM_" + name + "Record_Again", recordAgain<Log>, usualSizes()),
        bound_("BM_" + name + "UpperBound", upperBound<Log>, usualSizes()),
        prune_("BM_" + name + "Prune", prune<Log>, usualSizes()) {}

 private:
  Subject fresh_, again_, bound_, prune_;
};

const LogSubjects<AdapterLog> adapterLog("ChangeLog");
const LogSubjects<MapsLog> mapsLog("MapsLog");

}  // namespace
}  // namespace Bench
