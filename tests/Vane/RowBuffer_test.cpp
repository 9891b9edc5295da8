#include "Vane/rowBuffer.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "platform/Vane/VaExceptions.h"

namespace Vane {
namespace {

TEST(RowBuffer, IsZeroFilledAndExactlyAsLongAsAsked) {
  const VaRowBuf buffer(64);
  EXPECT_EQ(buffer.length(), 64);
  EXPECT_TRUE(std::all_of(buffer.data(), buffer.data() + 64, [](uint8_t b) { return b == 0; }));
}

TEST(RowBuffer, CopiesItsSource) {
  uint8_t source[] = {1, 2, 3};
  const VaRowBuf buffer(source, 3);
  source[0] = 9;
  EXPECT_EQ(buffer.length(), 3);
  EXPECT_TRUE(std::equal(buffer.data(), buffer.data() + 3, std::begin({1, 2, 3})));
}

TEST(RowBuffer, MayBeEmpty) {
  EXPECT_EQ(VaRowBuf(0).length(), 0);
  EXPECT_EQ(VaRowBuf(nullptr, 0).length(), 0);
}

TEST(RowBuffer, ResizingKeepsTheLeadingBytesAndZeroesTheNewOnes) {
  const uint8_t source[] = {1, 2, 3};
  VaRowBuf buffer(source, 3);
  const uint8_t* const moved = buffer.resize(6);
  EXPECT_EQ(moved, buffer.data());
  EXPECT_EQ(buffer.length(), 6);
  EXPECT_TRUE(std::equal(buffer.data(), buffer.data() + 6, std::begin({1, 2, 3, 0, 0, 0})));
  buffer.resize(2);
  EXPECT_EQ(buffer.length(), 2);
  EXPECT_TRUE(std::equal(buffer.data(), buffer.data() + 2, std::begin({1, 2})));
}

TEST(RowBuffer, ResizesToTheMaximumRowLength) {
  VaRowBuf buffer(4);
  uint8_t* const data = buffer.resize(65535);
  EXPECT_EQ(buffer.length(), 65535);
  data[65534] = 1;
}

TEST(RowBuffer, ResizesToNothingAndBack) {
  VaRowBuf buffer(4);
  buffer.resize(0);
  EXPECT_EQ(buffer.length(), 0);
  EXPECT_EQ(buffer.resize(8)[7], 0);
  EXPECT_EQ(buffer.length(), 8);
}

TEST(RowBuffer, RefusesToGrowBeyondTheMaximumRowLengthAndStaysAsItWas) {
  const uint8_t source[] = {1, 2, 3};
  VaRowBuf buffer(source, 3);
  for (const uint32_t wanted : {65536u, 131072u, 0xFFFFFFFFu}) {
    try {
      buffer.resize(wanted);
      FAIL() << wanted;
    } catch (const VaOutOfRange& e) {
      EXPECT_EQ(e.message(), "resizing row to len " + std::to_string(wanted) +
                                 " bytes exceeds maximum row length of 65535 bytes");
    }
    EXPECT_EQ(buffer.length(), 3);
    EXPECT_EQ(buffer.data()[2], 3);
  }
}

}  // namespace
}  // namespace Vane
