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

// What clients reach over sockets, and within which limits.
struct RemoteOptions {
  std::vector<std::string> listen;  // addresses; empty: none
  bool isListenGiven = false;       // expressly, not by default
  uint64_t deviceId = 1;
  bool ownPipeline = true;  // the agent's own pipeline is in force until a client sets one
  std::filesystem::path tlsCertificate;  // all three, or none
  std::filesystem::path tlsKey;
  std::filesystem::path tlsAuthority;
  bool allowPlaintextRemote = false;
  std::filesystem::path runDir;     // where the agent's sockets and the addresses it listens on are
  std::filesystem::path rowSocket;  // of the row database; empty: none
  bool isRowSocketGiven = false;    // expressly, not by default
  uint32_t watches = 64;
  uint32_t messageMiB = 128;
  uint32_t streamsPerRole = 16;
  uint32_t connections = 64;
  uint32_t calls = 256;
  uint32_t updates = 1'000'000;  // of one write
  uint32_t waiting = 64;         // calls that wait for the tables
  uint32_t callSeconds = 60;
  uint32_t keepAliveSeconds = 60;
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
  bool printP4Info = false;
  RemoteOptions remote;
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
