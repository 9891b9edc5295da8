#include "platform/Vane/ChangeReader.h"

#include <cstddef>
#include <utility>

#include "platform/Guard/Exception.h"

namespace Vane {

ChangeReader::ChangeReader(std::shared_ptr<VaTableImplementation> table, uint64_t reached)
    : table_(std::move(table)), place_(table_->registerReader(reached)) {}

ChangeReader::Result ChangeReader::take(std::vector<BasicVaTableChange>& out, size_t limit) {
  const uint64_t latest = table_->latestChangeIdx();
  if (reached() < table_->oldestChangeIdx() || reached() > latest) {
    place_->reached = latest;
    table_->pruneChanges();
    return Result::readAfresh;
  }
  const size_t before = out.size();
  {
    const auto end = table_->endChange();
    const auto change = table_->nextChange(reached());
    // The place moves on with each change, so that an error in between costs none of them.
    try {
      for (; out.size() - before < limit && *change != *end; ++*change) {
        out.push_back(**change);
        place_->reached = out.back().index();
      }
    } catch (const Guard::CorruptionDetectedException&) {
      // The entry may stay unreadable. The table has been told; the reader is not held up for ever.
      out.erase(out.begin() + static_cast<std::ptrdiff_t>(before), out.end());
      place_->reached = latest;
      table_->pruneChanges();
      return Result::readAfresh;
    }
  }
  table_->pruneChanges();
  return out.size() == before ? Result::none : Result::changes;
}

}  // namespace Vane
