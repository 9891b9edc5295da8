// Level-filtered trace output, the dual log and the ring-buffer log.
//
// A trace handle has a name and a set of levels that are switched on; a message at a level that is
// off costs one test. A line of the trace output is
//
//   2026-11-21 09:45:44.000123 P4RuntimeRoutingVane/9 P4RuntimePlugin/Routing:87 the message
//
// in UTC. Everything here may be called from any thread. Logging never throws or ends the process:
// a message that cannot be written is dropped.
//
// The dual log writes one record to the trace output and to the log kept in
// memory. The ring log keeps the latest messages of the process in a fixed buffer, to be dumped
// when something went wrong; its messages are a format text and unformatted arguments, so that
// logging stays cheap.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>

namespace Trace {

// Where a message comes from: a source path without extension, and a line.
struct Location {
  const char* path;
  int line;
};

class Handle {
 public:
  explicit Handle(std::string name) : name_(std::move(name)) {}
  const std::string& name() const { return name_; }
  bool enabled(uint8_t level) const {
    return level < 32 && ((levels_.load(std::memory_order_relaxed) >> level) & 1u) != 0;
  }
  void levelIs(uint8_t level, bool on) {
    const uint32_t bit = level < 32 ? 1u << level : 0u;
    if (on) {
      levels_.fetch_or(bit, std::memory_order_relaxed);
    } else {
      levels_.fetch_and(~bit, std::memory_order_relaxed);
    }
  }

 private:
  std::string name_;
  std::atomic<uint32_t> levels_{0};  // bit n: level n is on
};

// The process's handle of this name, made on first use; it lives until the process ends. Its levels
// start as the TRACE environment variable says: "NAME/LEVELS" pairs separated by commas, LEVELS
// being digits or '*', for example TRACE=P4RuntimeRoutingVane/49.
Handle& handle(const std::string& name);

// Writes the message if the handle's level is on.
void trace(const Handle& handle, uint8_t level, Location where, std::string_view message);

// Where trace messages go; standard error unless set. Null restores that.
void outputIs(std::ostream* out);

}  // namespace Trace

namespace DualLog {

// Writes the message to the trace output and keeps it in the ring log. The caller has tested the
// level.
void trace(const Trace::Handle& handle, uint8_t level, Trace::Location where,
           std::string_view message);

}  // namespace DualLog

namespace RingLog {

// How many messages are held, and how much of a place and of a text each keeps, in bytes.
inline constexpr size_t capacity = 4096;
inline constexpr size_t pathCapacity = 80;
inline constexpr size_t formatCapacity = 152;

// Appends one message, over the oldest when the log is full. `format` holds one %s for each letter
// of `arguments`; 'i' is a 64-bit integer, which is all that is in use.
void log(Trace::Location where, std::string_view format, std::string_view arguments, int64_t value);

// Writes the messages still held, oldest first, one a line: time, place, text.
void dump(std::ostream& out);

}  // namespace RingLog
