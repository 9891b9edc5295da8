#include "agent/Agent.h"

#include <fmt/format.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "agent/Log.h"
#include "agent/RowCommands.h"
#include "agent/Tables.h"
#include "platform/Hub/Mount.h"
#include "platform/Hub/ReferenceHub.h"
#include "platform/P4Runtime/PluginLibrary.h"

namespace Agent {
namespace {

// How long a plug-in may take to mount its tables before it is named.
constexpr itimerspec mountPatience{{}, {3, 0}};

// `afterPosted` runs after each piece of work that the hub has posted to the loop.
Kit::Ptr<Hub::EntityManager> makeHub(const Options& options, EventLoop& loop,
                                     std::function<void()> afterPosted) {
  Hub::HubOptions hub;
  hub.shoalRoot = options.shoalRoot;
  hub.post = [&loop, afterPosted = std::move(afterPosted)](std::function<void()> work) {
    loop.post([work = std::move(work), afterPosted] {
      work();
      afterPosted();
    });
  };
  hub.capacities.insert(options.capacities.begin(), options.capacities.end());
  if (options.defaultCapacity) {
    hub.defaultCapacity = *options.defaultCapacity;
    // A plug-in asks for what it mounts itself; the operator's wish comes first.
    for (const TableInfo& table : routingTables()) {
      hub.capacities.emplace(table.path, *options.defaultCapacity);
    }
  }
  return Hub::makeEntityManager(std::move(hub));
}

// The whole line, also into a pipe that takes it in parts. A reader that has gone away is no error:
// the agent serves on.
void writeOut(const std::string& line) {
  for (size_t at = 0; at < line.size();) {
    const ssize_t count = ::write(STDOUT_FILENO, line.data() + at, line.size() - at);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) {
      return Log::error("outputFailed", {}, "standard output: {}", std::strerror(errno));
    }
    at += static_cast<size_t>(count);
  }
}

}  // namespace

P4rtAgent::P4rtAgent(Options options, std::unique_ptr<Services> services)
    : options_(std::move(options)),
      entityManager_(makeHub(options_, loop_, [this] { serveWhenMounted(); })),
      database_(Vane::makeVaneDB()),
      context_(new P4Runtime::PluginContext("pluginContext", entityManager_, database_,
                                            new Kit::Dir("plugins"))),
      tables_(database_),
      services_(std::move(services)) {
  Log::levelIs(options_.logLevel);
  Vane::VaneDB::currentIs(database_);
}

P4rtAgent::~P4rtAgent() {
  // A plug-in holds the context, whose directory holds the plug-in.
  for (const auto& plugin : plugins_) context_->pluginDir()->entityDel(plugin->name());
  Vane::VaneDB::currentIs(nullptr);
}

int P4rtAgent::run() {
  loadPlugins();
  if (options_.printP4Info) {
    writeOut(services_->p4InfoText());
    return 0;
  }
  start();
  const int signal = loop_.run();
  if (signal != 0)
    Log::info("ending", {{"signal", sigabbrev_np(signal)}}, "ending on {}", sigabbrev_np(signal));
  feed_.reset();
  services_->stop();
  cleanUp();
  return failed_ || counts_.failed != 0 ? 1 : 0;
}

void P4rtAgent::loadPlugins() {
  for (const auto& plugin : options_.plugins) P4Runtime::loadPluginLibrary(plugin);
  for (const auto& plugin : P4Runtime::registeredPlugins()) {
    Log::debug("plugin", {{"name", plugin.name}}, "plug-in {} from {}", plugin.name, plugin.source);
  }
}

void P4rtAgent::start() {
  mountTables();
  P4Runtime::startPlugins(&*context_, plugins_);
  mountTimer_ = Descriptor(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
  ::timerfd_settime(mountTimer_.get(), 0, &mountPatience, nullptr);
  loop_.watch(mountTimer_.get(), [this] { logLateMounts(); });
  loop_.post([this] { serveWhenMounted(); });
}

void P4rtAgent::mountTables() {
  for (const TableInfo& table : routingTables()) {
    if (table.mountedBy != MountedBy::agent) continue;
    KitShoal::MountInfo info(KitShoal::KitShoalType::hashTable);
    info.collectionInfoIs({Kit::String(table.collection), table.capacity});
    KitShoal::Mount mount(entityManager_);
    mount.doMount(Kit::String(table.path), Kit::String(table.entityType), info);
    Log::debug("mounted", {{"path", table.path}}, "mounted {}", table.path);
  }
}

void P4rtAgent::logLateMounts() {
  loop_.unwatch(mountTimer_.get());
  for (const auto& plugin : plugins_) {
    if (plugin->mountsComplete()) continue;
    Log::error("mountsLate", {{"plugin", plugin->name().str()}},
               "plug-in {}: its mounts are not complete; serving begins when they are",
               plugin->name().str());
  }
}

void P4rtAgent::serveWhenMounted() {
  const auto isMounted = [](const auto& plugin) { return plugin->mountsComplete(); };
  if (feed_ || !std::ranges::all_of(plugins_, isMounted)) return;
  loop_.unwatch(mountTimer_.get());
  mountTimer_ = {};
  serve();
}

void P4rtAgent::serve() {
  if (options_.follow) {
    follower_ = std::make_unique<Follower>(*database_);
    follower_->take();  // reads afresh what was there before
  }
  Log::info("serving",
            {{"tables", database_->tableNames().size()}, {"root", options_.shoalRoot.string()}},
            "serving {} tables below {}", database_->tableNames().size(),
            options_.shoalRoot.string());
  services_->start(
      {.loop = loop_,
       .database = database_,
       .afterBatch = [this] { afterBatch(); },
       .capacityOf =
           [this](const std::string& path) { return Hub::mountedCapacity(entityManager_, path); }});
  begun_ = std::chrono::steady_clock::now();
  feed_ = std::make_unique<Feed>(loop_, inputs(),
                                 Feed::Callbacks{.afterBatch = [this] { afterBatch(); },
                                                 .atEnd = [this] { inputsEnded(); },
                                                 .bad =
                                                     [this](const std::string& cause) {
                                                       failed_ = true;
                                                       Log::error("inputFailed", {}, "{}", cause);
                                                       if (options_.strict) loop_.stop();
                                                     },
                                                 .stopped = [this] { loop_.stop(); }});
  feed_->start();
}

std::deque<Feed::Input> P4rtAgent::inputs() {
  std::deque<Feed::Input> inputs;
  for (const std::string& file : options_.prefixes) {
    inputs.push_back({file, [this](const std::string& name) {
                        return std::make_unique<PrefixRows>(name, options_.strict, counts_, tables_,
                                                            prefixes_);
                      }});
  }
  if (options_.load) {
    inputs.push_back({*options_.load, [this](const std::string& name) {
                        return std::make_unique<RowCommands>(
                            name, options_.strict, counts_, tables_, [this](uint64_t id) {
                              afterBatch();
                              report(fmt::format(R"("sync":{})", id));
                            });
                      }});
  }
  return inputs;
}

void P4rtAgent::afterBatch() {
  try {
    Hub::flushMounts(entityManager_);
    if (follower_) follower_->take();
  } catch (const std::exception& failure) {
    failed_ = true;
    Log::error("followingFailed", {}, "following the tables: {}", failure.what());
  }
}

void P4rtAgent::inputsEnded() {
  const bool loaded = options_.load || !options_.prefixes.empty();
  if (loaded) {
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begun_;
    Log::info("loaded",
              {{"applied", counts_.ok}, {"failed", counts_.failed}, {"seconds", took.count()}},
              "{} rows applied, {} failed, in {:.2f} s", counts_.ok, counts_.failed, took.count());
  }
  if (options_.status) report(R"("status":"loaded")");
  if (options_.once) loop_.stop();
}

void P4rtAgent::cleanUp() {
  follower_.reset();
  if (options_.onExit == OnExit::keep) return;
  const auto reason = options_.onExit == OnExit::empty ? P4Runtime::PluginCleanupReason::restart
                                                       : P4Runtime::PluginCleanupReason::removal;
  bool cleaned = true;
  for (const auto& plugin : plugins_) {
    try {
      plugin->cleanup(reason);
    } catch (const std::exception& failure) {
      cleaned = false;
      Log::error("cleanUpFailed", {{"plugin", plugin->name().str()}}, "cleaning up {}: {}",
                 plugin->name().str(), failure.what());
    }
  }
  Hub::flushMounts(entityManager_);
  failed_ = failed_ || !cleaned;
  if (cleaned) {
    const char* done = options_.onExit == OnExit::empty ? "emptied" : "detached";
    Log::info("cleanedUp", {{"tables", done}}, "the tables have been {}", done);
  }
}

void P4rtAgent::report(const std::string& head) {
  std::string tables;
  for (const std::string& name : database_->tableNames()) {
    const auto table = database_->table(name);
    tables += fmt::format(R"({}"{}":{{"entries":{},"oldestChangeIdx":{},"latestChangeIdx":{})",
                          tables.empty() ? "" : ",", name, table->size(), table->oldestChangeIdx(),
                          table->latestChangeIdx());
    if (follower_) tables += R"(,"follower":)" + follower_->report(name);
    tables += '}';
  }
  writeOut(fmt::format("{{{},\"ok\":{},\"failed\":{},\"tables\":{{{}}}}}\n", head, counts_.ok,
                       counts_.failed, tables));
}

}  // namespace Agent
