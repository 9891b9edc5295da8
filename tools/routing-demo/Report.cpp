#include "tools/routing-demo/Report.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace Demo {
namespace {

// 1234567 as "1,234,567".
std::string grouped(uint64_t number) {
  std::string digits = std::to_string(number);
  for (size_t at = digits.size(); at > 3; at -= 3) digits.insert(at - 3, 1, ',');
  return digits;
}

}  // namespace

Report::Report(bool quiet) : quiet_(quiet), terminal_(!quiet && ::isatty(STDERR_FILENO) != 0) {}

void Report::progress(const std::string& text) {
  if (!terminal_) return;
  fmt::print(stderr, "\r\x1b[K{} ...", text);
  std::fflush(stderr);
  progressShown_ = true;
}

void Report::clearProgress() {
  if (progressShown_) fmt::print(stderr, "\r\x1b[K");
  progressShown_ = false;
}

void Report::line(const std::string& text) {
  clearProgress();
  if (quiet_) return;
  fmt::print("{}\n", text);
  std::fflush(stdout);
}

void Report::begin(const Model& model, const std::filesystem::path& root) {
  uint64_t entries = 0;
  forEachTable([&](Table table) { entries += model.count(table); });
  line(fmt::format("{} entries in {} tables below {}\n", grouped(entries), tableCount,
                   root.string()));
  if (model.duplicatePrefixes() != 0) {
    line(fmt::format("{} repeated prefixes were left out\n", grouped(model.duplicatePrefixes())));
  }
  line(fmt::format("{:<44} {:>11} {:>9} {:>11}", "step", "rows", "seconds", "rows/s"));
}

void Report::step(const std::string& what, uint64_t rows, double seconds) {
  if (rows == 0) return line(fmt::format("{:<44} {:>11} {:>9.2f}", what, "", seconds));
  const double rate = static_cast<double>(rows) / std::max(seconds, 1e-9);
  line(fmt::format("{:<44} {:>11} {:>9.2f} {:>11}", what, grouped(rows), seconds,
                   grouped(static_cast<uint64_t>(rate))));
}

void Report::wrong(const std::string& what) {
  ++wrong_;
  clearProgress();
  fmt::print(stderr, "routing-demo: wrong: {}\n", what);
}

void Report::agentFollowed(Table table, uint64_t changes) {
  rows_[static_cast<size_t>(table)].agentFollowed = changes;
}

void Report::readBack(const nlohmann::json& answer) {
  forEachTable([&](Table table) {
    if (answer.at("table") != nameOf(table).row) return;
    Row& row = rows_[static_cast<size_t>(table)];
    row.readerFollowed = answer.at("followed");
    row.readerMissed = answer.at("missed");
    row.compared = answer.at("compared");
  });
}

void Report::tables(const Model& model) {
  constexpr auto form = "{:<20} {:>11} {:>11} {:>16} {:>16} {:>9}";
  line("");
  line(fmt::format(form, "table", "set", "compared", "changes followed", "in 2nd process",
                   "missed"));
  forEachTable([&](Table table) {
    const Row& row = rows_[static_cast<size_t>(table)];
    line(fmt::format(form, nameOf(table).row, grouped(model.count(table)), grouped(row.compared),
                     grouped(row.agentFollowed), grouped(row.readerFollowed),
                     grouped(row.readerMissed)));
  });
  line("");
}

void Report::invitation(const std::filesystem::path& root, const std::string& shoalctl,
                        int agentPid) {
  line(
      fmt::format("The agent stays up (process {0}). In another terminal, try:\n\n"
                  "  {1} --root {2} tables\n"
                  "  {1} --root {2} show VaneEcmpMember 1\n"
                  "  {1} --root {2} --json show VaneIpv4Override | head\n\n"
                  "Ctrl-C ends it and cleans up.\n",
                  agentPid, shoalctl, root.string()));
}

void Report::p4Invitation(const std::string& address, const std::string& client) {
  line(
      fmt::format("It serves P4Runtime at {0} (device 1, plain text, election ids above 1); with a "
                  "client of your\nown, or with ours:\n\n"
                  "  {1} --address {0} pipeline\n"
                  "  {1} --address {0} read ipv4.override | head\n"
                  "  echo 192.0.2.0/24 | {1} --address {0} --election-id 2 program --first-member "
                  "2000001 --prefixes -\n",
                  address, client));
}

void Report::verdict() {
  if (right()) {
    clearProgress();
    fmt::print("everything is as programmed\n");
  } else {
    fmt::print(stderr, "routing-demo: {} things are wrong\n", wrong_);
  }
  std::fflush(stdout);
}

}  // namespace Demo
