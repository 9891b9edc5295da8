// Assertions, on in every build type. Two kinds, for programming errors only:
//
//   standardAssert       prints the failed condition in the C library's own form and aborts
//   debugAndThrowAssertException   throws, so that a host with many plug-ins can survive one of
//   them
//
// The host supplies the two out-of-line functions.
#pragma once

#include <sstream>
#include <string>

#include "platform/Guard/Exception.h"

namespace Guard {

// Thrown by debugAndThrowAssertException. what() is the message alone; where it failed stands
// apart.
class AssertException final : public Exception {
 public:
  AssertException(const std::string& message, const char* file, const char* function, int line)
      : Exception(message), file_(file), function_(function), line_(line) {}

  const std::string& file() const { return file_; }
  const std::string& function() const { return function_; }
  int line() const { return line_; }

 private:
  std::string file_;
  std::string function_;
  int line_;
};

namespace Platform {

// Collects the text of an assertion, piece by piece.
class DebugStream {
 public:
  template <class T>
  DebugStream& operator<<(const T& value) {
    text_ << value;
    return *this;
  }
  std::string str() const { return text_.str(); }

 private:
  std::ostringstream text_;
};

}  // namespace Platform

// Writes the message and its place to the debug output, then throws AssertException.
[[noreturn]] void debugAndThrowAssertException(const Platform::DebugStream& message,
                                               const char* file, const char* function, int line);

// Prints "file:line: function: Assertion `condition' failed." on standard error and aborts.
[[noreturn]] void assertionFailed(const char* condition, const char* file, int line,
                                  const char* function);

// The standard assertion. `text` is the condition as it is printed.
// (Not std::source_location: clang 14 has none.)
inline void standardAssert(bool holds, const char* text, const char* file = __builtin_FILE(),
                           int line = __builtin_LINE(),
                           const char* function = __builtin_FUNCTION()) {
  if (!holds) [[unlikely]] {
    assertionFailed(text, file, line, function);
  }
}

}  // namespace Guard
