// Each allocation of an action fails, once or with all that come after it: what it throws, what it
// leaves behind, what it leaks.
//
// A program that links FailingAllocator.cpp has its own malloc, calloc, realloc and free before the
// C library's. operator new uses them too. A sanitizer brings its own allocator, and valgrind puts
// one in the place of any: there nothing is counted, nothing fails, and the tests are skipped.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Guard/Exception.h"

namespace FailingAllocator {

// Whether allocations come to us.
extern const bool isOurs;
inline constexpr auto isNotOurs = "the allocator is a sanitizer's, or valgrind's";

// Of the calling thread.
extern constinit thread_local int allocationsUntilFailure;  // 0: none is to fail
extern constinit thread_local bool staysExhausted;          // then all that follow fail, too
extern constinit thread_local long liveBlocks;
extern constinit thread_local size_t longestBlock;  // bytes; of all that were asked for
extern constinit thread_local int callocCalls;
extern constinit thread_local int reallocCalls;

constexpr auto badAlloc = "std::bad_alloc";
constexpr auto otherError = "not of memory: ";

class Test : public testing::Test {
 protected:
  void SetUp() override {
    if (!isOurs) GTEST_SKIP() << isNotOurs;
  }
};

// On the stack: what is counted is the action's memory alone.
struct Error {
  char text[200] = "";  // "" if the action went on without that memory

  bool isOfMemory() const {
    return text[0] != '\0' && !std::string_view(text).starts_with(otherError);
  }
};

enum class Memory { failsOnce, isExhausted };
inline constexpr Memory memories[] = {Memory::failsOnce, Memory::isExhausted};

// Runs `action` with its nth allocation failing. Returns what it threw, or nothing if it took fewer
// allocations.
std::optional<Error> failNth(int nth, Memory memory, auto&& action) {
  Error error;
  bool reached = false;
  const auto end = [&](const char* what, const char* kind = "") {
    reached = allocationsUntilFailure <= 0;
    allocationsUntilFailure = 0;
    std::snprintf(error.text, sizeof(error.text), "%s%s", kind, what);
  };
  allocationsUntilFailure = nth;
  staysExhausted = memory == Memory::isExhausted;
  try {
    action();
    end("");
  } catch (const Guard::MemoryResourceException& e) {
    end(e.what());
  } catch (const std::bad_alloc& e) {
    end(e.what());
  } catch (const std::exception& e) {
    end(e.what(), otherError);
  }
  if (!reached) return std::nullopt;
  return error;
}

// Runs `action` with its first allocation failing, then its second, until it succeeds; `unchanged`
// looks at what a failure left behind. Returns the errors of single failures in order.
std::vector<std::string> failEach(auto&& action, auto&& unchanged) {
  constexpr int tooMany = 100;
  std::vector<std::string> errors;
  for (int nth = 1; nth <= tooMany; ++nth) {
    for (const Memory memory : {Memory::isExhausted, Memory::failsOnce}) {
      const long before = liveBlocks;
      const auto error = failNth(nth, memory, action);
      if (!error) return errors;
      EXPECT_EQ(liveBlocks, before) << "leak after failure " << nth;
      unchanged();
      if (memory == Memory::failsOnce) errors.emplace_back(error->text);
    }
  }
  ADD_FAILURE() << "still failing";
  return errors;
}

}  // namespace FailingAllocator
