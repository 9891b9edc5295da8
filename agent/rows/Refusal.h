// What a call is answered with when it cannot be done.
#pragma once

#include <grpcpp/support/status.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "agent/LoopGate.h"

namespace Agent::Rows {

// A refusal with its code.
class Refusal final : public std::runtime_error {
 public:
  Refusal(grpc::StatusCode code, const std::string& text) : std::runtime_error(text), code_(code) {}
  grpc::StatusCode code() const { return code_; }

 private:
  grpc::StatusCode code_;
};

// Throws a Refusal with a status that is not OK.
void refuseUnless(const grpc::Status& status);

// The status of the exception that is being handled. requires: called in a handler.
grpc::Status statusOfFailure();

// Does the work and gives OK, or the status of what it throws.
grpc::Status statusOf(const std::function<void()>& work);

// "NOT_FOUND" and so on.
std::string_view nameOf(grpc::StatusCode code);

// The text with '?' for bytes that are no ASCII: a text cut short in the middle of a character
// would not be one that a message can hold.
std::string asciiOf(std::string text);

// Runs the work on the agent's loop. Throws what it throws, and a Refusal if it was not run.
void onLoop(LoopGate& gate, LoopGate::Deadline deadline, const std::function<void()>& work);

}  // namespace Agent::Rows
