// A P4Info that the agent can realise, and what it allows: a part of the agent's own, with the same
// ids, widths and kinds, and with sizes of its own up to the agent's.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "agent/p4/Roles.h"
#include "p4/v1/p4runtime.pb.h"

namespace Agent::P4 {

struct Pipeline {
  // What a P4 table, or the profile, may be used for.
  struct Part {
    bool isOffered = false;
    bool hasAction = false;    // entries can be written
    bool hasNoAction = false;  // NoAction is one of its actions, if for default entries only
    uint64_t size = 0;
  };

  p4::v1::ForwardingPipelineConfig config;  // as it came
  uint64_t number = 0;                      // genId of what is written under it
  std::vector<Part> parts;                  // by role; the profile's for members and groups
  uint32_t maxGroupSize = 0;
  bool areWeightsDisallowed = false;

  const Part& part(const Role& role) const { return parts[role.index]; }
};

// Throws an INVALID_ARGUMENT Fault that says which object cannot be realised, and why.
std::shared_ptr<Pipeline> realise(const Roles& roles,
                                  const p4::v1::ForwardingPipelineConfig& config);

}  // namespace Agent::P4
