#include "agent/rpc/Server.h"

#include <fmt/format.h>
#include <grpc/support/log.h>
#include <grpcpp/resource_quota.h>
#include <grpcpp/security/server_credentials.h>
#include <grpcpp/server_builder.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

#include "agent/Log.h"

namespace Agent::Rpc {
namespace {

using Credentials = std::shared_ptr<grpc::ServerCredentials>;

// The library's own remarks, of which there are many for one cause, are for those who look closely.
void logLibrary(gpr_log_func_args* args) { Log::debug("library", {}, "gRPC: {}", args->message); }

std::string contentOf(const std::filesystem::path& file, std::string_view what) {
  std::ifstream in(file, std::ios::binary);
  std::ostringstream content;
  content << in.rdbuf();
  if (!in || content.str().find("-----BEGIN") == std::string::npos) {
    ListenException::throwException(fmt::format("{} {}: expected a file in PEM form{}{}", what,
                                                file.string(), in ? "" : ": ",
                                                in ? "" : std::strerror(errno)));
  }
  return content.str();
}

Credentials tlsCredentials(const TlsFiles& files) {
  grpc::SslServerCredentialsOptions options(
      GRPC_SSL_REQUEST_AND_REQUIRE_CLIENT_CERTIFICATE_AND_VERIFY);
  options.pem_root_certs = contentOf(files.clientAuthority, "TLS authority");
  options.pem_key_cert_pairs.push_back(
      {contentOf(files.key, "TLS key"), contentOf(files.certificate, "TLS certificate")});
  return grpc::SslServerCredentials(options);
}

Credentials credentials(const Server::Settings& settings, const ListenAddress& address) {
  if (address.isUnix()) return grpc::InsecureServerCredentials();
  if (settings.tls) return tlsCredentials(*settings.tls);
  if (!address.isLoopback() && !settings.isPlainTextRemoteAllowed) {
    ListenException::throwException(
        fmt::format("will not listen on {} in plain text: other machines reach it; give a TLS "
                    "certificate, key and authority, or allow plain text expressly",
                    address.text()));
  }
  return grpc::InsecureServerCredentials();
}

int milliseconds(std::chrono::milliseconds time) { return static_cast<int>(time.count()); }

void setLimits(grpc::ServerBuilder& builder, const Server::Limits& limits) {
  builder.SetMaxReceiveMessageSize(static_cast<int>(limits.messageSize));
  // The hard end; calls that are counted are turned away before, with a word why.
  grpc::ResourceQuota quota("calls");
  quota.SetMaxThreads(limits.threads);
  quota.Resize(limits.bufferBytes);
  builder.SetResourceQuota(quota);
  const auto arguments = {
      // Two agents must not share a port without knowing.
      std::pair{GRPC_ARG_ALLOW_REUSEPORT, 0},
      std::pair{GRPC_ARG_MAX_CONNECTION_IDLE_MS, milliseconds(limits.idle)},
      std::pair{GRPC_ARG_KEEPALIVE_TIME_MS, milliseconds(limits.keepAlive)},
      std::pair{GRPC_ARG_KEEPALIVE_TIMEOUT_MS, milliseconds(std::chrono::seconds(20))},
      std::pair{GRPC_ARG_KEEPALIVE_PERMIT_WITHOUT_CALLS, 1},
      std::pair{GRPC_ARG_HTTP2_MIN_RECV_PING_INTERVAL_WITHOUT_DATA_MS,
                milliseconds(std::chrono::seconds(5))}};
  for (const auto& [name, value] : arguments) builder.AddChannelArgument(name, value);
}

// Files made meanwhile are for their owner and group only.
class GroupOnly {
 public:
  GroupOnly() : before_(::umask(0117)) {}
  ~GroupOnly() { ::umask(before_); }
  GroupOnly(const GroupOnly&) = delete;
  GroupOnly& operator=(const GroupOnly&) = delete;

 private:
  mode_t before_;
};

}  // namespace

Server::Server(Settings settings, const std::vector<grpc::Service*>& services)
    : settings_(std::move(settings)) {
  gpr_set_log_function(logLibrary);
  grpc::ServerBuilder builder;
  setLimits(builder, settings_.limits);
  std::vector<int> ports(settings_.addresses.size());
  for (size_t i = 0; i < ports.size(); ++i) {
    const ListenAddress& address = settings_.addresses[i];
    builder.AddListeningPort(address.text(), credentials(settings_, address), &ports[i]);
  }
  for (const ListenAddress& address : settings_.addresses) mustBeFree(address);
  for (grpc::Service* service : services) builder.RegisterService(service);
  {
    const GroupOnly modes;
    server_ = builder.BuildAndStart();
  }
  for (size_t i = 0; i < ports.size(); ++i) {
    ListenAddress& address = settings_.addresses[i];
    if (ports[i] <= 0) {
      ListenException::throwException(
          fmt::format("cannot listen on {}{}", address.text(),
                      settings_.tls && !address.isUnix()
                          ? ": the TLS certificate, key and authority do not go together"
                          : ""));
    }
    if (!address.isUnix()) address.port = static_cast<uint16_t>(ports[i]);
  }
  if (!server_) ListenException::throwException("the server could not be started");
}

Server::~Server() { stop(std::chrono::milliseconds(0)); }

void Server::stop(std::chrono::milliseconds patience) {
  if (!server_) return;
  server_->Shutdown(std::chrono::system_clock::now() + patience);
  server_->Wait();
  server_.reset();
  for (const ListenAddress& address : settings_.addresses) {
    if (address.isUnix()) ::unlink(address.path.c_str());
  }
}

}  // namespace Agent::Rpc
