// What any host's shared-memory table must do, in bytes.
//
// A table maps keys to entries. An entry is a fixed number of bytes and holds its own key at a
// fixed place; two keys are equal when their bytes are. ShoalMap puts the types on; the adapters
// see only that. One store is one attachment of one process to one table.
//
// Promises: an entry is read whole or not at all. A read does bounded work and then throws
// Guard::CorruptionDetectedException. A refused write leaves the table unchanged. Iteration is in
// slot order: it visits each entry that is there throughout exactly once, goes on from a key that
// has been removed, and ends.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace Shoal {

// How a process is attached. The numbers are part of the contract.
enum class Mode : uint8_t {
  writer = 0,    // the one process that may change the table
  reader = 1,    // reads, and can follow the writer's changes
  snapshot = 2,  // a copy as it was at attach; changes are not observed
};

// The shape of a table's entries.
struct EntryLayout {
  std::string
      typeName;  // the table entity's type, for example "P4RuntimeRouting::IpDestinationTable"
  uint32_t entrySize = 0;  // bytes
  uint32_t keyOffset = 0;  // bytes from the entry's start
  uint32_t keySize = 0;    // bytes

  friend bool operator==(const EntryLayout&, const EntryLayout&) = default;
};

// Where a walk stands. Kept by the walker between two steps of one walk; only the store looks
// inside.
struct IterHint {
  uint64_t slot = 0;        // slot at which the last step ended
  uint64_t generation = 0;  // table generation that the slot belongs to; 0: no slot yet
  uint64_t keyHash = 0;     // hash of the key last given out
};

using Bytes = std::span<const std::byte>;
using MutableBytes = std::span<std::byte>;

class TableStore {
 public:
  virtual ~TableStore() = default;
  TableStore(const TableStore&) = delete;
  TableStore& operator=(const TableStore&) = delete;

  virtual const std::string& path() const = 0;
  virtual const EntryLayout& layout() const = 0;
  virtual Mode mode() const = 0;
  virtual uint64_t capacity() const = 0;    // entries that the table can hold
  virtual uint64_t size() const = 0;        // entries now; never counts
  virtual uint64_t generation() const = 0;  // rises by one with every writer that attaches

  // Copies the entry of `key` out and answers true, or leaves `entry` as it is and answers false.
  virtual bool lookup(Bytes key, MutableBytes entry) const = 0;

  // Looks up as many keys as `found` has places, and answers for each of them as lookup() does. The
  // keys stand one behind the other, and so do the entries. A table that is larger than the caches
  // has the way to many entries in flight at once. When it throws, some of the answers may be
  // missing; whoever wants to know of which key asks for them one by one.
  virtual void lookupBatch(Bytes keys, MutableBytes entries, std::span<bool> found) const {
    const size_t keySize = layout().keySize, entrySize = layout().entrySize;
    for (size_t i = 0; i < found.size(); ++i) {
      found[i] =
          lookup(keys.subspan(i * keySize, keySize), entries.subspan(i * entrySize, entrySize));
    }
  }

  // Copies the first entry in slot order out.
  virtual bool first(IterHint& hint, MutableBytes entry) const = 0;

  // Copies out the entry that follows `key` in slot order. The hint of the walk that gave `key` out
  // makes this one step, and keeps the place of a key that has been removed. Without it (a fresh
  // hint), a key that is not in the table stands where it was last, while the table remembers that,
  // and else at a place that its hash gives.
  virtual bool next(Bytes key, IterHint& hint, MutableBytes entry) const = 0;

  // Copies out as many of the entries that follow as there is room for, or fewer, as so many calls
  // of next() do, and answers how many they were; 0: the walk is at its end. An empty `after`
  // begins with the first entry; it may be a part of `entries`. If one of them cannot be read,
  // those before it come first, and the exception with the next call.
  virtual size_t nextBatch(Bytes after, IterHint& hint, MutableBytes entries) const {
    const MutableBytes entry = entries.first(layout().entrySize);
    return (after.empty() ? first(hint, entry) : next(after, hint, entry)) ? 1 : 0;
  }

  // Read in one go by a walk: some dozens of entries, that stay in the nearest cache.
  static constexpr size_t bytesAtATime = 8192;

  // Hands every entry, in slot order and read a batch at a time, to `visit`.
  template <class Visit>
  void forEach(Visit&& visit) const {
    const EntryLayout& shape = layout();
    std::vector<std::byte> batch(std::max<size_t>(1, bytesAtATime / shape.entrySize) *
                                 shape.entrySize);
    Bytes last;
    IterHint hint;
    while (const size_t count = nextBatch(last, hint, batch)) {
      for (size_t i = 0; i < count; ++i) {
        visit(Bytes(batch).subspan(i * shape.entrySize, shape.entrySize));
      }
      last = Bytes(batch).subspan((count - 1) * shape.entrySize + shape.keyOffset, shape.keySize);
    }
  }

  // Inserts the entry, or replaces the entry of the same key. `key` is the key inside `entry`, or a
  // copy of it. Answers whether the key is new. Throws Guard::MemoryResourceException when the
  // table is at capacity or memory has run out, with the numbers; requires: mode is writer.
  virtual bool set(Bytes key, Bytes entry) = 0;

  // Claims all the memory that so many entries and their changes take, so that inserting them takes
  // no longer than writing them. Throws Guard::MemoryResourceException when there is not so much,
  // or when the table cannot hold them; the table is then as it was, but keeps what was claimed.
  // requires: mode is writer. A store whose memory is there in any case has nothing to do.
  virtual void reserve(uint64_t entries) { static_cast<void>(entries); }

  // Removes the entry of `key` and answers whether there was one; requires: mode is writer.
  virtual bool erase(Bytes key) = 0;

  // Removes every entry; requires: mode is writer.
  virtual void clear() = 0;

  // Wakes the followers in other processes that sleep until there is a change. A writer calls it
  // when it has finished a batch; the store does so itself every so many changes.
  virtual void wakeFollowers() = 0;

  // The table was found corrupt by somebody who read it; recorded and traced, never thrown.
  virtual void corruptionDetected(const std::string& message) = 0;
  virtual uint64_t corruptionsDetected() const = 0;

 protected:
  TableStore() = default;
};

}  // namespace Shoal
