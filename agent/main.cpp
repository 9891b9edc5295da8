#include <exception>

#include "agent/Agent.h"
#include "agent/Log.h"
#include "agent/Options.h"
#include "agent/Services.h"

int main(int argc, char** argv) {
  try {
    auto [options, exitStatus] = Agent::parseOptions(argc, argv);
    if (exitStatus) return *exitStatus;
    auto services = Agent::makeServices(options);
    return Agent::P4rtAgent(std::move(options), std::move(services)).run();
  } catch (const std::exception& failure) {
    Agent::Log::error("{}", failure.what());
    return 1;
  }
}
