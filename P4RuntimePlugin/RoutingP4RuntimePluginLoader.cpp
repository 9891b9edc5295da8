#include "P4RuntimePlugin/RoutingP4RuntimePluginLoader.h"

#include <iostream>  // for its initializer: the standard streams outlive the objects below
#include <memory>
#include <string>
#include <utility>

namespace P4RuntimeRouting {

RoutingP4RuntimePluginLoader::RoutingP4RuntimePluginLoader() {
  using Loader = Plugin::Loader<P4Runtime::PluginContext>;
  const std::string profile = "Routing";
  const std::string name = "RoutingVane";
  Loader& loader = P4Runtime::DefaultPluginLoader();
  auto& initCallers = loader.initCallers();
  initCallers.push_back(
      std::make_unique<Loader::LoaderInitCallerWithContext>(&loader, initCaller()));
  try {
    loader.registerPlugin(name, loader.source(), name, profile, initCallers.back().get());
  } catch (...) {
    // The agent would call an object that was never made.
    initCallers.pop_back();
    throw;
  }
}

Kit::Ptr<P4Runtime::P4RuntimePluginBase> RoutingP4RuntimePluginLoader::init(
    P4Runtime::PluginContext* context) {
  auto created = Kit::dynamicCast<P4RuntimeRoutingVanePlugin>(
      context->pluginDir()->createEntity("RoutingVane", p4RuntimeRoutingVanePluginTypeName));
  struct Replacement {
    ~Replacement() {
      if (!started) place = std::move(previous);
    }
    Kit::Ptr<P4RuntimeRoutingVanePlugin>& place;
    Kit::Ptr<P4RuntimeRoutingVanePlugin> previous;
    bool started = false;
  } replacement{plugin_, std::exchange(plugin_, std::move(created))};
  plugin_->P4RuntimePluginBase::init(Kit::Ptr<P4Runtime::PluginContext>(context));
  replacement.started = true;
  return plugin_;
}

namespace {

// In this order, when the library is loaded. The loader goes, and with it its plug-in entity, when
// the process ends.
[[maybe_unused]] const Kit::TypeNode& registeredType = p4RuntimeRoutingVanePluginType();
RoutingP4RuntimePluginLoader loader;

}  // namespace

}  // namespace P4RuntimeRouting
