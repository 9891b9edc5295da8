// The agent's command line.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "agent/Log.h"

namespace Agent {

// What becomes of the tables when the agent ends.
enum class OnExit : uint8_t {
  keep,    // they stay as they are: the next agent, and readers meanwhile, find every entry
  empty,   // the plug-ins empty them
  detach,  // the plug-ins empty them and give them up for good
};

struct Options {
  std::vector<std::filesystem::path> plugins;
  std::filesystem::path shoalRoot;
  std::map<std::string, uint32_t> capacities;  // by table path
  std::optional<uint32_t> defaultCapacity;
  OnExit onExit = OnExit::keep;
  std::optional<std::string> load;
  std::vector<std::string> prefixes;
  bool strict = false;
  bool once = false;
  bool status = false;
  bool follow = false;
  LogLevel logLevel = LogLevel::info;
};

// The options of a command line, or the exit status with which to end at once (help, wrong usage),
// with everything said.
struct ParsedOptions {
  Options options;
  std::optional<int> exitStatus;
};
ParsedOptions parseOptions(int argc, char** argv);

}  // namespace Agent
