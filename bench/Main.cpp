// The program of all subjects. It is run by `./dev bench`, which says which and how often, and puts
// the figures together; `benchmarks --help` tells how to run it by hand.
#include <sys/sysinfo.h>

#include <cstdlib>
#include <iostream>
#include <stdexcept>
#include <string_view>

#include "bench/Data.h"
#include "bench/Runner.h"
#include "bench/SharedRoutes.h"

namespace Bench {
namespace {

#if defined(NDEBUG) && defined(__OPTIMIZE__)
constexpr bool optimised = true;
#else
constexpr bool optimised = false;
#endif

bool hasMemoryForAll() {
  struct sysinfo info {};
  return sizeof(void*) == 8 && sysinfo(&info) == 0 &&
         static_cast<uint64_t>(info.totalram) * info.mem_unit >= uint64_t{12} << 30;
}

}  // namespace

const std::vector<int64_t>& usualSizes() {
  static const std::vector<int64_t> sizes{1000, 100000, 1000000};
  return sizes;
}

const std::vector<int64_t>& allSizes() {
  static const std::vector<int64_t> sizes = [] {
    std::vector<int64_t> all = usualSizes();
    if (hasMemoryForAll()) all.push_back(10000000);
    return all;
  }();
  return sizes;
}

void check(bool holds, const char* what) {
  if (holds) return;
  std::cerr << "benchmarks: wrong answer: " << what << std::endl;
  std::_Exit(3);
}

#ifdef BENCH_GOOGLE

namespace {

benchmark::internal::Benchmark& registered(const std::string& name, Measure measure,
                                           const std::vector<int64_t>& routes) {
  auto* made = benchmark::RegisterBenchmark(name.c_str(), measure);
  if (!routes.empty()) made->ArgName("routes");
  for (const int64_t size : routes) made->Arg(size);
  return *made;
}

}  // namespace

Subject::Subject(const std::string& name, Measure measure, const std::vector<int64_t>& routes) {
  registered(name, measure, routes);
}

Subject::Subject(Once, const std::string& name, Measure measure,
                 const std::vector<int64_t>& routes) {
  registered(name, measure, routes).UseManualTime()->Iterations(1);
}

int run(int argc, char** argv) {
  benchmark::AddCustomContext("peers_not_here", BENCH_NOT_HERE);
  benchmark::AddCustomContext("compiler", "g++ " __VERSION__);
  benchmark::AddCustomContext("prefixes", whichPrefixes());
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}

#else

namespace {

void registered(const std::string& name, Measure measure, const std::vector<int64_t>& routes,
                bool once) {
  if (routes.empty()) addSmall({name, measure, 0, once});
  for (const int64_t size : routes)
    addSmall({name + "/routes:" + std::to_string(size), measure, size, once});
}

}  // namespace

Subject::Subject(const std::string& name, Measure measure, const std::vector<int64_t>& routes) {
  registered(name, measure, routes, false);
}

Subject::Subject(Once, const std::string& name, Measure measure,
                 const std::vector<int64_t>& routes) {
  registered(name, measure, routes, true);
}

int run(int argc, char** argv) { return runSmall(argc, argv); }

#endif

}  // namespace Bench

int main(int argc, char** argv) {
  if (!Bench::optimised) {
    std::cerr << "benchmarks: built without optimisation or with assertions: figures of such a "
                 "build mean nothing; expected CMAKE_BUILD_TYPE=Release\n";
    return 2;
  }
  try {
    Bench::database();  // row types ask it for their numbers
    return Bench::run(argc, argv);
  } catch (const std::exception& failure) {
    std::cerr << "benchmarks: " << failure.what() << "\n";
    return 1;
  }
}
