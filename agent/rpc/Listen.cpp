#include "agent/rpc/Listen.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>

#include "agent/Command.h"
#include "agent/EventLoop.h"

namespace Agent::Rpc {
namespace {

using Kind = ListenAddress::Kind;

constexpr std::string_view unixPrefix = "unix:";
constexpr size_t longestSocketPath = sizeof(sockaddr_un::sun_path) - 1;

[[noreturn]] void throwBadAddress(std::string_view text) {
  ListenException::throwException(fmt::format(
      "address to listen on: expected ADDRESS:PORT, [ADDRESS]:PORT or unix:PATH, with a "
      "numeric address or localhost, found {}",
      inQuotes(text)));
}

[[noreturn]] void throwCannotListen(const ListenAddress& address, std::string_view reason) {
  ListenException::throwException(fmt::format("cannot listen on {}: {}", address.text(), reason));
}

ListenAddress unixAddress(std::string_view text) {
  const std::filesystem::path path(text.substr(unixPrefix.size()));
  const size_t length = path.native().size();
  if (length == 0) throwBadAddress(text);
  if (length > longestSocketPath) {
    ListenException::throwException(
        fmt::format("address to listen on: expected a socket path of at most {} bytes, found {}",
                    longestSocketPath, length));
  }
  return {Kind::unixSocket, {}, 0, path};
}

bool isNumeric(int family, const std::string& host) {
  in6_addr parsed;
  return ::inet_pton(family, host.c_str(), &parsed) == 1;
}

// What the system takes for an address.
struct SocketAddress {
  sockaddr_storage storage{};
  socklen_t length = 0;
};

SocketAddress socketAddress(const ListenAddress& address) {
  SocketAddress made;
  if (address.isUnix()) {
    auto& out = reinterpret_cast<sockaddr_un&>(made.storage);
    out.sun_family = AF_UNIX;
    std::memcpy(out.sun_path, address.path.c_str(), address.path.native().size() + 1);
    made.length = sizeof out;
  } else if (address.kind == Kind::ipv4) {
    auto& out = reinterpret_cast<sockaddr_in&>(made.storage);
    out.sin_family = AF_INET;
    out.sin_port = htons(address.port);
    ::inet_pton(AF_INET, address.host.c_str(), &out.sin_addr);
    made.length = sizeof out;
  } else {
    auto& out = reinterpret_cast<sockaddr_in6&>(made.storage);
    out.sin6_family = AF_INET6;
    out.sin6_port = htons(address.port);
    ::inet_pton(AF_INET6, address.host.c_str(), &out.sin6_addr);
    made.length = sizeof out;
  }
  return made;
}

Descriptor openSocket(const ListenAddress& address, int family) {
  Descriptor opened(::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (opened.get() < 0) throwCannotListen(address, std::strerror(errno));
  return opened;
}

void portMustBeFree(const ListenAddress& address) {
  const SocketAddress wanted = socketAddress(address);
  const Descriptor probe = openSocket(address, wanted.storage.ss_family);
  // Connections of an earlier agent that are not quite closed are no obstacle.
  const int on = 1;
  ::setsockopt(probe.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (::bind(probe.get(), reinterpret_cast<const sockaddr*>(&wanted.storage), wanted.length) != 0 ||
      ::listen(probe.get(), 1) != 0) {
    throwCannotListen(address, std::strerror(errno));
  }
}

void socketMustBeFree(const ListenAddress& address) {
  struct stat found;
  if (::lstat(address.path.c_str(), &found) != 0) {
    if (errno != ENOENT) throwCannotListen(address, std::strerror(errno));
    const auto folder = address.path.has_parent_path() ? address.path.parent_path() : ".";
    if (::access(folder.c_str(), W_OK | X_OK) != 0)
      throwCannotListen(address, std::strerror(errno));
    return;
  }
  if (!S_ISSOCK(found.st_mode)) throwCannotListen(address, "there is a file that is no socket");
  const SocketAddress wanted = socketAddress(address);
  const Descriptor probe = openSocket(address, AF_UNIX);
  if (::connect(probe.get(), reinterpret_cast<const sockaddr*>(&wanted.storage), wanted.length) ==
      0) {
    throwCannotListen(address, "another process listens there");
  }
  if (errno != ECONNREFUSED) throwCannotListen(address, std::strerror(errno));
  if (::unlink(address.path.c_str()) != 0) throwCannotListen(address, std::strerror(errno));
}

}  // namespace

std::string ListenAddress::text() const {
  if (isUnix()) return std::string(unixPrefix) + path.string();
  return kind == Kind::ipv6 ? fmt::format("[{}]:{}", host, port) : fmt::format("{}:{}", host, port);
}

bool ListenAddress::isLoopback() const {
  return kind == Kind::ipv4 ? host.starts_with("127.") : kind == Kind::ipv6 && host == "::1";
}

ListenAddress listenAddress(std::string_view text) {
  if (text.starts_with(unixPrefix)) return unixAddress(text);
  const size_t colon = text.rfind(':');
  if (colon == std::string_view::npos) throwBadAddress(text);
  ListenAddress address;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data() + colon + 1, end, address.port);
  if (error != std::errc() || stop != end) throwBadAddress(text);
  std::string host(text.substr(0, colon));
  if (host.starts_with('[') && host.ends_with(']')) {
    address.kind = Kind::ipv6;
    host = host.substr(1, host.size() - 2);
  } else if (host == "localhost") {
    host = "127.0.0.1";
  }
  if (!isNumeric(address.kind == Kind::ipv6 ? AF_INET6 : AF_INET, host)) throwBadAddress(text);
  address.host = std::move(host);
  return address;
}

void mustBeFree(const ListenAddress& address) {
  address.isUnix() ? socketMustBeFree(address) : portMustBeFree(address);
}

}  // namespace Agent::Rpc
