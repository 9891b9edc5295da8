#include <malloc.h>

#include <cstdio>
#include <exception>

#include "agent/Agent.h"
#include "agent/Options.h"
#include "agent/Services.h"
#include "platform/Hub/ReferenceHub.h"

namespace {

// A batch's memory is wanted again by the next one: it is not given back to the kernel, and asked
// for page by page, for each.
void keepMemoryOfBatches() {
  constexpr int bytes = 4 << 20;  // of each of the allocator's arenas
  ::mallopt(M_TRIM_THRESHOLD, bytes);
  ::mallopt(M_MMAP_THRESHOLD, bytes / 4);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    Hub::endWhenCutShort("p4rt-agent", 1);
    keepMemoryOfBatches();
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
