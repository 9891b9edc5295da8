// The tool's command line.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace ShoalCtl {

struct Options {
  enum class Command { tables, show };

  Command command = Command::tables;
  std::filesystem::path root;
  bool json = false;
  std::string table;
  std::optional<std::string> key;
};

// The options of a command line, or the exit status with which to end at once, with everything
// said.
struct ParsedOptions {
  Options options;
  std::optional<int> exitStatus;
};
ParsedOptions parseOptions(int argc, char** argv);

}  // namespace ShoalCtl
