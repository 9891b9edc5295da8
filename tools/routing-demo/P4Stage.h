// A part of the input through P4Runtime: a client in a process of its own programs it, reads it
// back and deletes it again, and this process finds it in shared memory meanwhile.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "tools/routing-demo/Model.h"
#include "tools/routing-demo/Report.h"

namespace Demo {

class P4Stage {
 public:
  // `runDirectory`: the agent's, where it says at which address it listens.
  P4Stage(const Model& model, std::filesystem::path root, const std::filesystem::path& runDirectory,
          Report& report);

  void run();
  const std::string& address() const { return address_; }

 private:
  // Runs the client's command over the routes.
  void client(const std::string& what, const char* command, uint64_t expected);
  // Looks every route up in shared memory.
  void expectShared(bool there);
  std::filesystem::path root_;
  std::string address_;
  Report& report_;
  std::vector<Wire::IpGenPrefix> routes_;
};

}  // namespace Demo
