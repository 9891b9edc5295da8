// The tool's command line.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "tools/common/Output.h"
#include "tools/common/TableCommands.h"

namespace VaneCtl {

struct Options {
  std::filesystem::path socket;
  Tools::OutputOptions output;
  std::string table;
  std::vector<std::string> tables;  // none: all
  std::string key;
  std::vector<std::string> row;      // column=value, or one JSON object
  std::optional<std::string> after;  // a key
  std::optional<uint64_t> limit;
  std::optional<uint64_t> since;  // a change index
  bool snapshot = false;
  bool reconnect = false;
  std::string file;
  bool strict = false;
  std::string level;
};

// A command: writes what was asked for. Throws Failure.
using Command = Tools::TableCommands<Options>::Command;

// The command that the line asks for, and its options; null if there is nothing left to do.
Command parseOptions(Tools::CommandLine& line, Options& options, int argc, char** argv);

// What the tool is, for its help and its manual.
Tools::About about();

}  // namespace VaneCtl
