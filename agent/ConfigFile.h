// The agent's configuration file: TOML, each option of the command line a key without its dashes.
//
//   shoal-root = "/dev/shm/switch"
//   listen = ["127.0.0.1:9559", "[::1]:9559"]
//   strict = true
//   [capacity]
//   VaneIpv4Override = 2097152
#pragma once

#include <CLI/CLI.hpp>
#include <filesystem>

namespace Agent {

// Gives the options their values from the file, unless the command line has done so. Throws
// CLI::ValidationError for a file that cannot be read, a key that is no option, or a value that the
// option cannot have; with the line.
void applyConfigFile(const std::filesystem::path& file, CLI::App& app);

}  // namespace Agent
