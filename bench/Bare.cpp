// What the machine itself takes: an allocation as a row needs one, a copy of an entry, a stream of
// bytes, one access to memory at random.
#include <cstdlib>
#include <cstring>
#include <memory>
#include <numeric>
#include <random>
#include <vector>

#include "bench/Bare.h"
#include "bench/Data.h"
#include "bench/Runner.h"

namespace Bench {
namespace {

void allocation(State& state) {
  const std::vector<uint16_t> lengths = rowLengths();
  Cycle<uint16_t> cycle(lengths);
  for (auto _ : state) {
    auto buffer = std::make_shared<BareBuffer>(cycle.next());
    DoNotOptimize(buffer->bytes);
  }
  itemsPerStep(state, 1);
}
const Subject bareAllocation("BM_Bare_Allocation", allocation);

void entryCopy(State& state) {
  const std::vector<IpDestination> entries = sampleEntries();
  Cycle<IpDestination> cycle(entries);
  IpDestination copy;
  for (auto _ : state) {
    std::memcpy(&copy, &cycle.next(), sizeof copy);
    DoNotOptimize(copy);
  }
  itemsPerStep(state, 1);
}
const Subject bareEntryCopy("BM_Bare_EntryCopy", entryCopy);

// The bytes that a table's slots take, read from one end to the other.
void sequentialRead(State& state) {
  const auto entries = static_cast<size_t>(state.range());
  constexpr size_t slot = 64;
  std::vector<uint64_t> words(entries * slot / sizeof(uint64_t), 3);
  check(std::accumulate(words.begin(), words.end(), uint64_t{0}) == 3 * words.size(), "sum");
  for (auto _ : state) {
    // Four sums, so that it is memory that is waited for.
    uint64_t sums[4] = {};
    for (size_t i = 0; i + 4 <= words.size(); i += 4) {
      for (size_t lane = 0; lane < 4; ++lane) sums[lane] += words[i + lane];
    }
    DoNotOptimize(sums);
  }
  itemsPerStep(state, entries);
}
const Subject bareSequentialRead("BM_Bare_SequentialRead", sequentialRead, allSizes());

// Each line of half a gigabyte says which one comes next: one round through all of them.
class Chain {
 public:
  static constexpr size_t lines = (size_t{512} << 20) / 64;

  Chain() : next_(lines * lineWords) {
    std::vector<uint32_t> order(lines);
    std::iota(order.begin(), order.end(), 0u);
    std::mt19937_64 random(7);
    for (size_t i = lines; i > 1; --i) std::swap(order[i - 1], order[random() % i]);
    for (size_t i = 0; i < lines; ++i) next_[order[i] * lineWords] = order[(i + 1) % lines];
  }
  uint32_t after(uint32_t line) const { return next_[line * lineWords]; }

 private:
  static constexpr size_t lineWords = 64 / sizeof(uint32_t);
  std::vector<uint32_t> next_;
};

void randomAccess(State& state) {
  static const Chain chain;
  uint32_t at = 0;
  for (auto _ : state) at = chain.after(at);
  DoNotOptimize(at);
  itemsPerStep(state, 1);
}
const Subject bareRandomAccess("BM_Bare_RandomAccess", randomAccess);

}  // namespace

std::vector<IpDestination> sampleEntries() {
  std::vector<IpDestination> entries;
  for (const IpGenPrefix& prefix : prefixes(1024)) {
    entries.push_back(routeTo(prefix, static_cast<uint32_t>(entries.size())));
  }
  return entries;
}

std::vector<uint16_t> rowLengths() {
  std::vector<uint16_t> lengths;
  for (const IpGenPrefix& prefix : prefixes(1024)) {
    constexpr uint16_t fixedAndLength = 37 + 1;
    lengths.push_back(static_cast<uint16_t>(fixedAndLength + Wire::addressLength(prefix.family)));
  }
  return lengths;
}

}  // namespace Bench
