// Tells whether a walk over a table came to all of its rows.
//
// An iterator that comes to a corrupt part of a table ends there, as at the table's end. The table
// still says how many rows it holds.
#pragma once

#include <fmt/format.h>

#include <cstdint>
#include <string_view>

#include "platform/Guard/Exception.h"
#include "platform/Vane/VaTable.h"

namespace Agent {

class CompleteWalk {
 public:
  explicit CompleteWalk(const Vane::VaTableImplementation& table)
      : table_(&table), begunAt_(table.latestChangeIdx()) {}

  void visited() { ++visited_; }
  // At the end of the walk. Of a table that has changed meanwhile nothing can be said. Throws
  // CorruptionDetectedException.
  void needAll(std::string_view name) const {
    if (table_->latestChangeIdx() != begunAt_ || visited_ == table_->size()) return;
    Guard::CorruptionDetectedException::throwException(
        fmt::format("table {}: {} of {} rows could be read", name, visited_, table_->size()));
  }

 private:
  const Vane::VaTableImplementation* table_;
  uint64_t begunAt_;  // change index
  uint64_t visited_ = 0;
};

}  // namespace Agent
