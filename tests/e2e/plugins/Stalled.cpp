// A plug-in that never reports its mounts complete.
#include "platform/P4Runtime/Loader.h"
#include "platform/P4Runtime/Plugin.h"

namespace {

using P4Runtime::P4RuntimePluginBase;
using P4Runtime::PluginContext;

class Stalled final : public P4RuntimePluginBase {
 public:
  explicit Stalled(Kit::Name name) : P4RuntimePluginBase(std::move(name)) {}
  void pluginInit(const Kit::Ptr<PluginContext>&) override {}
  void doMountsComplete(Hub::MountStatus, const Kit::Ptr<Hub::EntityManager>&) override {}
  void doCleanup(P4Runtime::PluginCleanupReason) override {}
};

class StalledPlugin final : public PluginBase<PluginContext> {
 public:
  StalledPlugin() {
    using Loader = Plugin::Loader<PluginContext>;
    Loader& loader = P4Runtime::DefaultPluginLoader();
    loader.initCallers().push_back(
        std::make_unique<Loader::LoaderInitCallerWithContext>(&loader, initCaller()));
    loader.registerPlugin("stalled", loader.source(), "feature", "profile",
                          loader.initCallers().back().get());
  }
  Kit::Ptr<P4RuntimePluginBase> init(PluginContext*) override { return new Stalled("stalled"); }
};

StalledPlugin plugin;

}  // namespace
