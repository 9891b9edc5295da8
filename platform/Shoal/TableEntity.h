// The entity that stands for one shared-memory table in the switch's state.
//
// TableEntityBase is what mounting needs to know of any table; TableEntity adds the typed map and
// the changes, and tells its notifiees of each changed key under attribute 258.
#pragma once

#include <cstring>
#include <exception>
#include <memory>
#include <utility>
#include <vector>

#include "platform/Guard/Exception.h"
#include "platform/Kit/Entity.h"
#include "platform/Shoal/ShoalMap.h"
#include "platform/Shoal/TableStore.h"

namespace Shoal {

// The collection of a table's entries; a notification carries a pointer to the changed key.
inline constexpr Kit::AttributeId entriesAttribute{258};

class TableEntityBase : public Kit::Entity {
 public:
  // The shape of this table's entries.
  virtual EntryLayout layout() const = 0;
  // Attaches the entity to a table, or detaches it (null). Entries already there are not notified.
  virtual void storeIs(std::shared_ptr<TableStore> store) = 0;
  virtual const std::shared_ptr<TableStore>& store() const = 0;
  // Tells the notifiees of a key that another process changed. `key` has the layout's key size.
  virtual void notifyChanged(Bytes key) const = 0;

  // Removes every entry, telling of each. The keys are taken first, because a table that is being
  // emptied has nothing left to name; entries that cannot be read are removed with the others. What
  // went wrong passes on when the table is empty and all has been told.
  void deleteAll() {
    const std::shared_ptr<TableStore> table = store();
    const size_t keySize = table->layout().keySize;
    std::exception_ptr failure;
    std::vector<std::byte> keys;
    try {
      appendKeys(*table, keys);
    } catch (const Guard::CorruptionDetectedException& corruption) {
      table->corruptionDetected(corruption.message());
      failure = std::current_exception();
    }
    table->clear();
    for (size_t at = 0; at < keys.size(); at += keySize) {
      try {
        notifyChanged(Bytes(keys).subspan(at, keySize));
      } catch (...) {
        if (!failure) failure = std::current_exception();
      }
    }
    if (failure) std::rethrow_exception(failure);
  }

 private:
  static void appendKeys(const TableStore& table, std::vector<std::byte>& keys) {
    const EntryLayout& layout = table.layout();
    keys.reserve(table.size() * layout.keySize);
    table.forEach([&](Bytes entry) {
      const Bytes key = entry.subspan(layout.keyOffset, layout.keySize);
      keys.insert(keys.end(), key.begin(), key.end());
    });
  }

 protected:
  using Kit::Entity::Entity;
};

// Traits: Key, Entry, `static constexpr auto key = &Entry::field` and `typeName`.
template <class Traits>
class TableEntity : public TableEntityBase {
 public:
  using Key = typename Traits::Key;
  using Entry = typename Traits::Entry;
  using Map = ShoalMap<Key, Entry>;

  const Map& map() const { return map_; }

  EntryLayout layout() const final {
    const Entry probe{};
    const auto offset = reinterpret_cast<const char*>(&(probe.*Traits::key)) -
                        reinterpret_cast<const char*>(&probe);
    return {Traits::typeName, sizeof(Entry), static_cast<uint32_t>(offset), sizeof(Key)};
  }
  void storeIs(std::shared_ptr<TableStore> store) final { map_.storeIs(std::move(store)); }
  const std::shared_ptr<TableStore>& store() const final { return map_.store(); }
  void notifyChanged(Bytes key) const final {
    Key value;
    std::memcpy(&value, key.data(), sizeof value);
    notify(entriesAttribute, &value);
  }

 protected:
  explicit TableEntity(Kit::Name name) : TableEntityBase(std::move(name)) {}

  // Inserts or replaces by key. Every set is a change, also one that sets an equal entry.
  void entryIs(const Entry& entry) {
    const Key key = entry.*Traits::key;
    map_.set(key, entry);
    notify(entriesAttribute, &key);
  }
  // Removes by key. Removing an absent key is no change.
  void entryDel(const Key& key) {
    const Key removed = key;  // the caller's key may lie in what goes
    if (map_.erase(removed)) notify(entriesAttribute, &removed);
  }
  void entryDelAll() { deleteAll(); }

 private:
  Map map_;
};

}  // namespace Shoal
