// The second process: it knows the model, reads the shared tables without the agent's help, and
// compares every entry. Meanwhile it follows the tables' changes.
//
// Commands on standard input, one answer each on standard output:
//
//   verify N    compares every entry with what holds after stage N, and accounts for the changes;
//               answers {"tables": [{...}, ...], "wrong": ["...", ...]}, "wrong" being empty if all
//               is right
#pragma once

#include <filesystem>

#include "tools/routing-demo/Model.h"

namespace Demo {

// Attaches, writes "ready", and serves commands until standard input ends. Returns the exit status.
int runReader(const Model& model, const std::filesystem::path& root);

}  // namespace Demo
