// The agent's own P4Info: what its tables, actions and action profile look like to controllers.
#pragma once

#include <string>

#include "agent/p4/Roles.h"
#include "p4/config/v1/p4info.pb.h"

namespace Agent::P4 {

p4::config::v1::P4Info makeP4Info(const Roles& roles);

// In protobuf's text format, as controllers and compilers read it.
std::string p4InfoText(const Roles& roles);

}  // namespace Agent::P4
