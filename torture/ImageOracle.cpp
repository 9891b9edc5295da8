#include "torture/ImageOracle.h"

#include <fmt/format.h>

#include <algorithm>

namespace Torture {

void ImageOracle::imageIs(const Damage& damage, const std::byte* image) {
  image_ = image;
  touched_ = fixed_ = moving_ = counts_ = index_ = highWater_ = ring_ = claim_ = false;
  slots_.reset();
  if (damage.fileSize && *damage.fileSize != Image::size) touched_ = fixed_ = true;
  for (const Damage::Range& range : damage.ranges) {
    for (size_t at = range.from; at < range.to; ++at) {
      if (image[at] != good_.bytes[at]) touch(at, at + 1);
    }
  }
}

void ImageOracle::touch(size_t from, size_t to) {
  const auto meets = [&](size_t first, size_t end) { return from < end && first < to; };
  touched_ = true;
  fixed_ |= meets(0, Image::fixedEnd) || meets(Image::nameAt, Image::nameEnd);
  moving_ |= meets(Image::movingAt, Image::movingEnd);
  counts_ |= meets(256, 264) || meets(272, 276) || meets(384, 388) || meets(448, 456);
  highWater_ |= meets(Image::highWaterAt, Image::highWaterAt + 4);
  claim_ |= meets(Image::slotsClaimedAt, Image::slotsClaimedAt + 4);
  index_ |=
      meets(Image::indexAt, Image::ringAt) || meets(Image::indexLevelAt, Image::indexLevelAt + 4);
  ring_ |= meets(Image::ringAt, Image::size) || meets(Image::changesAt, Image::changesAt + 8);
  if (meets(Image::slotsAt, Image::indexAt)) slots_.set((from - Image::slotsAt) / 64);
}

ImageEntry ImageOracle::entryIn(size_t slot) const {
  ImageEntry entry;
  std::memcpy(&entry, image_ + Image::slotsAt + slot * Image::slotStride + 8, sizeof entry);
  return entry;
}

bool ImageOracle::isHeldByDamage(uint64_t key) const {
  for (size_t slot = 0; slots_.any() && slot < Image::slots; ++slot) {
    if (!slots_[slot]) continue;
    if (entryIn(slot).key == key) return true;
    if (slot < good_.live.size() && good_.live[slot] && good_.live[slot]->key == key) return true;
  }
  return false;
}

// In a slot that was touched, or in the journal in its stead; or, behind a high water or an index
// that was touched, in any slot.
bool ImageOracle::standsInDamage(const ImageEntry& entry) const {
  for (size_t slot = 0; slot < Image::slots; ++slot) {
    if ((slots_[slot] || highWater_ || index_) && entryIn(slot) == entry) return true;
  }
  for (size_t turn = 0; turn < 2 && slots_.any(); ++turn) {
    const std::byte* record = image_ + Image::journalAt + turn * Image::journalStride + 8;
    if (std::memcmp(record, &entry, sizeof entry) == 0) return true;
  }
  return false;
}

std::string ImageOracle::lookupFault(uint64_t key, const ImageEntry* found) const {
  const auto slot = std::find_if(good_.live.begin(), good_.live.end(),
                                 [&](const auto& entry) { return entry && entry->key == key; });
  const bool isThere = slot != good_.live.end();
  if (found == nullptr) {
    return !isThere || mayBeCorrupt(key) ? "" : fmt::format("key {} is not found", key);
  }
  if (found->key != key) return fmt::format("key {} has the entry of key {}", key, found->key);
  if (isThere && *found == **slot) return {};
  return standsInDamage(*found) ? "" : fmt::format("key {} has an entry that nobody wrote", key);
}

std::string ImageOracle::walkFault(const std::vector<ImageEntry>& entries, bool corrupt) const {
  if (corrupt && !isWalkTouched()) return "a walk finds corruption where there is none";
  std::vector<ImageEntry> expected;
  for (size_t slot = 0; slot < good_.live.size(); ++slot) {
    if (good_.live[slot] && !slots_[slot]) expected.push_back(*good_.live[slot]);
  }
  auto next = expected.begin();
  for (const ImageEntry& entry : entries) {
    if (next != expected.end() && entry == *next) {
      ++next;
    } else if (!standsInDamage(entry)) {
      return fmt::format("a walk meets an entry of key {} that is not there", entry.key);
    }
  }
  if (next == expected.end() || corrupt || highWater_) return {};
  return fmt::format("a walk does not meet key {}", next->key);
}

}  // namespace Torture
