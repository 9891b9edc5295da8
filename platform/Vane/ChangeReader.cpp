#include "platform/Vane/ChangeReader.h"

#include <utility>

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
    // The place moves on with each change, so that a row that cannot be read costs no other.
    for (; out.size() - before < limit && *change != *end; ++*change) {
      out.push_back(**change);
      place_->reached = out.back().index();
    }
  }
  table_->pruneChanges();
  return out.size() == before ? Result::none : Result::changes;
}

}  // namespace Vane
