#include "tools/common/Exit.h"

#include <fmt/format.h>
#include <sys/time.h>
#include <unistd.h>

#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>

namespace Tools {
namespace {

const char* alarmedTool = "";

void write(const char* text) {
  // Nobody is left to tell that this could not be written.
  [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, text, std::strlen(text));
}

// Only what a signal handler may call.
extern "C" void onAlarm(int) {
  write(alarmedTool);
  write(": timed out\n");
  ::_exit(static_cast<int>(ExitCode::timedOut));
}

}  // namespace

void complain(std::string_view tool, std::string_view text) {
  while (text.ends_with('\n')) text.remove_suffix(1);
  std::string line;
  for (const char c : text) c == '\n' ? line += "; " : line += c;
  fmt::print(stderr, "{}: {}\n", tool, line);
}

int runTool(std::string_view tool, const std::function<void()>& work) {
  std::signal(SIGPIPE, SIG_DFL);
  ExitCode code = ExitCode::done;
  try {
    work();
  } catch (const Failure& failure) {
    complain(tool, failure.what());
    code = failure.code();
  } catch (const std::exception& other) {
    complain(tool, other.what());
    code = ExitCode::failed;
  }
  return static_cast<int>(code);
}

void endAfter(double seconds, const char* tool) {
  alarmedTool = tool;
  std::signal(SIGALRM, onAlarm);
  double whole = 0;
  const double part = std::modf(seconds, &whole);
  itimerval timer{};
  timer.it_value.tv_sec = static_cast<time_t>(whole);
  // A timer of nothing would be none.
  timer.it_value.tv_usec = std::max<suseconds_t>(static_cast<suseconds_t>(part * 1e6), 1);
  ::setitimer(ITIMER_REAL, &timer, nullptr);
}

}  // namespace Tools
