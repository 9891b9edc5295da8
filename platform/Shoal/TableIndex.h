// The index: which slots may hold a key.
//
// Open addressing with linear probing over u32 words; 0 is empty. A word has 1 + a slot in its low
// bits and, in the others, the low bits of the hash of the key in that slot, its tag. A word leads
// to a slot; what the slot says counts. Live slots have a word, free ones may keep theirs, and at
// most half of the words are in use.
//
// The index grows by moving to the next level, four times the size, in its own part of the file.
// Levels left behind stay as they are, because readers may still be in them: together they are a
// third of the one in use.
#pragma once

#include <cstdint>
#include <utility>

#include "platform/Shoal/Memory.h"
#include "platform/Shoal/TableView.h"

namespace Shoal {

// The level in use, as it was when it was looked for.
struct IndexLevel {
  explicit IndexLevel(const TableView& table) {
    const uint32_t level = table.indexLevel();
    words = table.index(level);
    mask = table.plan.levelWords[level] - 1;
  }
  // Where the search for a key with this hash begins.
  const uint32_t* home(uint64_t hash) const { return words + (hash >> 32 & mask); }

  const uint32_t* words;
  uint32_t mask;
};

inline constexpr uint32_t noPlace = UINT32_MAX;

// Hands the slots that may hold the key to `visit`, in probe order, until it says that it is done.
// Returns noPlace if it did; else there is no further one, and the place of the empty word at which
// the search ended.
template <class Visit>
[[gnu::always_inline]] inline uint32_t probe(const TableView& table, uint64_t hash, Visit&& visit) {
  const auto [words, mask] = IndexLevel(table);
  const uint32_t tag = table.plan.tagOf(hash), slotMask = table.plan.slotMask();
  uint32_t at = static_cast<uint32_t>(hash >> 32) & mask;
  for (uint32_t count = 0; count <= mask; ++count, at = (at + 1) & mask) {
    const uint32_t word = look(words[at]);
    if (word == 0) return at;
    const uint32_t withoutTag = word ^ tag;
    if (withoutTag > slotMask) continue;  // the tag of another key
    const uint32_t slot = withoutTag - 1;
    if (slot >= table.plan.capacity) table.corrupt("index word without a slot");
    if (visit(slot)) return noPlace;
  }
  table.corrupt("index without an end");
}

// The writer's side.
template <class Shape>
class IndexWriter {
 public:
  IndexWriter(const ShapedView<Shape>& table, Memory& memory) : table_(table), memory_(memory) {}

  // Makes room for the words of so many slots. Throws Guard::MemoryResourceException with the table
  // unchanged. requires: slots <= capacity.
  void ensureRoom(uint32_t slots) {
    while (uint64_t{2} * slots > table_.plan.levelWords[level()]) [[unlikely]] grow();
  }
  // Adds the word of a slot whose key has this hash. requires: there is room, no word of it yet.
  void add(uint64_t hash, uint32_t slot) { addTo(level(), hash, slot); }
  // The same, where a search for the key has ended. requires: the index is as it was then.
  void addAt(uint32_t place, uint64_t hash, uint32_t slot) {
    put(table_.index(level())[place], table_.plan.wordOf(hash, slot));
  }
  // Takes out the word of a slot that is not live, if it has one. requires: the slot still has the
  // key under which it was added.
  void remove(uint32_t slot);
  // Goes on with a removal in which a writer was killed.
  void finishRemoval();
  // Takes out all words. requires: no slot is live.
  void clear();

 private:
  uint32_t level() const { return table_.header().indexLevel; }
  void addTo(uint32_t level, uint64_t hash, uint32_t slot) {
    const uint32_t mask = table_.plan.levelWords[level] - 1;
    uint32_t* const words = table_.index(level);
    uint32_t at = static_cast<uint32_t>(hash >> 32) & mask;
    for (uint32_t count = 0; words[at] != 0; at = (at + 1) & mask) {
      if (++count > mask) table_.corrupt("index without an end");
    }
    put(words[at], table_.plan.wordOf(hash, slot));
  }
  void grow();
  void closeHole(uint32_t hole);
  uint32_t wordForHole(uint32_t hole) const;
  uint32_t homeOf(uint32_t word) const;
  uint64_t hashOfSlot(uint32_t slot) const {
    return table_.hashOf(table_.entry(slot) + table_.shape.keyOffset);
  }

  const ShapedView<Shape>& table_;
  Memory& memory_;
};

}  // namespace Shoal
