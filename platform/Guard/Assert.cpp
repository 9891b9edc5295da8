#include "platform/Guard/Assert.h"

#include <cstdio>
#include <cstdlib>

namespace Guard {

// One line on standard error, without a buffer of its own: what throws here may be short of memory.
void debugAndThrowAssertException(const Platform::DebugStream& message, const char* file,
                                  const char* function, int line) {
  const std::string text = message.str();
  std::fprintf(stderr, "%s:%d: %s: %s\n", file, line, function, text.c_str());
  throw AssertException(text, file, function, line);
}

void assertionFailed(const char* condition, const char* file, int line, const char* function) {
  std::fprintf(stderr, "%s:%d: %s: Assertion `%s' failed.\n", file, line, function, condition);
  std::abort();
}

}  // namespace Guard
