#include "torture/Operations.h"

#include "torture/Entries.h"
#include "torture/SharedTally.h"

namespace Torture {

namespace {

using Steps = std::vector<std::function<void(Shoal::TableStore&)>>;

// Keys that begin their search at one place of the smallest index.
template <class Entry>
typename Entry::Key keyAt(size_t place) {
  static const auto keys = collidingKeys<Entry>(8, 1024, 0);
  return keys[place];
}

// The entry is made beforehand: it is the setting that is to be interrupted.
template <class Entry>
auto setting(const Entry& entry) {
  return [=](Shoal::TableStore& table) { put(table, entry); };
}
template <class Entry>
auto setting(size_t place, uint32_t version) {
  return setting(Entry::make(keyAt<Entry>(place), version));
}

template <class Entry>
auto erasing(size_t place) {
  return [key = keyAt<Entry>(place)](Shoal::TableStore& table) { table.erase(bytesOf(key)); };
}

// The first entries, and those of the places taken out again.
template <class Entry>
auto filledWith(size_t entries, std::vector<size_t> removed = {}) {
  return [=](Shoal::TableStore& table) {
    for (size_t place = 0; place < entries; ++place) {
      setting<Entry>(place, static_cast<uint32_t>(place))(table);
    }
    for (const size_t place : removed) erasing<Entry>(place)(table);
  };
}

// The operation before was a replacement: nothing of its record is of use for the next one.
template <class Entry>
auto filledAndReplaced(size_t entries) {
  return [=](Shoal::TableStore& table) {
    filledWith<Entry>(entries)(table);
    setting<Entry>(1, 7)(table);
  };
}

// Entries of keys that have nothing to do with each other.
template <class Entry>
auto crowdedWith(uint32_t entries) {
  return [=](Shoal::TableStore& table) {
    for (uint32_t number = 0; number < entries; ++number) put(table, Entry::make(number, number));
  };
}

template <class Entry>
Steps puttingNumbers(uint32_t from, uint32_t to) {
  Steps steps;
  for (uint32_t number = from; number < to; ++number) {
    steps.push_back(setting(Entry::make(number, number + 100)));
  }
  return steps;
}

template <class Entry>
auto attachingAndLeaving(uint64_t capacity) {
  return [=](const std::filesystem::path& root) {
    Shoal::attachWriter(root, tableName, Entry::layout(), capacity);
  };
}

template <class Entry>
auto attachingAndRemoving(uint64_t capacity) {
  return [=](const std::filesystem::path& root) {
    const Store table = Shoal::attachWriter(root, tableName, Entry::layout(), capacity);
    Shoal::removeTable(root, tableName);
  };
}

auto reserving(uint64_t entries) {
  return [=](Shoal::TableStore& table) { table.reserve(entries); };
}

void clear(Shoal::TableStore& table) { table.clear(); }
void removeOnly(const std::filesystem::path& root) { Shoal::removeTable(root, tableName); }

// The change ring wakes its followers at every sixty-fourth change.
void fiftyNineChanges(Shoal::TableStore& table) {
  for (uint32_t version = 0; version < 59; ++version) setting<Tiny>(0, version)(table);
}

template <class Entry>
void addEntryOperations(std::vector<Operation>& all, const Shape& shape,
                        const std::array<const char*, 6>& names) {
  all.push_back({names[0], shape, filledAndReplaced<Entry>(3), {setting<Entry>(3, 9)}, {}});
  // The first of the cluster goes: taking its word out moves all the others.
  all.push_back({names[1], shape, filledWith<Entry>(4, {0}), {setting<Entry>(4, 9)}, {}});
  all.push_back({names[2], shape, filledWith<Entry>(3, {1}), {setting<Entry>(1, 9)}, {}});
  all.push_back({names[3],
                 shape,
                 filledWith<Entry>(3),
                 {setting<Entry>(1, 8), setting<Entry>(1, 9), setting<Entry>(2, 9)},
                 {}});
  all.push_back(
      {names[4], shape, filledWith<Entry>(4), {erasing<Entry>(1), erasing<Entry>(3)}, {}});
  all.push_back({names[5], shape, filledWith<Entry>(4, {2}), {clear}, {}});
}

std::vector<Operation> allOperations() {
  const Shape tiny = shapeOf<Tiny>(6), route = shapeOf<Route>(6), group = shapeOf<Group>(20),
              crowd = shapeOf<Tiny>(1100);
  std::vector<Operation> all;
  addEntryOperations<Tiny>(all, tiny,
                           {"insert", "insert into a used slot", "insert a removed key", "replace",
                            "delete", "delete-all"});
  addEntryOperations<Route>(
      all, route,
      {"route insert", "route insert into a used slot", "route insert a removed key",
       "route replace", "route delete", "route delete-all"});
  // The first change of all claims the memory for what tells of it.
  all.push_back({"first insert", tiny, filledWith<Tiny>(0), {setting<Tiny>(0, 1)}, {}});
  all.push_back({"insert and wake",
                 tiny,
                 fiftyNineChanges,
                 {setting<Tiny>(1, 1), setting<Tiny>(2, 1), erasing<Tiny>(1), setting<Tiny>(2, 2),
                  setting<Tiny>(3, 1)},
                 {}});
  all.push_back({"large entries", group, crowdedWith<Group>(6), puttingNumbers<Group>(5, 9), {}});
  all.push_back({"grow", crowd, crowdedWith<Tiny>(511), puttingNumbers<Tiny>(511, 514), {}});
  all.push_back({"reserve",
                 crowd,
                 crowdedWith<Tiny>(3),
                 {reserving(1100), setting(Tiny::make(4, 1)), reserving(1100)},
                 {}});
  all.push_back({"create", tiny, {}, {}, attachingAndLeaving<Tiny>(6)});
  all.push_back(
      {"attach and detach", tiny, filledWith<Tiny>(3, {1}), {}, attachingAndLeaving<Tiny>(6)});
  all.push_back({"remove", tiny, filledWith<Tiny>(3), {}, removeOnly, true});
  all.push_back(
      {"remove as its writer", tiny, filledWith<Tiny>(3), {}, attachingAndRemoving<Tiny>(6), true});
  return all;
}

std::optional<Content> contentAt(const std::filesystem::path& root, const Operation& operation) {
  if (!std::filesystem::exists(Shoal::tableFile(root, tableName))) return std::nullopt;
  return contentOf(*Shoal::attachReader(root, tableName, operation.shape.layout));
}

uint64_t changesAt(const std::filesystem::path& root) {
  if (!std::filesystem::exists(Shoal::tableFile(root, tableName))) return 0;
  return Shoal::tableStatus(root, tableName).changes;
}

}  // namespace

const std::vector<Operation>& operations() {
  static const std::vector<Operation> all = allOperations();
  return all;
}

void prepare(const Operation& operation, const std::filesystem::path& root) {
  if (!operation.prepare) return;
  operation.prepare(
      *Shoal::attachWriter(root, tableName, operation.shape.layout, operation.shape.capacity));
}

Course courseOf(const Operation& operation) {
  const PrivateDirectory directory;
  const std::filesystem::path root = directory.path() / "root";
  prepare(operation, root);
  Course course;
  const auto note = [&] {
    course.contents.push_back(contentAt(root, operation));
    course.changes.push_back(changesAt(root));
  };
  note();
  if (operation.attaches) {
    operation.attaches(root);
    note();
  } else {
    const Store table =
        Shoal::attachWriter(root, tableName, operation.shape.layout, operation.shape.capacity);
    for (const auto& step : operation.steps) {
      step(*table);
      note();
    }
  }
  return course;
}

}  // namespace Torture
