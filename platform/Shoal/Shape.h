// The sizes of a table's entries, as the code that moves them sees them.
//
// Entries are hashed, compared and moved word by word. Where the compiler knows how many words
// there are, they pass through registers, and a read takes a third of the instructions. The entries
// that a switch has by the million have code of their own; all others share code that is told the
// sizes.
#pragma once

#include <cstdint>

#include "platform/Shoal/TableFormat.h"

namespace Shoal {

template <uint32_t entry, uint32_t keyAt, uint32_t key>
struct FixedShape {
  static constexpr uint32_t entrySize = entry, keyOffset = keyAt, keySize = key;
  static constexpr uint32_t largestEntry = entry;

  explicit FixedShape(const Plan&) {}
  static bool isOf(const Plan& plan) {
    return plan.entrySize == entrySize && plan.keyOffset == keyOffset && plan.keySize == keySize;
  }
};

// Entries of up to so many bytes. A reader keeps room for the largest on its stack.
template <uint32_t largest>
struct AnyShape {
  static constexpr uint32_t largestEntry = largest;
  uint32_t entrySize, keyOffset, keySize;

  explicit AnyShape(const Plan& plan)
      : entrySize(plan.entrySize), keyOffset(plan.keyOffset), keySize(plan.keySize) {}
  static bool isOf(const Plan& plan) { return plan.entrySize <= largest; }
};

using PrefixShape = FixedShape<56, 24, 20>;     // keyed by a prefix
using VrfPrefixShape = FixedShape<56, 24, 24>;  // keyed by a routing instance and a prefix
using SmallShape = AnyShape<256>;
using LargeShape = AnyShape<maxEntrySize>;

// What `use` makes of the shape of a table's entries.
template <class Use>
auto withShapeOf(const Plan& plan, Use&& use) {
  if (PrefixShape::isOf(plan)) return use(PrefixShape(plan));
  if (VrfPrefixShape::isOf(plan)) return use(VrfPrefixShape(plan));
  if (SmallShape::isOf(plan)) return use(SmallShape(plan));
  return use(LargeShape(plan));
}

}  // namespace Shoal
