// A table store in this process's memory, whose slot order is the order in which keys first came,
// and whose reads fail when a test says so.
#pragma once

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "platform/Guard/Exception.h"
#include "platform/Shoal/TableStore.h"

namespace adapter_tests {

class MemoryStore final : public Shoal::TableStore {
 public:
  explicit MemoryStore(Shoal::EntryLayout layout, Shoal::Mode mode = Shoal::Mode::writer,
                       uint64_t capacity = 64)
      : layout_(std::move(layout)), mode_(mode), capacity_(capacity) {}

  // The read after `reads` more calls `then`, which may throw.
  void interruptRead(int reads, std::function<void()> then) {
    readsLeft_ = reads;
    interruption_ = std::move(then);
  }
  void corruptRead(int reads, const std::string& message = "torn entry") {
    interruptRead(reads,
                  [message] { Guard::CorruptionDetectedException::throwException(message); });
  }
  int reads() const { return reads_; }
  int clears() const { return clears_; }
  // The hint that each step of a walk came with: 0 is a fresh one, n the one that the nth step
  // left.
  const std::vector<uint64_t>& hints() const { return hints_; }
  int capacityQuestions() const { return capacityQuestions_; }
  const std::vector<std::string>& corruptions() const { return corruptions_; }

  const std::string& path() const override { return path_; }
  const Shoal::EntryLayout& layout() const override { return layout_; }
  Shoal::Mode mode() const override { return mode_; }
  uint64_t capacity() const override {
    ++capacityQuestions_;
    return capacity_;
  }
  uint64_t size() const override {
    return static_cast<uint64_t>(std::ranges::count_if(slots_, &Slot::isLive));
  }
  uint64_t generation() const override { return 1; }

  bool lookup(Shoal::Bytes key, Shoal::MutableBytes entry) const override {
    countRead();
    const size_t slot = find(key);
    return slot != slots_.size() && slots_[slot].isLive && copyOut(slots_[slot], entry);
  }
  bool first(Shoal::IterHint& hint, Shoal::MutableBytes entry) const override {
    countRead();
    takeHint(hint);
    return liveFrom(0, entry);
  }
  // A key that was never here stands before every other.
  bool next(Shoal::Bytes key, Shoal::IterHint& hint, Shoal::MutableBytes entry) const override {
    countRead();
    takeHint(hint);
    const size_t slot = find(key);
    return liveFrom(slot == slots_.size() ? 0 : slot + 1, entry);
  }

  bool set(Shoal::Bytes key, Shoal::Bytes entry) override {
    std::vector<std::byte> bytes(entry.begin(), entry.end());
    size_t slot = find(key);
    if (size() == capacity_ && (slot == slots_.size() || !slots_[slot].isLive)) {
      Guard::MemoryResourceException::throwException("the table is full");
    }
    if (slot == slots_.size()) slots_.push_back({});
    const bool isNew = !slots_[slot].isLive;
    slots_[slot] = {true, std::move(bytes)};
    return isNew;
  }
  bool erase(Shoal::Bytes key) override {
    const size_t slot = find(key);
    if (slot == slots_.size()) return false;
    return std::exchange(slots_[slot].isLive, false);
  }
  void clear() override {
    ++clears_;
    slots_.clear();
  }
  void wakeFollowers() override {}
  void corruptionDetected(const std::string& message) override { corruptions_.push_back(message); }
  uint64_t corruptionsDetected() const override { return corruptions_.size(); }

 private:
  // A key keeps its slot when its entry is removed.
  struct Slot {
    bool isLive = false;
    std::vector<std::byte> entry;
  };

  size_t find(Shoal::Bytes key) const {
    return static_cast<size_t>(
        std::ranges::find_if(slots_,
                             [&](const Slot& slot) {
                               return std::memcmp(slot.entry.data() + layout_.keyOffset, key.data(),
                                                  key.size()) == 0;
                             }) -
        slots_.begin());
  }
  bool liveFrom(size_t slot, Shoal::MutableBytes entry) const {
    const auto live = std::find_if(slots_.begin() + static_cast<std::ptrdiff_t>(slot), slots_.end(),
                                   [](const Slot& s) { return s.isLive; });
    return live != slots_.end() && copyOut(*live, entry);
  }
  static bool copyOut(const Slot& slot, Shoal::MutableBytes entry) {
    std::ranges::copy(slot.entry, entry.begin());
    return true;
  }
  void takeHint(Shoal::IterHint& hint) const {
    hints_.push_back(hint.slot);
    hint.slot = hints_.size();
  }
  void countRead() const {
    ++reads_;
    if (readsLeft_ >= 0 && readsLeft_-- == 0) interruption_();
  }

  const std::string path_ = "memory";
  const Shoal::EntryLayout layout_;
  const Shoal::Mode mode_;
  const uint64_t capacity_;
  std::vector<Slot> slots_;
  std::vector<std::string> corruptions_;
  std::function<void()> interruption_;
  mutable int readsLeft_ = -1;
  mutable int reads_ = 0;
  mutable std::vector<uint64_t> hints_;
  mutable int capacityQuestions_ = 0;
  int clears_ = 0;
};

}  // namespace adapter_tests
