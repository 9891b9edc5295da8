// A shared-memory table as a typed map, embedded in the entity that stands for it.
//
// The map is not initialized until the entity has been attached to a table; capacity() and size()
// are then those of the table. All reads copy entries out: the table may change at any moment.
#pragma once

#include <algorithm>
#include <memory>
#include <span>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/Guard/Exception.h"
#include "platform/Shoal/TableStore.h"

namespace Shoal {

// Entries that have fields of type bool name them: `static constexpr std::array truths{...}`.
template <class Entry>
concept NamesTruths = requires {
  Entry::truths;
};

// Key and Entry are plain bytes without hidden padding; where in an entry its key is, the table's
// layout says.
//
// Another process wrote the bytes. Any bytes are a number or an address, if not one that means
// something; but not a bool: an entry in which one is neither 0 nor 1 is not handed out, and
// reading it throws Guard::CorruptionDetectedException.
template <class Key, class Entry>
class ShoalMap {
  static_assert(std::is_trivially_copyable_v<Key> && std::is_trivially_copyable_v<Entry>);
  static_assert(std::has_unique_object_representations_v<Key> &&
                std::has_unique_object_representations_v<Entry>);

 public:
  ShoalMap() = default;
  ShoalMap(const ShoalMap&) = delete;
  ShoalMap& operator=(const ShoalMap&) = delete;

  bool initialized() const { return store_ != nullptr; }
  // The following require: initialized().
  Mode mode() const { return store_->mode(); }
  uint64_t capacity() const { return store_->capacity(); }
  uint64_t size() const { return store_->size(); }

  // The first entry in slot order, copied into `entry`; whether there is one.
  bool first(IterHint& hint, Entry& entry) const {
    return checked(store_->first(hint, bytesOf(entry)), entry);
  }
  // The entry that follows `key` in slot order. `key` may be a part of `entry`.
  bool next(const Key& key, IterHint& hint, Entry& entry) const {
    return checked(store_->next(bytesOf(key), hint, bytesOf(entry)), entry);
  }

  // Hands every entry, in slot order, to `visit`.
  template <class Visit>
  void forEach(Visit&& visit) const {
    const EntryLayout& shape = store_->layout();
    std::vector<Entry> batch(std::max<size_t>(1, TableStore::bytesAtATime / sizeof(Entry)));
    Bytes last;
    IterHint hint;
    while (const size_t count =
               store_->nextBatch(last, hint, std::as_writable_bytes(std::span(batch)))) {
      for (Entry& entry : std::span(batch).first(count)) {
        checked(true, entry);
        visit(std::as_const(entry));
      }
      last = bytesOf(std::as_const(batch[count - 1])).subspan(shape.keyOffset, shape.keySize);
    }
  }

  // The entry of `key` and true in `found`, or the empty entry (all zero) and false.
  Entry safeLookup(const Key& key, bool& found) const {
    Entry entry{};
    found = checked(store_->lookup(bytesOf(key), bytesOf(entry)), entry);
    return entry;
  }

  // Does for each key what safeLookup does: entries[i] and found[i] are those of keys[i]. What is
  // in them after an exception is not said. requires: the three have one size.
  void lookupBatch(std::span<const Key> keys, std::span<Entry> entries,
                   std::span<bool> found) const {
    std::ranges::fill(entries, Entry{});
    store_->lookupBatch(std::as_bytes(keys), std::as_writable_bytes(entries), found);
    for (size_t i = 0; i < keys.size(); ++i) checked(found[i], entries[i]);
  }

  // Inserts or replaces; answers whether the key is new. requires: mode() is writer.
  bool set(const Key& key, const Entry& entry) { return store_->set(bytesOf(key), bytesOf(entry)); }
  // Claims the memory of so many entries before they come. requires: mode() is writer.
  void reserve(uint64_t entries) { store_->reserve(entries); }
  bool erase(const Key& key) { return store_->erase(bytesOf(key)); }
  void clear() { store_->clear(); }

  void doCorruptionDetected(const std::string& message) const {
    store_->corruptionDetected(message);
  }

  // Walks without a hint kept by the caller.
  class BaseIterator {
   public:
    explicit BaseIterator(const ShoalMap& map) : map_(&map) {}
    bool next(const Key& key, Entry& entry) const {
      IterHint fresh;
      return map_->next(key, fresh, entry);
    }

   private:
    const ShoalMap* map_;
  };

  const std::shared_ptr<TableStore>& store() const { return store_; }
  void storeIs(std::shared_ptr<TableStore> store) { store_ = std::move(store); }

 private:
  template <class T>
  static Bytes bytesOf(const T& value) {
    return std::as_bytes(std::span<const T, 1>(&value, 1));
  }
  template <class T>
  static MutableBytes bytesOf(T& value) requires(!std::is_const_v<T>) {
    return std::as_writable_bytes(std::span<T, 1>(&value, 1));
  }

  // Passes `found` on. What is no entry does not stay in the caller's hands.
  bool checked(bool found, Entry& entry) const {
    if constexpr (NamesTruths<Entry>) {
      for (const auto truth : Entry::truths) {
        const auto byte = std::to_integer<unsigned>(bytesOf(entry.*truth)[0]);
        if (byte <= 1) [[likely]]
          continue;
        entry = Entry{};
        throwNoTruth(store_->path(), byte);
      }
    }
    return found;
  }
  [[noreturn]] static void throwNoTruth(const std::string& path, unsigned byte) {
    Guard::CorruptionDetectedException::throwException("shared table \"" + path + "\": a bool is " +
                                                       std::to_string(byte) + ", expected 0 or 1");
  }

  std::shared_ptr<TableStore> store_;
};

}  // namespace Shoal
