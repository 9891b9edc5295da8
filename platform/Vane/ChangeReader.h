// Follows the changes of one table by index.
//
// A reader remembers the index it has reached; the table keeps the changes above it. take() gives
// what came since, in order of index, one change per key. When the log no longer reaches back to
// the reader's index, or never came to it, the reader is told to read the table afresh, and goes on
// from the index that the table had then.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "platform/Vane/VaTable.h"

namespace Vane {

class ChangeReader {
 public:
  enum class Result { changes, none, readAfresh };

  // Starts after `reached`; 0 is before everything, so such a reader is told to read afresh first.
  ChangeReader(std::shared_ptr<VaTableImplementation> table, uint64_t reached);

  // Appends up to `limit` changes to `out`, moves on past them, and lets the table drop what no
  // reader needs any more. readAfresh: nothing is appended and the reader stands at the table's
  // latest index, from before anything that the caller reads now. Also when an
  // entry turns out corrupt, which its table has then been told. When reading a change throws
  // anything else, the changes before it have been appended, and the next call begins with it.
  Result take(std::vector<BasicVaTableChange>& out, size_t limit);

  // The index reached.
  uint64_t reached() const { return place_->reached; }
  const std::shared_ptr<VaTableImplementation>& table() const { return table_; }

 private:
  std::shared_ptr<VaTableImplementation> table_;
  std::shared_ptr<VaTableImplementation::ReaderPlace> place_;
};

}  // namespace Vane
