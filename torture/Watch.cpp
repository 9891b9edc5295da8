#include "torture/Watch.h"

#include <fmt/format.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>
#include <thread>

#include "torture/Holdings.h"
#include "torture/Interruption.h"
#include "torture/SharedTally.h"

// There in a build with the leak sanitizer only.
extern "C" [[gnu::weak]] int __lsan_do_recoverable_leak_check();

namespace Torture {

namespace {

using std::chrono::steady_clock;

struct Page {
  std::atomic<uint64_t> steps{0};
  std::array<char, 400> step{};
};
Page* watched = nullptr;  // in the campaign's process

// In the campaign's process.
Tally runAndLookAround(const Campaign& campaign, const Setting& setting) {
  const size_t filesBefore = Holdings::now().files;
  Tally tally;
  try {
    tally = campaign.run(setting);
  } catch (const std::exception& error) {
    tally.found(&Tally::lost, fmt::format("{} ended early: {}", campaign.name, error.what()));
  }
  const Holdings left = Holdings::now();
  if (left.files != filesBefore) {
    tally.found(&Tally::leaked, fmt::format("{}: {} files open, {} before it began", campaign.name,
                                            left.files, filesBefore));
  }
  if (left.tables != 0) {
    tally.found(&Tally::leaked, fmt::format("{}: {} tables mapped", campaign.name, left.tables));
  }
  if (&__lsan_do_recoverable_leak_check != nullptr && __lsan_do_recoverable_leak_check() != 0) {
    tally.found(&Tally::leaked,
                fmt::format("{}: memory, as told on standard error", campaign.name));
  }
  return tally;
}

// Waits for the campaign's process, but not for one that hangs.
ChildEnd endOf(pid_t child, const Page& page) {
  ChildEnd end;
  uint64_t steps = 0;
  auto since = steady_clock::now();
  while (::waitpid(child, &end.status, WNOHANG) == 0) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    endIfAsked(child);
    const auto now = steady_clock::now();
    if (steps != page.steps) since = now;
    steps = page.steps;
    if (steps == 0 || now - since < longestSilence) continue;
    end.timedOut = true;
    ::kill(-child, SIGKILL);
    ::waitpid(child, &end.status, 0);
    break;
  }
  return end;
}

}  // namespace

void doing(const std::string& what) {
  if (watched == nullptr) return;
  watched->step[what.copy(watched->step.data(), watched->step.size() - 1)] = '\0';
  ++watched->steps;
}

Tally runWatched(const Campaign& campaign, const Setting& setting) {
  const SharedMemory<Page> page;
  SharedTally shared;
  const pid_t child = startChild([&] {
    ::setpgid(0, 0);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) ::signal(signal, SIG_DFL);
    watched = &*page;
    shared.add(runAndLookAround(campaign, setting));
    std::fflush(stdout);
    return 0;
  });
  ::setpgid(child, child);
  const ChildEnd end = endOf(child, *page);
  Tally tally = shared.tally();
  if (!end.ok()) {
    tally.found(end.timedOut ? &Tally::hung : &Tally::torn,
                fmt::format("{} {}: {}", campaign.name, end.text(), page->step.data()));
  }
  const size_t leftovers = removeDirectoriesOf(child);
  if (::kill(-child, SIGKILL) == 0) {
    tally.found(&Tally::leaked, fmt::format("{}: processes that it started", campaign.name));
  }
  if (end.ok() && leftovers != 0) {
    tally.found(&Tally::leaked, fmt::format("{}: {} directories", campaign.name, leftovers));
  }
  return tally;
}

}  // namespace Torture
