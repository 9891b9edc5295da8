// The central state database as a plug-in sees it: a tree of entities by path, and groups of mounts
// that complete later.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <memory>

#include "platform/Kit/Entity.h"

namespace KitShoal {
class MountService;
}

namespace Hub {

class EntityManager;

// How a group of mounts ended.
enum class MountStatus : uint8_t { succeeded = 0, failed = 1, timedOut = 2 };
std::ostream& operator<<(std::ostream& out, MountStatus status);

// The owner of mount groups: is told when one has completed.
class Mounter : public Kit::Entity {
 public:
  // Called from the agent's loop, once for each group of this mounter that was closed.
  virtual void handleMountStatus(MountStatus status,
                                 const Kit::Ptr<EntityManager>& entityManager) = 0;

 protected:
  using Kit::Entity::Entity;
};

// A group of mounts that is reported as one.
class MountGroup : public Kit::PtrInterface {
 public:
  // No more mounts are added; the group is reported to its mounter when all are done. `partial`: it
  // may be reported as succeeded though some failed. `reason` is kept for traces. `timeout` is in
  // seconds; 0 waits as long as it takes.
  virtual void doClose(bool partial, Kit::String reason, const double& timeout) = 0;
};

class EntityManager : public Kit::Entity {
 public:
  virtual Kit::Ptr<MountGroup> getMountGroup(const Kit::Ptr<Mounter>& mounter) const = 0;
  // What a KitShoal::Mount built from this manager works through; a new one for each.
  virtual std::unique_ptr<KitShoal::MountService> mountService() const = 0;

 protected:
  using Kit::Entity::Entity;
};

}  // namespace Hub
