#include "platform/Guard/Assert.h"

#include <gtest/gtest.h>

namespace Guard {
namespace {

TEST(ThrowingAssertion, CarriesMessageFileFunctionAndLine) {
  Platform::DebugStream message;
  message << "found " << 3 << " of " << 4u;
  testing::internal::CaptureStderr();
  try {
    debugAndThrowAssertException(message, "Vane/baseRow", "clear", 42);
  } catch (const AssertException& e) {
    EXPECT_EQ(e.message(), "found 3 of 4");
    EXPECT_STREQ(e.what(), "found 3 of 4");
    EXPECT_EQ(e.file(), "Vane/baseRow");
    EXPECT_EQ(e.function(), "clear");
    EXPECT_EQ(e.line(), 42);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Vane/baseRow:42: clear: found 3 of 4\n");
    return;
  }
  FAIL() << "did not throw";
}

TEST(ThrowingAssertion, IsAnExceptionOfTheSystem) {
  EXPECT_THROW(debugAndThrowAssertException({}, "f", "g", 1), Exception);
}

TEST(StandardAssertion, ThatHoldsDoesNothing) { standardAssert(true, "true"); }

void failHere() { standardAssert(false, "fdLen != 0"); }

TEST(StandardAssertionDeathTest, AbortsWithItsPlaceAndItsCondition) {
  EXPECT_EXIT(failHere(), testing::KilledBySignal(SIGABRT),
              "Assert_test\\.cpp:[0-9]+: .*failHere.*: Assertion `fdLen != 0' failed\\.\n");
}

TEST(StandardAssertionDeathTest, MayNameAnotherPlace) {
  EXPECT_EXIT(assertionFailed("0", "Vane/baseRow", 7, "vcd"), testing::KilledBySignal(SIGABRT),
              "Vane/baseRow:7: vcd: Assertion `0' failed\\.\n");
}

template <class Thrown>
void expectThrowsItself() {
  try {
    Thrown::throwException("what happened");
  } catch (const Thrown& e) {
    EXPECT_EQ(e.message(), "what happened");
    EXPECT_TRUE(dynamic_cast<const Exception*>(&e) != nullptr);
    return;
  }
  FAIL() << "did not throw";
}

TEST(Exceptions, EachClassThrowsItselfWithTheText) {
  expectThrowsItself<MemoryResourceException>();
  expectThrowsItself<CorruptionDetectedException>();
  expectThrowsItself<RangeException>();
}

}  // namespace
}  // namespace Guard
