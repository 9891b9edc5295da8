// A plug-in as the agent sees it: the context that it is given, the base entity that it derives
// from, and why it may be asked to clean up.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <memory>

#include "platform/Hub/EntityManager.h"
#include "platform/Kit/Entity.h"
#include "platform/Vane/VaneDB.h"

namespace P4Runtime {

// Why a plug-in cleans up. The numbers are part of the contract.
enum class PluginCleanupReason : uint32_t {
  restart = 0,      // the agent goes away and comes back: tables stay, empty
  removal = 1,      // the plug-in is taken out: tables are detached for good
  reconfigure = 2,  // the plug-in is configured anew: tables stay, empty
};
// "restart", "removal", "reconfigure"; "PluginCleanupReason(7)" for any other number.
std::ostream& operator<<(std::ostream& out, PluginCleanupReason reason);

// What the agent gives every plug-in.
class PluginContext : public Kit::Entity {
 public:
  PluginContext(Kit::Name name, Kit::Ptr<Hub::EntityManager> entityManager,
                std::shared_ptr<Vane::VaneDB> rowDatabase, Kit::Ptr<Kit::Dir> pluginDir)
      : Entity(std::move(name)),
        entityManager_(std::move(entityManager)),
        rowDatabase_(std::move(rowDatabase)),
        pluginDir_(std::move(pluginDir)) {}

  Kit::Ptr<const Hub::EntityManager> entityManager() const { return entityManager_; }
  std::shared_ptr<Vane::VaneDB> rowDatabase() const { return rowDatabase_; }
  // Where plug-in entities live, by plug-in name.
  Kit::Ptr<Kit::Dir> pluginDir() const { return pluginDir_; }

 private:
  Kit::Ptr<Hub::EntityManager> entityManager_;
  std::shared_ptr<Vane::VaneDB> rowDatabase_;
  Kit::Ptr<Kit::Dir> pluginDir_;
};

// The base entity of every plug-in.
//
// init() stores the context and runs pluginInit(); the completion of the mount group that
// pluginInit closed arrives as doMountsComplete(); cleanup() runs doCleanup(). All on the agent's
// thread. An entity that is never cleaned up is kept alive by its context, and it by the entity,
// until it is taken out of the plug-in directory.
class P4RuntimePluginBase : public Hub::Mounter {
 public:
  // What pluginInit throws passes on, with the context stored, initComplete() false, and the entity
  // taken out of its directory, so that its name is free for another start (with a new row
  // database: tables that were published stay in the old one).
  void init(const Kit::Ptr<PluginContext>& context);
  // Takes the entity out of its directory when doCleanup has returned: it has done its work, and
  // its name is free for another start. What doCleanup throws passes on, with the entity in place.
  void cleanup(PluginCleanupReason reason);
  void handleMountStatus(Hub::MountStatus status,
                         const Kit::Ptr<Hub::EntityManager>& entityManager) override;

  const Kit::Ptr<PluginContext>& pluginContext() const { return pluginContext_; }
  bool initComplete() const { return initComplete_; }
  bool mountsComplete() const { return mountsComplete_; }

 protected:
  explicit P4RuntimePluginBase(Kit::Name name) : Mounter(std::move(name)) {}

  virtual void pluginInit(const Kit::Ptr<PluginContext>& context) = 0;
  virtual void doMountsComplete(Hub::MountStatus status,
                                const Kit::Ptr<Hub::EntityManager>& entityManager) = 0;
  virtual void doCleanup(PluginCleanupReason reason) = 0;

 private:
  Kit::Ptr<PluginContext> pluginContext_;
  bool initComplete_ = false;
  bool mountsComplete_ = false;
};

}  // namespace P4Runtime
