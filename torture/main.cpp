// Provokes faults in shared tables for as long as asked, and prints what came of it. Ends with
// status 0 when nothing was torn, hung, lost or leaked, with 1 when something was, with 2 for wrong
// usage.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <random>

#include "torture/Campaign.h"

namespace {

using std::chrono::steady_clock;
using Torture::Campaign;
using Torture::Tally;

struct Options {
  std::vector<std::string> names;
  double minutes = 1;
  uint64_t seed = std::random_device{}();
  bool slice = false;
  bool list = false;
};

std::vector<Campaign> chosen(const Options& options) {
  std::vector<Campaign> result;
  for (const Campaign& campaign : Torture::campaigns()) {
    const bool named =
        std::find(options.names.begin(), options.names.end(), campaign.name) != options.names.end();
    if (named || options.names.empty()) result.push_back(campaign);
  }
  return result;
}

void printRow(const char* name, const Tally& tally, double seconds) {
  fmt::print("{:<14} {:>12} {:>12} {:>14} {:>6} {:>6} {:>6} {:>6} {:>9.1f}\n", name, tally.rounds,
             tally.faults, tally.reads, tally.torn, tally.hung, tally.lost, tally.leaked, seconds);
  std::fflush(stdout);
}

Tally runOne(const Campaign& campaign, const Torture::Setting& setting) {
  try {
    return campaign.run(setting);
  } catch (const std::exception& error) {
    Tally tally;
    tally.found(&Tally::lost, fmt::format("{} ended early: {}", campaign.name, error.what()));
    return tally;
  }
}

// The time is shared out evenly among those that go by time.
int run(const Options& options) {
  const std::vector<Campaign> campaigns = chosen(options);
  const auto timed = std::max<ptrdiff_t>(
      1, std::count_if(campaigns.begin(), campaigns.end(), [](auto& each) { return each.timed; }));
  const auto share = std::chrono::duration_cast<steady_clock::duration>(
      std::chrono::duration<double>(options.minutes * 60 / static_cast<double>(timed)));

  fmt::print("seed {}\n{:<14} {:>12} {:>12} {:>14} {:>6} {:>6} {:>6} {:>6} {:>9}\n", options.seed,
             "campaign", "rounds", "faults", "verified reads", "torn", "hung", "lost", "leaked",
             "seconds");
  Tally all;
  const auto begun = steady_clock::now();
  const auto secondsSince = [](steady_clock::time_point from) {
    return std::chrono::duration<double>(steady_clock::now() - from).count();
  };
  for (const Campaign& campaign : campaigns) {
    const auto start = steady_clock::now();
    const Tally tally = runOne(campaign, {options.seed, options.slice, start + share});
    printRow(campaign.name, tally, secondsSince(start));
    all += tally;
  }
  printRow("all", all, secondsSince(begun));
  for (const std::string& finding : all.findings) fmt::print("{}\n", finding);
  return all.clean() ? 0 : 1;
}

int list() {
  for (const Campaign& campaign : Torture::campaigns()) {
    fmt::print("{:<14} {}\n", campaign.name, campaign.what);
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App app("Provokes faults in shared tables and prints what came of it", "torture");
  std::vector<std::string> known;
  for (const Campaign& campaign : Torture::campaigns()) known.emplace_back(campaign.name);
  app.add_option("campaigns", options.names, "Campaigns to run (default: all)")
      ->check(CLI::IsMember(known));
  app.add_option("--minutes", options.minutes, "Time for those that go by time, together")
      ->capture_default_str()
      ->check(CLI::Range(0.001, 100000.0));
  app.add_option("--seed", options.seed, "Seed of all choices (default: a new one, printed)");
  app.add_flag("--slice", options.slice, "Only a part of those that have a fixed amount to do");
  app.add_flag("--list", options.list, "Name the campaigns and end");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }
  return options.list ? list() : run(options);
}
