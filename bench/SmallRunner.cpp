#include "bench/SmallRunner.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <random>
#include <regex>
#include <string_view>
#include <vector>

namespace Bench {
namespace {

std::vector<SmallSubject>& subjects() {
  static std::vector<SmallSubject> all;
  return all;
}

struct Options {
  std::string filter = ".";
  std::string out;
  double seconds = 0.5;
  int repetitions = 1;
};

Options parsed(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    const std::string_view argument = argv[i];
    const size_t equals = std::min(argument.find('='), argument.size());
    const std::string_view name = argument.substr(0, equals);
    const std::string value(argument.substr(std::min(equals + 1, argument.size())));
    if (name == "--benchmark_filter") options.filter = value;
    if (name == "--benchmark_out") options.out = value;
    if (name == "--benchmark_min_time") options.seconds = std::stod(value);
    if (name == "--benchmark_repetitions") options.repetitions = std::stoi(value);
  }
  return options;
}

State run(const SmallSubject& subject, uint64_t iterations) {
  State state(iterations, subject.range);
  subject.measure(state);
  return state;
}

// As many steps as take about so long; at least one.
uint64_t calibrated(const SmallSubject& subject, double seconds) {
  if (subject.once) return 1;
  for (uint64_t iterations = 1;;) {
    const double taken = static_cast<double>(run(subject, iterations).nanoseconds()) / 1e9;
    if (taken >= seconds / 4 || iterations >= uint64_t{1} << 30) {
      const double wanted = static_cast<double>(iterations) * seconds / std::max(taken, 1e-9);
      return std::max<uint64_t>(1, static_cast<uint64_t>(std::lround(wanted)));
    }
    iterations *= 8;
  }
}

nlohmann::json result(const SmallSubject& subject, const State& state, int repetition) {
  const auto nanoseconds = static_cast<double>(state.nanoseconds());
  const double each = nanoseconds / static_cast<double>(state.iterations());
  nlohmann::json run = {{"name", subject.name},
                        {"run_name", subject.name},
                        {"run_type", "iteration"},
                        {"repetition_index", repetition},
                        {"iterations", state.iterations()},
                        {"cpu_time", each},
                        {"time_unit", "ns"}};
  if (state.items() != 0)
    run["items_per_second"] = static_cast<double>(state.items()) * 1e9 / nanoseconds;
  for (const auto& [name, value] : state.counters) run[name] = value;
  return run;
}

}  // namespace

void addSmall(SmallSubject subject) { subjects().push_back(std::move(subject)); }

int runSmall(int argc, char** argv) {
  const Options options = parsed(argc, argv);
  const std::regex filter(options.filter);
  struct Chosen {
    const SmallSubject* subject;
    uint64_t iterations;
  };
  std::vector<Chosen> chosen;
  for (const SmallSubject& subject : subjects()) {
    if (std::regex_search(subject.name, filter))
      chosen.push_back({&subject, calibrated(subject, options.seconds)});
  }
  nlohmann::json document = {{"context", {{"word_bits", 8 * sizeof(void*)}}},
                             {"benchmarks", nlohmann::json::array()}};
  std::mt19937_64 random(1);
  for (int repetition = 0; repetition < options.repetitions; ++repetition) {
    std::ranges::shuffle(chosen, random);
    for (const auto& [subject, iterations] : chosen) {
      document["benchmarks"].push_back(result(*subject, run(*subject, iterations), repetition));
      std::cout << document["benchmarks"].back().dump() << std::endl;
    }
  }
  if (!options.out.empty()) std::ofstream(options.out) << document.dump(1) << "\n";
  return 0;
}

}  // namespace Bench
