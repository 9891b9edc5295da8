// Each allocation of an action fails once: what it throws, what it leaves behind, what it leaks.
//
// A program that links FailingAllocator.cpp has its own malloc, calloc, realloc and free before the
// C library's. operator new uses them too. A sanitizer brings its own allocator; there nothing is
// counted, nothing fails, and the tests are skipped.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <new>
#include <string>
#include <vector>

#include "platform/Guard/Exception.h"

namespace FailingAllocator {

extern const bool isOurs;

// Of the calling thread.
extern constinit thread_local int allocationsUntilFailure;  // 0: none is to fail
extern constinit thread_local long liveBlocks;
extern constinit thread_local int callocCalls;
extern constinit thread_local int reallocCalls;

constexpr auto badAlloc = "std::bad_alloc";

class Test : public testing::Test {
 protected:
  void SetUp() override {
    if (!isOurs) GTEST_SKIP() << "the allocator is the sanitizer's";
  }
};

// Runs `action` with its first allocation failing, then its second, until it succeeds. `unchanged`
// looks at what a failure left behind. Returns the errors in order.
std::vector<std::string> failEach(auto&& action, auto&& unchanged) {
  constexpr int tooMany = 100;
  std::vector<std::string> errors;
  for (int nth = 1;; ++nth) {
    char error[200] = "";  // on the stack: what is counted here is the action's alone
    const long before = liveBlocks;
    allocationsUntilFailure = nth;
    try {
      action();
    } catch (const Guard::MemoryResourceException& e) {
      std::snprintf(error, sizeof(error), "%s", e.what());
    } catch (const std::bad_alloc& e) {
      std::snprintf(error, sizeof(error), "%s", e.what());
    }
    const bool succeeded = allocationsUntilFailure > 0;
    allocationsUntilFailure = 0;
    if (succeeded) return errors;
    EXPECT_EQ(liveBlocks, before) << "leak after failure " << nth;
    unchanged();
    errors.emplace_back(error);
    if (nth == tooMany) {
      ADD_FAILURE() << "still failing";
      return errors;
    }
  }
}

}  // namespace FailingAllocator
