// The reference table store: one attachment to one mapped table.
#pragma once

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "platform/Kit/FileDescriptor.h"
#include "platform/Shoal/Memory.h"
#include "platform/Shoal/TableStore.h"
#include "platform/Shoal/TableView.h"
#include "platform/Shoal/WriterLock.h"

namespace Shoal {

// What does not depend on the shape of the entries.
class Store : public TableStore {
 public:
  // `lock` is the writer's, empty in other modes. requires: the memory holds a faultless table of
  // this plan.
  static std::shared_ptr<Store> make(Mode mode, EntryLayout layout, const Plan& plan,
                                     std::unique_ptr<Memory> memory, FileDescriptor lock,
                                     std::string path);
  // A private copy of `source`'s entries, in their slot order.
  static std::shared_ptr<Store> snapshotOf(const Store& source);

  const std::string& path() const final { return view_.name; }
  const EntryLayout& layout() const final { return layout_; }
  Mode mode() const final { return mode_; }
  uint64_t capacity() const final { return view_.plan.capacity; }
  uint64_t size() const final { return std::min(look(view_.header().live), view_.plan.capacity); }
  uint64_t generation() const final { return look(view_.header().generation); }

  void corruptionDetected(const std::string& message) final;
  uint64_t corruptionsDetected() const final { return corruptions_.load(); }

  const TableView& view() const { return view_; }

 protected:
  Store(Mode mode, EntryLayout layout, const Plan& plan, std::unique_ptr<Memory> memory,
        FileDescriptor lock, std::string path)
      : mode_(mode),
        layout_(std::move(layout)),
        lock_(std::move(lock)),
        memory_(std::move(memory)),
        view_{memory_->base(), plan, std::move(path)} {}

  void needWriter(const char* call) const {
    if (!lock_.isHeld()) [[unlikely]]
      throwNotWriter(call);
  }
  void need(const char* what, size_t size, size_t expected) const {
    if (size != expected) [[unlikely]]
      throwSize(what, size, expected);
  }
  bool isWriter() const { return lock_.isHeld(); }
  Memory& memory() { return *memory_; }
  // Notes who writes, for those who ask.
  void noteWriter();

 private:
  [[noreturn]] void throwNotWriter(const char* call) const;
  [[noreturn]] void throwSize(const char* what, size_t found, size_t expected) const;

  Mode mode_;
  EntryLayout layout_;
  WriterLock lock_;
  std::unique_ptr<Memory> memory_;
  const TableView view_;
  std::atomic<uint64_t> corruptions_{0};
  mutable std::mutex corruptionMutex_;
  std::string lastCorruption_;
};

// Writes the first bytes of an empty table.
void format(Memory& memory, const EntryLayout& layout, const Plan& plan);

}  // namespace Shoal
