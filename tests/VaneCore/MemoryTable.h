// A table of the row database that holds its rows and its change log in the plainest way there is.
#pragma once

#include <map>
#include <memory>
#include <typeinfo>
#include <utility>
#include <vector>

#include "platform/Vane/VaTable.h"

namespace testing_tables {

// Rows of one u32 key column.
inline constexpr Vane::len_t keyColumn = 4;
inline constexpr Vane::len_t rowLength = 8;

inline Vane::BaseRow keyRow(uint32_t key) {
  Vane::BaseRow row(rowLength);
  row.setColumn<uint32_t>(keyColumn, key, rowLength);
  return row;
}
inline uint32_t keyOf(const Vane::BaseRow& row) { return row.getScalar<uint32_t>(keyColumn); }

class MemoryTable : public Vane::DefaultVaTableImplementation {
 public:
  struct Flags {
    bool unique = true;
    bool bounded = false;
    bool external = false;
    bool ordered = true;
  };
  MemoryTable() : MemoryTable(Flags{}) {}
  explicit MemoryTable(Flags flags, Options options = {})
      : DefaultVaTableImplementation("MemoryTable", "Test::First", 7, flags.unique, flags.bounded,
                                     flags.external, flags.ordered, nullptr, std::move(options)) {}

  // A change of one key, told to the observers.
  void change(uint32_t key, bool removed = false) {
    std::erase_if(log_, [key](const auto& node) { return node.second == key; });
    const uint64_t previous = latest_;
    latest_ = (latest_ + 2) & ~uint64_t{1};
    if (removed) ++latest_;
    log_[latest_] = key;
    cleanChanges(notifyObservers(previous, latest_, removed, keyRow(key)));
  }
  // As if so many changes had been before.
  void indexIs(uint64_t latest) { latest_ = latest; }
  // The next reading of a change of this key throws.
  void failReading(uint32_t key, bool corrupt = false) {
    unreadable_ = key;
    corrupt_ = corrupt;
  }
  const std::map<uint64_t, uint32_t>& log() const { return log_; }
  const std::vector<uint64_t>& prunings() const { return prunings_; }
  using DefaultVaTableImplementation::changeSpan;
  using DefaultVaTableImplementation::cleanChanges;
  using DefaultVaTableImplementation::rowHook;

  uint64_t oldestChangeIdx() const override { return oldest_; }
  uint64_t latestChangeIdx() const override { return latest_; }
  std::unique_ptr<Vane::VaChangeIteratorImpl> nextChange(uint64_t idx) override {
    return std::make_unique<Changes>(*this, log_.upper_bound(idx));
  }
  std::unique_ptr<Vane::VaChangeIteratorImpl> endChange() override {
    return std::make_unique<Changes>(*this, log_.end());
  }
  void cleanChangeMap(unsigned long long idx) override {
    log_.erase(log_.begin(), log_.upper_bound(idx));
    oldest_ = idx;
    prunings_.push_back(idx);
  }

  // Rows of their own are not this table's matter.
  bool readerSupported() const override { return false; }
  bool modifierSupported() const override { return false; }
  bool observerSupported() const override { return true; }
  uint64_t size() const override { return 0; }
  std::unique_ptr<Vane::VaRowIteratorImpl> begin(uint8_t) override { return nullptr; }
  std::unique_ptr<Vane::VaRowIteratorImpl> end(uint8_t) override { return nullptr; }
  std::unique_ptr<Vane::VaRowIteratorImpl> find(const Vane::BaseRow&, uint8_t) override {
    return nullptr;
  }
  Vane::BaseRow row(const Vane::BaseRow&, uint8_t) override { return Vane::BaseRow(); }
  Vane::BaseRow rowIfPresent(const Vane::BaseRow&, uint8_t) override { return Vane::BaseRow(); }
  void rowIs(Vane::BaseRow&, bool) override {}
  void rowDel(const Vane::BaseRow&) override {}
  void rowDelAll() override {}

 private:
  class Changes final : public Vane::VaChangeIteratorImpl {
   public:
    using Position = std::map<uint64_t, uint32_t>::const_iterator;
    Changes(MemoryTable& table, Position at) : table_(&table), at_(at) {}
    Changes& operator++() override {
      ++at_;
      return *this;
    }
    Vane::BasicVaTableChange operator*() override {
      if (at_->second == table_->unreadable_) {
        table_->unreadable_ = readable;
        if (table_->corrupt_) Guard::CorruptionDetectedException::throwException("torn");
        throw std::runtime_error("unreadable row");
      }
      const auto kind = at_->first % 2 ? Vane::ChangeKind::removed : Vane::ChangeKind::exists;
      return {at_->first, kind, keyRow(at_->second)};
    }
    bool operator==(const VaChangeIteratorImpl& other) const override {
      return at_ == dynamic_cast<const Changes&>(other).at_;
    }
    bool operator!=(const VaChangeIteratorImpl& other) const override { return !(*this == other); }
    std::unique_ptr<VaChangeIteratorImpl> clone() const override {
      return std::make_unique<Changes>(*this);
    }

   private:
    MemoryTable* table_;
    Position at_;
  };

  static constexpr uint32_t readable = 0xFFFFFFFF;

  std::map<uint64_t, uint32_t> log_;
  std::vector<uint64_t> prunings_;
  uint64_t oldest_ = 1;
  uint64_t latest_ = 1;
  uint32_t unreadable_ = readable;
  bool corrupt_ = false;
};

}  // namespace testing_tables
