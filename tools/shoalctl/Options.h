// The tool's command line.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "tools/common/Output.h"
#include "tools/common/TableCommands.h"

namespace ShoalCtl {

// Which entries `show` shows.
struct Filter {
  std::optional<std::string> prefix;
  bool longer = false;  // also the prefixes inside it
  std::optional<uint32_t> vrf;
  std::optional<int32_t> type;  // of the destination
  std::optional<uint64_t> limit;
  std::optional<std::string> after;  // a key
};

struct WatchOptions {
  std::optional<uint64_t> since;  // a change; none: from now on
  std::optional<uint64_t> limit;  // changes
  bool snapshot = false;
  bool needsWriter = false;
};

struct Options {
  std::filesystem::path root;
  Tools::OutputOptions output;
  std::vector<std::string> tables;  // none: all
  std::string table;
  std::optional<std::string> key;
  Filter filter;
  std::string address;
  WatchOptions watch;
};

// A command: writes what was asked for. Throws Failure.
using Command = Tools::TableCommands<Options>::Command;

// The command that the line asks for, and its options; null if there is nothing left to do.
Command parseOptions(Tools::CommandLine& line, Options& options, int argc, char** argv);

// What the tool is, for its help and its manual.
Tools::About about();

}  // namespace ShoalCtl
