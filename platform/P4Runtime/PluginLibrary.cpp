#include "platform/P4Runtime/PluginLibrary.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <set>

#include "platform/P4Runtime/TrustedFile.h"

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

constexpr int loadMode = RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE;

[[noreturn]] void throwNotLoaded(const std::filesystem::path& file, const std::string& cause) {
  PluginLoadException::throwException("plug-in library \"" + file.string() + "\": " + cause);
}

constexpr unsigned trialSeconds = 20;

// In a process that is there for nothing else: loads the library and ends.
[[noreturn]] void loadOnTrial(const char* name) noexcept {
  const rlimit none{0, 0};
  ::setrlimit(RLIMIT_CORE, &none);
  const int quiet = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
  ::dup2(quiet, STDOUT_FILENO);
  ::dup2(quiet, STDERR_FILENO);
  ::alarm(trialSeconds);
  dlopen(name, loadMode);
  ::_exit(0);  // why it cannot be loaded, if so, is told when it is loaded in earnest
}

// What the library's initialisation does to the process that loads it: empty if it lets it live.
// Exceptions cannot leave it, so that one that is thrown there ends the process.
std::string deathByLoading(const char* name) {
  const pid_t child = ::fork();
  if (child == 0) loadOnTrial(name);
  if (child < 0) return std::string("cannot try it in a process of its own: ") + strerror(errno);
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return {};
  if (WIFEXITED(status)) {
    return "ends the process that loads it, with status " + std::to_string(WEXITSTATUS(status));
  }
  if (WTERMSIG(status) == SIGALRM) {
    return "is not loaded within " + std::to_string(trialSeconds) + " s";
  }
  return std::string("ends the process that loads it: ") + strsignal(WTERMSIG(status));
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
  // Of all that has been loaded. They stay open: the dynamic loader knows a library by the name
  // under which it was loaded, and the number in it must not become another one's.
  std::vector<Kit::FileDescriptor> files_;
};

// Made on first use, because plug-ins register during static initialisation, and never destroyed.
ReferenceLoader& loader() {
  static ReferenceLoader& instance = *new ReferenceLoader;
  return instance;
}

Kit::FileDescriptor openedFile(const std::filesystem::path& file,
                               const std::filesystem::path& path) {
  try {
    return openTrusted(path);
  } catch (const UntrustedFileException& fault) {
    throwNotLoaded(file, fault.message());
  }
}

// The library is loaded through the descriptor by which it was looked at. Absolute: a bare file
// name would be searched for along the library path.
void ReferenceLoader::load(const std::filesystem::path& file) {
  const std::filesystem::path path = std::filesystem::absolute(file);
  Kit::FileDescriptor opened = openedFile(file, path);
  const std::string name =
      "/proc/" + std::to_string(::getpid()) + "/fd/" + std::to_string(opened.get());
  if (dlopen(name.c_str(), loadMode | RTLD_NOLOAD) == nullptr) {
    const std::string death = deathByLoading(name.c_str());
    if (!death.empty()) throwNotLoaded(file, death);
  }
  source_ = path.string();
  void* library = dlopen(name.c_str(), loadMode);
  source_.clear();
  if (!library) throwNotLoaded(file, dlerror());
  files_.push_back(std::move(opened));
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
  started.reserve(started.size() + initCallers.size());  // whatever has started is told
  for (size_t i = 0; i < initCallers.size(); ++i) started.push_back((*initCallers[i])());
}

}  // namespace P4Runtime
