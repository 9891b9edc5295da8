// The root of every exception in the system.
//
// Each class carries one finished text and has a static throwException(text), so that a throw is
// one call, out of line, and can be searched for by its class name.
#pragma once

#include <stdexcept>
#include <string>

namespace Guard {

class Exception : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
  std::string message() const { return what(); }
};

// Gives an exception class its throwException(). Self is the class that is thrown.
template <class Self, class Base = Exception>
class Throwable : public Base {
 public:
  using Base::Base;
  [[noreturn]] static void throwException(const std::string& message) { throw Self(message); }
};

// The allocator, the address space or the memory file system has no room.
class MemoryResourceException final : public Throwable<MemoryResourceException> {
 public:
  using Throwable::Throwable;
};

// Shared memory holds something that no correct writer leaves there, or could not be read
// consistently within the reader's bound.
class CorruptionDetectedException : public Throwable<CorruptionDetectedException> {
 public:
  using Throwable::Throwable;
};

// A value outside the range of its type in the entity system (an index past its last slot, say).
class RangeException final : public Throwable<RangeException> {
 public:
  using Throwable::Throwable;
};

}  // namespace Guard
