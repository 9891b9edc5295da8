// The tables below a root: by path, by the last part of it, and by the name that the row database
// gives them.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "tools/common/Exit.h"

namespace ShoalCtl {

// The paths of the tables below the root, sorted. Throws Failure if there are none.
std::vector<std::string> tablePaths(const std::filesystem::path& root);

// "p4runtime/outputTables/routing/ipv4OverrideTable" is published as "VaneIpv4Override".
std::string rowDatabaseName(const std::string& path);

// The path of the table that `text` names: its path, the last part of that, or its row-database
// name. Throws Failure with the nearest name for an unknown one.
std::string findTable(const std::filesystem::path& root, const std::string& text);

// Why a file or directory that is there, or is not, cannot be used.
Tools::ExitCode refusal(const std::filesystem::path& file);

}  // namespace ShoalCtl
