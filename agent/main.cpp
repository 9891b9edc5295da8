#include <fmt/format.h>

#include <cstdio>
#include <exception>

#include "agent/Agent.h"
#include "agent/Options.h"
#include "agent/Services.h"

int main(int argc, char** argv) {
  try {
    auto [options, exitStatus] = Agent::parseOptions(argc, argv);
    if (exitStatus) return *exitStatus;
    auto services = Agent::makeServices(options);
    return Agent::P4rtAgent(std::move(options), std::move(services)).run();
  } catch (const std::exception& failure) {
    // What keeps the agent from starting, or ends it, is for whoever started it.
    fmt::print(stderr, "p4rt-agent: {}\n", failure.what());
    return 1;
  }
}
