// The bytes of a table's file, field by field. docs/shared-table-format.md tells the same with
// pictures, and the rules by which the bytes are written and read.
//
//   0         512        page          page                  page                  page
//   | header  | journal  | slots       | index level 0, 1... | change ring         |
//     Header    2 records  capacity of   open addressing,      ringRecords of
//                          them          u32 words             them
//
// Everything is in host byte order, fixed-width and naturally aligned, the same for 32-bit and
// 64-bit processes. The file is sparse and has its full size from the start.
//
// Places are not taken from the file: they follow from the entry's shape and the capacity (Plan),
// and a header that says otherwise is refused. What remains to be believed are numbers of slots,
// levels and changes, each of which is checked where it is used.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "platform/Shoal/TableStore.h"

namespace Shoal {

inline constexpr uint32_t formatVersion = 1;
inline constexpr uint32_t byteOrderMark = 0x01020304;
inline constexpr std::array<char, 8> tableMagic{'S', 'H', 'O', 'A', 'L', 'T', 'B', 'L'};
inline constexpr uint32_t hashIdKeyHash = 1;  // the hash of KeyHash.h

inline constexpr uint32_t maxCapacity = 1u << 29;    // slots
inline constexpr uint32_t maxEntrySize = 16u << 10;  // bytes; a reader keeps a copy on its stack
inline constexpr uint32_t maxKeySize = 256;          // bytes
inline constexpr uint32_t maxTypeName = 127;         // bytes

inline constexpr uint64_t pageSize = 4096;  // regions start at multiples of this
inline constexpr uint32_t lineSize = 64;

// What the one unfinished operation is, if any. Written before the first byte that it changes, and
// cleared after the last; whoever attaches as the next writer finishes it or takes it back.
struct OperationRecord {
  enum Kind : uint32_t { none = 0, insert = 1, replace = 2, erase = 3 };

  uint32_t kind;
  uint32_t slot;
  uint32_t liveBefore;     // entries before the operation
  uint32_t sequence;       // replace: the slot's odd sequence while it is rewritten
  uint64_t changesBefore;  // changes before the operation
  uint32_t hole;           // 1 + place in the index whose word is being taken out; 0: none
  uint32_t journalTurn;    // the journal record that the next replace uses, in bit 0
};
static_assert(sizeof(OperationRecord) == 32);

struct Header {
  // What the table is. Never changes after creation.
  std::array<char, 8> magic;
  uint32_t version;
  uint32_t byteOrder;
  uint32_t headerSize;
  uint32_t hashId;
  uint64_t fileSize;
  uint32_t entrySize;
  uint32_t keyOffset;
  uint32_t keySize;
  uint32_t capacity;
  uint32_t slotStride;
  uint32_t journalStride;
  uint64_t layoutHash;
  uint64_t journalOffset;
  uint64_t slotsOffset;
  uint64_t indexOffset;
  uint64_t ringOffset;
  uint32_t indexLevels;
  uint32_t ringRecords;
  uint32_t ringStride;
  uint32_t reserved1[5];
  std::array<char, 128> typeName;  // zero-terminated, zero-filled

  // Who writes it, which changes when a writer attaches and detaches; and how far the slots go,
  // which a walk looks at in each step.
  uint64_t generation;
  uint64_t writerStart;  // start of the writer's process, in clock ticks after boot
  uint32_t writerPid;    // 0: the last writer has detached
  uint32_t highWater;    // slots that have ever been used: 0 to highWater - 1
  uint32_t reserved2[10];

  // What every look-up reads; changes seldom.
  uint32_t indexLevel;
  uint32_t indexVersion;  // rises whenever a word of the index moves to another place
  uint32_t reserved3[14];

  // How full it is, and what the writer is at.
  uint32_t live;          // entries
  uint32_t freeHead;      // 1 + the slot to be reused first; 0: none
  uint32_t slotsClaimed;  // slots whose memory is claimed
  uint32_t ringClaimed;   // change records whose memory is claimed
  uint32_t reserved4[4];
  OperationRecord operation;

  // Its changes.
  uint64_t changes;  // changes since creation: the number of the latest
  uint32_t wakes;    // the futex word: rises when followers are to wake
  uint32_t reserved5[13];
};
static_assert(offsetof(Header, typeName) == 128);
static_assert(offsetof(Header, generation) == 256);
static_assert(offsetof(Header, indexLevel) == 320);
static_assert(offsetof(Header, live) == 384);
static_assert(offsetof(Header, operation) == 416);
static_assert(offsetof(Header, changes) == 448);
static_assert(sizeof(Header) == 512 && std::is_trivially_copyable_v<Header>);

// In front of each entry in its slot.
struct SlotHead {
  uint32_t sequence;  // odd while the writer is inside
  uint32_t state;
};
static_assert(sizeof(SlotHead) == 8);

// A slot's state. Bits 0-1: its kind. A free slot keeps the key that was in it last, and in bits
// 2-31 has 1 + the next free slot (0: none).
enum SlotKind : uint32_t { slotEmpty = 0, slotLive = 1, slotFree = 2 };
constexpr uint32_t kindOf(uint32_t state) { return state & 3; }
constexpr uint32_t freeState(uint32_t nextFree) { return nextFree << 2 | slotFree; }
constexpr uint32_t nextFreeOf(uint32_t state) { return state >> 2; }

// The entry that a replace is about to overwrite, for readers that come in between and for repair.
// It counts while the slot that it names has the sequence that it names.
struct JournalHead {
  uint32_t sequence;  // the odd sequence; 0 while the record is being written
  uint32_t slot;      // 1 + the slot
};
inline constexpr uint32_t journalRecords = 2;

// One change in the ring. The key follows, padded to 8 bytes.
struct ChangeHead {
  enum Kind : uint32_t { set = 1, removed = 2 };

  uint64_t number;  // 0 while the record is being written
  uint32_t kind;
  uint32_t slot;
};
static_assert(sizeof(ChangeHead) == 16 && offsetof(ChangeHead, kind) == 8);

static_assert(__atomic_always_lock_free(4, nullptr) && __atomic_always_lock_free(8, nullptr),
              "the words are shared between processes");

constexpr uint64_t alignUp(uint64_t value, uint64_t alignment) {
  return (value + alignment - 1) / alignment * alignment;
}

// Where everything is, worked out from the shape of the entries and the capacity. Offsets are bytes
// from the start of the file.
struct Plan {
  static constexpr uint32_t smallestLevel = 1024;  // words
  static constexpr uint32_t maxLevels = 11;

  uint32_t entrySize = 0, keyOffset = 0, keySize = 0, capacity = 0;
  uint32_t slotStride = 0, journalStride = 0, ringStride = 0;
  uint32_t ringRecords = 0;  // a power of two
  uint32_t indexLevels = 0;
  uint32_t slotBits = 0;  // bits of an index word that hold 1 + slot; the others hold the hash tag
  uint64_t journalOffset = 0, slotsOffset = 0, indexOffset = 0, ringOffset = 0, fileSize = 0;
  std::array<uint32_t, maxLevels> levelWords{};  // powers of two, each four times the one before
  std::array<uint64_t, maxLevels> levelOffset{};

  // requires: the sizes are within the limits above.
  Plan(uint32_t entry, uint32_t keyAt, uint32_t key, uint32_t slots);

  // The bits of an index word that hold 1 + slot. The others hold the low bits of the hash, its
  // tag.
  uint32_t slotMask() const { return (1u << slotBits) - 1; }
  uint32_t tagOf(uint64_t hash) const { return static_cast<uint32_t>(hash) << slotBits; }
  uint32_t wordOf(uint64_t hash, uint32_t slot) const { return tagOf(hash) | (slot + 1); }
  bool tagMatches(uint32_t word, uint64_t hash) const { return (word ^ tagOf(hash)) <= slotMask(); }
  // The slot of an index word, or something not below capacity if the word is not one of ours.
  uint32_t slotOf(uint32_t word) const { return (word & slotMask()) - 1; }
};

// What the fixed part of a header must be for this table.
Header headerFor(const EntryLayout& layout, const Plan& plan);

// What is wrong with a header that was read from a file of this size: empty if nothing is, else a
// text that says what was found and what was expected.
std::string headerFault(const Header& header, uint64_t fileSize);

// What keeps an entry shape or a capacity from being made a table of: empty if nothing does.
std::string layoutFault(const EntryLayout& layout, uint64_t capacity);

// How the layout that was found differs from the one expected: empty if it does not.
std::string layoutDifference(const EntryLayout& found, const EntryLayout& expected);

// The layout that a faultless header tells of.
EntryLayout layoutOf(const Header& header);

}  // namespace Shoal
