// Changes to a mapped table, each of them whole or not at all at any moment, also for whoever reads
// after the writer was killed in the middle.
//
// Order of every operation: claim memory; operation record; the change, with one store that makes
// it count; the numbers that follow from it; the change ring; operation record cleared. All stores
// are in program order.
#pragma once

#include <algorithm>
#include <cstdint>

#include "platform/Shoal/Memory.h"
#include "platform/Shoal/TableIndex.h"
#include "platform/Shoal/TableView.h"

namespace Shoal {

template <class Shape>
class TableWriter {
 public:
  TableWriter(const ShapedView<Shape>& table, Memory& memory)
      : table_(table),
        header_(table.header()),
        memory_(memory),
        index_(table, memory),
        changesPerWake_(std::max(64u, table.plan.ringRecords / 64)) {}

  // Finishes or takes back the operation in which the last writer was killed. May itself be killed
  // and repeated. Claims again whatever the header says is claimed.
  void repair();

  bool set(const std::byte* key, const std::byte* entry);
  void reserve(uint64_t entries);
  bool erase(const std::byte* key);
  void clear();
  void wakeFollowers();

 private:
  // Of a key that is there, its slot, and noPlace; else the empty word of the index that its search
  // ended at.
  struct Found {
    uint32_t place = noPlace;
    uint32_t slot = 0;
  };
  Found find(const std::byte* key, uint64_t hash) const;
  void insert(uint64_t hash, uint32_t place, const std::byte* entry);
  void replace(uint32_t slot, const std::byte* entry);
  void eraseSlot(uint32_t slot);

  void recount();
  bool areAllListed() const;
  void listAll();

  uint32_t takeFreeSlot(uint32_t slot);
  uint32_t takeFreshSlot(uint32_t slot);
  void writeEntry(SlotHead& head, const std::byte* entry);
  void keepInJournal(uint32_t slot, uint32_t odd);

  void ensureSlot(uint32_t slot);
  void ensureChange();
  void ensureChanges(uint64_t count);
  void ensureRecord(uint32_t record);
  uint32_t claimElements(uint64_t offset, uint64_t stride, uint32_t claimed, uint32_t wanted,
                         uint32_t limit);

  void begin(OperationRecord::Kind kind, uint32_t slot, uint32_t odd = 0);
  void end(ChangeHead::Kind kind);
  void publish(ChangeHead::Kind kind, uint32_t slot);

  void repairInsert(uint32_t slot);
  void repairReplace(uint32_t slot);
  void repairErase(uint32_t slot);

  Header& header() const { return header_; }

  const ShapedView<Shape>& table_;
  Header& header_;
  Memory& memory_;
  IndexWriter<Shape> index_;
  // So many changes come between two wake-ups, if nobody asks for one sooner: a waking costs both
  // sides more than some dozens of changes. A sleeper is then far from missing any. A power of two.
  uint64_t changesPerWake_;
};

// What is wrong with the numbers in the header that the writer builds on: empty if nothing is.
std::string stateFault(const Header& header, const Plan& plan);

}  // namespace Shoal
