// What is measured, and what runs it: Google Benchmark, or in a build without it (32 bits) a small
// runner that takes the same words and writes the same JSON.
//
// A subject is a function over a State. It checks its answer once, then loops; one step of the loop
// may handle many items, which it says with itemsPerStep. What counts is the time of one item.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#ifdef BENCH_GOOGLE
#include <benchmark/benchmark.h>
#else
#include "bench/SmallRunner.h"
#endif

namespace Bench {

#ifdef BENCH_GOOGLE
using benchmark::DoNotOptimize;
using State = benchmark::State;
#endif

using Measure = void (*)(State&);

// Made at load, one a subject. `routes` are the sizes at which it is run; none: once, without one.
struct Subject {
  Subject(const std::string& name, Measure measure, const std::vector<int64_t>& routes = {});
  // One step, whose time is what the subject sets: SetIterationTime.
  struct Once {};
  Subject(Once, const std::string& name, Measure measure, const std::vector<int64_t>& routes = {});
};

inline void itemsPerStep(State& state, uint64_t items) {
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * items));
}

// Sizes of a table. The largest is there when the machine has memory for it.
const std::vector<int64_t>& usualSizes();
const std::vector<int64_t>& allSizes();
inline const std::vector<int64_t> oneMillion{1000000};

// Ends the process: the answer of a subject is not what it should be.
void check(bool holds, const char* what);

}  // namespace Bench
