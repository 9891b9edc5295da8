#include "platform/Vane/VaTable.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace Vane {
namespace {

void needPrimary(uint8_t idx) {
  if (idx != 0) {
    VaOutOfRange::throwException("Multiple indices not supported. idx:" + std::to_string(idx));
  }
}

}  // namespace

DefaultVaTableImplementation::DefaultVaTableImplementation(
    std::string tableTypeName, std::string rowTypeName, uint16_t rowTypeId, bool unique,
    bool bounded, bool external, bool ordered, VaTableOps* ops, Options options)
    : unique_(unique),
      bounded_(bounded),
      external_(external),
      ordered_(ordered),
      tableTypeName_(std::move(tableTypeName)),
      rowTypeName_(std::move(rowTypeName)),
      rowTypeId_(rowTypeId),
      ops_(ops),
      options_(std::move(options)),
      hook_(std::make_shared<VaRowHook>()) {}

bool DefaultVaTableImplementation::isUnique(uint8_t idx) const {
  needPrimary(idx);
  return unique_;
}

bool DefaultVaTableImplementation::isOrdered(uint8_t idx) const {
  needPrimary(idx);
  return ordered_;
}

std::shared_ptr<RowOpsBase> DefaultVaTableImplementation::primaryRowOps() const {
  VaNotSupported::throwException("primaryRowOps " + rowTypeName_);
}

void DefaultVaTableImplementation::rowHookIs(std::shared_ptr<VaRowHook> hook) {
  hook_ = hook ? std::move(hook) : std::make_shared<VaRowHook>();
}

std::shared_ptr<VaTableImplementation::ReaderPlace> DefaultVaTableImplementation::registerReader(
    uint64_t reached) {
  auto place = std::make_shared<ReaderPlace>();
  place->reached = reached;
  readers_.push_back(place);
  return place;
}

void DefaultVaTableImplementation::observerIs(std::shared_ptr<VaTableObserver> observer) {
  if (std::ranges::find(*observers_, observer) == observers_->end()) {
    changeableObservers().push_back(std::move(observer));
  }
}

void DefaultVaTableImplementation::observerDel(const std::shared_ptr<VaTableObserver>& observer) {
  std::erase(changeableObservers(), observer);
}

DefaultVaTableImplementation::Observers& DefaultVaTableImplementation::changeableObservers() {
  if (observers_.use_count() != 1) observers_ = std::make_shared<Observers>(*observers_);
  return *observers_;
}

void DefaultVaTableImplementation::pruneChanges() { cleanChanges(neededByNobody()); }

uint64_t DefaultVaTableImplementation::notifyObservers(uint64_t previous, uint64_t index,
                                                       bool deleted, const BaseRow& row) {
  if (observers_->empty()) return neededByNobody();
  // The list of this round keeps those alive that leave meanwhile, and leaves out those that join.
  const std::shared_ptr<const Observers> round = observers_;
  const auto hasLeft = [&](const std::shared_ptr<VaTableObserver>& observer) {
    return round != observers_ && std::ranges::find(*observers_, observer) == observers_->end();
  };
  std::exception_ptr failure;
  for (const auto& observer : *round) {
    if (hasLeft(observer)) continue;
    try {
      observer->onChange(previous, index, deleted, row);
    } catch (...) {
      if (!failure) failure = std::current_exception();
    }
  }
  if (failure) std::rethrow_exception(failure);
  return neededByNobody();
}

uint64_t DefaultVaTableImplementation::neededByNobody() const {
  const uint64_t latest = latestChangeIdx();
  return std::max(lowestReached(), latest > changeSpan ? latest - changeSpan : 0);
}

void DefaultVaTableImplementation::cleanChanges(uint64_t needed) {
  // A reader may claim an index that the table has not come to yet, one from its life before a
  // restart for example.
  needed = std::min(needed, latestChangeIdx());
  if (needed > oldestChangeIdx()) cleanChangeMap(needed);
}

uint64_t DefaultVaTableImplementation::lowestReached() const {
  if (readers_.empty()) return 0;
  std::erase_if(readers_, [](const auto& place) { return place.use_count() == 1; });
  uint64_t lowest = readers_.empty() ? 0 : readers_.front()->reached;
  for (const auto& place : readers_) lowest = std::min(lowest, place->reached);
  return lowest;
}

}  // namespace Vane
