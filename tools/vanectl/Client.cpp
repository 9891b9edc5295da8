#include "tools/vanectl/Client.h"

#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/Shoal/SharedTable.h"
#include "tools/common/Exit.h"

namespace VaneCtl {
namespace {

namespace fs = std::filesystem;
using grpc::StatusCode;
using Tools::ExitCode;
using Tools::Failure;

// What may be on its way to us, so that the agent makes the next messages while we work on these.
// By itself gRPC goes by the delay of the connection, which has next to none.
constexpr int lookAhead = 1 << 20;  // bytes

ExitCode exitCodeOf(StatusCode code) {
  switch (code) {
    case StatusCode::INVALID_ARGUMENT:
      return ExitCode::usage;
    case StatusCode::NOT_FOUND:
      return ExitCode::absent;
    case StatusCode::PERMISSION_DENIED:
    case StatusCode::UNAUTHENTICATED:
      return ExitCode::permission;
    case StatusCode::UNIMPLEMENTED:
      return ExitCode::refused;
    case StatusCode::DATA_LOSS:
      return ExitCode::corrupt;
    case StatusCode::DEADLINE_EXCEEDED:
      return ExitCode::timedOut;
    case StatusCode::UNAVAILABLE:
      return ExitCode::stalled;
    default:
      return ExitCode::failed;
  }
}

// Whether somebody listens is found out here: gRPC would try again and again, and not say why.
void tryToConnect(const fs::path& socket) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string& path = socket.native();
  if (path.size() >= sizeof address.sun_path) {
    throw Failure(ExitCode::usage,
                  fmt::format("socket {}: a path of at most {} bytes was expected, found {}", path,
                              sizeof address.sun_path - 1, path.size()));
  }
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int result = ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  const int error = errno;
  ::close(fd);
  if (result == 0) return;
  const bool denied = error == EACCES || error == EPERM;
  throw Failure(denied ? ExitCode::permission : ExitCode::stalled,
                fmt::format("no agent at {}: {}", path, std::strerror(error)));
}

}  // namespace

fs::path defaultSocket() {
  const char* dir = std::getenv("P4RT_RUN_DIR");
  fs::path run;
  if (dir != nullptr && *dir != '\0') {
    run = dir;
  } else {
    const fs::path root = Shoal::defaultRoot();
    run = root.has_filename() ? root : root.parent_path();
    run += ".run";
  }
  return run / "rowdb.sock";
}

void check(const grpc::Status& status) {
  if (status.ok()) return;
  std::string text = status.error_message();
  if (status.error_code() == StatusCode::UNAVAILABLE) text = "the agent has gone: " + text;
  throw Failure(exitCodeOf(status.error_code()), text);
}

Client::Client(fs::path socket) {
  tryToConnect(socket);
  grpc::ChannelArguments arguments;
  arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
  arguments.SetMaxReceiveMessageSize(-1);
  arguments.SetInt(GRPC_ARG_HTTP2_BDP_PROBE, 0);
  arguments.SetInt(GRPC_ARG_HTTP2_STREAM_LOOKAHEAD_BYTES, lookAhead);
  stub_ = v1::RowDatabase::NewStub(grpc::CreateCustomChannel(
      "unix:" + fs::absolute(socket).string(), grpc::InsecureChannelCredentials(), arguments));
}

v1::Table Client::describe(const std::string& table) {
  v1::DescribeTableRequest request;
  request.set_table(table);
  return call(&v1::RowDatabase::Stub::DescribeTable, request);
}

std::vector<v1::Table> Client::tables() {
  const auto response = call(&v1::RowDatabase::Stub::ListTables, v1::ListTablesRequest());
  return {response.tables().begin(), response.tables().end()};
}

}  // namespace VaneCtl
