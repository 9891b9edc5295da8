#include "platform/Shoal/TableIndex.h"

#include <cstring>

#include "platform/Shoal/CrashPoint.h"

namespace Shoal {

// Readers meet the next level only when it is complete. A writer killed before that leaves words in
// it, hence the zeroing.
template <class Shape>
void IndexWriter<Shape>::grow() {
  const uint32_t next = level() + 1;
  if (next >= table_.plan.indexLevels) table_.corrupt("index too small for its slots");
  const uint64_t bytes = uint64_t{table_.plan.levelWords[next]} * sizeof(uint32_t);
  memory_.claim(table_.plan.levelOffset[next], bytes, table_.plan.indexOffset);
  crashPoint<"grow: level has memory">();
  std::memset(table_.index(next), 0, bytes);
  crashPoint<"grow: level empty">();

  Header& header = table_.header();
  for (uint32_t slot = 0; slot < header.highWater; ++slot) {
    if (kindOf(table_.slot(slot).state) != slotEmpty) addTo(next, hashOfSlot(slot), slot);
    crashPoint<"grow: slot passed">();
  }
  put(header.indexLevel, next);
  crashPoint<"grow: level in use">();
  put(header.indexVersion, header.indexVersion + 1);
  crashPoint<"grow: version raised">();
}

template <class Shape>
void IndexWriter<Shape>::remove(uint32_t slot) {
  const uint64_t hash = hashOfSlot(slot);
  const uint32_t word = table_.plan.wordOf(hash, slot);
  const uint32_t mask = table_.plan.levelWords[level()] - 1;
  const uint32_t* words = table_.index(level());
  uint32_t at = static_cast<uint32_t>(hash >> 32) & mask;
  for (uint32_t count = 0; words[at] != word; at = (at + 1) & mask) {
    if (words[at] == 0) return;
    if (++count > mask) table_.corrupt("index without an end");
  }
  put(table_.header().operation.hole, at + 1);
  crashPoint<"hole: recorded">();
  closeHole(at);
}

template <class Shape>
void IndexWriter<Shape>::finishRemoval() {
  const uint32_t hole = table_.header().operation.hole;
  if (hole != 0) closeHole(hole - 1);
}

// Each run of words from behind, so that none is missing on the way to another.
template <class Shape>
void IndexWriter<Shape>::clear() {
  const uint32_t mask = table_.plan.levelWords[level()] - 1;
  uint32_t* words = table_.index(level());
  uint32_t empty = 0;
  while (empty < mask && words[empty] != 0) ++empty;
  for (uint32_t distance = 0; distance <= mask; ++distance) {
    uint32_t& word = words[(empty - distance) & mask];
    if (word == 0) continue;
    put(word, 0);
    crashPoint<"clear: index word gone">();
  }
}

// Moves words back over the hole until none is missing on the way to another, then empties the last
// place. A step that is taken twice, because the writer was killed in it, does the same again.
template <class Shape>
void IndexWriter<Shape>::closeHole(uint32_t hole) {
  Header& header = table_.header();
  uint32_t* words = table_.index(level());
  uint32_t moves = 0;
  for (uint32_t from = wordForHole(hole); from != hole; from = wordForHole(hole)) {
    if (++moves == table_.plan.levelWords[level()]) table_.corrupt("index without an end");
    put(words[hole], words[from]);
    crashPoint<"hole: word copied">();
    put(header.indexVersion, header.indexVersion + 1);
    crashPoint<"hole: version raised">();
    put(header.operation.hole, from + 1);
    crashPoint<"hole: moved on">();
    hole = from;
  }
  put(words[hole], 0);
  crashPoint<"hole: empty">();
  put(header.operation.hole, 0);
  crashPoint<"hole: no longer recorded">();
}

// The place of the first word after the hole that would not be found with the hole empty, or the
// hole itself if there is none.
template <class Shape>
uint32_t IndexWriter<Shape>::wordForHole(uint32_t hole) const {
  const uint32_t mask = table_.plan.levelWords[level()] - 1;
  const uint32_t* words = table_.index(level());
  for (uint32_t distance = 1; distance <= mask; ++distance) {
    const uint32_t at = (hole + distance) & mask;
    if (words[at] == 0) return hole;
    if (((at - homeOf(words[at])) & mask) >= distance) return at;
  }
  table_.corrupt("index without an end");
}

template <class Shape>
uint32_t IndexWriter<Shape>::homeOf(uint32_t word) const {
  const uint32_t slot = table_.plan.slotOf(word);
  if (slot >= table_.header().highWater) table_.corrupt("index word without a slot");
  return static_cast<uint32_t>(hashOfSlot(slot) >> 32) & (table_.plan.levelWords[level()] - 1);
}

template class IndexWriter<PrefixShape>;
template class IndexWriter<VrfPrefixShape>;
template class IndexWriter<SmallShape>;
template class IndexWriter<LargeShape>;

}  // namespace Shoal
