// Makes the plug-in known to the agent when the library is loaded, and creates and starts its
// entity when the agent calls back.
#pragma once

#include "P4RuntimePlugin/RoutingP4RuntimePlugin.h"
#include "platform/P4Runtime/Loader.h"
#include "platform/P4Runtime/Plugin.h"

namespace P4RuntimeRouting {

class RoutingP4RuntimePluginLoader final : public PluginBase<P4Runtime::PluginContext> {
 public:
  // Registers with the agent's default loader.
  RoutingP4RuntimePluginLoader();

  // When this throws, the loader holds the entity that it held before.
  Kit::Ptr<P4Runtime::P4RuntimePluginBase> init(P4Runtime::PluginContext* context) override;

 private:
  Kit::Ptr<P4RuntimeRoutingVanePlugin> plugin_;
};

}  // namespace P4RuntimeRouting
