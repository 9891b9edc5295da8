#include <fmt/format.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>

#include "platform/Guard/Exception.h"
#include "platform/Shoal/SharedTable.h"
#include "tools/shoalctl/Failure.h"
#include "tools/shoalctl/Options.h"
#include "tools/shoalctl/Show.h"
#include "tools/shoalctl/Tables.h"

namespace {

using ShoalCtl::ExitStatus;

ExitStatus run(const ShoalCtl::Options& options) {
  if (options.command == ShoalCtl::Options::Command::tables) {
    ShoalCtl::showTables(options);
  } else {
    ShoalCtl::showEntries(options);
  }
  return ExitStatus::done;
}

ExitStatus fail(ExitStatus status, const char* text) {
  fmt::print(stderr, "shoalctl: {}\n", text);
  return status;
}

ExitStatus runToTheEnd(const ShoalCtl::Options& options) {
  try {
    return run(options);
  } catch (const ShoalCtl::Failure& failure) {
    return fail(failure.status(), failure.what());
  } catch (const Shoal::BusyException& stalled) {
    return fail(ExitStatus::stalled, stalled.what());
  } catch (const Guard::CorruptionDetectedException& corrupt) {
    return fail(ExitStatus::corrupt, corrupt.what());
  } catch (const std::exception& other) {
    return fail(ExitStatus::failed, other.what());
  }
}

}  // namespace

int main(int argc, char** argv) {
  // A reader that has seen enough ends us without a word, also when our parent ignores the signal.
  std::signal(SIGPIPE, SIG_DFL);
  const auto [options, exitStatus] = ShoalCtl::parseOptions(argc, argv);
  if (exitStatus) return *exitStatus;
  ExitStatus status = runToTheEnd(options);
  if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
    status = fail(ExitStatus::failed, std::strerror(errno));
  }
  return static_cast<int>(status);
}
