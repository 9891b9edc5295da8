#include "platform/Shoal/TableReader.h"

#include <algorithm>
#include <array>
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

  [[gnu::cold]] void again() {
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

}  // namespace

template <class Shape>
bool TableReader<Shape>::lookup(const std::byte* key, uint64_t hash, std::byte* entry) const {
  for (Attempts attempts(table_);; attempts.again()) {
    const uint32_t version = look(table_.header().indexVersion);
    Seen seen = Seen::absent;
    const uint32_t end = probe(table_, hash, [&](uint32_t slot) {
      seen = readSlot(table_, table_.slot(slot), key, entry);
      return seen == Seen::whole || seen == Seen::moved;
    });
    const bool isDecided = end == noPlace;
    if (isDecided && seen == Seen::whole) return true;
    if (!isDecided && look(table_.header().indexVersion) == version) return false;
  }
}

// Two misses lie on the way to an entry, its word in the index and its slot: first all of the one
// kind are asked for, then all of the other, then the entries are looked up.
template <class Shape>
void TableReader<Shape>::lookupBatch(const std::byte* keys, std::byte* entries,
                                     std::span<bool> found) const {
  constexpr size_t inFlight = 16;
  const Shape& shape = table_.shape;
  std::array<uint64_t, inFlight> hashes;
  for (; !found.empty(); found = found.subspan(std::min(inFlight, found.size()))) {
    const size_t count = std::min(inFlight, found.size());
    const IndexLevel level(table_);
    for (size_t i = 0; i < count; ++i) {
      hashes[i] = table_.hashOf(keys + i * shape.keySize);
      __builtin_prefetch(level.home(hashes[i]));
    }
    for (size_t i = 0; i < count; ++i) {
      const uint32_t word = look(*level.home(hashes[i]));
      const uint32_t slot = table_.plan.slotOf(word);
      const bool isWorthIt = slot < table_.plan.capacity && table_.plan.tagMatches(word, hashes[i]);
      if (isWorthIt) __builtin_prefetch(&table_.slot(slot));
    }
    for (size_t i = 0; i < count; ++i, keys += shape.keySize, entries += shape.entrySize) {
      found[i] = lookup(keys, hashes[i], entries);
    }
  }
}

template <class Shape>
[[gnu::noinline]] Seen TableReader<Shape>::readAgain(const SlotHead& slot, std::byte* entry) const {
  Seen seen = Seen::moved;
  for (Attempts attempts(table_); seen == Seen::moved; attempts.again()) {
    seen = readSlot(table_, slot, nullptr, entry);
  }
  return seen;
}

// An entry that cannot be read is for the next call to tell of, if there are others before it.
template <class Shape>
size_t TableReader<Shape>::next(const std::byte* key, IterHint& hint, std::byte* entries,
                                size_t room) const {
  const Shape& shape = table_.shape;
  const size_t stride = table_.slotStride();
  const auto* at =
      reinterpret_cast<const std::byte*>(&table_.slot(key != nullptr ? slotAfter(key, hint) : 0));
  const auto* const end = reinterpret_cast<const std::byte*>(&table_.slot(table_.highWater()));
  std::byte* out = entries;
  std::byte* const full = entries + room * shape.entrySize;
  try {
    for (; at < end && out != full; at += stride) {
      const auto& slot = *reinterpret_cast<const SlotHead*>(at);
      Seen seen = readSlot(table_, slot, nullptr, out);
      if (seen == Seen::moved) [[unlikely]]
        seen = readAgain(slot, out);
      if (seen == Seen::whole) out += shape.entrySize;
    }
  } catch (const Guard::CorruptionDetectedException&) {
    if (out == entries) throw;
  }
  if (out == entries) return 0;
  hint.slot = table_.slotOf(*reinterpret_cast<const SlotHead*>(at)) - 1;
  // 0 is for "no slot yet", also in a table that says so of itself.
  hint.generation = std::max<uint64_t>(1, look(table_.header().generation));
  hint.keyHash = keyMark(out - shape.entrySize + shape.keyOffset, shape.keySize);
  return static_cast<size_t>(out - entries) / shape.entrySize;
}

// Slots outlive a writer, so that a hint stays good when another one has attached meanwhile.
template <class Shape>
uint32_t TableReader<Shape>::slotAfter(const std::byte* key, const IterHint& hint) const {
  if (hint.generation != 0 && hint.slot < table_.plan.capacity &&
      hint.keyHash == keyMark(key, table_.shape.keySize)) {
    return static_cast<uint32_t>(hint.slot) + 1;
  }
  return slotAfterByIndex(key, table_.hashOf(key));
}

// The key's slot; else the one where it was last, if that has not been reused; else the place that
// the hash's upper half gives, as a fraction of the slots in use.
template <class Shape>
uint32_t TableReader<Shape>::slotAfterByIndex(const std::byte* key, uint64_t hash) const {
  for (Attempts attempts(table_);; attempts.again()) {
    const uint32_t version = look(table_.header().indexVersion);
    std::optional<uint32_t> remembered;
    const uint32_t end = probe(table_, hash, [&](uint32_t slot) {
      const SlotHead& head = table_.slot(slot);
      const uint32_t sequence = look(head.sequence);
      const bool live = kindOf(look(head.state)) == slotLive;
      const bool same = keyIs(table_, table_.entry(slot), key);
      const bool whole = live || (sequence & 1) == 0;
      if (same && whole && look(head.sequence) == sequence) remembered = slot;
      return same && live;
    });
    const bool present = end == noPlace;
    if (present && remembered) return *remembered + 1;
    if (!present && look(table_.header().indexVersion) == version) {
      return remembered ? *remembered + 1
                        : static_cast<uint32_t>((hash >> 32) * table_.highWater() >> 32);
    }
  }
}

template class TableReader<PrefixShape>;
template class TableReader<VrfPrefixShape>;
template class TableReader<SmallShape>;
template class TableReader<LargeShape>;

}  // namespace Shoal
