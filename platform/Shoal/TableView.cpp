#include "platform/Shoal/TableView.h"

#include "platform/Guard/Exception.h"

namespace Shoal {

void TableView::corrupt(const std::string& what) const {
  Guard::CorruptionDetectedException::throwException("shared table \"" + name + "\": " + what);
}

void TableView::corruptHighWater(uint32_t value) const {
  corrupt("high water " + std::to_string(value) + " above the capacity " +
          std::to_string(plan.capacity));
}

void TableView::corruptIndexLevel(uint32_t value) const {
  corrupt("index level " + std::to_string(value) + " of " + std::to_string(plan.indexLevels));
}

void TableView::corruptJournal(uint32_t slot) const {
  corrupt("slot " + std::to_string(slot) +
          " is being rewritten and the journal does not hold its entry");
}

}  // namespace Shoal
