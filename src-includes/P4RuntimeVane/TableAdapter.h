// A shared-memory table as a table of the row database.
//
//   row database  --begin, find, row-->  adapter  --reads-->  Shoal map
//                 --rowIs, rowDel----->           --sets--->  table entity
//                 <--change log--------           <--258----  (changed key)
//
// An adapter keeps no rows: it makes each from the table's entry when it is asked for one. It keeps
// only which keys have changed since when (ChangeLog.h), and learns of changes in one way alone,
// from the table entity; its own writes come back to it like those of anybody else.
//
// Everything runs in the agent's thread; another process may write the table at any moment. There
// are five adapters. This is all that they do; a traits struct says what differs, and a thin named
// class makes each of them visible in code, logs and assertions.
#pragma once

#include <algorithm>
#include <array>
#include <concepts>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <utility>

#include "Vane/baseRow.h"
#include "platform/Guard/Assert.h"
#include "platform/Guard/Exception.h"
#include "platform/Kit/Ptr.h"
#include "platform/Shoal/ShoalMap.h"
#include "platform/Shoal/TableEntity.h"
#include "platform/Vane/VaTable.h"
#include "platform/Vane/VaneDB.h"
#include "src-includes/P4RuntimeVane/ChangeLog.h"
#include "src-includes/P4RuntimeVane/FieldColumns.h"

namespace P4RuntimeVane {

// The lines that an adapter's assertions name. They are looked for in logs: never renumber them.
struct AssertionLines {
  int notMounted;
  int notWriter;
  int row;
  int begin;
  int end;
  int find;
};

// What an adapter has to be told of its table.
template <class T>
concept TableTraits = requires(const typename T::Key& key, const typename T::Entry& entry,
                               typename T::Row& row, typename T::Table& table) {
  { T::name } -> std::convertible_to<const char*>;    // the adapter's class
  { T::source } -> std::convertible_to<const char*>;  // the path that its assertions name
  { T::lines } -> std::convertible_to<AssertionLines>;
  { T::keyHash(key) } -> std::same_as<uint32_t>;
  { entry.*T::key } -> std::same_as<const typename T::Key&>;
  T::toRow(entry, row);
  typename T::Columns;     // entry fields and row columns
  typename T::KeyColumns;  // those of the key alone
  (table.*T::map)();
  (table.*T::set)(entry);
  (table.*T::del)(key);
  (table.*T::delAll)();
};

template <TableTraits T>
using MapOf = typename T::Table::Map;

template <TableTraits T>
const MapOf<T>& mapOf(const Kit::Ptr<typename T::Table>& table) {
  return ((*table).*T::map)();
}

// The row of an entry.
template <TableTraits T>
typename T::Row rowOf(const typename T::Entry& entry) {
  return typename T::Row(T::Columns::bodyBytes(entry),
                         [&](Vane::RowWriter& row) { T::Columns::toRow(entry, row); });
}

// As rowOf, into a row that is used again and again. It gets a buffer of its own each time: others
// may keep the row that it was, and a buffer in use again would hold bytes of the longer rows
// before.
template <TableTraits T>
void refill(typename T::Row& row, const typename T::Entry& entry) {
  row = rowOf<T>(entry);
}

// The key in the key columns of any row. Throws VaNullRow for a null row.
template <TableTraits T>
typename T::Key keyOf(const Vane::BaseRow& row) {
  needBuffer(row);
  typename T::Key key{};
  T::KeyColumns::fromRow(row, key);
  return key;
}

// What is told of a removed entry.
template <TableTraits T>
typename T::Entry entryOfOnly(const typename T::Key& key) {
  typename T::Entry entry{};
  entry.*T::key = key;
  return entry;
}

// What `read` reads of the map. Corruption is told to the map before it passes on.
template <class Map, class Read>
auto readFrom(const Map& map, Read&& read) {
  try {
    return read();
  } catch (const Guard::CorruptionDetectedException& corruption) {
    map.doCorruptionDetected(corruption.message());
    throw;
  }
}

// The empty entry for an absent key.
template <TableTraits T>
typename T::Entry lookUp(const MapOf<T>& map, const typename T::Key& key, bool& found) {
  return readFrom(map, [&] { return map.safeLookup(key, found); });
}
template <TableTraits T>
typename T::Entry lookUp(const MapOf<T>& map, const typename T::Key& key) {
  bool found = false;
  return lookUp<T>(map, key, found);
}

// The one empty row that hooks are shown beside the row that is set.
inline const Vane::BaseRow& emptyRow() {
  static const Vane::BaseRow row;
  return row;
}

// Walks a table in its slot order. It goes on from the key that it has seen last, so a walk
// survives the removal of the entry that it stands on.
template <TableTraits T>
class RowIterator final : public Vane::VaRowIteratorImpl {
 public:
  using Table = typename T::Table;
  using Map = MapOf<T>;
  using Key = typename T::Key;
  using Entry = typename T::Entry;

  // At the end.
  explicit RowIterator(Kit::Ptr<Table> table) : table_(std::move(table)) {}
  RowIterator(const RowIterator&) = delete;
  RowIterator& operator=(const RowIterator&) = delete;

  static std::unique_ptr<RowIterator> atFirst(Kit::Ptr<Table> table) {
    auto made = onMap(std::move(table));
    made->position([&] { return made->walk_->first(made->hint_, *made->current_); });
    return made;
  }
  // On the entry of `key`, or else on the one that follows it.
  static std::unique_ptr<RowIterator> at(Kit::Ptr<Table> table, const Key& key) {
    auto made = onMap(std::move(table));
    made->position([&] {
      bool found = false;
      *made->current_ = made->map_->safeLookup(key, found);
      return found || made->walk_->next(key, made->hint_, *made->current_);
    });
    return made;
  }

  VaRowIteratorImpl& operator++() override {
    position([this] { return walk_->next(current_->*T::key, hint_, *current_); });
    return *this;
  }
  // The entry as it was when the iterator reached it.
  Vane::BaseRow operator*() override { return rowOf<T>(*current_); }
  bool operator==(const VaRowIteratorImpl& other) const override {
    return valid_ == dynamic_cast<const RowIterator&>(other).valid_;
  }
  bool operator!=(const VaRowIteratorImpl& other) const override { return !(*this == other); }
  explicit operator bool() const override { return valid_; }
  // Looks the entry up again: the clone stands on what the table holds now.
  std::unique_ptr<VaRowIteratorImpl> clone() const override {
    if (!valid_) return std::make_unique<RowIterator>(table_);
    // By way of a row: an entry that cannot be converted cannot be cloned either.
    return at(table_, keyOf<T>(rowOf<T>(*current_)));
  }

 private:
  static std::unique_ptr<RowIterator> onMap(Kit::Ptr<Table> table) {
    auto made = std::make_unique<RowIterator>(std::move(table));
    made->map_ = made->walk_ = &mapOf<T>(made->table_);
    return made;
  }

  // A corrupt table ends the walk and is the table's own matter, never the row database's.
  template <class Step>
  void position(Step step) {
    try {
      valid_ = step();
    } catch (const Guard::CorruptionDetectedException& corruption) {
      valid_ = false;
      map_->doCorruptionDetected(corruption.message());
    }
  }

  Kit::Ptr<Table> table_;
  const Map* map_ = nullptr;   // null in an iterator that was made at the end
  const Map* walk_ = nullptr;  // the same: what is walked
  Shoal::IterHint hint_;
  Entry entry_{};
  Entry* current_ = &entry_;
  bool valid_ = false;
};

template <class Adapter, TableTraits T>
class TableAdapter;

// Hears of the changes of a table, and hands each to the adapter as a row.
template <class Adapter, TableTraits T>
class Reactor final : public Kit::PtrInterface::NotifieeConst {
 public:
  Reactor(const Kit::Ptr<typename T::Table>& table, TableAdapter<Adapter, T>& adapter)
      : NotifieeConst(table), adapter_(&adapter) {}

  void onAttribute(Kit::AttributeId attr, const void* key) override {
    if (attr != Shoal::entriesAttribute) return NotifieeConst::onAttribute(attr, key);
    if (!key) return;
    const uint64_t before = adapter_->latestChangeIdx();
    try {
      entryChanged(*static_cast<const typename T::Key*>(key));
    } catch (...) {
      if (adapter_->latestChangeIdx() == before) adapter_->loseChange();
      throw;
    }
  }

 private:
  using Entry = typename T::Entry;

  void entryChanged(const typename T::Key& key) {
    Entry entry = lookUp<T>(adapter_->map(), key);
    const bool deleted = isEmpty(entry);
    if (deleted) entry.*T::key = key;
    refill<T>(scratchRow_, entry);
    // Away from the scratch row: an observer that writes the table brings the next change in here
    // while this one is still being told.
    const typename T::Row row = std::move(scratchRow_);
    (static_cast<Adapter*>(adapter_)->*Adapter::changeHandler)(row, deleted, key);
  }
  // Byte by byte no difference from an empty one. The first word of an entry that is there says so
  // for the most part.
  static bool isEmpty(const Entry& entry) {
    static constexpr Entry empty{};
    static_assert(sizeof entry >= sizeof(uint64_t));
    uint64_t first;
    std::memcpy(&first, &entry, sizeof first);
    return first == 0 && std::memcmp(&entry, &empty, sizeof entry) == 0;
  }

  typename T::Row scratchRow_;
  TableAdapter<Adapter, T>* adapter_;
};

// Adapter is the named class. It has the change handler, `virtual void kit...Modified(row, deleted,
// key)`, which calls logChange; `changeHandler` points to it.
template <class Adapter, TableTraits T>
class TableAdapter : public Vane::DefaultVaTableImplementation {
 public:
  using Table = typename T::Table;
  using Map = MapOf<T>;
  using Key = typename T::Key;
  using Entry = typename T::Entry;
  using Row = typename T::Row;
  using ReactorForVane = Reactor<Adapter, T>;
  static_assert(T::Columns::endAfter(Vane::va_contentOffset) == Row::baseRowLength_,
                "the list pairs every column of the row type, in column order");

  struct KeyHash {
    size_t operator()(const Key& key) const { return T::keyHash(key); }
  };
  using Log = ChangeLog<Key, KeyHash>;

  class ChangeIterator;

  TableAdapter(Kit::Ptr<Table> table, std::shared_ptr<Vane::VaneDB> db, Vane::VaTableOps* ops,
               bool allowModifiers);
  // The reactor of a copy would tell the adapter that it was copied from.
  TableAdapter(const TableAdapter&) = delete;
  TableAdapter& operator=(const TableAdapter&) = delete;

  const Map& map() const { return mapOf<T>(table_); }

  bool readerSupported() const override { return readerSupported_; }
  bool modifierSupported() const override { return modifierSupported_; }
  bool observerSupported() const override { return observerSupported_; }
  uint64_t size() const override { return map().size(); }

  std::unique_ptr<Vane::VaRowIteratorImpl> begin(uint8_t idx) override;
  std::unique_ptr<Vane::VaRowIteratorImpl> end(uint8_t idx) override;
  std::unique_ptr<Vane::VaRowIteratorImpl> find(const Vane::BaseRow& keyRow, uint8_t idx) override;
  Vane::BaseRow row(const Vane::BaseRow& keyRow, uint8_t idx) override;
  Vane::BaseRow rowIfPresent(const Vane::BaseRow& keyRow, uint8_t idx) override;
  void rows(std::span<const Vane::BaseRow* const> keyRows, std::span<Vane::BaseRow> rows,
            uint8_t idx) override;

  uint64_t oldestChangeIdx() const override { return log_.oldest(); }
  uint64_t latestChangeIdx() const override { return log_.latest(); }
  std::unique_ptr<Vane::VaChangeIteratorImpl> nextChange(uint64_t idx) override;
  std::unique_ptr<Vane::VaChangeIteratorImpl> endChange() override;
  void cleanChangeMap(unsigned long long idx) override { log_.prune(idx); }

  void rowIs(Vane::BaseRow& row, bool flag) override;
  void rowDel(const Vane::BaseRow& keyRow) override;
  // Of entries that cannot be read nobody is told that they are gone: who follows the changes has
  // to read the table afresh.
  void rowDelAll() override {
    try {
      ((*table_).*T::delAll)();
    } catch (const Guard::CorruptionDetectedException&) {
      loseChange();
      throw;
    }
  }

 protected:
  // One change: logged, told to the observers, and what nobody needs any more dropped.
  void logChange(const Row& row, bool deleted, const Key& key);

 private:
  static bool isObserved(const Map& map) {
    return map.initialized() && map.mode() != Shoal::Mode::snapshot;
  }
  friend ReactorForVane;
  // A change happened that could not be logged.
  void loseChange() noexcept { log_.lose(); }

  static size_t capacityOf(const Map& map) {
    return map.initialized() ? static_cast<size_t>(map.capacity()) : 0;
  }
  [[noreturn]] static void fail(const char* subject, const char* message, const char* function,
                                int line);
  static void needPrimary(uint8_t idx, const char* function, int line) {
    if (idx != 0) fail("", "Multiple indices not supported", function, line);
  }

  // Declared in the order in which they are made; they go in the opposite one, the reactor before
  // the table that it listens to.
  Kit::Ptr<Table> table_;
  std::shared_ptr<ReactorForVane> reactor_;
  bool readerSupported_;
  bool modifierSupported_;
  bool observerSupported_;
  Row scratchRow_;  // an empty row; with it the row type's id is known from the start
  Log log_;
};

// Walks the change log. The row of an entry that exists is the entry as it is now, not as it was at
// the change; the row of one that was removed holds its key alone.
template <class Adapter, TableTraits T>
class TableAdapter<Adapter, T>::ChangeIterator final : public Vane::VaChangeIteratorImpl {
 public:
  using Position = typename Log::Position;

  ChangeIterator(Position position, Kit::Ptr<Table> table)
      : position_(position), table_(std::move(table)) {}

  VaChangeIteratorImpl& operator++() override {
    ++position_;
    return *this;
  }
  Vane::BasicVaTableChange operator*() override {
    const auto& change = *position_;
    if (Log::isRemoval(change.index)) {
      refill<T>(scratchRow_, entryOfOnly<T>(change.key));
      return {change.index, Vane::ChangeKind::removed, scratchRow_};
    }
    refill<T>(scratchRow_, lookUp<T>(mapOf<T>(table_), change.key));
    return {change.index, Vane::ChangeKind::exists, scratchRow_};
  }
  bool operator==(const VaChangeIteratorImpl& other) const override {
    return position_ == dynamic_cast<const ChangeIterator&>(other).position_;
  }
  bool operator!=(const VaChangeIteratorImpl& other) const override { return !(*this == other); }
  std::unique_ptr<VaChangeIteratorImpl> clone() const override {
    return std::make_unique<ChangeIterator>(position_, table_);
  }

 private:
  Position position_;
  Row scratchRow_;
  Kit::Ptr<Table> table_;
};

// What is wrong with the table is found when all is built.
template <class Adapter, TableTraits T>
TableAdapter<Adapter, T>::TableAdapter(Kit::Ptr<Table> table, std::shared_ptr<Vane::VaneDB> db,
                                       Vane::VaTableOps* ops, bool allowModifiers)
    : DefaultVaTableImplementation(
          T::name, Row::rowTypeName(), static_cast<uint16_t>(db->tableTypeId(Row::rowTypeName())),
          /*unique=*/true, /*bounded=*/false, /*external=*/false, /*ordered=*/true, ops, {}),
      table_(std::move(table)),
      reactor_(std::make_shared<ReactorForVane>(table_, *this)),
      readerSupported_(true),
      modifierSupported_(allowModifiers),
      observerSupported_(isObserved(map())),
      log_(capacityOf(map())) {
  if (!map().initialized()) {
    fail(T::name, " expects a mount Shoal entity", T::name, T::lines.notMounted);
  }
  if (allowModifiers && map().mode() != Shoal::Mode::writer) {
    fail(T::name, " is set to allow modifiers, but underlying Shoal entity is not a writer",
         T::name, T::lines.notWriter);
  }
  ordered_ = false;
  external_ = true;
  if (!ready()) tableStateIs(Vane::TableState::ready);
}

template <class Adapter, TableTraits T>
std::unique_ptr<Vane::VaRowIteratorImpl> TableAdapter<Adapter, T>::begin(uint8_t idx) {
  needPrimary(idx, "begin", T::lines.begin);
  return RowIterator<T>::atFirst(table_);
}

template <class Adapter, TableTraits T>
std::unique_ptr<Vane::VaRowIteratorImpl> TableAdapter<Adapter, T>::end(uint8_t idx) {
  needPrimary(idx, "end", T::lines.end);
  return std::make_unique<RowIterator<T>>(table_);
}

template <class Adapter, TableTraits T>
std::unique_ptr<Vane::VaRowIteratorImpl> TableAdapter<Adapter, T>::find(const Vane::BaseRow& keyRow,
                                                                        uint8_t idx) {
  needPrimary(idx, "find", T::lines.find);
  return RowIterator<T>::at(table_, keyOf<T>(keyRow));
}

template <class Adapter, TableTraits T>
Vane::BaseRow TableAdapter<Adapter, T>::row(const Vane::BaseRow& keyRow, uint8_t idx) {
  needPrimary(idx, "row", T::lines.row);
  return rowOf<T>(lookUp<T>(map(), keyOf<T>(keyRow)));
}

template <class Adapter, TableTraits T>
Vane::BaseRow TableAdapter<Adapter, T>::rowIfPresent(const Vane::BaseRow& keyRow, uint8_t idx) {
  needPrimary(idx, "row", T::lines.row);
  bool found = false;
  const Entry entry = lookUp<T>(map(), keyOf<T>(keyRow), found);
  if (!found) return {};
  return rowOf<T>(entry);
}

// A few at a time, because their entries lie on the stack.
template <class Adapter, TableTraits T>
void TableAdapter<Adapter, T>::rows(std::span<const Vane::BaseRow* const> keyRows,
                                    std::span<Vane::BaseRow> rows, uint8_t idx) {
  needPrimary(idx, "row", T::lines.row);
  constexpr size_t most = std::max<size_t>(1, 4096 / sizeof(Entry));
  std::array<Key, most> keys;
  std::array<Entry, most> entries;
  std::array<bool, most> found;
  while (!rows.empty()) {
    const size_t count = std::min(most, rows.size());
    for (size_t i = 0; i < count; ++i) keys[i] = keyOf<T>(*keyRows[i]);
    readFrom(map(), [&] {
      map().lookupBatch(std::span(keys).first(count), std::span(entries).first(count),
                        std::span(found).first(count));
    });
    for (size_t i = 0; i < count; ++i) rows[i] = rowOf<T>(entries[i]);
    keyRows = keyRows.subspan(count);
    rows = rows.subspan(count);
  }
}

template <class Adapter, TableTraits T>
std::unique_ptr<Vane::VaChangeIteratorImpl> TableAdapter<Adapter, T>::nextChange(uint64_t idx) {
  return std::make_unique<ChangeIterator>(log_.after(idx), table_);
}

template <class Adapter, TableTraits T>
std::unique_ptr<Vane::VaChangeIteratorImpl> TableAdapter<Adapter, T>::endChange() {
  return std::make_unique<ChangeIterator>(log_.end(), table_);
}

template <class Adapter, TableTraits T>
void TableAdapter<Adapter, T>::rowIs(Vane::BaseRow& row, bool) {
  if (rowHook()->active()) {
    const auto hook = rowHook();  // held: it may put another in its place
    hook->row(row, emptyRow());
  }
  needBuffer(row);
  Entry entry{};
  T::Columns::fromRow(row, entry);
  log_.expect(entry.*T::key);
  ((*table_).*T::set)(entry);
}

template <class Adapter, TableTraits T>
void TableAdapter<Adapter, T>::rowDel(const Vane::BaseRow& keyRow) {
  const Key key = keyOf<T>(keyRow);
  log_.expect(key);
  ((*table_).*T::del)(key);
}

template <class Adapter, TableTraits T>
void TableAdapter<Adapter, T>::logChange(const Row& row, bool deleted, const Key& key) {
  const uint64_t previous = log_.latest();
  const uint64_t index = log_.record(key, deleted);
  cleanChanges(notifyObservers(previous, index, deleted, row));
}

template <class Adapter, TableTraits T>
void TableAdapter<Adapter, T>::fail(const char* subject, const char* message, const char* function,
                                    int line) {
  Guard::Platform::DebugStream text;
  text << subject << message;
  Guard::debugAndThrowAssertException(text, T::source, function, line);
}

}  // namespace P4RuntimeVane
