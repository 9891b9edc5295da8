// The reference table store: one attachment to one mapped table.
#pragma once

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/Kit/FileDescriptor.h"
#include "platform/Shoal/Memory.h"
#include "platform/Shoal/TableReader.h"
#include "platform/Shoal/TableStore.h"
#include "platform/Shoal/TableView.h"
#include "platform/Shoal/TableWriter.h"
#include "platform/Shoal/WriterLock.h"

namespace Shoal {

class Store final : public TableStore {
 public:
  // `lock` is the writer's, empty in other modes. requires: the memory holds a faultless table of
  // this plan.
  Store(Mode mode, EntryLayout layout, const Plan& plan, std::unique_ptr<Memory> memory,
        FileDescriptor lock, std::string path);
  ~Store() override;

  const std::string& path() const override { return view_.name; }
  const EntryLayout& layout() const override { return layout_; }
  Mode mode() const override { return mode_; }
  uint64_t capacity() const override { return view_.plan.capacity; }
  uint64_t size() const override {
    return std::min(look(view_.header().live), view_.plan.capacity);
  }
  uint64_t generation() const override { return look(view_.header().generation); }

  bool lookup(Bytes key, MutableBytes entry) const override;
  bool first(IterHint& hint, MutableBytes entry) const override;
  bool next(Bytes key, IterHint& hint, MutableBytes entry) const override;

  bool set(Bytes key, Bytes entry) override;
  bool erase(Bytes key) override;
  void clear() override;
  void wakeFollowers() override;

  void corruptionDetected(const std::string& message) override;
  uint64_t corruptionsDetected() const override { return corruptions_.load(); }

  const TableView& view() const { return view_; }

  // A private copy of `source`'s entries, in their slot order.
  static std::shared_ptr<Store> snapshotOf(const Store& source);

 private:
  TableWriter& writer(const char* call) {
    if (!lock_.isHeld()) [[unlikely]]
      throwNotWriter(call);
    return *writer_;
  }
  void checkKey(Bytes key) const {
    if (key.size() != view_.plan.keySize) [[unlikely]]
      throwSize("key", key.size(), view_.plan.keySize);
  }
  void checkEntry(Bytes entry) const {
    if (entry.size() != view_.plan.entrySize) [[unlikely]]
      throwSize("entry", entry.size(), view_.plan.entrySize);
  }
  [[noreturn]] void throwNotWriter(const char* call) const;
  [[noreturn]] void throwSize(const char* what, size_t found, size_t expected) const;

  Mode mode_;
  EntryLayout layout_;
  WriterLock lock_;
  std::unique_ptr<Memory> memory_;
  TableView view_;
  TableReader reader_;
  std::optional<TableWriter> writer_;
  std::atomic<uint64_t> corruptions_{0};
  mutable std::mutex corruptionMutex_;
  std::string lastCorruption_;
};

// Writes the first bytes of an empty table.
void format(Memory& memory, const EntryLayout& layout, const Plan& plan);

}  // namespace Shoal
