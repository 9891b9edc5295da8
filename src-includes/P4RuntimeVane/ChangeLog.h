// What has changed in one table since when: for every key its latest change, by a rising index.
//
//   index   key              the lowest bit says what the change did:
//   2       10.0.0.0/8       0  the entry exists (was added or changed)
//   5       10.1.0.0/16      1  the entry was removed
//
// Invariants: a key has at most one node, at its latest change; it stands in the key map exactly
// when it stands in the change map, and with the same index. Indices only grow. Every key that has
// changed above oldest() is there; what lies at or below it has been pruned. docs/change-log.md
// tells how readers use this.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <unordered_map>
#include <utility>

namespace P4RuntimeVane {

template <class Key, class Hash>
class ChangeLog {
 public:
  using Changes = std::map<uint64_t, Key>;
  using Position = typename Changes::const_iterator;

  // With room for `keys` keys before the key map has to grow.
  explicit ChangeLog(size_t keys, Hash hash = Hash()) : keys_(keys, std::move(hash)) {
    keys_.max_load_factor(1.0F);
  }

  static constexpr bool isRemoval(uint64_t index) { return (index & 1) != 0; }

  // The index up to which the log has been pruned.
  uint64_t oldest() const { return oldestChangeIdx_; }
  // The index of the latest change.
  uint64_t latest() const { return latestChangeIdx_; }
  // The number of keys in the log.
  size_t size() const { return changes_.size(); }

  // The key has changed; returns the change's index. On an exception the log is as it was.
  uint64_t record(const Key& key, bool removed) {
    const uint64_t index = next(removed);
    if (const auto known = keys_.find(key); known != keys_.end()) {
      move(known->second, index);
      known->second = index;
    } else {
      insert(index, key);
    }
    latestChangeIdx_ = index;
    return index;
  }

  // A change could not be recorded. It takes an index all the same and the log lets everything go
  // up to there, so that whoever asks for it is told to read the table afresh.
  void lose() noexcept {
    changes_.clear();
    keys_.clear();
    oldestChangeIdx_ = latestChangeIdx_ = next(false);
  }

  // Drops the changes up to and including `index`.
  void prune(uint64_t index) {
    while (!changes_.empty() && changes_.begin()->first <= index) {
      keys_.erase(changes_.begin()->second);
      changes_.erase(changes_.begin());
    }
    oldestChangeIdx_ = index;
  }

  // The first change above `index`.
  Position after(uint64_t index) const { return changes_.upper_bound(index); }
  Position end() const { return changes_.end(); }
  // The index at which the key stands; 0 for a key that is not in the log.
  uint64_t indexOf(const Key& key) const {
    const auto known = keys_.find(key);
    return known == keys_.end() ? 0 : known->second;
  }

 private:
  // Above the latest by 1, 2 or 3.
  uint64_t next(bool removed) const {
    const uint64_t index = latestChangeIdx_ + 2;
    return removed ? index | 1 : index & ~uint64_t{1};
  }

  // The node itself moves to the top: a key that changes again allocates nothing.
  void move(uint64_t from, uint64_t to) {
    auto node = changes_.extract(from);
    node.key() = to;
    changes_.insert(changes_.end(), std::move(node));
  }

  void insert(uint64_t index, const Key& key) {
    const auto node = changes_.emplace_hint(changes_.end(), index, key);
    try {
      keys_.emplace(key, index);
    } catch (...) {
      changes_.erase(node);
      throw;
    }
  }

  uint64_t oldestChangeIdx_ = 1;
  uint64_t latestChangeIdx_ = 1;
  Changes changes_;
  std::unordered_map<Key, uint64_t, Hash> keys_;
};

}  // namespace P4RuntimeVane
