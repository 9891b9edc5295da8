// A look through the whole of a table: whether its parts are what docs/shared-table-format.md says
// and agree with each other. Reads only; the writer may be at work.
//
// What looks wrong is looked at again before it counts, because a change may have been half done
// the first time. The numbers of entries, free slots and index words are compared only if nothing
// was changed during the look.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/Shoal/TableStore.h"

namespace Shoal {

struct TableCheck {
  uint64_t entries = 0;
  uint64_t freeSlots = 0;
  uint64_t indexWords = 0;  // in the level in use
  uint64_t changes = 0;     // in the ring
  bool isCounted = false;   // nothing was changed meanwhile: the numbers were compared
  // The same operation was under way before and after: its writer was killed or is stopped in it.
  // The next writer finishes it or takes it back.
  bool isUnfinished = false;
  uint64_t faultCount = 0;
  std::vector<std::string> faults;  // the first of them
};

inline constexpr size_t maxFaultsTold = 20;

// requires: `store` was made by attachReader or attachWriter.
TableCheck checkTable(const TableStore& store);

}  // namespace Shoal
