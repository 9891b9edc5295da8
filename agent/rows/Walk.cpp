#include "agent/rows/Walk.h"

#include <utility>

namespace Agent::Rows {
namespace {

constexpr size_t mostBytes = 512 << 10;  // of the rows of a step, but for the last one

}  // namespace

Walk::Walk(const OfferedTable& table, Vane::BaseRow after)
    : table_(table), after_(std::move(after)), whole_(after_.isNull()) {}

bool Walk::step(size_t limit, std::vector<Vane::BaseRow>& rows) {
  rows.clear();
  if (!counted_) counted_.emplace(table_.table());
  const auto at = position();
  size_t bytes = 0;
  for (; *at && rows.size() < limit && bytes < mostBytes; ++*at) {
    counted_->visited();
    rows.push_back(**at);
    bytes += rows.back().rowLength();
  }
  if (!rows.empty()) after_ = rows.back();
  const bool more = static_cast<bool>(*at);
  if (!more && whole_) counted_->needAll(table_.name());
  return more;
}

// A key that has gone is found where it stood: on the row behind it.
std::unique_ptr<Vane::VaRowIteratorImpl> Walk::position() const {
  if (after_.isNull()) return table_.table().begin(0);
  auto at = table_.table().find(after_, 0);
  if (*at && table_.sameKey(**at, after_)) ++*at;
  return at;
}

}  // namespace Agent::Rows
