#include "agent/rows/Refusal.h"

#include <algorithm>
#include <array>
#include <new>

#include "agent/Command.h"
#include "platform/Guard/Exception.h"
#include "platform/Vane/VaExceptions.h"

namespace Agent::Rows {

using grpc::StatusCode;

grpc::Status statusOfFailure() {
  const auto as = [](StatusCode code, const std::exception& failure) {
    return grpc::Status(code, failure.what());
  };
  try {
    throw;
  } catch (const Refusal& refusal) {
    return as(refusal.code(), refusal);
  } catch (const BadLine& bad) {
    return as(StatusCode::INVALID_ARGUMENT, bad);
  } catch (const Guard::RangeException& bad) {
    return as(StatusCode::INVALID_ARGUMENT, bad);
  } catch (const Vane::VaOutOfRange& bad) {
    return as(StatusCode::INVALID_ARGUMENT, bad);
  } catch (const Guard::MemoryResourceException& full) {
    return as(StatusCode::RESOURCE_EXHAUSTED, full);
  } catch (const std::bad_alloc&) {
    return {StatusCode::RESOURCE_EXHAUSTED, "out of memory"};
  } catch (const Guard::CorruptionDetectedException& corrupt) {
    return as(StatusCode::DATA_LOSS, corrupt);
  } catch (const Vane::VaNotSupported& refused) {
    return as(StatusCode::FAILED_PRECONDITION, refused);
  } catch (const std::exception& other) {
    return as(StatusCode::INTERNAL, other);
  }
}

grpc::Status statusOf(const std::function<void()>& work) {
  try {
    work();
    return grpc::Status::OK;
  } catch (...) {
    return statusOfFailure();
  }
}

std::string_view nameOf(StatusCode code) {
  constexpr std::array<std::string_view, 17> names{"OK",
                                                   "CANCELLED",
                                                   "UNKNOWN",
                                                   "INVALID_ARGUMENT",
                                                   "DEADLINE_EXCEEDED",
                                                   "NOT_FOUND",
                                                   "ALREADY_EXISTS",
                                                   "PERMISSION_DENIED",
                                                   "RESOURCE_EXHAUSTED",
                                                   "FAILED_PRECONDITION",
                                                   "ABORTED",
                                                   "OUT_OF_RANGE",
                                                   "UNIMPLEMENTED",
                                                   "INTERNAL",
                                                   "UNAVAILABLE",
                                                   "DATA_LOSS",
                                                   "UNAUTHENTICATED"};
  const auto at = static_cast<size_t>(code);
  return at < names.size() ? names[at] : "UNKNOWN";
}

std::string asciiOf(std::string text) {
  std::ranges::replace_if(
      text, [](char c) { return static_cast<unsigned char>(c) >= 0x80; }, '?');
  return text;
}

void refuseUnless(const grpc::Status& status) {
  if (!status.ok()) throw Refusal(status.error_code(), status.error_message());
}

void onLoop(LoopGate& gate, LoopGate::Deadline deadline, const std::function<void()>& work) {
  switch (gate.run(work, deadline)) {
    case LoopGate::Outcome::done:
      return;
    case LoopGate::Outcome::full:
      throw Refusal(StatusCode::RESOURCE_EXHAUSTED, "too many calls are waiting for the agent");
    case LoopGate::Outcome::late:
      throw Refusal(StatusCode::DEADLINE_EXCEEDED, "the agent did not come to it in time");
    case LoopGate::Outcome::closed:
      throw Refusal(StatusCode::UNAVAILABLE, "the agent is ending");
  }
}

}  // namespace Agent::Rows
