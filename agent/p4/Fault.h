// What is wrong with an update, a query or a whole request: a canonical code, and a text for
// people.
#pragma once

#include <fmt/format.h>
#include <grpcpp/support/status.h>

#include <string>
#include <utility>

#include "p4/v1/p4runtime.pb.h"
#include "platform/Guard/Exception.h"

namespace Agent::P4 {

class Fault final : public Guard::Exception {
 public:
  Fault(grpc::StatusCode code, const std::string& text) : Exception(text), code_(code) {}
  grpc::StatusCode code() const { return code_; }
  grpc::Status status() const { return {code_, what()}; }

 private:
  grpc::StatusCode code_;
};

template <class... Args>
[[noreturn]] void fail(grpc::StatusCode code, fmt::format_string<Args...> text, Args&&... args) {
  throw Fault(code, fmt::format(text, std::forward<Args>(args)...));
}
template <class... Args>
[[noreturn]] void invalid(fmt::format_string<Args...> text, Args&&... args) {
  throw Fault(grpc::StatusCode::INVALID_ARGUMENT, fmt::format(text, std::forward<Args>(args)...));
}

// Runs `work`; a fault that leaves it says first where it was: what `where` returns.
template <class Where, class Work>
decltype(auto) within(const Where& where, const Work& work) {
  try {
    return work();
  } catch (const Fault& fault) {
    throw Fault(fault.code(), where() + ": " + fault.what());
  }
}

// The fault for the exception that is being handled: a full table or memory, a corrupt one, or a
// fault already. Anything else is our own failure.
Fault currentFault();

inline p4::v1::Error errorOf(const Fault& fault) {
  p4::v1::Error error;
  error.set_canonical_code(fault.code());
  error.set_message(fault.what());
  return error;
}

}  // namespace Agent::P4
