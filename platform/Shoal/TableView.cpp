#include "platform/Shoal/TableView.h"

#include "platform/Guard/Exception.h"

namespace Shoal {

uint32_t TableView::highWater() const {
  const uint32_t value = look(header().highWater);
  if (value > plan.capacity) [[unlikely]] {
    corrupt("high water " + std::to_string(value) + " above the capacity " +
            std::to_string(plan.capacity));
  }
  return value;
}

uint32_t TableView::indexLevel() const {
  const uint32_t value = look(header().indexLevel);
  if (value >= plan.indexLevels) [[unlikely]] {
    corrupt("index level " + std::to_string(value) + " of " + std::to_string(plan.indexLevels));
  }
  return value;
}

void TableView::corrupt(const std::string& what) const {
  Guard::CorruptionDetectedException::throwException("shared table \"" + name + "\": " + what);
}

void TableView::corruptJournal(uint32_t slot) const {
  corrupt("slot " + std::to_string(slot) +
          " is being rewritten and the journal does not hold its entry");
}

}  // namespace Shoal
