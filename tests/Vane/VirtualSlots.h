// The order of virtual operations is a binary interface: the place of one in its class's table.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace Vane::Test {

// In the Itanium C++ ABI a pointer to a virtual member starts with one more than the member's
// offset in the table, in bytes. ABIs for ARM and MIPS keep the bit that says "virtual" elsewhere.
#if defined(__arm__) || defined(__aarch64__) || defined(__mips__)
inline constexpr bool virtualSlotsAreReadable = false;
#else
inline constexpr bool virtualSlotsAreReadable = true;
#endif

template <class Member>
size_t slotOf(Member member) {
  uintptr_t word = 0;
  static_assert(sizeof member >= sizeof word);
  std::memcpy(&word, &member, sizeof word);
  EXPECT_EQ(word % sizeof(void*), 1u) << "not virtual";
  return word / sizeof(void*);
}

// The tests of slots, skipped where they cannot be read.
class VirtualSlots : public testing::Test {
 protected:
  void SetUp() override {
    if (!virtualSlotsAreReadable) GTEST_SKIP() << "this ABI keeps the virtual bit elsewhere";
  }
};

}  // namespace Vane::Test
