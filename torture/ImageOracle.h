// What may be found in a damaged table: whatever the damage did not touch must be right, and what
// it did touch must be refused, be reported as corruption, or be an entry that stands in the image.
#pragma once

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "torture/ImageDamage.h"

namespace Torture {

class ImageOracle {
 public:
  explicit ImageOracle(const GoodImage& good) : good_(good) {}

  // requires: `image` keeps its bytes as long as the questions below are asked.
  void imageIs(const Damage& damage, const std::byte* image);

  bool isTouched() const { return touched_; }      // any byte, or the size
  bool isRefusable() const { return fixed_; }      // what every attachment checks
  bool isStateTouched() const { return moving_; }  // the numbers in the header
  bool isCountTouched() const { return counts_; }  // those among them that a status shows
  bool isWalkTouched() const { return slots_.any() || highWater_; }
  bool isRingTouched() const { return ring_; }
  bool isClaimTouched() const { return claim_; }  // how many slots have memory
  // What a writer builds on.
  bool isWriterTouched() const { return moving_ || index_ || slots_.any(); }

  // What is wrong with the answer to a look-up; empty if nothing is. `found` is null for "absent".
  std::string lookupFault(uint64_t key, const ImageEntry* found) const;
  // Whether the look-up may have been answered with corruption.
  bool mayBeCorrupt(uint64_t key) const { return index_ || isHeldByDamage(key); }
  // What is wrong with the entries of a walk, which ended by itself or by corruption.
  std::string walkFault(const std::vector<ImageEntry>& entries, bool corrupt) const;
  // Whether the damage put an entry with this key anywhere, or took it away.
  bool isHeldByDamage(uint64_t key) const;

 private:
  ImageEntry entryIn(size_t slot) const;
  bool standsInDamage(const ImageEntry& entry) const;
  void touch(size_t from, size_t to);

  const GoodImage& good_;
  const std::byte* image_ = nullptr;
  bool touched_ = false, fixed_ = false, moving_ = false, counts_ = false, index_ = false,
       highWater_ = false, ring_ = false, claim_ = false;
  std::bitset<Image::slots> slots_;
};

}  // namespace Torture
