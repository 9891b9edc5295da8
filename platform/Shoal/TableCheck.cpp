#include "platform/Shoal/TableCheck.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <optional>
#include <sstream>
#include <thread>

#include "platform/Guard/Exception.h"
#include "platform/Shoal/Store.h"
#include "platform/Shoal/TableIndex.h"
#include "platform/Shoal/TableWriter.h"

namespace Shoal {

namespace {

template <class... Parts>
std::string text(const Parts&... parts) {
  std::ostringstream out;
  (out << ... << parts);
  return out.str();
}

class Checker {
 public:
  explicit Checker(const Store& store) : table_(store.view()), words_(table_.plan.capacity) {}

  TableCheck run() {
    const Header before = header();
    result_.isUnfinished = before.operation.kind != OperationRecord::none;
    confirm([&] { return stateFault(header(), table_.plan); });
    if (result_.faultCount != 0) return result_;  // the bounds of all that follows
    slots();
    index();
    ring();
    const Header after = header();
    const bool isSame = Moment(before) == Moment(after);
    result_.isUnfinished = result_.isUnfinished && isSame;
    result_.isCounted = isSame && !result_.isUnfinished;
    if (result_.isCounted) counts(after);
    return result_;
  }

 private:
  // Where the writer is: if it is the same before and after a look, then nothing was written in
  // between but by an operation that was under way all the time.
  struct Moment {
    explicit Moment(const Header& header)
        : changes(header.changes),
          changesBefore(header.operation.changesBefore),
          generation(header.generation),
          kind(header.operation.kind) {}
    bool isAtRest() const { return kind == OperationRecord::none; }
    friend bool operator==(const Moment&, const Moment&) = default;

    uint64_t changes, changesBefore, generation;
    uint32_t kind;
  };

  // A copy, so that its numbers are looked at once.
  Header header() const {
    Header copy;
    copyOut(reinterpret_cast<std::byte*>(&copy), table_.base, sizeof copy);
    return copy;
  }

  void fault(std::string what) {
    if (result_.faultCount++ < maxFaultsTold) result_.faults.push_back(std::move(what));
  }

  // `look` says what is wrong, or nothing. What looked wrong while a writer was at work is looked
  // at again; in a table that is known to be corrupt there is no need to.
  template <class Look>
  void confirm(Look&& look) {
    std::string what = look();
    for (int tries = 0; !what.empty() && tries < 5 && result_.faultCount < maxFaultsTold; ++tries) {
      const Moment before(header());
      what = look();
      if (before == Moment(header()) && (before.isAtRest() || before == standing_)) break;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      if (before == Moment(header())) standing_ = before;
    }
    if (!what.empty()) fault(std::move(what));
  }

  // The slot of an operation that is not finished may be in any of its states.
  bool isBeingChanged(uint32_t slot) const {
    const OperationRecord& operation = table_.header().operation;
    return look(operation.kind) != OperationRecord::none && look(operation.slot) == slot;
  }

  void slots() {
    const uint32_t end = table_.highWater();
    for (uint32_t slot = 0; slot < end; ++slot) {
      const uint32_t state = look(table_.slot(slot).state);
      if (kindOf(state) == slotLive) ++result_.entries;
      if (kindOf(state) == slotFree) ++result_.freeSlots;
      confirm([&] { return slotFault(slot); });
    }
  }

  std::string slotFault(uint32_t slot) const {
    if (isBeingChanged(slot)) return {};
    const uint32_t state = look(table_.slot(slot).state);
    if (look(table_.slot(slot).sequence) & 1) return text("slot ", slot, " is half written");
    if (state == slotLive) return lookupFault(slot);
    if (kindOf(state) != slotFree) return text("slot ", slot, " has state ", state);
    if (nextFreeOf(state) > table_.highWater()) {
      return text("slot ", slot, ": the next free one is ", nextFreeOf(state) - 1);
    }
    return {};
  }

  // The index leads from the key of a live slot to that slot, and to no other live one before.
  std::string lookupFault(uint32_t slot) const {
    alignas(8) std::array<std::byte, maxKeySize> key;
    const uint32_t skip = table_.plan.keyOffset % 8;
    alignas(8) std::array<std::byte, maxKeySize + 16> words;
    copyOut(words.data(), table_.entry(slot) + (table_.plan.keyOffset - skip),
            skip + table_.plan.keySize);
    std::copy_n(words.data() + skip, table_.plan.keySize, key.data());
    std::string what = text("slot ", slot, ": the index does not lead to its key");
    try {
      probe(table_, table_.hashOf(key.data()), [&](uint32_t found) {
        if (kindOf(look(table_.slot(found).state)) != slotLive) return false;
        if (!keyIs(table_, table_.entry(found), key.data())) return false;
        what = found == slot ? "" : text("slots ", found, " and ", slot, " have the same key");
        return true;
      });
    } catch (const Guard::CorruptionDetectedException& corruption) {
      return corruption.message();
    }
    return what;
  }

  void index() {
    const uint32_t level = table_.indexLevel();
    for (uint32_t at = 0; at < table_.plan.levelWords[level]; ++at) {
      if (look(table_.index(level)[at]) == 0) continue;
      ++result_.indexWords;
      confirm([&] { return wordFault(level, at); });
    }
  }

  std::string wordFault(uint32_t level, uint32_t at) {
    const uint32_t word = look(table_.index(level)[at]);
    if (word == 0) return {};
    const uint32_t slot = table_.plan.slotOf(word);
    if (slot >= table_.highWater()) return text("index word ", at, " leads to no slot");
    if (isBeingChanged(slot)) return {};
    // A word that is being moved stands at both places for a moment.
    const bool isMoving = look(table_.header().operation.kind) != OperationRecord::none;
    if (words_[slot] != 0 && words_[slot] != at + 1 && !isMoving &&
        look(table_.index(level)[words_[slot] - 1]) == word) {
      return text("index words ", words_[slot] - 1, " and ", at, " lead to slot ", slot);
    }
    words_[slot] = at + 1;
    return {};
  }

  void ring() {
    const uint64_t latest = look(table_.header().changes);
    result_.changes = std::min<uint64_t>(latest, table_.plan.ringRecords);
    for (uint64_t age = result_.changes; age-- != 0;) {
      confirm([&] { return changeFault(latest - age); });
    }
  }

  // The writer may have written a later change over this one.
  std::string changeFault(uint64_t number) const {
    const ChangeHead& record = table_.change(number);
    const uint64_t found = look(record.number);
    if (found == 0 && look(table_.header().operation.kind) != OperationRecord::none) return {};
    const bool isLater = found > number && (found - number) % table_.plan.ringRecords == 0 &&
                         found <= look(table_.header().changes) + 1;
    if (found != number && !isLater) return text("change ", number, " has the number ", found);
    const uint32_t kind = look(record.kind);
    if (kind != ChangeHead::set && kind != ChangeHead::removed) {
      return text("change ", number, " is of kind ", kind);
    }
    if (look(record.slot) >= table_.plan.capacity) {
      return text("change ", number, " is of slot ", look(record.slot));
    }
    return {};
  }

  void counts(const Header& header) {
    if (result_.entries != header.live) {
      fault(text(result_.entries, " live slots, but ", header.live, " entries"));
    }
    if (result_.entries + result_.freeSlots != header.highWater) {
      fault(text(result_.entries, " live and ", result_.freeSlots, " free slots, but ",
                 header.highWater, " in use"));
    }
    if (result_.indexWords > header.highWater) {
      fault(text(result_.indexWords, " index words for ", header.highWater, " slots"));
    }
    uint64_t listed = 0;
    for (uint32_t next = header.freeHead; next != 0 && listed <= result_.freeSlots; ++listed) {
      const uint32_t state = next <= header.highWater ? look(table_.slot(next - 1).state) : 0;
      if (kindOf(state) != slotFree) {
        fault(text("the list of free slots leads to slot ", next - 1));
        return;
      }
      next = nextFreeOf(state);
    }
    if (listed != result_.freeSlots) {
      fault(text(result_.freeSlots, " free slots, but ",
                 listed > result_.freeSlots ? "a list of them without an end"
                                            : text("a list of ", listed)));
    }
  }

  const ShapedView<LargeShape> table_;
  std::vector<uint32_t> words_;     // by slot: 1 + the place of its word; 0: not met
  std::optional<Moment> standing_;  // in the middle of an operation that does not go on
  TableCheck result_;
};

}  // namespace

TableCheck checkTable(const TableStore& store) {
  const auto* mapped = dynamic_cast<const Store*>(&store);
  if (mapped == nullptr || mapped->mode() == Mode::snapshot) {
    throw Guard::Exception("shared table \"" + store.path() +
                           "\": only an attached table can be checked");
  }
  return Checker(*mapped).run();
}

}  // namespace Shoal
