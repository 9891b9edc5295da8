// What the agent serves over sockets: P4Runtime on the addresses of --listen, and the row database
// on a Unix socket.
#include <fmt/format.h>
#include <unistd.h>

#include <chrono>
#include <map>
#include <memory>

#include "agent/Log.h"
#include "agent/LoopGate.h"
#include "agent/Services.h"
#include "agent/Tables.h"
#include "agent/p4/P4Info.h"
#include "agent/p4/P4RuntimeService.h"
#include "agent/p4/RowTarget.h"
#include "agent/rows/Refusal.h"
#include "agent/rows/RowService.h"
#include "agent/rpc/RunDirectory.h"
#include "agent/rpc/Server.h"

namespace Agent {
namespace {

// What calls under way get to end by themselves when the agent ends.
constexpr std::chrono::seconds lastCalls{2};

std::map<std::string, uint64_t> capacitiesByRowTable(const Options& options) {
  std::map<std::string, uint64_t> capacities;
  for (const TableInfo& table : routingTables()) {
    const auto asked = options.capacities.find(std::string(table.path));
    if (asked != options.capacities.end()) {
      capacities.emplace(table.name, asked->second);
    } else if (options.defaultCapacity) {
      capacities.emplace(table.name, *options.defaultCapacity);
    }
  }
  return capacities;
}

// Requests of the largest size that there is memory for at once.
constexpr size_t largestRequests = 4;

size_t requestBytes(const RemoteOptions& remote) {
  return largestRequests * (size_t{remote.messageMiB} << 20);
}

Rpc::Server::Settings serverSettings(const RemoteOptions& remote) {
  Rpc::Server::Settings settings;
  for (const std::string& text : remote.listen) {
    settings.addresses.push_back(Rpc::listenAddress(text));
  }
  if (!remote.tlsCertificate.empty()) {
    settings.tls = {remote.tlsCertificate, remote.tlsKey, remote.tlsAuthority};
  }
  settings.isPlainTextRemoteAllowed = remote.allowPlaintextRemote;
  settings.limits.messageSize = size_t{remote.messageMiB} << 20;
  settings.limits.bufferBytes = requestBytes(remote);
  settings.limits.threads = static_cast<int>(remote.calls) + Rpc::Server::spareThreads;
  settings.limits.keepAlive = std::chrono::seconds(remote.keepAliveSeconds);
  return settings;
}

class RpcServices final : public Services, private Rows::Host {
 public:
  explicit RpcServices(const Options& options)
      : remote_(options.remote),
        shoalRoot_(options.shoalRoot),
        capacities_(capacitiesByRowTable(options)),
        settings_(serverSettings(options.remote)) {}
  ~RpcServices() override { end(); }

  void start(Needs needs) override {
    needs_ = std::make_unique<Needs>(std::move(needs));
    gate_ = std::make_unique<LoopGate>(needs_->loop, remote_.waiting);
    calls_ = std::make_unique<Rpc::Calls>(
        Rpc::Calls::Limits{.calls = remote_.calls,
                           .connections = remote_.connections,
                           .longest = std::chrono::seconds(remote_.callSeconds),
                           .requestBytes = requestBytes(remote_)});
    if (!settings_.addresses.empty()) serveP4Runtime();
    if (!remote_.rowSocket.empty()) serveRows();
  }

  void stop() override { end(); }

  std::string p4InfoText() const override { return P4::p4InfoText(P4::Roles(capacities_)); }

 private:
  void serveP4Runtime() {
    target_ = std::make_unique<P4::RowTarget>(
        needs_->database, *gate_,
        P4::RowTarget::Options{.capacities = capacities_,
                               .hasFixedPipeline = remote_.ownPipeline,
                               .afterBatch = needs_->afterBatch});
    p4Runtime_ = std::make_unique<P4::P4RuntimeService>(
        *target_, *calls_,
        P4::Arbitration::Limits{.deviceId = remote_.deviceId,
                                .streamsPerRole = remote_.streamsPerRole},
        P4::P4RuntimeService::BatchLimits{.updates = remote_.updates});
    server_ =
        std::make_unique<Rpc::Server>(settings_, std::vector<grpc::Service*>{p4Runtime_.get()});
    needRunDirectory();
    addressFile_ =
        std::make_unique<Rpc::AddressFile>(remote_.runDir, "p4runtime.addr", server_->addresses());
    for (const Rpc::ListenAddress& address : server_->addresses()) {
      Log::info(
          "listening",
          {{"service", "p4runtime"}, {"address", address.text()}, {"device", remote_.deviceId}},
          "P4Runtime on {}, device {}", address.text(), remote_.deviceId);
    }
  }

  // A place by default that cannot be had, such as one whose path is too long for a socket, costs
  // the socket only.
  void serveRows() {
    try {
      listenForRows();
    } catch (const std::exception& failure) {
      if (remote_.isRowSocketGiven) throw;
      Log::error("notListening", {{"service", "rowdb"}}, "the row database is not served: {}",
                 failure.what());
    }
  }

  void listenForRows() {
    Rpc::Server::Settings settings;
    settings.addresses.push_back(Rpc::listenAddress("unix:" + remote_.rowSocket.string()));
    settings.limits = settings_.limits;
    if (!remote_.isRowSocketGiven) needRunDirectory();
    Rows::WatchLimits limits;
    limits.watches = remote_.watches;
    rows_ = std::make_unique<Rows::RowService>(*needs_->database, needs_->loop, *gate_,
                                               static_cast<Rows::Host&>(*this), *calls_, limits);
    rowServer_ = std::make_unique<Rpc::Server>(settings, std::vector<grpc::Service*>{rows_.get()});
    Log::info("listening",
              {{"service", "rowdb"}, {"address", rowServer_->addresses().front().text()}},
              "row database on {}", remote_.rowSocket.string());
  }

  void needRunDirectory() {
    if (!runDirectory_) runDirectory_ = std::make_unique<Rpc::RunDirectory>(remote_.runDir);
  }

  // What the row service asks of the agent.
  void wrote() override { needs_->afterBatch(); }
  uint64_t capacityOf(const Rows::OfferedTable& table) override {
    return needs_->capacityOf(table.path());
  }
  std::string logLevel() const override { return std::string(Log::nameOf(Log::level())); }
  bool logLevelIs(const std::string& word) override {
    const auto level = Log::levelOf(word);
    if (level) Log::levelIs(*level);
    return level.has_value();
  }
  void describe(vane::rowdb::v1::Status& status) override {
    status.set_pid(static_cast<uint64_t>(::getpid()));
    status.set_uptime_seconds(
        std::chrono::duration<double>(std::chrono::steady_clock::now() - begun_).count());
    status.set_version(AGENT_VERSION);
    status.set_shoal_root(shoalRoot_.string());
    for (const auto* server : {server_.get(), rowServer_.get()}) {
      if (server == nullptr) continue;
      for (const auto& address : server->addresses()) status.add_listening(address.text());
    }
    if (target_) describeP4Runtime(status);
  }
  void describeP4Runtime(vane::rowdb::v1::Status& status) const {
    const P4::Counters counters = target_->counters();
    status.set_p4_writes(counters.updatesApplied);
    status.set_p4_reads(counters.entitiesRead);
    for (size_t code = 0; code < counters.errors.size(); ++code) {
      if (counters.errors[code] == 0) continue;
      auto& error = *status.add_errors();
      error.set_reason(
          fmt::format("p4runtime {}", Rows::nameOf(static_cast<grpc::StatusCode>(code))));
      error.set_count(counters.errors[code]);
    }
  }

  void end() {
    addressFile_.reset();
    // First what waits for the loop, which does not turn any more, then what waits for clients.
    if (gate_) gate_->close();
    if (p4Runtime_) p4Runtime_->stop();
    if (rows_) rows_->close();
    if (server_) server_->stop(lastCalls);
    if (rowServer_) rowServer_->stop(lastCalls);
    rowServer_.reset();
    rows_.reset();
    server_.reset();
    p4Runtime_.reset();
    target_.reset();
    runDirectory_.reset();
  }

  const RemoteOptions remote_;
  const std::filesystem::path shoalRoot_;
  const std::chrono::steady_clock::time_point begun_ = std::chrono::steady_clock::now();
  const std::map<std::string, uint64_t> capacities_;
  const Rpc::Server::Settings settings_;
  std::unique_ptr<Needs> needs_;  // once started
  std::unique_ptr<Rpc::RunDirectory> runDirectory_;
  std::unique_ptr<LoopGate> gate_;
  std::unique_ptr<Rpc::Calls> calls_;
  std::unique_ptr<P4::RowTarget> target_;
  std::unique_ptr<P4::P4RuntimeService> p4Runtime_;
  std::unique_ptr<Rpc::Server> server_;
  std::unique_ptr<Rpc::AddressFile> addressFile_;
  std::unique_ptr<Rows::RowService> rows_;
  std::unique_ptr<Rpc::Server> rowServer_;
};

}  // namespace

std::unique_ptr<Services> makeServices(const Options& options) {
  return std::make_unique<RpcServices>(options);
}

}  // namespace Agent
