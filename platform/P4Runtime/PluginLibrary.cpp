#include "platform/P4Runtime/PluginLibrary.h"

#include <dlfcn.h>
#include <link.h>

#include <set>

namespace P4Runtime {
namespace {

// Where the library that holds this object has been loaded; 0: none holds it.
uintptr_t baseOf(const void* object) {
  Dl_info info;
  return dladdr(object, &info) ? reinterpret_cast<uintptr_t>(info.dli_fbase) : 0;
}

uintptr_t baseOfLibrary(void* library) {
  const link_map* map = nullptr;
  dlinfo(library, RTLD_DI_LINKMAP, &map);
  return map->l_addr;
}

class ReferenceLoader final : public Plugin::Loader<PluginContext> {
 public:
  void registerPlugin(const std::string& name, const std::string& source,
                      const std::string& feature, const std::string& profile,
                      LoaderInitCallerWithContext* initCaller) override {
    registered_.push_back({name, source, feature, profile});
    libraries_.insert(baseOf(initCaller->plugin()));
  }
  std::string source() const override { return source_; }

  const std::vector<RegisteredPlugin>& registered() const { return registered_; }
  void load(const std::filesystem::path& file);

 private:
  std::vector<RegisteredPlugin> registered_;
  std::string source_;             // empty while no library is being loaded
  std::set<uintptr_t> libraries_;  // those that hold a registered plug-in's object
};

// Made on first use, because plug-ins register during static initialisation, and never destroyed.
ReferenceLoader& loader() {
  static ReferenceLoader& instance = *new ReferenceLoader;
  return instance;
}

[[noreturn]] void throwNotLoaded(const std::filesystem::path& file, const std::string& cause) {
  PluginLoadException::throwException("plug-in library \"" + file.string() + "\": " + cause);
}

void ReferenceLoader::load(const std::filesystem::path& file) {
  // Absolute: a bare file name would be searched for along the library path.
  source_ = std::filesystem::absolute(file).string();
  void* library = dlopen(source_.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
  source_.clear();
  if (!library) throwNotLoaded(file, dlerror());
  if (!libraries_.contains(baseOfLibrary(library))) {
    dlclose(library);
    throwNotLoaded(file, "it registered no plug-in when it was loaded");
  }
}

}  // namespace

Plugin::Loader<PluginContext>& DefaultPluginLoader() { return loader(); }

void loadPluginLibrary(const std::filesystem::path& file) { loader().load(file); }

const std::vector<RegisteredPlugin>& registeredPlugins() { return loader().registered(); }

void startPlugins(PluginContext* context, std::vector<Kit::Ptr<P4RuntimePluginBase>>& started) {
  // The loader outlives the context.
  struct Given {
    explicit Given(PluginContext* context) { loader().contextIs(context); }
    ~Given() { loader().contextIs(nullptr); }
  } const given(context);
  const auto& initCallers = loader().initCallers();
  for (size_t i = 0; i < initCallers.size(); ++i) started.push_back((*initCallers[i])());
}

}  // namespace P4Runtime
