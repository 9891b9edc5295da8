// What a table entity is left with when its table has been unmounted: an empty table that refuses
// writes. Adapters that still hold the entity can go on asking.
#pragma once

#include <string>
#include <utility>

#include "platform/Hub/ReferenceHub.h"
#include "platform/Shoal/TableStore.h"

namespace Hub {

class DetachedStore final : public Shoal::TableStore {
 public:
  DetachedStore(std::string path, Shoal::EntryLayout layout)
      : path_(std::move(path)), layout_(std::move(layout)) {}

  const std::string& path() const override { return path_; }
  const Shoal::EntryLayout& layout() const override { return layout_; }
  Shoal::Mode mode() const override { return Shoal::Mode::snapshot; }
  uint64_t capacity() const override { return 0; }
  uint64_t size() const override { return 0; }
  uint64_t generation() const override { return 0; }
  bool lookup(Shoal::Bytes, Shoal::MutableBytes) const override { return false; }
  bool first(Shoal::IterHint&, Shoal::MutableBytes) const override { return false; }
  bool next(Shoal::Bytes, Shoal::IterHint&, Shoal::MutableBytes) const override { return false; }
  bool set(Shoal::Bytes, Shoal::Bytes) override { throwDetached(); }
  // Nothing is there to be removed.
  bool erase(Shoal::Bytes) override { return false; }
  void clear() override {}
  void wakeFollowers() override {}
  void corruptionDetected(const std::string&) override {}
  uint64_t corruptionsDetected() const override { return 0; }

 private:
  [[noreturn]] void throwDetached() const {
    MountException::throwException("writing table \"" + path_ + "\": it has been unmounted");
  }

  std::string path_;
  Shoal::EntryLayout layout_;
};

}  // namespace Hub
