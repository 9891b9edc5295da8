#include "platform/Shoal/TableWriter.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <sstream>

#include "platform/Guard/Exception.h"
#include "platform/Shoal/CrashPoint.h"

namespace Shoal {

namespace {

constexpr uint64_t smallestClaim = 64u << 10;  // bytes
constexpr uint64_t largestClaim = 4u << 20;    // bytes
constexpr uint32_t slotsAhead = 8;

[[noreturn]] void throwFull(const TableView& table) {
  std::ostringstream text;
  text << "shared table \"" << table.name << "\": full: capacity " << table.plan.capacity
       << " entries";
  Guard::MemoryResourceException::throwException(text.str());
}

}  // namespace

std::string stateFault(const Header& header, const Plan& plan) {
  struct Bound {
    const char* name;
    uint64_t value;
    uint64_t limit;
  };
  const uint32_t level = std::min(header.indexLevel, plan.indexLevels - 1);
  const OperationRecord& operation = header.operation;
  for (const Bound& bound : {
           Bound{"index level", header.indexLevel, plan.indexLevels - 1},
           Bound{"slots claimed", header.slotsClaimed, plan.capacity},
           Bound{"high water", header.highWater, header.slotsClaimed},
           Bound{"high water", header.highWater, plan.levelWords[level] / 2},
           Bound{"entries", header.live, header.highWater},
           Bound{"free slot", header.freeHead, header.highWater},
           Bound{"change records claimed", header.ringClaimed, plan.ringRecords},
           Bound{"changes", header.changes, uint64_t{1} << 62},
           Bound{"unfinished operation", operation.kind, OperationRecord::erase},
           Bound{"slot of the unfinished operation", operation.slot, plan.capacity - 1},
           Bound{"entries before it", operation.liveBefore, plan.capacity},
           Bound{"hole of the unfinished operation", operation.hole, plan.levelWords[level]},
       }) {
    if (bound.value > bound.limit) {
      std::ostringstream text;
      text << bound.name << ' ' << bound.value << ", expected at most " << bound.limit;
      return text.str();
    }
  }
  return {};
}

template <class Shape>
bool TableWriter<Shape>::set(const std::byte* key, const std::byte* entry) {
  const uint64_t hash = table_.hashOf(key);
  const Found found = find(key, hash);
  if (found.place == noPlace) {
    replace(found.slot, entry);
    return false;
  }
  insert(hash, found.place, entry);
  return true;
}

// Each part as it would come one by one: whoever is killed in between leaves a table with memory to
// spare.
template <class Shape>
void TableWriter<Shape>::reserve(uint64_t entries) {
  if (entries == 0) return;
  if (entries > table_.plan.capacity) throwFull(table_);
  const auto slots = static_cast<uint32_t>(entries);
  ensureSlot(slots - 1);
  index_.ensureRoom(slots);
  ensureChanges(entries);
}

template <class Shape>
bool TableWriter<Shape>::erase(const std::byte* key) {
  const Found found = find(key, table_.hashOf(key));
  if (found.place != noPlace) return false;
  eraseSlot(found.slot);
  return true;
}

// From the highest slot down, so that the slots are used again from the lowest up. What is left of
// a damaged table is as sound as that of any other. Without memory to tell of all the changes, not
// one is made.
template <class Shape>
void TableWriter<Shape>::clear() {
  recount();
  ensureChanges(header().live);
  for (uint32_t slot = table_.highWater(); slot-- != 0;) {
    if (kindOf(table_.slot(slot).state) == slotLive) eraseSlot(slot);
    crashPoint<"clear: slot passed">();
  }
  crashPoint<"clear: all gone">();
  index_.clear();
  if (!areAllListed()) listAll();
}

// Has the header say how many slots are in use and how many of them live. It does so already,
// unless it was damaged.
template <class Shape>
void TableWriter<Shape>::recount() {
  const uint32_t inUse = table_.highWater();
  uint32_t end = std::min(header().slotsClaimed, table_.plan.capacity);
  while (end > inUse && table_.slot(end - 1).state == slotEmpty) --end;
  if (end > inUse) {
    index_.ensureRoom(end);
    put(header().highWater, end);
  }
  uint32_t live = 0;
  for (uint32_t slot = 0; slot < end; ++slot) live += kindOf(table_.slot(slot).state) == slotLive;
  if (live != header().live) put(header().live, live);
}

// Whether the list of free slots leads to every slot in use.
template <class Shape>
bool TableWriter<Shape>::areAllListed() const {
  const uint32_t slots = header().highWater;
  uint32_t listed = 0, next = header().freeHead;
  for (; next != 0 && listed <= slots; ++listed) {
    if (next > slots) return false;
    const SlotHead& head = table_.slot(next - 1);
    if (kindOf(head.state) != slotFree || (head.sequence & 1) != 0) return false;
    next = nextFreeOf(head.state);
  }
  return listed == slots;
}

// Makes the list anew, for slots none of which is live.
template <class Shape>
void TableWriter<Shape>::listAll() {
  put(header().freeHead, 0);
  for (uint32_t slot = header().highWater; slot-- != 0;) {
    SlotHead& head = table_.slot(slot);
    if (head.sequence & 1) put(head.sequence, head.sequence + 1);
    put(head.state, freeState(header().freeHead));
    put(header().freeHead, slot + 1);
  }
}

template <class Shape>
[[gnu::always_inline]] inline typename TableWriter<Shape>::Found TableWriter<Shape>::find(
    const std::byte* key, uint64_t hash) const {
  Found found;
  found.place = probe(table_, hash, [&](uint32_t slot) {
    if (slot >= header().highWater) table_.corrupt("index word without a slot");
    found.slot = slot;
    return kindOf(table_.slot(slot).state) == slotLive &&
           std::memcmp(table_.entry(slot) + table_.shape.keyOffset, key, table_.shape.keySize) == 0;
  });
  return found;
}

template <class Shape>
[[gnu::always_inline]] inline void TableWriter<Shape>::insert(uint64_t hash, uint32_t place,
                                                              const std::byte* entry) {
  ensureChange();
  Header& header = header_;
  const uint32_t reusable = header.freeHead, version = header.indexVersion;
  const uint32_t slot =
      reusable != 0 ? takeFreeSlot(reusable - 1) : takeFreshSlot(header.highWater);
  SlotHead& head = table_.slot(slot);
  writeEntry(head, entry);
  // The index is as it was searched, unless it has grown or an old word was taken out meanwhile.
  if (reusable == 0 && header.indexVersion == version) [[likely]]
    index_.addAt(place, hash, slot);
  else
    index_.add(hash, slot);
  crashPoint<"insert: index word added">();
  put(head.state, slotLive);
  crashPoint<"insert: entry there">();
  put(header.live, header.operation.liveBefore + 1);
  crashPoint<"insert: counted">();
  end(ChangeHead::set);
}

template <class Shape>
uint32_t TableWriter<Shape>::takeFreeSlot(uint32_t slot) {
  if (slot >= header().highWater || kindOf(table_.slot(slot).state) != slotFree) {
    table_.corrupt("list of free slots leads to slot " + std::to_string(slot));
  }
  begin(OperationRecord::insert, slot);
  put(header().freeHead, nextFreeOf(table_.slot(slot).state));
  crashPoint<"insert: free slot taken">();
  index_.remove(slot);
  crashPoint<"insert: old key's index word gone">();
  return slot;
}

template <class Shape>
[[gnu::always_inline]] inline uint32_t TableWriter<Shape>::takeFreshSlot(uint32_t slot) {
  if (slot >= table_.plan.capacity) throwFull(table_);
  ensureSlot(slot);
  if (table_.slot(slot).state != slotEmpty) {
    table_.corrupt("slot " + std::to_string(slot) + " is in use above the high water");
  }
  index_.ensureRoom(slot + 1);
  // The slots that come next are asked for before they are written.
  __builtin_prefetch(&table_.slot(slot + slotsAhead), 1);
  begin(OperationRecord::insert, slot);
  put(header().highWater, slot + 1);
  crashPoint<"insert: fresh slot taken">();
  return slot;
}

template <class Shape>
[[gnu::always_inline]] inline void TableWriter<Shape>::replace(uint32_t slot,
                                                               const std::byte* entry) {
  ensureChange();
  SlotHead& head = table_.slot(slot);
  const uint32_t odd = head.sequence | 1;
  begin(OperationRecord::replace, slot, odd);
  keepInJournal(slot, odd);
  writeEntry(head, entry);
  crashPoint<"replace: new entry there">();
  end(ChangeHead::set);
}

template <class Shape>
void TableWriter<Shape>::eraseSlot(uint32_t slot) {
  ensureChange();
  if (header().live == 0) table_.corrupt("an entry in slot " + std::to_string(slot) + " of none");
  begin(OperationRecord::erase, slot);
  put(table_.slot(slot).state, freeState(header().freeHead));
  crashPoint<"erase: entry gone">();
  put(header().freeHead, slot + 1);
  crashPoint<"erase: slot listed as free">();
  put(header().live, header().operation.liveBefore - 1);
  crashPoint<"erase: counted">();
  end(ChangeHead::removed);
}

template <class Shape>
[[gnu::always_inline]] inline void TableWriter<Shape>::writeEntry(SlotHead& head,
                                                                  const std::byte* entry) {
  const uint32_t odd = head.sequence | 1;
  put(head.sequence, odd);
  crashPoint<"entry: sequence odd">();
  copyIn(entryOf(head), entry, table_.shape.entrySize);
  crashPoint<"entry: bytes written">();
  put(head.sequence, odd + 1);
  crashPoint<"entry: sequence even">();
}

// The two records take turns, so that a reader has a whole further replace's time to copy one.
template <class Shape>
[[gnu::always_inline]] inline void TableWriter<Shape>::keepInJournal(uint32_t slot, uint32_t odd) {
  OperationRecord& operation = header_.operation;
  const uint32_t turn = operation.journalTurn & 1;
  put(operation.journalTurn, turn ^ 1);
  crashPoint<"journal: turn taken">();
  JournalHead& record = table_.journal(turn);
  std::byte* const kept = table_.journalEntry(turn);
  const std::byte* const entry = table_.entry(slot);
  put(record.sequence, 0);
  crashPoint<"journal: record opened">();
  put(record.slot, slot + 1);
  crashPoint<"journal: slot named">();
  copyIn(kept, entry, table_.shape.entrySize);
  crashPoint<"journal: old entry kept">();
  put(record.sequence, odd);
  crashPoint<"journal: record counts">();
}

// --- Memory -------------------------------------------------------------------------------------

template <class Shape>
[[gnu::always_inline]] inline void TableWriter<Shape>::ensureSlot(uint32_t slot) {
  if (slot < header().slotsClaimed) [[likely]]
    return;
  put(header().slotsClaimed, claimElements(table_.plan.slotsOffset, table_.plan.slotStride,
                                           header().slotsClaimed, slot + 1, table_.plan.capacity));
  crashPoint<"claim: slots have memory">();
}

// Records are used in the order of their places but for the first, which comes last.
template <class Shape>
[[gnu::always_inline]] inline void TableWriter<Shape>::ensureChange() {
  ensureRecord(static_cast<uint32_t>(header().changes + 1) & (table_.plan.ringRecords - 1));
}

template <class Shape>
void TableWriter<Shape>::ensureChanges(uint64_t count) {
  const uint64_t last = std::min<uint64_t>(header().changes + count, table_.plan.ringRecords - 1);
  ensureRecord(static_cast<uint32_t>(last));
}

template <class Shape>
[[gnu::always_inline]] inline void TableWriter<Shape>::ensureRecord(uint32_t record) {
  if (record < header().ringClaimed) [[likely]]
    return;
  put(header().ringClaimed,
      claimElements(table_.plan.ringOffset, table_.ringStride(), header().ringClaimed, record + 1,
                    table_.plan.ringRecords));
  crashPoint<"claim: change records have memory">();
}

// Claims memory for at least `wanted` elements of a region, of which `claimed` have it: a chunk
// ahead of use if there is room for one, of whole huge pages as soon as there are many. Returns how
// many have it now.
template <class Shape>
uint32_t TableWriter<Shape>::claimElements(uint64_t offset, uint64_t stride, uint32_t claimed,
                                           uint32_t wanted, uint32_t limit) {
  const uint64_t from = offset + claimed * stride / pageSize * pageSize;
  const uint64_t needed = offset + alignUp(wanted * stride, pageSize);
  const uint64_t end = offset + alignUp(limit * stride, pageSize);
  const bool isLarge = from - offset >= hugePageSize;
  const uint64_t chunk = isLarge ? largestClaim : std::max((from - offset) / 8, smallestClaim);
  uint64_t to = alignUp(from + chunk, isLarge ? hugePageSize : pageSize);
  to = std::min(std::max(needed, to), end);
  if (!memory_.tryClaim(from, to - from, offset)) {
    to = needed;
    memory_.claim(from, to - from, offset);
  }
  crashPoint<"claim: memory there">();
  return static_cast<uint32_t>(std::min<uint64_t>((to - offset) / stride, limit));
}

// --- The operation record and the change ring ---------------------------------------------------

template <class Shape>
[[gnu::always_inline]] inline void TableWriter<Shape>::begin(OperationRecord::Kind kind,
                                                             uint32_t slot, uint32_t odd) {
  Header& header = header_;
  OperationRecord& operation = header.operation;
  put(operation.slot, slot);
  put(operation.liveBefore, header.live);
  put(operation.sequence, odd);
  put(operation.changesBefore, header.changes);
  crashPoint<"record: filled in">();
  put(operation.kind, kind);
  crashPoint<"record: operation begun">();
}

template <class Shape>
[[gnu::always_inline]] inline void TableWriter<Shape>::end(ChangeHead::Kind kind) {
  Header& header = header_;
  OperationRecord& operation = header.operation;
  if (header.changes == operation.changesBefore) publish(kind, operation.slot);
  crashPoint<"record: change told">();
  put(operation.kind, OperationRecord::none);
  crashPoint<"record: operation over">();
}

template <class Shape>
[[gnu::always_inline]] inline void TableWriter<Shape>::publish(ChangeHead::Kind kind,
                                                               uint32_t slot) {
  Header& header = header_;
  const uint64_t number = header.changes + 1;
  ChangeHead& record = table_.change(number);
  const std::byte* const key = table_.entry(slot) + table_.shape.keyOffset;
  put(record.number, 0);
  crashPoint<"change: record opened">();
  put(record.kind, kind);
  put(record.slot, slot);
  crashPoint<"change: kind and slot written">();
  copyIn(keyOf(record), key, table_.shape.keySize);
  crashPoint<"change: key written">();
  put(record.number, number);
  crashPoint<"change: numbered">();
  put(header.changes, number);
  crashPoint<"change: counted">();
  if ((number & (changesPerWake_ - 1)) == 0) [[unlikely]]
    wakeFollowers();
}

template <class Shape>
void TableWriter<Shape>::wakeFollowers() {
  put(header().wakes, header().wakes + 1);
  crashPoint<"wake: word raised">();
  ::syscall(SYS_futex, &header().wakes, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
  crashPoint<"wake: sleepers awake">();
}

// --- Repair -------------------------------------------------------------------------------------

template <class Shape>
void TableWriter<Shape>::repair() {
  const Plan& plan = table_.plan;
  memory_.claim(0, plan.slotsOffset + uint64_t{header().slotsClaimed} * plan.slotStride);
  for (uint32_t level = 0; level <= header().indexLevel; ++level) {
    memory_.claim(plan.levelOffset[level], uint64_t{plan.levelWords[level]} * sizeof(uint32_t),
                  plan.indexOffset);
  }
  memory_.claim(plan.ringOffset, uint64_t{header().ringClaimed} * plan.ringStride);
  crashPoint<"repair: memory claimed again">();

  // A table without an unfinished operation needs no more memory than it has.
  const OperationRecord& operation = header().operation;
  if (operation.kind == OperationRecord::none) return;
  ensureChange();
  ensureSlot(operation.slot);
  crashPoint<"repair: an operation to finish">();
  if (operation.kind == OperationRecord::insert) repairInsert(operation.slot);
  if (operation.kind == OperationRecord::replace) repairReplace(operation.slot);
  if (operation.kind == OperationRecord::erase) repairErase(operation.slot);
}

// An insert that does not count yet leaves its slot first in the list of free ones. The slot's key
// may be half-written; then no word of the index leads to it.
template <class Shape>
void TableWriter<Shape>::repairInsert(uint32_t slot) {
  SlotHead& head = table_.slot(slot);
  if (kindOf(head.state) == slotLive) {
    put(header().live, header().operation.liveBefore + 1);
    crashPoint<"repair: insert counted">();
    return end(ChangeHead::set);
  }
  index_.finishRemoval();
  crashPoint<"repair: index whole again">();
  if (head.sequence & 1) put(head.sequence, head.sequence + 1);
  crashPoint<"repair: insert's sequence even">();
  if (header().highWater <= slot) put(header().highWater, slot + 1);
  crashPoint<"repair: insert's slot in use">();
  if (kindOf(head.state) == slotEmpty) put(head.state, freeState(header().freeHead));
  crashPoint<"repair: insert's slot free">();
  put(header().freeHead, slot + 1);
  crashPoint<"repair: insert's slot listed as free">();
  put(header().operation.kind, OperationRecord::none);
}

// A half-written entry is taken back from the journal, where readers find it until then.
template <class Shape>
void TableWriter<Shape>::repairReplace(uint32_t slot) {
  SlotHead& head = table_.slot(slot);
  const uint32_t odd = header().operation.sequence;
  if (head.sequence == odd) {
    for (uint32_t turn = 0; turn < journalRecords; ++turn) {
      const JournalHead& record = table_.journal(turn);
      const std::byte* kept = table_.journalEntry(turn);
      const bool isOfSlot = keyIs(table_, table_.entry(slot), kept + table_.shape.keyOffset);
      if (record.sequence != odd || record.slot != slot + 1 || !isOfSlot) continue;
      copyIn(table_.entry(slot), kept, table_.shape.entrySize);
      crashPoint<"repair: old entry back">();
      put(head.sequence, odd + 1);
      crashPoint<"repair: replace's sequence even">();
      put(header().operation.kind, OperationRecord::none);
      return;
    }
    table_.corruptJournal(slot);
  }
  if (head.sequence == odd + 1) return end(ChangeHead::set);
  put(header().operation.kind, OperationRecord::none);
}

template <class Shape>
void TableWriter<Shape>::repairErase(uint32_t slot) {
  if (kindOf(table_.slot(slot).state) == slotFree) {
    put(header().freeHead, slot + 1);
    crashPoint<"repair: erased slot listed as free">();
    put(header().live, header().operation.liveBefore - 1);
    crashPoint<"repair: erase counted">();
    return end(ChangeHead::removed);
  }
  put(header().operation.kind, OperationRecord::none);
}

template class TableWriter<PrefixShape>;
template class TableWriter<VrfPrefixShape>;
template class TableWriter<SmallShape>;
template class TableWriter<LargeShape>;

}  // namespace Shoal
