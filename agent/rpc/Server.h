// A gRPC server: some services on some addresses, with its limits.
//
// A loopback address and a Unix socket may be plain. Any other address takes TLS with client
// certificates, unless plain text there is allowed in so many words. With a certificate, every
// address but a Unix socket takes TLS.
#pragma once

#include <grpcpp/server.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "agent/rpc/Listen.h"

namespace Agent::Rpc {

// Files, in PEM form.
struct TlsFiles {
  std::filesystem::path certificate;
  std::filesystem::path key;
  std::filesystem::path clientAuthority;  // signs the clients' certificates
};

class Server {
 public:
  // Beside the calls: those that wait for calls, and those that turn calls away.
  static constexpr int spareThreads = 16;
  struct Limits {
    size_t messageSize = size_t{128} << 20;  // bytes, of a request
    int threads = 256 + spareThreads;
    std::chrono::seconds keepAlive{60};      // an idle connection is asked whether it lives
    std::chrono::seconds idle{600};          // a connection without a call is closed
    size_t bufferBytes = size_t{512} << 20;  // what arrives and has not been taken in yet
  };
  struct Settings {
    std::vector<ListenAddress> addresses;
    std::optional<TlsFiles> tls;
    bool isPlainTextRemoteAllowed = false;
    Limits limits;
  };

  // Listens, and serves from now on. Throws ListenException, and then listens nowhere.
  Server(Settings settings, const std::vector<grpc::Service*>& services);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // With the ports that were chosen.
  const std::vector<ListenAddress>& addresses() const { return settings_.addresses; }

  // Takes no more calls, ends those that are still there after `patience`, and returns when all
  // have ended. Calls that end only when told so are ended by their service before.
  void stop(std::chrono::milliseconds patience);

 private:
  Settings settings_;
  std::unique_ptr<grpc::Server> server_;
};

}  // namespace Agent::Rpc
