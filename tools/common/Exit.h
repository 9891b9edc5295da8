// How a tool ends: its exit status, and the failure that carries one to the end of the program.
#pragma once

#include <array>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace Tools {

// Part of the tools' interface: scripts look at them.
enum class ExitCode : int {
  done = 0,
  failed = 1,      // for a reason that has no status of its own
  usage = 2,       // a command line, or a value in it, that cannot be meant
  absent = 3,      // what was named is not there
  permission = 4,  // not ours to read or to write
  refused = 5,     // another version, another layout, or something else altogether
  corrupt = 6,
  timedOut = 7,
  stalled = 8,  // there is no writer, or it does not go on
};

struct ExitMeaning {
  ExitCode code;
  std::string_view text;  // for manuals
};
inline constexpr std::array<ExitMeaning, 9> exitMeanings{{
    {ExitCode::done, "done"},
    {ExitCode::failed, "failed for a reason that has no status of its own"},
    {ExitCode::usage, "wrong usage, or a value that cannot be one"},
    {ExitCode::absent, "what was named is not there"},
    {ExitCode::permission, "not permitted"},
    {ExitCode::refused, "refused: another version, another layout, or no table at all"},
    {ExitCode::corrupt, "corrupt, or cut short while it was attached"},
    {ExitCode::timedOut, "timed out"},
    {ExitCode::stalled, "the writer is absent or stalled"},
}};

class Failure final : public std::runtime_error {
 public:
  Failure(ExitCode code, const std::string& text) : std::runtime_error(text), code_(code) {}
  ExitCode code() const { return code_; }

 private:
  ExitCode code_;
};

// One line on standard error: "TOOL: TEXT". Line breaks in the text become "; ".
void complain(std::string_view tool, std::string_view text);

// Runs a tool's work and gives its exit status. A Failure is told in one line and gives its code;
// any other exception is told likewise and is `failed`. A reader that has seen enough (SIGPIPE)
// ends the process without a word, also when its parent ignores that signal; so does Ctrl-C, which
// is left alone.
int runTool(std::string_view tool, const std::function<void()>& work);

// Ends the process with `timedOut` and a line on standard error when so many seconds have passed,
// whatever it is doing then: waiting, working, or writing to a reader that does not read.
// `tool` must outlive the process's work. requires: called once.
void endAfter(double seconds, const char* tool);

}  // namespace Tools
