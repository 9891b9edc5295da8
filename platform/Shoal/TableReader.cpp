#include "platform/Shoal/TableReader.h"

#include <algorithm>
#include <chrono>
#include <sstream>

#include "platform/Shoal/SharedTable.h"
#include "platform/Shoal/TableIndex.h"

namespace Shoal {

namespace {

// Bounds the work of one read: so many tries without looking at the clock, then until the deadline.
class Attempts {
 public:
  explicit Attempts(const TableView& table) : table_(table) {}

  void again() {
    if (++count_ % 64 != 0) return;
    const auto now = std::chrono::steady_clock::now();
    if (count_ == 64) deadline_ = now + limit;
    if (now >= deadline_) giveUp();
  }

 private:
  static constexpr std::chrono::milliseconds limit{10};

  [[noreturn]] void giveUp() const {
    std::ostringstream text;
    text << "shared table \"" << table_.name << "\": busy: " << count_ << " reads within "
         << limit.count() << " ms each met the writer";
    BusyException::throwException(text.str());
  }

  const TableView& table_;
  uint64_t count_ = 0;
  std::chrono::steady_clock::time_point deadline_{};
};

// Sizes up to this are copied by way of a small stack frame.
constexpr size_t smallEntry = 256;

}  // namespace

// The entry goes to the caller by way of a copy, because a copy that turns out torn must leave the
// caller's bytes as they are if the entry is then found to be gone.
template <size_t scratchSize>
bool TableReader::lookupVia(const std::byte* key, std::byte* entry) const {
  alignas(8) std::byte scratch[scratchSize];
  const uint64_t hash = table_.hashOf(key);
  for (Attempts attempts(table_);; attempts.again()) {
    const uint32_t version = look(table_.header().indexVersion);
    Seen seen = Seen::absent;
    probe(table_, hash, [&](uint32_t slot) {
      seen = readSlot(table_, slot, key, scratch);
      return seen == Seen::whole || seen == Seen::moved;
    });
    if (seen == Seen::whole) {
      std::memcpy(entry, scratch, table_.plan.entrySize);
      return true;
    }
    if (seen != Seen::moved && look(table_.header().indexVersion) == version) return false;
  }
}

bool TableReader::lookup(const std::byte* key, std::byte* entry) const {
  return table_.plan.entrySize <= smallEntry ? lookupVia<smallEntry>(key, entry)
                                             : lookupVia<maxEntrySize>(key, entry);
}

template <size_t scratchSize>
bool TableReader::scanVia(uint32_t from, uint32_t end, IterHint& hint, std::byte* entry) const {
  alignas(8) std::byte scratch[scratchSize];
  for (uint32_t slot = from; slot < end; ++slot) {
    Seen seen = readSlot(table_, slot, nullptr, scratch);
    for (Attempts attempts(table_); seen == Seen::moved; attempts.again()) {
      seen = readSlot(table_, slot, nullptr, scratch);
    }
    if (seen != Seen::whole) continue;
    std::memcpy(entry, scratch, table_.plan.entrySize);
    hint.slot = slot;
    // 0 is for "no slot yet", also in a table that says so of itself.
    hint.generation = std::max<uint64_t>(1, look(table_.header().generation));
    hint.keyHash = keyMark(scratch + table_.plan.keyOffset, table_.plan.keySize);
    return true;
  }
  return false;
}

bool TableReader::scan(uint32_t from, IterHint& hint, std::byte* entry) const {
  const uint32_t end = table_.highWater();
  return table_.plan.entrySize <= smallEntry ? scanVia<smallEntry>(from, end, hint, entry)
                                             : scanVia<maxEntrySize>(from, end, hint, entry);
}

bool TableReader::first(IterHint& hint, std::byte* entry) const { return scan(0, hint, entry); }

bool TableReader::next(const std::byte* key, IterHint& hint, std::byte* entry) const {
  return scan(slotAfter(key, hint), hint, entry);
}

// Slots outlive a writer, so that a hint stays good when another one has attached meanwhile.
uint32_t TableReader::slotAfter(const std::byte* key, const IterHint& hint) const {
  if (hint.generation != 0 && hint.slot < table_.plan.capacity &&
      hint.keyHash == keyMark(key, table_.plan.keySize)) {
    return static_cast<uint32_t>(hint.slot) + 1;
  }
  return slotAfterByIndex(key, table_.hashOf(key));
}

// The key's slot; else the one where it was last, if that has not been reused; else the place that
// the hash's upper half gives, as a fraction of the slots in use.
uint32_t TableReader::slotAfterByIndex(const std::byte* key, uint64_t hash) const {
  for (Attempts attempts(table_);; attempts.again()) {
    const uint32_t version = look(table_.header().indexVersion);
    std::optional<uint32_t> remembered;
    const bool present = probe(table_, hash, [&](uint32_t slot) {
      const SlotHead& head = table_.slot(slot);
      const uint32_t sequence = look(head.sequence);
      const bool live = kindOf(look(head.state)) == slotLive;
      const bool same = keyIs(table_, table_.entry(slot), key);
      const bool whole = live || (sequence & 1) == 0;
      if (same && whole && look(head.sequence) == sequence) remembered = slot;
      return same && live;
    });
    if (present && remembered) return *remembered + 1;
    if (!present && look(table_.header().indexVersion) == version) {
      return remembered ? *remembered + 1
                        : static_cast<uint32_t>((hash >> 32) * table_.highWater() >> 32);
    }
  }
}

}  // namespace Shoal
