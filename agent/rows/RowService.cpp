#include "agent/rows/RowService.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "agent/rows/Refusal.h"
#include "agent/rows/Walk.h"

namespace Agent::Rows {
namespace {

using grpc::StatusCode;

constexpr size_t readPiece = 2048;  // rows for each hand-over to the loop
constexpr int writePiece = 4096;    // changes likewise

// One change of a table, or what its table says to it.
grpc::Status applied(const OfferedTable& table, Vane::BaseRow& row, bool removes) {
  return statusOf([&] {
    if (!table.table().modifierSupported()) {
      throw Refusal(StatusCode::FAILED_PRECONDITION, "the table is not ours to write");
    }
    removes ? table.table().rowDel(row) : table.table().rowIs(row, false);
  });
}

}  // namespace

RowService::RowService(const Vane::VaneDB& database, EventLoop& loop, LoopGate& gate, Host& host,
                       Rpc::Calls& calls, WatchLimits limits)
    : catalog_(database),
      gate_(gate),
      host_(host),
      calls_(calls),
      watches_(catalog_, loop, gate, limits) {}

grpc::Status RowService::answer(grpc::ServerContext* context,
                                const google::protobuf::Message& request,
                                const std::function<void(Rpc::Calls::Call&)>& work) {
  grpc::Status status = statusOf([&] {
    Rpc::Calls::Call call(calls_, *context);
    refuseUnless(call.status());
    refuseUnless(call.hold(request.ByteSizeLong()));
    work(call);
  });
  count(status.error_code());
  return status;
}

void RowService::count(StatusCode code) {
  if (code != StatusCode::OK) ++failures_.at(static_cast<size_t>(code));
}

void RowService::describe(const OfferedTable& offered, v1::Table& description) const {
  const auto& table = offered.table();
  description.set_name(offered.name());
  description.set_path(offered.path());
  description.set_row_type(offered.metadata().typeName);
  description.set_row_type_id(offered.rowTypeId());
  description.set_signature(offered.metadata().signature);
  for (const auto& key : offered.metadata().keyColumns) description.add_key_columns(key);
  description.set_fixed_length(offered.metadata().baseRowLength);
  description.set_size(table.size());
  description.set_capacity(host_.capacityOf(offered));
  description.set_oldest_change_index(table.oldestChangeIdx());
  description.set_latest_change_index(table.latestChangeIdx());
  description.set_writable(table.modifierSupported());
  description.set_life(watches_.life());
}

grpc::Status RowService::ListTables(grpc::ServerContext* context,
                                    const v1::ListTablesRequest* request,
                                    v1::ListTablesResponse* response) {
  return answer(context, *request, [&](Rpc::Calls::Call& call) {
    onLoop(gate_, call.deadline(), [&] {
      for (const auto& table : catalog_.tables()) describe(*table, *response->add_tables());
    });
  });
}

grpc::Status RowService::DescribeTable(grpc::ServerContext* context,
                                       const v1::DescribeTableRequest* request,
                                       v1::Table* response) {
  return answer(context, *request, [&](Rpc::Calls::Call& call) {
    const OfferedTable& table = catalog_.table(request->table());
    onLoop(gate_, call.deadline(), [&] { describe(table, *response); });
  });
}

grpc::Status RowService::GetRow(grpc::ServerContext* context, const v1::GetRowRequest* request,
                                v1::Row* response) {
  return answer(context, *request, [&](Rpc::Calls::Call& call) {
    const OfferedTable& table = catalog_.table(request->table());
    const Vane::BaseRow key = table.rowOf(request->key());
    Vane::BaseRow found;
    onLoop(gate_, call.deadline(), [&] {
      const auto at = table.table().find(key, 0);
      if (*at && table.sameKey(**at, key)) {
        found = **at;
      } else {
        table.table().row(key, 0);  // throws if it is there and cannot be read
      }
    });
    if (found.isNull()) {
      throw Refusal(StatusCode::NOT_FOUND, fmt::format("table {} has no such row", table.name()));
    }
    table.toMessage(found, request->json(), *response);
  });
}

grpc::Status RowService::ScanRows(grpc::ServerContext* context, const v1::ScanRowsRequest* request,
                                  grpc::ServerWriter<v1::ScanRowsResponse>* writer) {
  return answer(context, *request, [&](Rpc::Calls::Call& call) {
    const OfferedTable& table = catalog_.table(request->table());
    Walk walk(table, request->has_after() ? table.rowOf(request->after()) : Vane::BaseRow());
    uint64_t left = request->limit() == 0 ? UINT64_MAX : request->limit();
    std::vector<Vane::BaseRow> rows;
    v1::ScanRowsResponse response;
    size_t bytes = 0;
    const auto send = [&] {
      if (bytes != 0 && !writer->Write(response)) {
        throw Refusal(StatusCode::CANCELLED, "the client has gone");
      }
      call.prolong();
      response.Clear();
      bytes = 0;
    };
    for (bool more = true; more && left != 0;) {
      onLoop(gate_, call.deadline(), [&] {
        more = walk.step(static_cast<size_t>(std::min<uint64_t>(readPiece, left)), rows);
      });
      left -= rows.size();
      for (const Vane::BaseRow& row : rows) {
        v1::Row& added = *response.add_rows();
        table.toMessage(row, request->json(), added);
        bytes += added.packed().size() + added.json().size();
        if (bytes >= messageBytes) send();
      }
      send();
    }
  });
}

RowService::Prepared RowService::prepared(const v1::RowChange& change) const {
  Prepared made;
  made.status = statusOf([&] {
    made.table = &catalog_.table(change.table());
    if (change.change_case() == v1::RowChange::CHANGE_NOT_SET) {
      throw Refusal(StatusCode::INVALID_ARGUMENT, "expected a row to set or to delete");
    }
    made.removes = change.has_del();
    made.row = made.table->rowOf(made.removes ? change.del() : change.set());
  });
  return made;
}

bool RowService::apply(std::vector<Prepared>& changes, int first, bool stopAtError,
                       v1::WriteRowsResponse& response) {
  for (size_t i = 0; i < changes.size(); ++i) {
    Prepared& change = changes[i];
    if (change.status.ok()) change.status = applied(*change.table, change.row, change.removes);
    if (change.status.ok()) {
      response.set_applied(response.applied() + 1);
      continue;
    }
    auto& failure = *response.add_failures();
    failure.set_index(static_cast<uint32_t>(first) + static_cast<uint32_t>(i));
    failure.set_code(change.status.error_code());
    failure.set_message(asciiOf(change.status.error_message()));
    count(change.status.error_code());
    if (change.table) ++change.table->errors;
    if (stopAtError) return false;
  }
  return true;
}

grpc::Status RowService::WriteRows(grpc::ServerContext* context,
                                   const v1::WriteRowsRequest* request,
                                   v1::WriteRowsResponse* response) {
  return answer(context, *request, [&](Rpc::Calls::Call& call) {
    const int count = request->changes_size();
    bool more = true;
    for (int first = 0; more && first < count; first += writePiece) {
      std::vector<Prepared> piece;
      for (int i = first; i < std::min(count, first + writePiece); ++i) {
        piece.push_back(prepared(request->changes(i)));
      }
      onLoop(gate_, call.deadline(), [&] {
        more = apply(piece, first, request->stop_at_error(), *response);
        host_.wrote();
      });
    }
  });
}

grpc::Status RowService::ClearTable(grpc::ServerContext* context,
                                    const v1::ClearTableRequest* request,
                                    v1::ClearTableResponse* response) {
  return answer(context, *request, [&](Rpc::Calls::Call& call) {
    const OfferedTable& table = catalog_.table(request->table());
    onLoop(gate_, call.deadline(), [&] {
      response->set_rows(table.table().size());
      table.table().rowDelAll();
      host_.wrote();
    });
  });
}

grpc::ServerWriteReactor<v1::WatchTablesResponse>* RowService::WatchTables(
    grpc::CallbackServerContext* context, const v1::WatchTablesRequest* request) {
  return watches_.begin(*context, *request, [this](const grpc::Status& status) {
    // A watch that is over because its client has seen enough is no failure.
    if (status.error_code() != StatusCode::CANCELLED) count(status.error_code());
  });
}

grpc::Status RowService::GetStatus(grpc::ServerContext* context,
                                   const v1::GetStatusRequest* request, v1::Status* response) {
  return answer(context, *request, [&](Rpc::Calls::Call& call) {
    onLoop(gate_, call.deadline(), [&] {
      host_.describe(*response);
      response->set_log_level(host_.logLevel());
      for (const auto& offered : catalog_.tables()) {
        auto& table = *response->add_tables();
        table.set_name(offered->name());
        table.set_entries(offered->table().size());
        table.set_capacity(host_.capacityOf(*offered));
        table.set_writes(offered->writes());
        table.set_deletes(offered->deletes());
        table.set_errors(offered->errors);
        table.set_oldest_change_index(offered->table().oldestChangeIdx());
        table.set_latest_change_index(offered->table().latestChangeIdx());
      }
      watches_.describe(*response);
    });
    for (size_t code = 0; code < failures_.size(); ++code) {
      if (failures_[code] == 0) continue;
      auto& error = *response->add_errors();
      error.set_reason(fmt::format("rows {}", nameOf(static_cast<StatusCode>(code))));
      error.set_count(failures_[code]);
    }
  });
}

grpc::Status RowService::SetLogLevel(grpc::ServerContext* context,
                                     const v1::SetLogLevelRequest* request,
                                     v1::SetLogLevelResponse* response) {
  return answer(context, *request, [&](Rpc::Calls::Call& call) {
    bool known = true;
    onLoop(gate_, call.deadline(), [&] {
      response->set_previous(host_.logLevel());
      if (!request->level().empty()) known = host_.logLevelIs(request->level());
      response->set_present(host_.logLevel());
    });
    if (!known) {
      throw Refusal(StatusCode::INVALID_ARGUMENT, "level: expected error, warning, info or debug");
    }
  });
}

}  // namespace Agent::Rows
