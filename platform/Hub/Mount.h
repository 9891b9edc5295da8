// Attaching shared-memory tables to the entity tree, by path.
//
// A Mount is a short-lived handle: built from an entity manager, used for a few calls, dropped.
// What it does is the host's MountService.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "platform/Hub/EntityManager.h"
#include "platform/Kit/Entity.h"

namespace KitShoal {

// What kind of shared-memory object is mounted. The numbers are part of the contract.
enum class KitShoalType : uint32_t { hashTable = 0 };

// The collection that a table holds: its name in the entity, and how many entries it must have room
// for.
struct CollectionInfo {
  Kit::String name;
  uint32_t size = 0;
};

class MountInfo {
 public:
  explicit MountInfo(KitShoalType type) : type_(type) {}
  KitShoalType type() const { return type_; }
  const CollectionInfo& collectionInfo() const { return collection_; }
  void collectionInfoIs(CollectionInfo info) { collection_ = std::move(info); }

 private:
  KitShoalType type_;
  CollectionInfo collection_;
};

// What any host must do for a Mount. Paths are relative to the tree's root, with '/' between parts.
class MountService {
 public:
  virtual ~MountService() = default;
  // Attaches the table at `path` as its writer, creating it if need be, and puts an entity of the
  // named type there. A table that is mounted already is left as it is; its entity is returned.
  // Throws what attaching throws.
  virtual Kit::Ptr<Kit::Entity> doMount(const Kit::String& path, const Kit::String& typeName,
                                        const MountInfo& info) = 0;
  // The entity at this path; empty if there is none. Attaches nothing.
  virtual Kit::Ptr<Kit::Entity> getEntity(const Kit::String& path) = 0;
  // Makes the table ready to be detached for good: empties it, and lets its shared memory go when
  // it is unmounted. Nothing happens if nothing is mounted there.
  virtual void cleanup(const Kit::String& path) = 0;
  // Detaches what is mounted at or below the path. Nothing happens if nothing is.
  virtual void doUnmount(const Kit::String& path) = 0;
};

class Mount {
 public:
  explicit Mount(const Kit::Ptr<const Hub::EntityManager>& entityManager)
      : service_(entityManager->mountService()) {}

  Kit::Ptr<Kit::Entity> doMount(Kit::String path, Kit::String typeName, const MountInfo& info) {
    return service_->doMount(path, typeName, info);
  }
  Kit::Ptr<Kit::Entity> getEntity(Kit::String path) { return service_->getEntity(path); }
  // The entity as a T; empty also when it is of another type.
  template <class T>
  Kit::Ptr<T> getEntity(Kit::String path) {
    return Kit::dynamicCast<T>(getEntity(std::move(path)));
  }
  void cleanup(Kit::String path) { service_->cleanup(path); }
  void doUnmount(Kit::String path) { service_->doUnmount(path); }

 private:
  std::unique_ptr<MountService> service_;
};

}  // namespace KitShoal
