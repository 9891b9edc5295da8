// Look-ups and walks in a mapped table, beside a writer that may be anywhere, stopped or dead.
//
// Index. A word of the index leads to a slot; what the slot says counts. The writer never leaves a
// moment in which the word of a live entry is missing, but it moves words: first the copy at the
// new place, then indexVersion, then the old place. A reader that found nothing while the version
// changed may have passed the new place before and the old one after; it looks again.
//
// The functions keep no state, so that threads may share one reader.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "platform/Shoal/TableStore.h"
#include "platform/Shoal/TableView.h"

namespace Shoal {

template <class Shape>
class TableReader {
 public:
  explicit TableReader(const ShapedView<Shape>& table) : table_(table) {}

  bool lookup(const std::byte* key, std::byte* entry) const {
    return lookup(key, table_.hashOf(key), entry);
  }
  void lookupBatch(const std::byte* keys, std::byte* entries, std::span<bool> found) const;
  // Copies out as many entries as there is room for, from the first slot or from behind `key`.
  size_t next(const std::byte* key, IterHint& hint, std::byte* entries, size_t room) const;

 private:
  bool lookup(const std::byte* key, uint64_t hash, std::byte* entry) const;
  // The first entry from `slot` on, whose slot is `slot` then.
  bool scan(uint32_t& slot, uint32_t end, std::byte* entry) const;
  // The slot with which to go on after `key`.
  uint32_t slotAfter(const std::byte* key, const IterHint& hint) const;
  uint32_t slotAfterByIndex(const std::byte* key, uint64_t hash) const;

  const ShapedView<Shape>& table_;
};

}  // namespace Shoal
