// What the agent serves over sockets: P4Runtime on the addresses of --listen.
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>

#include "agent/Log.h"
#include "agent/LoopGate.h"
#include "agent/Services.h"
#include "agent/Tables.h"
#include "agent/p4/P4Info.h"
#include "agent/p4/P4RuntimeService.h"
#include "agent/p4/RowTarget.h"
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
  settings.limits.threads = static_cast<int>(remote.calls) + Rpc::Server::spareThreads;
  settings.limits.keepAlive = std::chrono::seconds(remote.keepAliveSeconds);
  return settings;
}

class RpcServices final : public Services {
 public:
  explicit RpcServices(const Options& options)
      : remote_(options.remote),
        capacities_(capacitiesByRowTable(options)),
        settings_(serverSettings(options.remote)) {}
  ~RpcServices() override { end(); }

  void start(EventLoop& loop, const std::shared_ptr<Vane::VaneDB>& database,
             std::function<void()> afterBatch) override {
    if (settings_.addresses.empty()) return;
    gate_ = std::make_unique<LoopGate>(loop, remote_.waiting);
    calls_ = std::make_unique<Rpc::Calls>(
        Rpc::Calls::Limits{.calls = remote_.calls,
                           .connections = remote_.connections,
                           .longest = std::chrono::seconds(remote_.callSeconds)});
    target_ = std::make_unique<P4::RowTarget>(
        database, *gate_,
        P4::RowTarget::Options{.capacities = capacities_,
                               .hasFixedPipeline = remote_.ownPipeline,
                               .afterBatch = std::move(afterBatch)});
    p4Runtime_ = std::make_unique<P4::P4RuntimeService>(
        *target_, *calls_,
        P4::Arbitration::Limits{.deviceId = remote_.deviceId,
                                .streamsPerRole = remote_.streamsPerRole});
    server_ =
        std::make_unique<Rpc::Server>(settings_, std::vector<grpc::Service*>{p4Runtime_.get()});
    addressFile_ =
        std::make_unique<Rpc::AddressFile>(remote_.runDir, "p4runtime.addr", server_->addresses());
    for (const Rpc::ListenAddress& address : server_->addresses()) {
      Log::info("P4Runtime on {}, device {}", address.text(), remote_.deviceId);
    }
  }

  void stop() override { end(); }

  std::string p4InfoText() const override { return P4::p4InfoText(P4::Roles(capacities_)); }

 private:
  void end() {
    addressFile_.reset();
    // First what waits for the loop, which does not turn any more, then what waits for clients.
    if (gate_) gate_->close();
    if (p4Runtime_) p4Runtime_->stop();
    if (server_) server_->stop(lastCalls);
    server_.reset();
    p4Runtime_.reset();
    target_.reset();
  }

  const RemoteOptions remote_;
  const std::map<std::string, uint64_t> capacities_;
  const Rpc::Server::Settings settings_;
  std::unique_ptr<LoopGate> gate_;
  std::unique_ptr<Rpc::Calls> calls_;
  std::unique_ptr<P4::RowTarget> target_;
  std::unique_ptr<P4::P4RuntimeService> p4Runtime_;
  std::unique_ptr<Rpc::Server> server_;
  std::unique_ptr<Rpc::AddressFile> addressFile_;
};

}  // namespace

std::unique_ptr<Services> makeServices(const Options& options) {
  return std::make_unique<RpcServices>(options);
}

}  // namespace Agent
