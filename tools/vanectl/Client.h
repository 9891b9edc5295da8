// The agent's row database, at the other end of a Unix socket.
#pragma once

#include <grpcpp/grpcpp.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "vane/rowdb/v1/rowdb.grpc.pb.h"

namespace VaneCtl {

namespace v1 = vane::rowdb::v1;

// Where the agent listens when nothing else is said: rowdb.sock in $P4RT_RUN_DIR, or else in the
// directory that is named like the root of the shared tables with ".run" behind it.
std::filesystem::path defaultSocket();

// Throws Failure for a status that is not OK, with the exit status that it stands for.
void check(const grpc::Status& status);

class Client {
 public:
  // Throws Failure if nobody listens (stalled), or not to us (permission).
  explicit Client(std::filesystem::path socket);

  v1::RowDatabase::Stub& stub() { return *stub_; }

  // A call with one answer.
  template <class Request, class Response>
  Response call(grpc::Status (v1::RowDatabase::Stub::*method)(grpc::ClientContext*, const Request&,
                                                              Response*),
                const Request& request) {
    grpc::ClientContext context;
    Response response;
    check(((*stub_).*method)(&context, request, &response));
    return response;
  }

  v1::Table describe(const std::string& table);
  std::vector<v1::Table> tables();

 private:
  std::unique_ptr<v1::RowDatabase::Stub> stub_;
};

}  // namespace VaneCtl
