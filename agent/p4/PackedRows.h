// Rows one behind the other in one buffer: a batch's rows, until the turn of each comes. They cost
// no allocation each, and lie in the order in which they are wanted.
#pragma once

#include <cstdint>
#include <vector>

#include "agent/p4/Roles.h"

namespace Agent::P4 {

class PackedRows {
 public:
  // Appends the row of these values, one per column. Returns its place.
  //
  // requires: values[i] holds the type of the role's column i; together they make a row.
  size_t add(const Role& role, const std::vector<Vane::ColumnValue>& values);
  // Makes `row` the one at a place. Its buffer is used again if it fits and nobody else has it.
  void get(size_t place, Vane::BaseRow& row) const;
  void clear() { bytes_.clear(); }

 private:
  std::vector<uint8_t> bytes_;
  Vane::BaseRow made_;  // the last one, for its buffer
};

}  // namespace Agent::P4
