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
  if (std::ranges::find(observers_, observer) == observers_.end()) {
    observers_.push_back(std::move(observer));
  }
}

void DefaultVaTableImplementation::observerDel(const std::shared_ptr<VaTableObserver>& observer) {
  std::erase(observers_, observer);
}

void DefaultVaTableImplementation::pruneChanges() { cleanChanges(neededByNobody()); }

uint64_t DefaultVaTableImplementation::notifyObservers(uint64_t previous, uint64_t index,
                                                       bool deleted, const BaseRow& row) {
  // The list of this round keeps those alive that leave meanwhile, and leaves out those that join.
  const auto round = observers_;
  std::exception_ptr failure;
  for (const auto& observer : round) {
    if (std::ranges::find(observers_, observer) == observers_.end()) continue;
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
  uint64_t lowest = 0;
  bool any = false;
  std::erase_if(readers_, [&](const std::weak_ptr<ReaderPlace>& reader) {
    const auto place = reader.lock();
    if (!place) return true;
    lowest = any ? std::min(lowest, place->reached) : place->reached;
    any = true;
    return false;
  });
  return lowest;
}

}  // namespace Vane
