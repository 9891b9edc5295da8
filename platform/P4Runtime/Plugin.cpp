#include "platform/P4Runtime/Plugin.h"

#include <ostream>

namespace P4Runtime {

std::ostream& operator<<(std::ostream& out, PluginCleanupReason reason) {
  switch (reason) {
    case PluginCleanupReason::restart:
      return out << "restart";
    case PluginCleanupReason::removal:
      return out << "removal";
    case PluginCleanupReason::reconfigure:
      return out << "reconfigure";
  }
  return out << "PluginCleanupReason(" << static_cast<uint32_t>(reason) << ")";
}

void P4RuntimePluginBase::init(const Kit::Ptr<PluginContext>& context) {
  pluginContext_ = context;
  initComplete_ = false;
  try {
    pluginInit(context);
  } catch (...) {
    if (parent()) parent()->entityDel(name());
    throw;
  }
  initComplete_ = true;
}

void P4RuntimePluginBase::cleanup(PluginCleanupReason reason) {
  doCleanup(reason);
  if (parent()) parent()->entityDel(name());
}

void P4RuntimePluginBase::handleMountStatus(Hub::MountStatus status,
                                            const Kit::Ptr<Hub::EntityManager>& entityManager) {
  doMountsComplete(status, entityManager);
  mountsComplete_ = true;
}

}  // namespace P4Runtime
