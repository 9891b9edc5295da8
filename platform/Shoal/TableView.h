// Typed access to the parts of a mapped table, and the reading of single entries.
//
// Slots. A slot is written only while it is not live, or while its sequence is odd and its old
// entry stands in the journal. So a reader that finds a live slot with an even sequence copies the
// entry and looks at the sequence again; one that finds it odd copies the old entry out of the
// journal. Either way it has an entry that was in the table at a moment of the call, and never
// waits for the writer, which may be stopped or dead.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

#include "platform/Shoal/KeyHash.h"
#include "platform/Shoal/Shape.h"
#include "platform/Shoal/TableFormat.h"
#include "platform/Shoal/Words.h"

namespace Shoal {

// The mapped table. `base` holds plan.fileSize bytes; all places are bounded by the plan, which was
// checked at attach. Requires: slot < plan.capacity, level < plan.indexLevels.
struct TableView {
  std::byte* base;
  Plan plan;
  std::string name;  // for messages: the table's path

  Header& header() const { return *reinterpret_cast<Header*>(base); }
  SlotHead& slot(uint32_t slot) const {
    return *reinterpret_cast<SlotHead*>(base + plan.slotsOffset + uint64_t{slot} * plan.slotStride);
  }
  std::byte* entry(uint32_t at) const {
    return reinterpret_cast<std::byte*>(&slot(at)) + sizeof(SlotHead);
  }
  uint32_t* index(uint32_t level) const {
    return reinterpret_cast<uint32_t*>(base + plan.levelOffset[level]);
  }
  JournalHead& journal(uint32_t turn) const {
    return *reinterpret_cast<JournalHead*>(base + plan.journalOffset +
                                           uint64_t{turn} * plan.journalStride);
  }
  std::byte* journalEntry(uint32_t turn) const {
    return reinterpret_cast<std::byte*>(&journal(turn)) + sizeof(JournalHead);
  }
  ChangeHead& change(uint64_t number) const {
    const uint64_t at = number & (plan.ringRecords - 1);
    return *reinterpret_cast<ChangeHead*>(base + plan.ringOffset + at * plan.ringStride);
  }

  uint64_t hashOf(const std::byte* key) const { return keyHash(key, plan.keySize); }

  // Numbers out of the header that are used as bounds or places, checked.
  uint32_t highWater() const {
    const uint32_t value = look(header().highWater);
    if (value > plan.capacity) [[unlikely]]
      corruptHighWater(value);
    return value;
  }
  uint32_t indexLevel() const {
    const uint32_t value = look(header().indexLevel);
    if (value >= plan.indexLevels) [[unlikely]]
      corruptIndexLevel(value);
    return value;
  }

  // Throws Guard::CorruptionDetectedException; the text is the table's name and `what`.
  [[noreturn]] void corrupt(const std::string& what) const;
  [[noreturn]] void corruptJournal(uint32_t slot) const;
  [[noreturn]] void corruptHighWater(uint32_t value) const;
  [[noreturn]] void corruptIndexLevel(uint32_t value) const;
};

// The same table, its places and keys worked out from the sizes that its entries' shape knows.
template <class EntryShape>
struct ShapedView : TableView {
  using Shape = EntryShape;
  [[no_unique_address]] Shape shape;

  explicit ShapedView(TableView table) : TableView(std::move(table)), shape(plan) {}

  size_t slotStride() const { return sizeof(SlotHead) + alignUp(shape.entrySize, 8); }
  SlotHead& slot(uint32_t at) const {
    return *reinterpret_cast<SlotHead*>(base + plan.slotsOffset + uint64_t{at} * slotStride());
  }
  uint32_t slotOf(const SlotHead& head) const {
    const auto offset = reinterpret_cast<const std::byte*>(&head) - (base + plan.slotsOffset);
    return static_cast<uint32_t>(static_cast<size_t>(offset) / slotStride());
  }
  std::byte* entry(uint32_t at) const {
    return reinterpret_cast<std::byte*>(&slot(at)) + sizeof(SlotHead);
  }
  size_t ringStride() const { return sizeof(ChangeHead) + alignUp(shape.keySize, 8); }
  ChangeHead& change(uint64_t number) const {
    return *reinterpret_cast<ChangeHead*>(base + plan.ringOffset +
                                          (number & (plan.ringRecords - 1)) * ringStride());
  }
  uint64_t hashOf(const std::byte* key) const { return keyHash(key, shape.keySize); }
};

// Room for an entry on its way out.
template <class Shape>
using EntryRoom = std::array<std::byte, Shape::largestEntry>;

// What stands behind the head of a slot, and of a change.
inline const std::byte* entryOf(const SlotHead& head) {
  return reinterpret_cast<const std::byte*>(&head + 1);
}
inline std::byte* entryOf(SlotHead& head) { return reinterpret_cast<std::byte*>(&head + 1); }
inline std::byte* keyOf(ChangeHead& head) { return reinterpret_cast<std::byte*>(&head + 1); }

// What became of one look at a slot.
enum class Seen {
  absent,  // no entry
  other,   // an entry of another key
  whole,   // the entry has been copied out
  moved,   // the writer came in between; look again
};

// Whether the slot's key is `key`. Says nothing if the slot's sequence changes meanwhile.
template <class Shape>
[[gnu::always_inline]] inline bool keyIs(const ShapedView<Shape>& table, const std::byte* entry,
                                         const std::byte* key) {
  const Shape& shape = table.shape;
  if (shape.keyOffset % sizeof(Word) == 0) {
    return isSame(entry + shape.keyOffset, key, shape.keySize);
  }
  const uint32_t skip = shape.keyOffset % sizeof(Word);
  std::array<std::byte, maxKeySize + sizeof(Word)> copy;
  copyOut(copy.data(), entry + (shape.keyOffset - skip), skip + shape.keySize);
  return std::memcmp(copy.data() + skip, key, shape.keySize) == 0;
}

// Copies the entry out of the journal that stood in a live slot before its sequence became `odd`.
// It has the slot's key, which a replace leaves as it is; a journal that says otherwise is damaged.
template <class Shape>
[[gnu::noinline]] Seen readJournal(const ShapedView<Shape>& table, uint32_t slot, uint32_t odd,
                                   std::byte* out) {
  for (uint32_t turn = 0; turn < journalRecords; ++turn) {
    const JournalHead& record = table.journal(turn);
    if (look(record.sequence) != odd || look(record.slot) != slot + 1) continue;
    EntryRoom<Shape> copy;
    copyOut(copy.data(), table.journalEntry(turn), table.shape.entrySize);
    const bool isOfSlot = keyIs(table, table.entry(slot), copy.data() + table.shape.keyOffset);
    if (look(record.sequence) != odd || look(record.slot) != slot + 1) return Seen::moved;
    if (!isOfSlot) break;
    std::memcpy(out, copy.data(), table.shape.entrySize);
    return Seen::whole;
  }
  if (look(table.slot(slot).sequence) != odd) return Seen::moved;
  table.corruptJournal(slot);
}

// Copies the slot's entry to `out` if it is live and, unless `key` is null, has that key. By way of
// a copy, so that bytes which turn out torn never get there.
template <class Shape>
[[gnu::always_inline]] inline Seen readSlot(const ShapedView<Shape>& table, const SlotHead& head,
                                            const std::byte* key, std::byte* out) {
  const std::byte* entry = entryOf(head);
  const uint32_t sequence = look(head.sequence);
  if (kindOf(look(head.state)) != slotLive) return Seen::absent;
  // A replace leaves the key as it is, so that it can be compared whether or not one is going on.
  if (key != nullptr && !keyIs(table, entry, key)) {
    return look(head.sequence) == sequence ? Seen::other : Seen::moved;
  }
  if (sequence & 1) [[unlikely]]
    return readJournal(table, table.slotOf(head), sequence, out);
  EntryRoom<Shape> copy;
  copyOut(copy.data(), entry, table.shape.entrySize);
  if (look(head.sequence) != sequence) [[unlikely]]
    return Seen::moved;
  std::memcpy(out, copy.data(), table.shape.entrySize);
  return Seen::whole;
}

}  // namespace Shoal
