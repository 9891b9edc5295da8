// Where a server listens: an address and a port, or a Unix socket.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "platform/Guard/Exception.h"

namespace Agent::Rpc {

// An address that cannot be one, or cannot be had. The text names it and the cause.
class ListenException final : public Guard::Throwable<ListenException> {
 public:
  using Throwable::Throwable;
};

struct ListenAddress {
  enum class Kind : uint8_t { ipv4, ipv6, unixSocket };
  Kind kind = Kind::ipv4;
  std::string host;   // numeric, without brackets
  uint16_t port = 0;  // 0: any that is free
  std::filesystem::path path;

  // As people and gRPC write it.
  std::string text() const;
  bool isUnix() const { return kind == Kind::unixSocket; }
  bool isLoopback() const;
};

// "127.0.0.1:9559", "[::1]:9559", "localhost:9559", "unix:/run/agent.sock". Throws ListenException.
ListenAddress listenAddress(std::string_view text);

// Throws ListenException, with the system's reason, if nobody can listen there: an address in use
// or not this machine's, a Unix socket whose owner lives. The socket of an owner that is gone is
// removed.
void mustBeFree(const ListenAddress& address);

}  // namespace Agent::Rpc
