// The main job from end to end: an agent that is fed through a pipe, a second process that reads
// the shared tables back, and the books of both compared.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "tools/routing-demo/Model.h"

namespace Demo {

struct DemoOptions {
  ModelSettings model;
  std::filesystem::path root;  // of the shared tables; empty: a fresh one that goes with the demo
  std::string agent;           // the program
  std::optional<std::string> plugin;  // as the agent's option
  std::string onExit = "detach";      // or "empty"
  bool once = false;
  bool rowsOnly = false;  // nothing through P4Runtime
  bool quiet = false;     // only the verdict
};

// Returns the exit status: 0 if all is right.
int runDemo(const DemoOptions& options);

}  // namespace Demo
