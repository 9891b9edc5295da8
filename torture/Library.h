// Which build of the platform's library this program runs on. It is linked to one by name only, so
// that the same program can be run over another: one with crash points, one with a planted fault.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "torture/Campaign.h"

namespace Torture {

// The directory of the library that is loaded.
std::filesystem::path libraryDirectory();

// Becomes this program, with these arguments, on the library in `directory`. Returns only if that
// fails, with the reason.
std::string becomeOver(const std::filesystem::path& directory, std::vector<std::string> arguments);

// Runs a campaign in a process of its own on the library in `directory`, and answers with its
// tally.
Tally runOver(const std::filesystem::path& directory, const char* campaign, const Setting& setting);

// A tally as text for another process, and back. Throws std::runtime_error for another text.
std::string textOf(const Tally& tally);
Tally tallyOf(const std::string& text);

}  // namespace Torture
