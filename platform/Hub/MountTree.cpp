#include "platform/Hub/MountTree.h"

#include <memory>

#include "platform/Guard/Assert.h"
#include "platform/Hub/DetachedStore.h"
#include "platform/Shoal/SharedTable.h"

namespace Hub {
namespace {

[[noreturn]] void throwNotMounted(const std::string& path, const std::string& cause) {
  MountException::throwException("mounting \"" + path + "\": " + cause);
}

// "a/b/c" in its parts; none when it is not a path (an empty part, at either end too).
std::vector<std::string> partsOf(const std::string& path) {
  std::vector<std::string> parts;
  for (size_t from = 0;;) {
    const size_t slash = path.find('/', from);
    parts.push_back(path.substr(from, slash - from));
    if (parts.back().empty()) return {};
    if (slash == path.npos) return parts;
    from = slash + 1;
  }
}

bool isAtOrBelow(const std::string& path, const std::string& above) {
  return path == above || path.starts_with(above + "/");
}

Kit::Ptr<Shoal::TableEntityBase> makeTable(const std::string& path, const std::string& typeName) {
  const Kit::TypeNode* type = Kit::typeNode(typeName);
  if (!type || !type->factory) throwNotMounted(path, "unknown type \"" + typeName + "\"");
  auto table = Kit::dynamicCast<Shoal::TableEntityBase>(type->factory(partsOf(path).back()));
  if (!table) throwNotMounted(path, "\"" + typeName + "\" is not the type of a table");
  return table;
}

}  // namespace

MountTree::MountTree(HubOptions options)
    : options_(std::move(options)), root_(new Kit::Dir("hub")) {
  Guard::standardAssert(static_cast<bool>(options_.post), "post");
}

Kit::Ptr<Kit::Entity> MountTree::mount(const std::string& path, const std::string& typeName,
                                       const KitShoal::MountInfo& info) try {
  const auto found = mounted_.find(path);
  if (found == mounted_.end()) return mountNew(path, typeName, info);
  if (found->second.typeName != typeName) {
    throwNotMounted(
        path, "it is mounted as \"" + found->second.typeName + "\", not as \"" + typeName + "\"");
  }
  return found->second.entity;
} catch (...) {
  ++failedMounts_;
  throw;
}

Kit::Ptr<Kit::Entity> MountTree::mountNew(const std::string& path, const std::string& typeName,
                                          const KitShoal::MountInfo& info) {
  if (info.type() != KitShoal::KitShoalType::hashTable) {
    throwNotMounted(path, "expected a hash table, type 0, not type " +
                              std::to_string(static_cast<uint32_t>(info.type())));
  }
  placeMustBeFree(path);
  const auto table = makeTable(path, typeName);
  table->storeIs(
      Shoal::attachWriter(options_.shoalRoot, path, table->layout(), capacity(path, info)));
  const auto mounted = mounted_.emplace(path, Mounted{table, typeName}).first;
  try {
    put(path, table);
  } catch (...) {
    mounted_.erase(mounted);
    throw;
  }
  return table;
}

void MountTree::placeMustBeFree(const std::string& path) const {
  const auto parts = partsOf(path);
  if (parts.empty()) throwNotMounted(path, "expected names with '/' between them");
  Kit::Ptr<Kit::Dir> dir = root_;
  for (size_t i = 0; i < parts.size(); ++i) {
    const auto there = dir->entity(parts[i]);
    if (!there) return;
    if (i + 1 == parts.size()) throwNotMounted(path, "the place is taken");
    dir = Kit::dynamicCast<Kit::Dir>(there);
    if (!dir) throwNotMounted(path, "\"" + parts[i] + "\" is not a directory");
  }
}

uint64_t MountTree::capacity(const std::string& path, const KitShoal::MountInfo& info) const {
  const auto asked = options_.capacities.find(path);
  if (asked != options_.capacities.end()) return asked->second;
  return info.collectionInfo().size != 0 ? info.collectionInfo().size : options_.defaultCapacity;
}

void MountTree::put(const std::string& path, const Kit::Ptr<Shoal::TableEntityBase>& table) {
  auto parts = partsOf(path);
  parts.pop_back();
  Kit::Ptr<Kit::Dir> dir = root_;
  for (const auto& part : parts) {
    if (!dir->entity(part)) dir->entityIs(Kit::Ptr<Kit::Dir>(new Kit::Dir(part)));
    dir = Kit::dynamicCast<Kit::Dir>(dir->entity(part));
  }
  dir->entityIs(table);
}

Kit::Ptr<Kit::Entity> MountTree::entity(const std::string& path) const {
  Kit::Ptr<Kit::Entity> found;
  for (const auto& part : partsOf(path)) {
    const auto dir = found ? Kit::dynamicCast<Kit::Dir>(found) : root_;
    found = dir ? dir->entity(part) : nullptr;
    if (!found) break;
  }
  return found;
}

void MountTree::cleanup(const std::string& path) {
  const auto found = mounted_.find(path);
  if (found == mounted_.end()) return;
  const auto table = found->second.entity;  // whoever is told of a change may unmount it
  found->second.removed = true;
  table->deleteAll();
}

void MountTree::unmount(const std::string& path) {
  for (auto next = mounted_.begin(); next != mounted_.end();) {
    const auto place = next++;
    const auto& [tablePath, mounted] = *place;
    if (!isAtOrBelow(tablePath, path)) continue;
    // While it is still this process's: nobody else can have become its writer.
    if (mounted.removed) Shoal::removeTable(options_.shoalRoot, tablePath);
    mounted.entity->storeIs(std::make_shared<DetachedStore>(tablePath, mounted.entity->layout()));
    if (mounted.entity->parent()) mounted.entity->parent()->entityDel(mounted.entity->name());
    mounted_.erase(place);
  }
}

uint64_t MountTree::capacityOf(const std::string& path) const {
  const auto found = mounted_.find(path);
  return found == mounted_.end() ? 0 : found->second.entity->store()->capacity();
}

void MountTree::flush() const {
  for (const auto& [path, mounted] : mounted_) mounted.entity->store()->wakeFollowers();
}

}  // namespace Hub
