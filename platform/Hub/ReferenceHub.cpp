#include "platform/Hub/ReferenceHub.h"

#include <ostream>

#include "platform/Guard/Assert.h"
#include "platform/Hub/Mount.h"
#include "platform/Hub/MountTree.h"
#include "platform/Shoal/CutShort.h"
#include "platform/Trace/Trace.h"

namespace Hub {
namespace {

class ReferenceManager final : public EntityManager {
 public:
  explicit ReferenceManager(HubOptions options)
      : EntityManager("entityManager"), tree_(std::make_unique<MountTree>(std::move(options))) {}

  Kit::Ptr<MountGroup> getMountGroup(const Kit::Ptr<Mounter>& mounter) const override;
  std::unique_ptr<KitShoal::MountService> mountService() const override;

  MountTree& tree() const { return *tree_; }

 private:
  const std::unique_ptr<MountTree> tree_;
};

class ReferenceMountService final : public KitShoal::MountService {
 public:
  explicit ReferenceMountService(Kit::Ptr<const ReferenceManager> manager)
      : manager_(std::move(manager)) {}

  Kit::Ptr<Kit::Entity> doMount(const Kit::String& path, const Kit::String& typeName,
                                const KitShoal::MountInfo& info) override {
    return manager_->tree().mount(path.str(), typeName.str(), info);
  }
  Kit::Ptr<Kit::Entity> getEntity(const Kit::String& path) override {
    return manager_->tree().entity(path.str());
  }
  void cleanup(const Kit::String& path) override { manager_->tree().cleanup(path.str()); }
  void doUnmount(const Kit::String& path) override { manager_->tree().unmount(path.str()); }

 private:
  Kit::Ptr<const ReferenceManager> manager_;
};

class ReferenceMountGroup final : public MountGroup {
 public:
  ReferenceMountGroup(Kit::Ptr<Mounter> mounter, Kit::Ptr<ReferenceManager> manager)
      : mounter_(std::move(mounter)),
        manager_(std::move(manager)),
        failedBefore_(manager_->tree().failedMounts()) {}

  void doClose(bool partial, Kit::String reason, const double& timeout) override;

 private:
  Kit::Ptr<Mounter> mounter_;
  Kit::Ptr<ReferenceManager> manager_;
  size_t failedBefore_;
  bool closed_ = false;
};

void ReferenceMountGroup::doClose(bool partial, Kit::String reason, const double& timeout) {
  if (!(timeout >= 0)) {
    Guard::RangeException::throwException("closing a mount group: timeout of " +
                                          std::to_string(timeout) + " seconds, expected 0 or more");
  }
  if (std::exchange(closed_, true)) return;
  const bool failed = !partial && manager_->tree().failedMounts() != failedBefore_;
  const MountStatus status = failed ? MountStatus::failed : MountStatus::succeeded;
  static Trace::Handle& trace = Trace::handle("Hub");
  Trace::trace(trace, 9, {"platform/Hub/ReferenceHub", __LINE__},
               "mount group of " + mounter_->fullName().str() + " closed: " + reason.str());
  manager_->tree().post()([mounter = mounter_, manager = manager_, status] {
    mounter->handleMountStatus(status, manager);
  });
}

Kit::Ptr<MountGroup> ReferenceManager::getMountGroup(const Kit::Ptr<Mounter>& mounter) const {
  Guard::standardAssert(static_cast<bool>(mounter), "mounter");
  // Managers are made by makeEntityManager only, and none of them is const; the mounter is given
  // the manager that it was made with.
  return new ReferenceMountGroup(mounter, const_cast<ReferenceManager*>(this));
}

std::unique_ptr<KitShoal::MountService> ReferenceManager::mountService() const {
  return std::make_unique<ReferenceMountService>(Kit::Ptr<const ReferenceManager>(this));
}

MountTree& treeOf(const Kit::Ptr<EntityManager>& entityManager) {
  const auto reference = Kit::dynamicCast<ReferenceManager>(entityManager);
  Guard::standardAssert(static_cast<bool>(reference), "reference entity manager");
  return reference->tree();
}

}  // namespace

std::ostream& operator<<(std::ostream& out, MountStatus status) {
  switch (status) {
    case MountStatus::succeeded:
      return out << "succeeded";
    case MountStatus::failed:
      return out << "failed";
    case MountStatus::timedOut:
      return out << "timedOut";
  }
  return out << "MountStatus(" << static_cast<int>(status) << ")";
}

Kit::Ptr<EntityManager> makeEntityManager(HubOptions options) {
  return new ReferenceManager(std::move(options));
}

void endWhenCutShort(const char* program, int status) { Shoal::endWhenCutShort(program, status); }

Kit::Ptr<Kit::Dir> rootDir(const Kit::Ptr<EntityManager>& entityManager) {
  return treeOf(entityManager).root();
}

uint64_t mountedCapacity(const Kit::Ptr<EntityManager>& entityManager, const std::string& path) {
  return treeOf(entityManager).capacityOf(path);
}

void flushMounts(const Kit::Ptr<EntityManager>& entityManager) { treeOf(entityManager).flush(); }

}  // namespace Hub
