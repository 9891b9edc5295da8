// How the tool ends when it cannot do what was asked.
#pragma once

#include <stdexcept>
#include <string>

namespace ShoalCtl {

// Part of the tool's interface; docs/operations.md lists them.
enum class ExitStatus : int {
  done = 0,
  failed = 1,
  usage = 2,
  absent = 3,      // no such root, table or key
  permission = 4,  // not ours to read
  refused = 5,     // another version, another layout, or no table at all
  corrupt = 6,
  stalled = 8,  // an entry is held by a writer that does not finish it
};

class Failure final : public std::runtime_error {
 public:
  Failure(ExitStatus status, const std::string& text) : std::runtime_error(text), status_(status) {}
  ExitStatus status() const { return status_; }

 private:
  ExitStatus status_;
};

}  // namespace ShoalCtl
