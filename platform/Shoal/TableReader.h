// Look-ups and walks in a mapped table, beside a writer that may be anywhere, stopped or dead.
//
// Index. A word of the index leads to a slot; what the slot says counts. The writer never leaves a
// moment in which the word of a live entry is missing, but it moves words: first the copy at the
// new place, then indexVersion, then the old place. A reader that found nothing while the version
// changed may have passed the new place before and the old one after; it looks again.
//
// The functions keep no state, so that threads may share one reader.
#pragma once

#include <cstdint>
#include <optional>

#include "platform/Shoal/TableStore.h"
#include "platform/Shoal/TableView.h"

namespace Shoal {

class TableReader {
 public:
  explicit TableReader(const TableView& table) : table_(table) {}

  bool lookup(const std::byte* key, std::byte* entry) const;
  bool first(IterHint& hint, std::byte* entry) const;
  bool next(const std::byte* key, IterHint& hint, std::byte* entry) const;

 private:
  template <size_t scratchSize>
  bool lookupVia(const std::byte* key, std::byte* entry) const;
  template <size_t scratchSize>
  bool scanVia(uint32_t from, uint32_t end, IterHint& hint, std::byte* entry) const;

  bool scan(uint32_t from, IterHint& hint, std::byte* entry) const;
  // The slot with which to go on after `key`.
  uint32_t slotAfter(const std::byte* key, const IterHint& hint) const;
  uint32_t slotAfterByIndex(const std::byte* key, uint64_t hash) const;

  const TableView& table_;
};

}  // namespace Shoal
