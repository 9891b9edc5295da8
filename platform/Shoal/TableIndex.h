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

// Hands the slots that may hold the key to `visit`, in probe order, until it says that it is done.
// Returns whether it did; else there is no further one.
template <class Visit>
bool probe(const TableView& table, uint64_t hash, Visit&& visit) {
  const auto [words, mask] = IndexLevel(table);
  uint32_t at = static_cast<uint32_t>(hash >> 32) & mask;
  for (uint32_t count = 0; count <= mask; ++count, at = (at + 1) & mask) {
    const uint32_t word = look(words[at]);
    if (word == 0) return false;
    if (!table.plan.tagMatches(word, hash)) continue;
    const uint32_t slot = table.plan.slotOf(word);
    if (slot >= table.plan.capacity) table.corrupt("index word without a slot");
    if (visit(slot)) return true;
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
  // Takes out the word of a slot that is not live, if it has one. requires: the slot still has the
  // key under which it was added.
  void remove(uint32_t slot);
  // Goes on with a removal in which a writer was killed.
  void finishRemoval();
  // Takes out all words. requires: no slot is live.
  void clear();

 private:
  uint32_t level() const { return table_.header().indexLevel; }
  void addTo(uint32_t level, uint64_t hash, uint32_t slot);
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
