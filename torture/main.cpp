// Provokes faults in shared tables for as long as asked, and prints what came of it. Ends with
// status 0 when nothing was torn, hung, lost or leaked, with 1 when something was, with 2 for wrong
// usage.
#include <fmt/format.h>

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <random>

#include "torture/Campaign.h"
#include "torture/Interruption.h"
#include "torture/Library.h"
#include "torture/Watch.h"

namespace {

using std::chrono::steady_clock;
using std::filesystem::canonical;
using Torture::Campaign;
using Torture::Tally;

struct Options {
  std::vector<std::string> names;
  double minutes = 1;
  uint64_t seed = std::random_device{}();
  bool slice = false;
  bool first = false;
  bool list = false;
  bool verbose = false;
  std::string library;  // the directory of the build of the platform's library to run on
  int tallyTo = -1;     // the descriptor to which a process that this one was started by listens
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

// The whole outcome in one piece, for the process that asked for it.
int tell(const Tally& tally, int descriptor) {
  const std::string text = Torture::textOf(tally);
  return ::write(descriptor, text.data(), text.size()) == static_cast<ssize_t>(text.size()) ? 0 : 1;
}

void printHead(uint64_t seed) {
  fmt::print("seed {}\n{:<14} {:>12} {:>12} {:>14} {:>6} {:>6} {:>6} {:>6} {:>9}\n", seed,
             "campaign", "rounds", "faults", "verified reads", "torn", "hung", "lost", "leaked",
             "seconds");
  std::fflush(stdout);
}

// The time is shared out evenly among those that go by time.
int run(const Options& options) {
  const std::vector<Campaign> campaigns = chosen(options);
  const auto timed = std::max<ptrdiff_t>(
      1, std::count_if(campaigns.begin(), campaigns.end(), [](auto& each) { return each.timed; }));
  const auto share = std::chrono::duration_cast<steady_clock::duration>(
      std::chrono::duration<double>(options.minutes * 60 / static_cast<double>(timed)));

  const bool prints = options.tallyTo < 0;
  if (prints) printHead(options.seed);
  Tally all;
  const auto begun = steady_clock::now();
  const auto secondsSince = [](steady_clock::time_point from) {
    return std::chrono::duration<double>(steady_clock::now() - from).count();
  };
  for (const Campaign& campaign : campaigns) {
    const auto start = steady_clock::now();
    const Tally tally = Torture::runWatched(
        campaign, {options.seed, options.slice, options.verbose, start + share});
    if (prints) printRow(campaign.name, tally, secondsSince(start));
    all += tally;
    if (options.first && !tally.clean()) break;
  }
  if (!prints) return tell(all, options.tallyTo);
  printRow("all", all, secondsSince(begun));
  for (const std::string& finding : all.findings) fmt::print("{}\n", finding);
  return all.clean() ? 0 : 1;
}

// A process that is here although it looks into the directory first does not find the library
// there.
int runOnLibrary(const std::string& directory, int argc, char** argv) {
  const char* path = std::getenv("LD_LIBRARY_PATH");
  const bool again = path != nullptr && canonical(directory) == path;
  const std::string fault = again ? "it does not hold the platform's library"
                                  : Torture::becomeOver(directory, {argv, argv + argc});
  fmt::print(stderr, "torture: --library {}: {}\n", directory, fault);
  return 2;
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
  app.add_flag("--first", options.first, "End behind the first campaign that finds something");
  app.add_flag("--verbose", options.verbose, "Also print what each campaign did");
  app.add_option("--library", options.library,
                 "Run on the platform's library in this directory, not on the usual one")
      ->check(CLI::ExistingDirectory);
  app.add_option("--tally-to", options.tallyTo)->group("");
  app.add_flag("--list", options.list, "Name the campaigns and end");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }
  if (options.list) return list();
  if (!options.library.empty() && Torture::libraryDirectory() != canonical(options.library)) {
    return runOnLibrary(options.library, argc, argv);
  }
  if (options.tallyTo < 0) {
    Torture::noteSignals();
    Torture::removeDirectoriesOfTheDead();
  }
  return run(options);
}
