#include "platform/Trace/Trace.h"

#include <cstdlib>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>

#include "platform/Trace/Timestamp.h"

namespace Trace {
namespace {

// Made on first use and never destroyed: handles are used during static initialisation and
// destruction.
struct State {
  std::mutex mutex;
  std::map<std::string, std::unique_ptr<Handle>> handles;
  std::ostream* out = nullptr;  // null: standard error
};

State& state() {
  static State& instance = *new State;
  return instance;
}

void levelsAre(Handle& handle, std::string_view levels) {
  for (const char c : levels) {
    if (c == '*') {
      for (uint8_t level = 0; level < 32; ++level) handle.levelIs(level, true);
    } else if (c >= '0' && c <= '9') {
      handle.levelIs(static_cast<uint8_t>(c - '0'), true);
    }
  }
}

// `settings` is what TRACE says; a pair of another form is passed over.
void levelsFrom(Handle& handle, std::string_view settings) {
  while (!settings.empty()) {
    const std::string_view pair = settings.substr(0, settings.find(','));
    settings.remove_prefix(std::min(pair.size() + 1, settings.size()));
    const size_t slash = pair.rfind('/');
    if (slash != pair.npos && pair.substr(0, slash) == handle.name()) {
      levelsAre(handle, pair.substr(slash + 1));
    }
  }
}

// Written in one piece, so that lines of two processes on one terminal do not mix.
void write(const Handle& handle, uint8_t level, Location where, std::string_view message) try {
  std::string line(Timestamp::now().text().data());
  line.append(" ").append(handle.name()).append("/").append(std::to_string(level));
  line.append(" ").append(where.path).append(":").append(std::to_string(where.line));
  line.append(" ").append(message).append("\n");
  State& trace = state();
  const std::lock_guard lock(trace.mutex);
  std::ostream& out = trace.out ? *trace.out : std::cerr;
  out.write(line.data(), static_cast<std::streamsize>(line.size())).flush();
} catch (...) {
}

}  // namespace

Handle& handle(const std::string& name) {
  State& trace = state();
  const std::lock_guard lock(trace.mutex);
  std::unique_ptr<Handle>& place = trace.handles[name];
  if (!place) {
    place = std::make_unique<Handle>(name);
    if (const char* settings = std::getenv("TRACE")) levelsFrom(*place, settings);
  }
  return *place;
}

void trace(const Handle& handle, uint8_t level, Location where, std::string_view message) {
  if (handle.enabled(level)) write(handle, level, where, message);
}

void outputIs(std::ostream* out) {
  State& trace = state();
  const std::lock_guard lock(trace.mutex);
  trace.out = out;
}

}  // namespace Trace

namespace DualLog {

void trace(const Trace::Handle& handle, uint8_t level, Trace::Location where,
           std::string_view message) {
  Trace::write(handle, level, where, message);
  RingLog::log(where, message, "", 0);
}

}  // namespace DualLog
