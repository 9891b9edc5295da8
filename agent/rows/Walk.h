// Reads a table in pieces, in its own order, from its begin or from behind a key.
//
// Between two pieces nothing is held but the last row's key, which may be removed meanwhile.
#pragma once

#include <optional>
#include <vector>

#include "agent/CompleteWalk.h"
#include "agent/rows/Catalog.h"

namespace Agent::Rows {

class Walk {
 public:
  // `after`: a row with the key behind which to begin; null: from the begin.
  Walk(const OfferedTable& table, Vane::BaseRow after);

  // On the loop: makes `rows` the next ones, at most `limit`, and fewer when they are large; false
  // when they were the last. Throws CorruptionDetectedException when a whole table that nobody
  // changed had fewer rows than it says.
  bool step(size_t limit, std::vector<Vane::BaseRow>& rows);

 private:
  std::unique_ptr<Vane::VaRowIteratorImpl> position() const;

  const OfferedTable& table_;
  Vane::BaseRow after_;
  const bool whole_;
  std::optional<CompleteWalk> counted_;
};

}  // namespace Agent::Rows
