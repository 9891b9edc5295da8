// The row database as a service: vane.rowdb.v1.RowDatabase.
//
// Calls come on the server's threads. What they do with a table is handed to the agent's loop, a
// batch at a time; rows become messages, and messages rows, outside it. Calls are within the
// agent's limits; watches have their own, and are followed on threads of their own (Watch.h).
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "agent/LoopGate.h"
#include "agent/rows/Catalog.h"
#include "agent/rows/Watch.h"
#include "agent/rpc/Calls.h"
#include "vane/rowdb/v1/rowdb.grpc.pb.h"

namespace Agent::Rows {

// What the service asks of the agent, on the loop's thread.
class Host {
 public:
  virtual ~Host() = default;
  // Rows have been written: tells who waits for that, in this process and others.
  virtual void wrote() = 0;
  // Adds what is not about rows: the process, its addresses, P4Runtime.
  virtual void describe(v1::Status& status) = 0;
  // The room of a table, in rows; 0: not known.
  virtual uint64_t capacityOf(const OfferedTable& table) = 0;
  virtual std::string logLevel() const = 0;
  // False for a word that is no level.
  virtual bool logLevelIs(const std::string& word) = 0;
};

class RowService final
    : public v1::RowDatabase::WithCallbackMethod_WatchTables<v1::RowDatabase::Service> {
 public:
  // Made on the loop, when every table is there.
  RowService(const Vane::VaneDB& database, EventLoop& loop, LoopGate& gate, Host& host,
             Rpc::Calls& calls, WatchLimits limits = {});

  // Ends every watch with UNAVAILABLE and lets no new one begin. From any thread.
  void close() { watches_.close(); }

  grpc::Status ListTables(grpc::ServerContext* context, const v1::ListTablesRequest* request,
                          v1::ListTablesResponse* response) override;
  grpc::Status DescribeTable(grpc::ServerContext* context, const v1::DescribeTableRequest* request,
                             v1::Table* response) override;
  grpc::Status GetRow(grpc::ServerContext* context, const v1::GetRowRequest* request,
                      v1::Row* response) override;
  grpc::Status ScanRows(grpc::ServerContext* context, const v1::ScanRowsRequest* request,
                        grpc::ServerWriter<v1::ScanRowsResponse>* writer) override;
  grpc::Status WriteRows(grpc::ServerContext* context, const v1::WriteRowsRequest* request,
                         v1::WriteRowsResponse* response) override;
  grpc::Status ClearTable(grpc::ServerContext* context, const v1::ClearTableRequest* request,
                          v1::ClearTableResponse* response) override;
  grpc::ServerWriteReactor<v1::WatchTablesResponse>* WatchTables(
      grpc::CallbackServerContext* context, const v1::WatchTablesRequest* request) override;
  grpc::Status GetStatus(grpc::ServerContext* context, const v1::GetStatusRequest* request,
                         v1::Status* response) override;
  grpc::Status SetLogLevel(grpc::ServerContext* context, const v1::SetLogLevelRequest* request,
                           v1::SetLogLevelResponse* response) override;

 private:
  // Does the work of a call, within the limits; what it throws becomes its status, and is counted.
  grpc::Status answer(grpc::ServerContext* context, const google::protobuf::Message& request,
                      const std::function<void(Rpc::Calls::Call&)>& work);
  void count(grpc::StatusCode code);

  // On the loop.
  void describe(const OfferedTable& table, v1::Table& description) const;

  // A change that is ready for its table, or was refused already.
  struct Prepared {
    const OfferedTable* table = nullptr;
    Vane::BaseRow row;
    bool removes = false;
    grpc::Status status;
  };
  Prepared prepared(const v1::RowChange& change) const;
  // On the loop: applies the changes, the first of which is number `first` of its request; false if
  // no more are to be tried.
  bool apply(std::vector<Prepared>& changes, int first, bool stopAtError,
             v1::WriteRowsResponse& response);

  Catalog catalog_;
  LoopGate& gate_;
  Host& host_;
  Rpc::Calls& calls_;
  Watches watches_;
  std::array<std::atomic<uint64_t>, 17> failures_{};  // by status code
};

}  // namespace Agent::Rows
