#include "agent/rows/Walk.h"

#include <fmt/format.h>

#include <utility>

#include "platform/Guard/Exception.h"

namespace Agent::Rows {

Walk::Walk(const OfferedTable& table, Vane::BaseRow after)
    : table_(table), after_(std::move(after)), whole_(after_.isNull()) {}

bool Walk::step(size_t limit, std::vector<Vane::BaseRow>& rows) {
  rows.clear();
  if (visited_ == 0) begunAt_ = table_.table().latestChangeIdx();
  const auto at = position();
  for (; *at && rows.size() < limit; ++*at) rows.push_back(**at);
  visited_ += rows.size();
  if (!rows.empty()) after_ = rows.back();
  const bool more = static_cast<bool>(*at);
  if (!more) checkCount();
  return more;
}

// A key that has gone is found where it stood: on the row behind it.
std::unique_ptr<Vane::VaRowIteratorImpl> Walk::position() const {
  if (after_.isNull()) return table_.table().begin(0);
  auto at = table_.table().find(after_, 0);
  if (*at && table_.sameKey(**at, after_)) ++*at;
  return at;
}

// A table that cannot be read on ends its walk like one that has been read.
void Walk::checkCount() const {
  const auto& table = table_.table();
  if (!whole_ || table.latestChangeIdx() != begunAt_ || visited_ == table.size()) return;
  Guard::CorruptionDetectedException::throwException(
      fmt::format("table {}: {} of {} rows could be read", table_.name(), visited_, table.size()));
}

}  // namespace Agent::Rows
