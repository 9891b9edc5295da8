// What has changed in one table since when: for every key its latest change, by a rising index.
//
//   index   key              the lowest bit says what the change did:
//   2       10.0.0.0/8       0  the entry exists (was added or changed)
//   5       10.1.0.0/16      1  the entry was removed
//
// Invariants: a key has at most one change here, its latest; it is found by its key exactly when it
// is found by its index. Indices only grow. Every key that has changed above oldest() is there;
// what lies at or below it has been pruned. docs/change-log.md tells how readers use this.
//
// Because indices only grow, the map from index to key is a list to whose end every change is
// appended, in blocks of memory that do not move. A key that changes again leaves a grave at its
// old place; when there are more graves than changes the list closes up. The map from key to index
// has the list's places: chains, of which each change holds its own link. A head also has marks, by
// the hash, of the keys in its chain: a key whose mark is not there is not in the chain, and
// nothing but the head has to be looked at.
//
//   heads   . . 5 . . 3 .      by the key's hash; one for each key that the log was made for
//                 |     |
//   places  1 2 3 4 5         + is a grave
//           . + . + .
//                 ^----- the end: the next change comes here
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

namespace P4RuntimeVane {

template <class Key, class Hash>
class ChangeLog {
  static_assert(std::is_nothrow_copy_constructible_v<Key> && std::is_trivially_destructible_v<Key>);

  // A place in the list, from 0.
  using Place = uint32_t;

 public:
  // The latest change of a key.
  class Change {
   public:
    Change(uint64_t changeIndex, const Key& changedKey) : index(changeIndex), key(changedKey) {}
    uint64_t index;
    Key key;

   private:
    friend class ChangeLog;
    // Of a change: the next of its chain, counted from 1, or 0. Of a grave: its mark, and a place
    // above with nothing but graves between, which is moved up by whoever finds a higher one.
    mutable Place link = 0;
  };

  // Good until the log changes.
  class Position {
   public:
    const Change& operator*() const { return log_->at(place_); }
    const Change* operator->() const { return &log_->at(place_); }
    Position& operator++() {
      place_ = log_->changeFrom(place_ + 1);
      return *this;
    }
    bool operator==(const Position&) const = default;

   private:
    friend class ChangeLog;
    Position(const ChangeLog* log, Place place) : log_(log), place_(place) {}
    const ChangeLog* log_;
    Place place_;
  };

  // With room for `keys` keys before the heads have to become more.
  explicit ChangeLog(size_t keys, Hash hash = Hash())
      : hash_(std::move(hash)), heads_(std::bit_ceil(std::max<size_t>(keys, 1))) {}

  static constexpr bool isRemoval(uint64_t index) { return (index & 1) != 0; }

  // The index up to which the log has been pruned.
  uint64_t oldest() const { return oldestChangeIdx_; }
  // The index of the latest change.
  uint64_t latest() const { return latestChangeIdx_; }
  // The number of keys in the log.
  size_t size() const { return size_; }

  // The key has changed; returns the change's index. On an exception the log is as it was.
  uint64_t record(const Key& key, bool removed) {
    const uint64_t index = next(removed);
    const uint64_t hash = spread(key);
    Found found = find(key, hash);
    if (found.place != 0 && found.place == end_) {
      at(end_ - 1).index = index;
    } else if (found.place != 0) {
      if (makeRoomAtEnd()) found = find(key, hash);
      std::construct_at(&at(end_), index, key);
      relink(found, end_++, hash);
      bury(found.place - 1);
    } else {
      if (size_ == heads_.count) moreHeads();
      makeRoomAtEnd();
      std::construct_at(&at(end_), index, key);
      linkIn(end_++, hash);
      ++size_;
    }
    latestChangeIdx_ = index;
    return index;
  }

  // The key is about to be recorded: has the memory come that this will look at first.
  void expect(const Key& key) const { __builtin_prefetch(&heads_.of(spread(key)), 1); }

  // A change could not be recorded. It takes an index all the same and the log lets everything go
  // up to there, so that whoever asks for it is told to read the table afresh.
  void lose() noexcept { prune(latestChangeIdx_ = next(false)); }

  // Drops the changes up to and including `index`.
  void prune(uint64_t index) noexcept {
    while (first_ != end_ && at(first_).index <= index) {
      const Key& key = at(first_).key;
      const uint64_t hash = spread(key);
      unlink(find(key, hash), hash);
      --size_;
      firstIs(changeFrom(first_ + 1));
    }
    oldestChangeIdx_ = index;
  }

  // The first change above `index`.
  Position after(uint64_t index) const {
    // Readers are for the most part not far behind: from the end back in growing steps, and then by
    // halves.
    const Place places = end_ - first_;
    Place step = 1;
    while (step <= places && at(end_ - step).index > index) step *= 2;
    Place low = step <= places ? end_ - step + 1 : first_;
    Place high = end_ - step / 2;
    while (low < high) {
      const Place middle = low + (high - low) / 2;
      if (at(middle).index > index) {
        high = middle;
      } else {
        low = middle + 1;
      }
    }
    return {this, changeFrom(low)};
  }
  Position end() const { return {this, end_}; }
  // The index at which the key stands; 0 for a key that is not in the log.
  uint64_t indexOf(const Key& key) const {
    const Place found = find(key, spread(key)).place;
    return found == 0 ? 0 : at(found - 1).index;
  }

 private:
  static constexpr Place grave = Place{1} << 31;
  static constexpr Place blockPlaces = 1024;

  struct Deallocate {
    void operator()(Change* block) const {
      std::allocator<Change>().deallocate(block, blockPlaces);
    }
  };
  using Block = std::unique_ptr<Change, Deallocate>;

  // In memory that is zero, and is not there before it is written to.
  //
  //   bits 0 to placeBits - 1   the first of the chain, counted from 1; 0: there is no chain
  //   the others                marks
  struct Heads {
    struct Free {
      void operator()(uint32_t* heads) const { std::free(heads); }
    };
    explicit Heads(size_t heads)
        : words(static_cast<uint32_t*>(std::calloc(heads, sizeof(uint32_t)))),
          count(heads),
          placeBits(std::bit_width(2 * heads + 3 * blockPlaces)) {
      if (!words) throw std::bad_alloc();
    }

    uint32_t& of(uint64_t hash) const { return words.get()[(hash >> 32) & (count - 1)]; }
    Place placeIn(uint32_t head) const { return head & ((uint32_t{1} << placeBits) - 1); }
    // The mark of a key, as its head has it.
    uint32_t mark(uint64_t hash) const {
      const auto marks = static_cast<uint64_t>(32 - placeBits);
      return uint32_t{1} << (placeBits + static_cast<int>((hash & 0xFFFFFFFF) * marks >> 32));
    }

    std::unique_ptr<uint32_t, Free> words;
    size_t count;   // a power of two
    int placeBits;  // there are never more places than changes and as many graves, and a few blocks
  };

  // Counted from 1; 0: none.
  struct Found {
    Place place = 0;
    Place before = 0;  // the one in its chain that leads to it
  };

  // Above the latest by 1, 2 or 3.
  uint64_t next(bool removed) const {
    const uint64_t index = latestChangeIdx_ + 2;
    return removed ? index | 1 : index & ~uint64_t{1};
  }

  Change& at(Place place) { return blocks_[place / blockPlaces].get()[place % blockPlaces]; }
  const Change& at(Place place) const {
    return blocks_[place / blockPlaces].get()[place % blockPlaces];
  }

  // Multiplied, so that its upper bits are good ones whatever the hash's are. They choose the head,
  // and the lower half the mark.
  uint64_t spread(const Key& key) const { return uint64_t{hash_(key)} * 0x9E3779B97F4A7C15; }

  Found find(const Key& key, uint64_t hash) const {
    const uint32_t head = heads_.of(hash);
    if ((head & heads_.mark(hash)) == 0) return {};
    Found found{heads_.placeIn(head), 0};
    while (found.place != 0 && !(at(found.place - 1).key == key)) {
      found = {at(found.place - 1).link, found.place};
    }
    return found;
  }
  // Takes a change that was found out of its chain. The marks of the others may be its own, too.
  void unlink(Found found, uint64_t hash) {
    uint32_t& head = heads_.of(hash);
    const Place after = at(found.place - 1).link;
    if (found.before != 0) at(found.before - 1).link = after;
    const Place first = found.before != 0 ? heads_.placeIn(head) : after;
    head = first;
    for (Place place = first; place != 0; place = at(place - 1).link) {
      head |= heads_.mark(spread(at(place - 1).key));
    }
  }
  void linkIn(Place place, uint64_t hash) {
    uint32_t& head = heads_.of(hash);
    const Place first = heads_.placeIn(head);
    at(place).link = first;
    head = (head ^ first) | (place + 1) | heads_.mark(hash);
  }

  // Puts a change in the place of one that was found, of the same key: the marks stay as they are.
  void relink(Found found, Place place, uint64_t hash) {
    uint32_t& head = heads_.of(hash);
    const Place first = heads_.placeIn(head);
    const Place after = at(found.place - 1).link;
    if (found.before != 0) at(found.before - 1).link = after;
    at(place).link = found.before != 0 ? first : after;
    head = (head ^ first) | (place + 1);
  }

  // Links in many, one behind the other. Their heads are all over the memory: each is fetched a few
  // changes before it is used.
  class LinkingMany {
   public:
    explicit LinkingMany(ChangeLog& log) : log_(log) {}
    ~LinkingMany() {
      for (size_t i = count_ - std::min(count_, waiting_.size()); i < count_; ++i) link(i);
    }
    LinkingMany(const LinkingMany&) = delete;
    LinkingMany& operator=(const LinkingMany&) = delete;

    void add(Place place) {
      if (count_ >= waiting_.size()) link(count_);
      const uint64_t hash = log_.spread(log_.at(place).key);
      __builtin_prefetch(&log_.heads_.of(hash), 1);
      waiting_[count_++ % waiting_.size()] = {place, hash};
    }

   private:
    void link(size_t i) {
      const auto [place, hash] = waiting_[i % waiting_.size()];
      log_.linkIn(place, hash);
    }

    ChangeLog& log_;
    std::array<std::pair<Place, uint64_t>, 16> waiting_;
    size_t count_ = 0;
  };

  void bury(Place place) {
    at(place).link = grave | (place + 1);
    if (place == first_) firstIs(changeFrom(place));
  }
  // The place, or the lowest above it, that is no grave.
  Place changeFrom(Place place) const {
    Place found = place;
    while (found != end_ && (at(found).link & grave) != 0) found = at(found).link & ~grave;
    while (place != found) place = std::exchange(at(place).link, grave | found) & ~grave;
    return found;
  }
  // What lies before the first change is given back, block by block.
  void firstIs(Place first) {
    for (Place block = first_ / blockPlaces; block < first / blockPlaces; ++block) {
      blocks_[block].reset();
    }
    first_ = first;
  }

  // Returns whether changes have moved.
  bool makeRoomAtEnd() {
    if (end_ % blockPlaces != 0) return false;
    const bool closesUp = end_ - size_ > size_ + blockPlaces;
    if (closesUp) closeUp();
    if (end_ == blocks_.size() * blockPlaces) {
      blocks_.push_back(Block(std::allocator<Change>().allocate(blockPlaces)));
    }
    return closesUp;
  }

  // The changes move down to the first places, in their order.
  void closeUp() noexcept {
    const Place gone = first_ / blockPlaces * blockPlaces;
    clearHeads();
    blocks_.erase(blocks_.begin(), blocks_.begin() + gone / blockPlaces);
    first_ -= gone;
    end_ -= gone;
    Place to = 0;
    {
      LinkingMany linking(*this);
      for (Place from = first_; from != end_; ++from) {
        if ((at(from).link & grave) != 0) continue;
        if (from != to) std::construct_at(&at(to), at(from));
        linking.add(to++);
      }
    }
    first_ = 0;
    end_ = to;
    blocks_.resize((end_ + blockPlaces - 1) / blockPlaces);
  }

  // From one end to the other, unless the changes are so few that going to each is less.
  void clearHeads() noexcept {
    if (size_ >= heads_.count / 16) {
      std::memset(heads_.words.get(), 0, heads_.count * sizeof(uint32_t));
    } else {
      for (Place place = first_; place != end_; place = changeFrom(place + 1)) {
        heads_.of(spread(at(place).key)) = 0;
      }
    }
  }

  void moreHeads() {
    heads_ = Heads(heads_.count * 2);
    LinkingMany linking(*this);
    for (Place place = first_; place != end_; place = changeFrom(place + 1)) linking.add(place);
  }

  uint64_t oldestChangeIdx_ = 1;
  uint64_t latestChangeIdx_ = 1;
  std::vector<Block> blocks_;
  Place first_ = 0;  // the lowest change, or the end
  Place end_ = 0;
  size_t size_ = 0;
  Hash hash_;
  Heads heads_;
};

}  // namespace P4RuntimeVane
