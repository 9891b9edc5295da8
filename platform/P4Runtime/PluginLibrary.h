// The reference loader: plug-in libraries given by path.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "platform/Guard/Exception.h"
#include "platform/P4Runtime/Loader.h"
#include "platform/P4Runtime/Plugin.h"

namespace P4Runtime {

// A plug-in library that cannot be loaded, or that registers no plug-in. The text names the file
// and the cause.
class PluginLoadException final : public Guard::Throwable<PluginLoadException> {
 public:
  using Throwable::Throwable;
};

// One registered plug-in.
struct RegisteredPlugin {
  std::string name;
  std::string source;
  std::string feature;
  std::string profile;
};

// Loads a library into the process, where it stays until the end: its registrations are objects
// inside it. A library that is loaded already is left as it is. Throws PluginLoadException.
//
// Before any of its code runs, every part of its path must be root's or this user's own
// (TrustedFile.h). Then it is loaded in a process of its own first, and refused if it ends that
// one.
void loadPluginLibrary(const std::filesystem::path& file);

// What has been registered with the default loader, in order.
const std::vector<RegisteredPlugin>& registeredPlugins();

// Runs the default loader's init-callers in order with this context and returns the started
// plug-ins. What one of them throws passes on; those before it stay started and are appended to
// `started`.
void startPlugins(PluginContext* context, std::vector<Kit::Ptr<P4RuntimePluginBase>>& started);

}  // namespace P4Runtime
