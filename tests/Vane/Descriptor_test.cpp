// Recording where a body lies.
#include <gtest/gtest.h>

#include "tests/Vane/Rows.h"

namespace Vane::Test {
namespace {

TEST(Descriptor, RecordsOffsetAndLengthAndThatItWasWritten) {
  BaseRow row(12);
  row.updateVCT(4, 8, 3);
  EXPECT_EQ(hex(row), "0c 00 00 00 08 00 03 80 00 00 00 00");
}

TEST(Descriptor, OfAReadOnlyRowIsNotRecorded) {
  BaseRow row(12);
  row.readOnlyIs(true);
  expectThrows<VaPermissionViolation>([&] { row.updateVCT(4, 8, 3); }, readOnly);
  EXPECT_EQ(hex(row), "0c 00 00 00 00 00 00 00 00 00 00 00");
}

}  // namespace
}  // namespace Vane::Test
