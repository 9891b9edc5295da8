// The recording platform's agent side.
#include <ostream>

#include "platform/P4Runtime/Loader.h"
#include "platform/P4Runtime/Plugin.h"
#include "tests/recording-platform/Recorder.h"

namespace P4Runtime {
namespace {

class RecordingLoader final : public Plugin::Loader<PluginContext> {
 public:
  void registerPlugin(const std::string& name, const std::string& source,
                      const std::string& feature, const std::string& profile,
                      LoaderInitCallerWithContext* initCaller) override {
    const bool last = !initCallers().empty() && initCallers().back().get() == initCaller;
    Recording::call("registerPlugin " + name + ", " + source + ", " + feature + ", " + profile +
                    ", " + (last ? "the last init-caller" : "an unknown init-caller"));
  }
  std::string source() const override {
    Recording::call("source");
    return "the loader's own text";
  }
};

}  // namespace

Plugin::Loader<PluginContext>& DefaultPluginLoader() {
  static auto& loader = *new RecordingLoader;
  Recording::call("DefaultPluginLoader");
  return loader;
}

std::ostream& operator<<(std::ostream& out, PluginCleanupReason reason) {
  return out << "in words: " << static_cast<uint32_t>(reason);
}

void P4RuntimePluginBase::init(const Kit::Ptr<PluginContext>& context) {
  pluginContext_ = context;
  try {
    Recording::call("init with " + context->name().str());
    const auto& argument = Recording::Recorder::instance().argument;
    pluginInit(argument ? argument : context);
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
