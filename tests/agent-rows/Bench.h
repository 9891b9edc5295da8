// The row service as its clients meet it: the reference platform over a directory of its own, the
// real plug-in, the agent's loop on a thread, and the service on a Unix socket.
#pragma once

#include <grpcpp/grpcpp.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "agent/EventLoop.h"
#include "agent/LoopGate.h"
#include "agent/Tables.h"
#include "agent/rows/RowService.h"
#include "agent/rpc/Calls.h"
#include "platform/Hub/Mount.h"
#include "platform/Hub/ReferenceHub.h"
#include "platform/P4Runtime/PluginLibrary.h"
#include "vane/rowdb/v1/rowdb.grpc.pb.h"

namespace RowsTest {

inline const std::string routes = "VaneIpv4Override";

namespace v1 = vane::rowdb::v1;
using Agent::Rows::WatchLimits;

class Directory {
 public:
  Directory() {
    std::string name = "/dev/shm/rows-test-XXXXXX";
    if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("no private directory");
    path = name;
  }
  Directory(const Directory&) = delete;
  ~Directory() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
  std::filesystem::path path;
};

class QuietHost final : public Agent::Rows::Host {
 public:
  void wrote() override { ++writes; }
  void describe(v1::Status& status) override { status.set_version("test"); }
  uint64_t capacityOf(const Agent::Rows::OfferedTable&) override { return 64; }
  std::string logLevel() const override { return level; }
  bool logLevelIs(const std::string& word) override {
    if (word != "info" && word != "debug") return false;
    level = word;
    return true;
  }
  int writes = 0;
  std::string level = "info";
};

struct BenchOptions {
  WatchLimits watches;
  uint32_t capacity = 4096;  // of each table
  size_t room = 16;          // of the gate
  Agent::Rpc::Calls::Limits calls;
};

class Bench {
 public:
  explicit Bench(const BenchOptions& options = {}) : options_(options), calls_(options.calls) {
    std::promise<void> ready;
    thread_ = std::thread([this, &ready] { serve(ready); });
    ready.get_future().get();
    grpc::ServerBuilder builder;
    builder.AddListeningPort(address(), grpc::InsecureServerCredentials());
    builder.SetMaxReceiveMessageSize(-1);
    builder.RegisterService(service_.get());
    server_ = builder.BuildAndStart();
    stub = newStub();
  }
  ~Bench() { stop(); }
  Bench(const Bench&) = delete;
  Bench& operator=(const Bench&) = delete;

  // As the agent ends.
  void stop() {
    if (!server_) return;
    service_->close();
    stub.reset();  // a connection that nobody looks at would hold up the end
    server_->Shutdown(std::chrono::system_clock::now() + std::chrono::seconds(10));
    onLoop([this] { loop_->stop(); });
    server_.reset();
    thread_.join();
  }

  std::string address() const { return "unix:" + (directory_.path / "socket").string(); }
  std::unique_ptr<v1::RowDatabase::Stub> newStub() {
    grpc::ChannelArguments arguments;
    arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
    arguments.SetMaxReceiveMessageSize(-1);
    return v1::RowDatabase::NewStub(
        grpc::CreateCustomChannel(address(), grpc::InsecureChannelCredentials(), arguments));
  }

  // Runs the work on the loop, and waits until it has run.
  void onLoop(const std::function<void()>& work) {
    std::promise<void> done;
    loop_->post([&] {
      work();
      done.set_value();
    });
    done.get_future().get();
  }
  Vane::VaTableImplementation& table(const std::string& name) { return *database_->table(name); }

  Agent::LoopGate& gate() { return *gate_; }
  QuietHost host;
  std::unique_ptr<v1::RowDatabase::Stub> stub;

 private:
  // The loop's thread, from the first mount to the last.
  void serve(std::promise<void>& ready) {
    loop_ = std::make_unique<Agent::EventLoop>();
    gate_ = std::make_unique<Agent::LoopGate>(*loop_, options_.room);
    Hub::HubOptions hub;
    hub.shoalRoot = directory_.path;
    hub.post = [this](std::function<void()> work) { loop_->post(std::move(work)); };
    const auto manager = Hub::makeEntityManager(std::move(hub));
    database_ = Vane::makeVaneDB();
    Vane::VaneDB::currentIs(database_);
    P4Runtime::loadPluginLibrary(ROUTING_PLUGIN_FILE);
    const Kit::Ptr<P4Runtime::PluginContext> context(
        new P4Runtime::PluginContext("context", manager, database_, new Kit::Dir("plugins")));
    mount(manager);
    std::vector<Kit::Ptr<P4Runtime::P4RuntimePluginBase>> plugins;
    P4Runtime::startPlugins(&*context, plugins);
    waitForMounts(plugins, ready);
    loop_->run();
    gate_->close();
    service_.reset();
    for (const auto& plugin : plugins) context->pluginDir()->entityDel(plugin->name());
    plugins.clear();
    Vane::VaneDB::currentIs(nullptr);
    database_.reset();
  }

  void mount(const Kit::Ptr<Hub::EntityManager>& manager) const {
    for (const auto& table : Agent::routingTables()) {
      if (table.mountedBy != Agent::MountedBy::agent) continue;
      KitShoal::MountInfo info(KitShoal::KitShoalType::hashTable);
      info.collectionInfoIs({Kit::String(table.collection), options_.capacity});
      KitShoal::Mount(manager).doMount(Kit::String(table.path), Kit::String(table.entityType),
                                       info);
    }
  }

  void waitForMounts(const std::vector<Kit::Ptr<P4Runtime::P4RuntimePluginBase>>& plugins,
                     std::promise<void>& ready) {
    loop_->post([this, &plugins, &ready] {
      for (const auto& plugin : plugins) {
        if (!plugin->mountsComplete()) return waitForMounts(plugins, ready);
      }
      service_ = std::make_unique<Agent::Rows::RowService>(*database_, *loop_, *gate_, host, calls_,
                                                           options_.watches);
      ready.set_value();
    });
  }

  const BenchOptions options_;
  Agent::Rpc::Calls calls_;
  Directory directory_;
  std::unique_ptr<Agent::EventLoop> loop_;
  std::unique_ptr<Agent::LoopGate> gate_;
  std::shared_ptr<Vane::VaneDB> database_;
  std::unique_ptr<Agent::Rows::RowService> service_;
  std::thread thread_;
  std::unique_ptr<grpc::Server> server_;
};

// Rows as JSON.
std::string route(const std::string& prefix, uint32_t destination = 0);
std::string routeKey(const std::string& prefix);
// Prefix number n of a table: 10.0.0.0/32, 10.0.0.1/32 ...
std::string prefix(uint32_t n);

v1::RowChange setChange(const std::string& table, const std::string& json);
v1::RowChange delChange(const std::string& table, const std::string& json);

// Calls that expect success.
v1::WriteRowsResponse write(v1::RowDatabase::Stub& stub, const std::vector<v1::RowChange>& changes,
                            bool stopAtError = false);
void setRoutes(v1::RowDatabase::Stub& stub, uint32_t first, uint32_t count, uint32_t destination);
std::vector<v1::Row> scan(v1::RowDatabase::Stub& stub, const std::string& table, uint64_t limit = 0,
                          const std::string& afterJson = {});
v1::Table described(v1::RowDatabase::Stub& stub, const std::string& table);
v1::Status status(v1::RowDatabase::Stub& stub);
// The present rows of a table by key, as JSON values, from a scan.
std::map<std::string, uint32_t> destinations(v1::RowDatabase::Stub& stub, const std::string& table);

// A context whose call does not last longer than a minute.
class Context : public grpc::ClientContext {
 public:
  Context() { set_deadline(std::chrono::system_clock::now() + std::chrono::minutes(1)); }
};

// A watch under way.
class Watcher {
 public:
  Watcher(v1::RowDatabase::Stub& stub, const v1::WatchTablesRequest& request);
  ~Watcher();
  // The next event; throws when the call has ended.
  v1::WatchTablesResponse next();
  // The next event of this kind, all before it being skipped.
  v1::WatchTablesResponse next(v1::WatchTablesResponse::EventCase kind);
  // Cancels, unless the call has ended, and gives its status.
  grpc::Status end();
  // Waits for its end.
  grpc::Status ended();

 private:
  Context context_;
  std::unique_ptr<grpc::ClientReader<v1::WatchTablesResponse>> reader_;
  bool over_ = false;
};

v1::WatchTablesRequest watchOf(const std::string& table, bool snapshot = false);

// What a client of a watch knows of a table of routes: destination by prefix.
struct Model {
  // Takes an event in, and checks what holds for every stream: indices rise, kinds agree with bit
  // 0, and no row stands twice in a snapshot.
  void take(const v1::WatchTablesResponse& event);

  std::map<std::string, uint32_t> rows;
  uint64_t reached = 0;
  bool snapshots = false;  // were asked for: a resync leaves us nowhere until one has come
  int resyncs = 0;
  uint64_t changes = 0;
};

}  // namespace RowsTest
