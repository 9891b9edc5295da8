// The recording platform's small rooms: assertions, logs, and the values that rows print.
#include <map>
#include <memory>

#include "platform/Guard/Assert.h"
#include "platform/Trace/Trace.h"
#include "platform/Wire/Address.h"
#include "tests/recording-platform/Recorder.h"

namespace {

std::string place(Trace::Location where) {
  return std::string(where.path) + ":" + std::to_string(where.line);
}

std::string traced(const Trace::Handle& handle, uint8_t level, Trace::Location where,
                   std::string_view message) {
  return handle.name() + "/" + std::to_string(level) + " " + place(where) + " " +
         std::string(message);
}

}  // namespace

namespace Guard {

void debugAndThrowAssertException(const Platform::DebugStream& message, const char* file,
                                  const char* function, int line) {
  Recording::event("assertion " + message.str());
  throw AssertException(message.str(), file, function, line);
}

void assertionFailed(const char* condition, const char* file, int line, const char* function) {
  Recording::event(std::string("standard assertion ") + condition);
  throw Recording::AssertionFailed{condition, file, line, function};
}

}  // namespace Guard

namespace Trace {

Handle& handle(const std::string& name) {
  static auto& handles = *new std::map<std::string, std::unique_ptr<Handle>>;
  auto& place = handles[name];
  if (!place) place = std::make_unique<Handle>(name);
  Recording::Recorder::instance().traceHandles.push_back(name);
  return *place;
}

void trace(const Handle& handle, uint8_t level, Location where, std::string_view message) {
  Recording::event("trace " + traced(handle, level, where, message));
}

}  // namespace Trace

namespace DualLog {

void trace(const Trace::Handle& handle, uint8_t level, Trace::Location where,
           std::string_view message) {
  Recording::event("dual log " + traced(handle, level, where, message));
}

}  // namespace DualLog

namespace RingLog {

void log(Trace::Location where, std::string_view format, std::string_view arguments,
         int64_t value) {
  Recording::event("ring log " + place(where) + " " + std::string(format) + " (" +
                   std::string(arguments) + ": " + std::to_string(value) + ")");
}

}  // namespace RingLog

// No test here prints a row or hashes an address; the row types refer to these all the same.
namespace Wire {

uint32_t Ip6Addr::hash() const { return bytes[15]; }
uint32_t IpGenPrefix::ip4HostOrder() const { return bytes[3]; }
std::string IpGenAddr::text() const { return "address"; }
std::string IpGenPrefix::text() const { return "prefix"; }
std::string EthAddr::text() const { return "mac"; }

}  // namespace Wire
