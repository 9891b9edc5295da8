#include "platform/Shoal/Words.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>

namespace Shoal {
namespace {

constexpr size_t most = 100;
constexpr std::byte untouched{0xA5};
// Where in the shared memory the bytes begin: at words, which need not be at a multiple of a move.
constexpr std::array<size_t, 4> places{0, sizeof(Word), 8, 24};

using Room = std::array<std::byte, most + 64>;

std::byte number(size_t at) { return static_cast<std::byte>(at + 1); }

Room filledWith(std::byte byte) {
  Room room;
  room.fill(byte);
  return room;
}

TEST(Words, OfAnyNumberOfBytesAreCopiedOutAndNothingBehindThem) {
  alignas(16) Room shared;
  for (size_t i = 0; i < shared.size(); ++i) shared[i] = number(i);
  for (const size_t place : places) {
    for (size_t size = 0; size <= most; ++size) {
      Room expected = filledWith(untouched);
      for (size_t i = 0; i < size; ++i) expected[i] = number(place + i);
      Room out = filledWith(untouched);
      copyOut(out.data(), shared.data() + place, size);
      EXPECT_EQ(out, expected) << size << " bytes from " << place;
    }
  }
}

TEST(Words, OfAnyNumberOfBytesAreCopiedInAndTheLastIsFilledUpWithZeros) {
  Room from;
  for (size_t i = 0; i < from.size(); ++i) from[i] = number(i);
  for (const size_t place : places) {
    for (size_t size = 0; size <= most; ++size) {
      alignas(16) Room expected = filledWith(untouched);
      const size_t padded = (size + sizeof(Word) - 1) / sizeof(Word) * sizeof(Word);
      for (size_t i = 0; i < padded; ++i) {
        expected[place + i] = i < size ? number(i) : std::byte{0};
      }
      alignas(16) Room shared = filledWith(untouched);
      copyIn(shared.data() + place, from.data(), size);
      EXPECT_EQ(shared, expected) << size << " bytes to " << place;
    }
  }
}

TEST(Words, OfAnyNumberOfBytesDifferWhereOneByteDoes) {
  alignas(16) Room shared = filledWith(untouched);
  for (size_t size = 1; size <= 40; ++size) {
    Room bytes = filledWith(untouched);
    bytes[size] = std::byte{0};  // behind them
    EXPECT_TRUE(isSame(shared.data(), bytes.data(), size)) << size << " bytes";
    for (size_t at = 0; at < size; ++at) {
      bytes[at] = std::byte{0};
      EXPECT_FALSE(isSame(shared.data(), bytes.data(), size)) << size << " bytes, at " << at;
      bytes[at] = untouched;
    }
  }
}

}  // namespace
}  // namespace Shoal
