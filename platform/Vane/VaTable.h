// A table of the row database, as the database sees it.
//
// A VaTableImplementation answers for the rows of one table: look-up, iteration, changes since an
// index, writes. It may hold its rows or make them on demand. Everything is called from one thread,
// the agent's.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "Vane/baseRow.h"
#include "platform/Vane/RowOps.h"

namespace Vane {

// Walks the rows of one index of a table. Made by the table, owned by the caller, which does not
// keep it longer than the table.
class VaRowIteratorImpl {
 public:
  virtual ~VaRowIteratorImpl() = default;
  // requires: stands on a row.
  virtual VaRowIteratorImpl& operator++() = 0;
  virtual BaseRow operator*() = 0;
  // For testing against end() only; other comparisons mean nothing. Another class of iterator is a
  // std::bad_cast.
  virtual bool operator==(const VaRowIteratorImpl& other) const = 0;
  virtual bool operator!=(const VaRowIteratorImpl& other) const = 0;
  virtual explicit operator bool() const = 0;  // stands on a row
  virtual std::unique_ptr<VaRowIteratorImpl> clone() const = 0;

 protected:
  VaRowIteratorImpl() = default;
  VaRowIteratorImpl(const VaRowIteratorImpl&) = default;
  VaRowIteratorImpl& operator=(const VaRowIteratorImpl&) = default;
};

// What a change did. The numbers are part of the contract.
enum class ChangeKind : uint32_t { exists = 1, removed = 2 };

// One change: its index, what it did, and a row: the entry as it is at the time of reading, or only
// the key of a removed entry.
class BasicVaTableChange {
 public:
  BasicVaTableChange(uint64_t index, ChangeKind kind, BaseRow row)
      : index_(index), kind_(kind), row_(std::move(row)) {}
  uint64_t index() const { return index_; }
  ChangeKind kind() const { return kind_; }
  const BaseRow& row() const { return row_; }

 private:
  uint64_t index_;
  ChangeKind kind_;
  BaseRow row_;
};

// Walks a table's changes in ascending order of index. Not to be kept across a change or a pruning
// of the table: ask nextChange() again.
class VaChangeIteratorImpl {
 public:
  virtual ~VaChangeIteratorImpl() = default;
  // requires: not at the end.
  virtual VaChangeIteratorImpl& operator++() = 0;
  virtual BasicVaTableChange operator*() = 0;
  // Another class of iterator is a std::bad_cast.
  virtual bool operator==(const VaChangeIteratorImpl& other) const = 0;
  virtual bool operator!=(const VaChangeIteratorImpl& other) const = 0;
  virtual std::unique_ptr<VaChangeIteratorImpl> clone() const = 0;

 protected:
  VaChangeIteratorImpl() = default;
  VaChangeIteratorImpl(const VaChangeIteratorImpl&) = default;
  VaChangeIteratorImpl& operator=(const VaChangeIteratorImpl&) = default;
};

// Is told of each change of a table as it happens. It may leave, or others may join, meanwhile.
//
// An observer that changes the table while it is told has its own change told to all, in full,
// before the round goes on: those behind it hear the higher index first. It must not let go of the
// last handle to the table meanwhile.
class VaTableObserver {
 public:
  virtual ~VaTableObserver() = default;
  // `previous` and `index` are the table's latest change index before and after; `row` as in
  // BasicVaTableChange, valid during the call only.
  virtual void onChange(uint64_t previous, uint64_t index, bool deleted, const BaseRow& row) = 0;
};

// Operations that a host may put in front of a table's own. Tables that have none pass null.
class VaTableOps {
 public:
  virtual ~VaTableOps() = default;
};

// Sees every row that is about to be written, when the host has switched it on. Inactive by
// default.
class VaRowHook {
 public:
  virtual ~VaRowHook() = default;
  virtual bool active() const { return false; }
  virtual BaseRow row(BaseRow& row, const BaseRow& empty) {
    static_cast<void>(empty);
    return row;
  }
};

class VaTableImplementation {
 public:
  virtual ~VaTableImplementation() = default;

  virtual bool readerSupported() const = 0;
  virtual bool modifierSupported() const = 0;
  virtual bool observerSupported() const = 0;
  virtual uint64_t size() const = 0;
  virtual uint8_t indexes() const = 0;  // number of indexes; index 0 is the primary
  virtual bool isUnique(uint8_t idx) const = 0;
  virtual bool isOrdered(uint8_t idx) const = 0;
  virtual std::shared_ptr<RowOpsBase> primaryRowOps() const = 0;

  virtual std::unique_ptr<VaRowIteratorImpl> begin(uint8_t idx) = 0;
  virtual std::unique_ptr<VaRowIteratorImpl> end(uint8_t idx) = 0;
  virtual std::unique_ptr<VaRowIteratorImpl> find(const BaseRow& keyRow, uint8_t idx) = 0;
  virtual BaseRow row(const BaseRow& keyRow, uint8_t idx) = 0;
  // As row(), but null for a key that is not there.
  virtual BaseRow rowIfPresent(const BaseRow& keyRow, uint8_t idx) = 0;
  // rows[i] becomes what row() gives for keyRows[i]. A table that makes its rows on demand can have
  // the ways to many of them in memory at once. What is in `rows` after an exception is not said.
  // requires: both have one size.
  virtual void rows(std::span<const BaseRow* const> keyRows, std::span<BaseRow> rows, uint8_t idx) {
    for (size_t i = 0; i < rows.size(); ++i) rows[i] = row(*keyRows[i], idx);
  }

  // The change log holds every change after oldestChangeIdx(), one per key. A reader that remembers
  // a lower index must read the table afresh.
  virtual uint64_t oldestChangeIdx() const = 0;
  virtual uint64_t latestChangeIdx() const = 0;
  virtual std::unique_ptr<VaChangeIteratorImpl> nextChange(uint64_t idx) = 0;
  virtual std::unique_ptr<VaChangeIteratorImpl> endChange() = 0;

  virtual void rowIs(BaseRow& row, bool flag) = 0;
  virtual void rowDel(const BaseRow& keyRow) = 0;
  virtual void rowDelAll() = 0;

  virtual const std::string& rowTypeName() const = 0;
  virtual uint16_t rowTypeId() const = 0;

  // A reader's place in the change log: what it has not reached yet is kept for it.
  class ReaderPlace {
   public:
    uint64_t reached = 0;
  };
  virtual std::shared_ptr<ReaderPlace> registerReader(uint64_t reached) = 0;
  // Joining twice is joining once.
  virtual void observerIs(std::shared_ptr<VaTableObserver> observer) = 0;
  virtual void observerDel(const std::shared_ptr<VaTableObserver>& observer) = 0;
  // Drops what no reader needs any more; called by the database after readers have moved on.
  virtual void pruneChanges() = 0;
};

// Where a table is in its life. A table that is not ready refuses nothing; it says that its rows
// may not all be there yet.
enum class TableState : uint8_t { created = 0, loading = 1, ready = 2 };

// Default answers for a table with a single index, and the change readers and observers of it.
class DefaultVaTableImplementation : public VaTableImplementation {
 public:
  using Options = std::unordered_map<std::string, std::string>;

  uint8_t indexes() const override { return 1; }
  // Index 0's flags; any other index is a VaOutOfRange, "Multiple indices not supported. idx:" and
  // it.
  bool isUnique(uint8_t idx) const override;
  bool isOrdered(uint8_t idx) const override;
  // Not supported: VaNotSupported, "primaryRowOps", a blank and the row type name.
  std::shared_ptr<RowOpsBase> primaryRowOps() const override;

  const std::string& rowTypeName() const override { return rowTypeName_; }
  uint16_t rowTypeId() const override { return rowTypeId_; }
  const std::string& tableTypeName() const { return tableTypeName_; }
  VaTableOps* ops() const { return ops_; }
  const Options& options() const { return options_; }

  TableState tableState() const { return state_; }
  void tableStateIs(TableState state) { state_ = state; }
  bool ready() const { return state_ == TableState::ready; }
  // A row may be dropped to make room for another.
  bool isBounded() const { return bounded_; }
  // The rows live outside the database and can change without its doing.
  bool isExternal() const { return external_; }

  // Null restores the inactive hook. A hook may be exchanged while it is asked.
  void rowHookIs(std::shared_ptr<VaRowHook> hook);

  std::shared_ptr<ReaderPlace> registerReader(uint64_t reached) override;
  void observerIs(std::shared_ptr<VaTableObserver> observer) override;
  void observerDel(const std::shared_ptr<VaTableObserver>& observer) override;
  void pruneChanges() override;

 protected:
  DefaultVaTableImplementation(std::string tableTypeName, std::string rowTypeName,
                               uint16_t rowTypeId, bool unique, bool bounded, bool external,
                               bool ordered, VaTableOps* ops, Options options);

  // How far back, in indices, a log reaches at the most: with two or three to a change these are
  // the latest two to four million changes. Older ones go even if a reader has not come to them.
  static constexpr uint64_t changeSpan = uint64_t{1} << 23;

  // Tells the observers of one change and returns the index up to which the log is needed by
  // nobody: the lowest that any registered reader has reached. With no reader registered the log is
  // kept for whoever comes, as far as changeSpan reaches. An exception from an observer keeps none
  // of the others from hearing; the first one passes on when all have been told.
  uint64_t notifyObservers(uint64_t previous, uint64_t index, bool deleted, const BaseRow& row);
  // Prunes the log up to `needed` if that is further than it has been pruned.
  void cleanChanges(uint64_t needed);
  // Drops the changes up to and including `idx`. A table without a change log has nothing to drop.
  virtual void cleanChangeMap(unsigned long long idx) { static_cast<void>(idx); }

  const std::shared_ptr<VaRowHook>& rowHook() const { return hook_; }

  // Flags of index 0, in the constructor's order.
  bool unique_;
  bool bounded_;
  bool external_;
  bool ordered_;

 private:
  uint64_t lowestReached() const;
  uint64_t neededByNobody() const;

  std::string tableTypeName_;
  std::string rowTypeName_;
  uint16_t rowTypeId_;
  TableState state_ = TableState::created;
  VaTableOps* ops_;
  Options options_;
  std::shared_ptr<VaRowHook> hook_;
  // A reader that has gone away leaves a place that is held here alone, dropped at the next look.
  mutable std::vector<std::shared_ptr<ReaderPlace>> readers_;
  // A round of notifications holds the list with which it began: it is then exchanged for another
  // one instead of being changed.
  using Observers = std::vector<std::shared_ptr<VaTableObserver>>;
  Observers& changeableObservers();
  std::shared_ptr<Observers> observers_ = std::make_shared<Observers>();
};

}  // namespace Vane
