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
    // What keeps the agent from starting, or ends it, is for whoever started it; it is told without
    // memory, which may be just what there is none of.
    std::fprintf(stderr, "p4rt-agent: %s\n", failure.what());
    return 1;
  }
}
