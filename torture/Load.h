// A writer at full speed and readers that verify all they see, beside an oracle outside the table.
//
// The oracle is memory that the processes share. For each key it has two words: what the writer has
// begun to make of it and what it has done, each of them the number of a step and whether the key
// is then there. The writer sets `begun`, changes the table, sets `done`. The version in an entry
// is the step that set it. So a reader that takes `done` before it looks and `begun` after knows
// the entries that it may find; and if the two are equal, which.
//
// A writer that was killed leaves one key whose words differ. The next one looks what has become of
// it, and the oracle is exact again.
#pragma once

#include <fmt/format.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <filesystem>
#include <map>
#include <random>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "platform/Shoal/SharedTable.h"
#include "platform/Shoal/TableCheck.h"
#include "torture/Campaign.h"
#include "torture/Entries.h"
#include "torture/Examination.h"
#include "torture/SharedTally.h"

namespace Torture {

// What is, or was, of a key.
struct State {
  uint64_t word = 0;

  static State set(uint32_t step) { return {uint64_t{step} << 1 | 1}; }
  static State removed(uint32_t step) { return {uint64_t{step} << 1}; }
  bool isThere() const { return (word & 1) != 0; }
  uint32_t step() const { return static_cast<uint32_t>(word >> 1); }
  // Whether an entry that is there, or its absence, is as this says.
  bool isOf(bool found, uint32_t version) const {
    return found ? isThere() && version == step() : !isThere();
  }
};

struct Oracle {
  static constexpr size_t mostKeys = 1024;

  struct Key {
    std::atomic<uint64_t> begun{0}, done{0};
    std::atomic<uint64_t> told{0};  // as it was when its changes were last followed
  };

  std::atomic<uint64_t> epoch{1};  // of the table; odd while it is made anew
  std::atomic<uint32_t> step{0};
  std::atomic<bool> clearing{false};  // the step that has begun removes all keys
  std::atomic<bool> onlySets{false};  // no step removes a key: what was there has to be found
  std::atomic<bool> stop{false};
  std::atomic<uint64_t> followed{0};     // the last change that was followed
  std::atomic<uint64_t> interrupted{0};  // writers that were found to have died in a step
  std::atomic<uint64_t> busy{0};         // reads that were told so
  std::array<Key, mostKeys> keys;
};

inline State load(const std::atomic<uint64_t>& word) { return {word.load()}; }

// Whether a read may be told that the entry is busy: not beside a writer that stands still.
enum class Busy { isAnAnswer, isAFault };

template <class Entry>
class Load {
 public:
  using Key = typename Entry::Key;

  // The first keys begin their search at one place of the smallest index.
  Load(std::filesystem::path root, size_t keys, size_t colliding, uint64_t capacity, uint64_t seed,
       SharedTally& tally)
      : root_(std::move(root)), capacity_(capacity), seed_(seed), tally_(tally) {
    keys_ = collidingKeys<Entry>(colliding, 1024, 0);
    for (uint32_t number = 1u << 23; keys_.size() < keys; ++number) {
      keys_.push_back(Entry::keyOf(number));
    }
    for (size_t at = 0; at < keys; ++at) places_[keys_[at]] = at;
  }

  Oracle& oracle() const { return *oracle_; }
  size_t keys() const { return keys_.size(); }
  static constexpr const char* table = "load/table";

  // Makes a new table, of which everybody learns by the epoch. requires: there is no writer.
  void renew() {
    if (oracle_->epoch % 2 == 0) ++oracle_->epoch;
    Shoal::removeTable(root_, table);
    Shoal::attachWriter(root_, table, Entry::layout(), capacity_);
    for (Oracle::Key& key : oracle_->keys) key.begun = key.done = key.told = 0;
    oracle_->followed = 0;
    oracle_->clearing = false;
    ++oracle_->epoch;
  }

  // The writer's life: repair and account, then steps until it is told to stop, or killed.
  int write() {
    const Store store = Shoal::attachWriter(root_, table, Entry::layout(), capacity_);
    settle(store);
    std::mt19937_64 random(seed_ + oracle_->step);
    while (!oracle_->stop) {
      const uint32_t step = ++oracle_->step;
      const uint64_t choice = random();
      if (choice % 8192 == 0) {
        clear(*store, step);
      } else if (choice % 8192 == 1) {
        store->reserve(1 + (choice >> 32) % capacity_);
      } else {
        change(*store, step, choice % keys_.size(), choice >> 62 == 0);
      }
    }
    return 0;
  }

  // The life of a writer that sets the first key again and again and does nothing else: the entries
  // are made beforehand, and any of them may be found.
  int rewrite() {
    const Store store = Shoal::attachWriter(root_, table, Entry::layout(), capacity_);
    constexpr uint32_t versions = 64;
    std::vector<Entry> entries;
    for (uint32_t version = 1; version <= versions; ++version) {
      entries.push_back(Entry::make(keys_[0], version));
    }
    put(*store, entries[0]);
    oracle_->keys[0].begun = State::set(versions).word;
    oracle_->keys[0].done = State::set(1).word;
    oracle_->onlySets = true;
    while (!oracle_->stop) put(*store, entries[++oracle_->step % versions]);
    return 0;
  }

  // A reader's life: attaches to one table after the other, and reads.
  int read(uint64_t number) {
    std::mt19937_64 random(seed_ ^ number);
    while (!oracle_->stop) {
      const uint64_t epoch = oracle_->epoch;
      if (epoch % 2 != 0) {
        std::this_thread::yield();
        continue;
      }
      std::string fault;
      try {
        const Store store = Shoal::attachReader(root_, table, Entry::layout());
        uint64_t generation = 0;
        while (fault.empty() && !oracle_->stop && oracle_->epoch == epoch) {
          if (store->generation() < generation) fault = "an older generation after a newer one";
          generation = store->generation();
          for (int count = 0; count < 100 && fault.empty(); ++count) {
            fault = lookUp(*store, random() % keys_.size());
          }
          for (int count = 0; count < 4 && fault.empty(); ++count) {
            std::array<size_t, mostInBatch> places;
            for (size_t& at : places) at = random() % keys_.size();
            fault = lookUp(*store, std::span(places).first(1 + random() % mostInBatch));
          }
          if (fault.empty())
            fault = walk(*store, Busy::isAnAnswer, random() % 2 == 0 ? 1 : someEntries);
        }
      } catch (const std::exception& error) {
        fault = error.what();
      }
      if (!fault.empty() && oracle_->epoch == epoch) {
        tally_.found(&Tally::torn, fmt::format("reader {}, epoch {}, step {}: {}", number, epoch,
                                               oracle_->step.load(), fault));
        return 1;
      }
    }
    return 0;
  }

  // One look-up: what is wrong with the answer, or nothing.
  std::string lookUp(const Shoal::TableStore& store, size_t at,
                     Busy busy = Busy::isAnAnswer) const {
    const State before = load(oracle_->keys[at].done);
    Entry entry{};
    bool found = false;
    try {
      found = store.lookup(bytesOf(keys_[at]), std::as_writable_bytes(std::span(&entry, 1)));
    } catch (const Shoal::BusyException& exception) {
      ++oracle_->busy;
      return busy == Busy::isAnAnswer ? "" : exception.message();
    }
    tally_.add(&Tally::reads);
    return answerFault(at, found, entry, before);
  }

  static constexpr size_t mostInBatch = 40, someEntries = 21;

  // One look-up of several keys at once, the same one may be among them twice.
  std::string lookUp(const Shoal::TableStore& store, std::span<const size_t> places,
                     Busy busy = Busy::isAnAnswer) const {
    std::vector<State> before;
    std::vector<Key> keys;
    for (const size_t at : places) {
      before.push_back(load(oracle_->keys[at].done));
      keys.push_back(keys_[at]);
    }
    std::vector<Entry> entries(places.size());
    std::array<bool, mostInBatch> found{};
    try {
      store.lookupBatch(std::as_bytes(std::span(keys)), std::as_writable_bytes(std::span(entries)),
                        std::span(found).first(places.size()));
    } catch (const Shoal::BusyException& exception) {
      ++oracle_->busy;
      return busy == Busy::isAnAnswer ? "" : exception.message();
    }
    tally_.add(&Tally::reads, places.size());
    std::string fault;
    for (size_t i = 0; i < places.size() && fault.empty(); ++i) {
      fault = answerFault(places[i], found[i], entries[i], before[i]);
    }
    return fault.empty() ? fault : "in a batch: " + fault;
  }

  // One walk, of so many entries at a time: what is wrong with it, or nothing.
  std::string walk(const Shoal::TableStore& store, Busy busy = Busy::isAnAnswer,
                   size_t atATime = 1) const {
    std::vector<State> before(keys_.size());
    for (size_t at = 0; at < keys_.size(); ++at) before[at] = load(oracle_->keys[at].done);
    std::vector<std::vector<Entry>> seen(keys_.size());
    try {
      const bool known = eachOf(store, atATime, [&](const Entry& entry) {
        const auto place = places_.find(entry.id);
        if (place != places_.end()) seen[place->second].push_back(entry);
        return place != places_.end();
      });
      if (!known) return "a walk gives a key that never was";
    } catch (const Shoal::BusyException& exception) {
      ++oracle_->busy;
      return busy == Busy::isAnAnswer ? "" : exception.message();
    }
    for (size_t at = 0; at < keys_.size(); ++at) {
      const State after = load(oracle_->keys[at].begun);
      if (after.word == before[at].word && seen[at].size() > 1) {
        return fmt::format("a walk gives key {} {} times", at, seen[at].size());
      }
      for (const Entry& each : seen[at]) {
        if (std::string what = fault(at, true, each, before[at], after); !what.empty()) {
          return "a walk: " + what;
        }
      }
      const bool stays = after.word == before[at].word || oracle_->onlySets;
      if (seen[at].empty() && stays && before[at].isThere()) {
        return fmt::format("a walk misses key {}", at);
      }
      tally_.add(&Tally::reads, seen[at].size());
    }
    return {};
  }

  // Nobody is attached any more: the lock is free, and only the table and its lock file are there.
  void checkLeftovers() {
    if (const int32_t holder = Shoal::tableStatus(root_, table).writerPid; holder != 0) {
      tally_.found(&Tally::leaked, fmt::format("process {} has the lock", holder));
    }
    for (const auto& file : std::filesystem::directory_iterator((root_ / table).parent_path())) {
      const auto name = file.path().filename();
      if (name != "table.shoal" && name != "table.lock") {
        tally_.found(&Tally::leaked, file.path().string());
      }
    }
  }

 private:
  // Hands every entry to `visit` until that says no, and answers what it said last.
  template <class Visit>
  static bool eachOf(const Shoal::TableStore& store, size_t atATime, Visit visit) {
    std::vector<Entry> batch(atATime);
    const auto bytes = std::as_writable_bytes(std::span(batch));
    auto fill = [&, hint = Shoal::IterHint()](const Key* last) mutable -> size_t {
      if (atATime == 1)
        return last ? store.next(bytesOf(*last), hint, bytes) : store.first(hint, bytes);
      return store.nextBatch(last ? bytesOf(*last) : Shoal::Bytes(), hint, bytes);
    };
    Key last;
    for (size_t count = fill(nullptr); count != 0; count = fill(&last)) {
      for (size_t i = 0; i < count; ++i) {
        if (!visit(batch[i])) return false;
      }
      last = batch[count - 1].id;
    }
    return true;
  }

  std::string answerFault(size_t at, bool found, const Entry& entry, State before) const {
    if (found && entry.id != keys_[at]) return fmt::format("key {}: another key's entry", at);
    return fault(at, found, entry, before, load(oracle_->keys[at].begun));
  }
  // What is wrong with an answer that was got after `before` was done and before more than `after`
  // was begun.
  std::string fault(size_t at, bool found, const Entry& entry, State before, State after) const {
    if (found && !entry.sound()) return fmt::format("key {}: a torn entry", at);
    const uint32_t version = found ? entry.version() : 0;
    const bool right = before.word == after.word
                           ? before.isOf(found, version)
                           : !found || (version >= before.step() && version <= after.step());
    if (right) return {};
    return fmt::format("key {}: {}, expected step {}{} to step {}{}", at,
                       found ? fmt::format("version {}", version) : "nothing", before.step(),
                       before.isThere() ? "" : " (removed)", after.step(),
                       after.isThere() ? "" : " (removed)");
  }

  void change(Shoal::TableStore& store, uint32_t step, size_t at, bool removes) {
    const State state = removes ? State::removed(step) : State::set(step);
    oracle_->keys[at].begun = state.word;
    if (removes) {
      store.erase(bytesOf(keys_[at]));
    } else {
      put(store, Entry::make(keys_[at], step));
    }
    oracle_->keys[at].done = state.word;
  }

  void clear(Shoal::TableStore& store, uint32_t step) {
    oracle_->clearing = true;
    const uint64_t word = State::removed(step).word;
    for (size_t at = 0; at < keys_.size(); ++at) oracle_->keys[at].begun = word;
    store.clear();
    for (size_t at = 0; at < keys_.size(); ++at) oracle_->keys[at].done = word;
    oracle_->clearing = false;
  }

  // Finds out what has become of the step in which the last writer was killed. Everything else must
  // be as it was done.
  void settle(const Store& store) {
    size_t unsettled = 0, there = 0;
    for (size_t at = 0; at < keys_.size(); ++at) {
      Oracle::Key& key = oracle_->keys[at];
      Entry entry{};
      const bool found =
          store->lookup(bytesOf(keys_[at]), std::as_writable_bytes(std::span(&entry, 1)));
      tally_.add(&Tally::reads);
      if (found && !entry.sound()) return isFound(&Tally::torn, fmt::format("key {} is torn", at));
      const uint32_t version = found ? entry.version() : 0;
      const State begun = load(key.begun), done = load(key.done);
      if (begun.word != done.word) ++unsettled;
      if (begun.isOf(found, version)) {
        key.done = begun.word;
      } else if (done.isOf(found, version)) {
        key.begun = done.word;
      } else {
        return isFound(&Tally::lost,
                       fmt::format("key {} is {}, done was step {}, begun {}", at,
                                   found ? fmt::format("of step {}", version) : "gone", done.step(),
                                   begun.step()));
      }
      there += found;
    }
    if (unsettled > 1 && !oracle_->clearing) {
      isFound(&Tally::lost, fmt::format("{} steps were under way at once", unsettled));
    }
    if (unsettled != 0) ++oracle_->interrupted;
    oracle_->clearing = false;
    checkWhole(*store, there);
    checkChanges(store);
  }

  void checkWhole(const Shoal::TableStore& store, size_t there) {
    if (store.size() != there) {
      isFound(&Tally::torn, fmt::format("{} entries by count, {} are there", store.size(), there));
    }
    if (std::string what = walk(store); !what.empty()) isFound(&Tally::torn, what);
    const Shoal::TableCheck check = Shoal::checkTable(store);
    for (const std::string& what : check.faults) isFound(&Tally::torn, "its check: " + what);
    if (!check.isCounted) isFound(&Tally::torn, "its check finds an operation under way");
  }

  void checkChanges(const Store& store) {
    const auto follower = Shoal::follow(store, oracle_->followed.load());
    Shoal::ChangeFollower::Changes changes;
    const bool all = follower->take(changes, 1u << 20) != Shoal::ChangeFollower::Result::missed;
    std::map<size_t, bool> removed;
    for (const auto& change : changes) {
      Key key;
      std::memcpy(key.data(), change.key.data(), key.size());
      const auto place = places_.find(key);
      if (place == places_.end()) return isFound(&Tally::torn, "a change of a key that never was");
      removed[place->second] = change.removed;
    }
    for (size_t at = 0; at < keys_.size(); ++at) {
      const State now = load(oracle_->keys[at].done), old = load(oracle_->keys[at].told);
      const auto told = removed.find(at);
      if (told != removed.end() && told->second == now.isThere()) {
        isFound(&Tally::lost, fmt::format("the last change of key {} is of the other kind", at));
      }
      const bool isOther = now.isThere() ? now.word != old.word : old.isThere();
      if (all && isOther && told == removed.end()) {
        isFound(&Tally::lost, fmt::format("the change of key {} is not told", at));
      }
    }
    for (size_t at = 0; at < keys_.size(); ++at) {
      oracle_->keys[at].told = oracle_->keys[at].done.load();
    }
    oracle_->followed = follower->position();
  }

  void isFound(uint64_t Tally::*head, const std::string& what) {
    tally_.found(head, fmt::format("seed {}, step {}, the next writer: {}", seed_,
                                   oracle_->step.load(), what));
  }

  std::filesystem::path root_;
  uint64_t capacity_;
  uint64_t seed_;
  SharedTally& tally_;
  std::vector<Key> keys_;
  std::map<Key, size_t> places_;
  SharedMemory<Oracle> oracle_;
};

}  // namespace Torture
