#include "tests/agent-rows/Bench.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <stdexcept>

namespace RowsTest {

using Json = nlohmann::json;
using Event = v1::WatchTablesResponse;

std::string route(const std::string& prefix, uint32_t destination) {
  return fmt::format(R"({{"destinationPrefix":"{}","destinationType":1,"destinationId":{}}})",
                     prefix, destination);
}

std::string routeKey(const std::string& prefix) {
  return fmt::format(R"({{"destinationPrefix":"{}"}})", prefix);
}

std::string prefix(uint32_t n) {
  return fmt::format("10.{}.{}.{}/32", n >> 16 & 255, n >> 8 & 255, n & 255);
}

v1::RowChange setChange(const std::string& table, const std::string& json) {
  v1::RowChange change;
  change.set_table(table);
  change.mutable_set()->set_json(json);
  return change;
}

v1::RowChange delChange(const std::string& table, const std::string& json) {
  v1::RowChange change;
  change.set_table(table);
  change.mutable_del()->set_json(json);
  return change;
}

v1::WriteRowsResponse write(v1::RowDatabase::Stub& stub, const std::vector<v1::RowChange>& changes,
                            bool stopAtError) {
  v1::WriteRowsRequest request;
  for (const auto& change : changes) *request.add_changes() = change;
  request.set_stop_at_error(stopAtError);
  v1::WriteRowsResponse response;
  Context context;
  const grpc::Status status = stub.WriteRows(&context, request, &response);
  EXPECT_TRUE(status.ok()) << status.error_message();
  return response;
}

void setRoutes(v1::RowDatabase::Stub& stub, uint32_t first, uint32_t count, uint32_t destination) {
  std::vector<v1::RowChange> changes;
  for (uint32_t n = first; n < first + count; ++n) {
    changes.push_back(setChange("VaneIpv4Override", route(prefix(n), destination)));
  }
  ASSERT_EQ(write(stub, changes).applied(), count);
}

std::vector<v1::Row> scan(v1::RowDatabase::Stub& stub, const std::string& table, uint64_t limit,
                          const std::string& afterJson) {
  v1::ScanRowsRequest request;
  request.set_table(table);
  request.set_limit(limit);
  request.set_json(true);
  if (!afterJson.empty()) request.mutable_after()->set_json(afterJson);
  Context context;
  const auto reader = stub.ScanRows(&context, request);
  std::vector<v1::Row> rows;
  v1::ScanRowsResponse response;
  while (reader->Read(&response)) {
    rows.insert(rows.end(), response.rows().begin(), response.rows().end());
  }
  const grpc::Status status = reader->Finish();
  EXPECT_TRUE(status.ok()) << status.error_message();
  return rows;
}

v1::Table described(v1::RowDatabase::Stub& stub, const std::string& table) {
  v1::DescribeTableRequest request;
  request.set_table(table);
  v1::Table response;
  Context context;
  const grpc::Status status = stub.DescribeTable(&context, request, &response);
  EXPECT_TRUE(status.ok()) << status.error_message();
  return response;
}

v1::Status status(v1::RowDatabase::Stub& stub) {
  v1::Status response;
  Context context;
  EXPECT_TRUE(stub.GetStatus(&context, {}, &response).ok());
  return response;
}

std::map<std::string, uint32_t> destinations(v1::RowDatabase::Stub& stub,
                                             const std::string& table) {
  std::map<std::string, uint32_t> found;
  for (const auto& row : scan(stub, table)) {
    const Json json = Json::parse(row.json());
    EXPECT_TRUE(found.emplace(json.at("destinationPrefix"), json.at("destinationId")).second);
  }
  return found;
}

Watcher::Watcher(v1::RowDatabase::Stub& stub, const v1::WatchTablesRequest& request)
    : reader_(stub.WatchTables(&context_, request)) {}

Watcher::~Watcher() {
  if (!over_) end();
}

v1::WatchTablesResponse Watcher::next() {
  Event event;
  if (!reader_->Read(&event)) {
    throw std::runtime_error("the watch has ended: " + ended().error_message());
  }
  return event;
}

v1::WatchTablesResponse Watcher::next(Event::EventCase kind) {
  for (;;) {
    Event event = next();
    if (event.event_case() == kind) return event;
  }
}

grpc::Status Watcher::end() {
  context_.TryCancel();
  return ended();
}

grpc::Status Watcher::ended() {
  Event event;
  while (reader_->Read(&event)) {
  }
  over_ = true;
  return reader_->Finish();
}

v1::WatchTablesRequest watchOf(const std::string& table, bool snapshot) {
  v1::WatchTablesRequest request;
  request.add_tables()->set_table(table);
  request.set_snapshot(snapshot);
  request.set_json(true);
  return request;
}

void Model::take(const Event& event) {
  switch (event.event_case()) {
    case Event::kStart:
      reached = event.start().index();
      break;
    case Event::kResync:
      ++resyncs;
      EXPECT_FALSE(event.resync().reason().empty());
      reached = snapshots ? 0 : event.resync().index();
      rows.clear();
      break;
    case Event::kSnapshot:
      for (const auto& row : event.snapshot().rows()) {
        const Json json = Json::parse(row.json());
        EXPECT_TRUE(rows.emplace(json.at("destinationPrefix"), json.at("destinationId")).second)
            << "twice in a snapshot: " << row.json();
      }
      break;
    case Event::kSnapshotEnd:
      reached = event.snapshot_end().index();
      break;
    case Event::kChanges:
      for (const auto& change : event.changes().changes()) {
        EXPECT_GT(change.index(), reached);
        EXPECT_EQ(change.kind(), (change.index() & 1) != 0 ? 2u : 1u);
        reached = change.index();
        ++changes;
        const Json json = Json::parse(change.row().json());
        const std::string key = json.at("destinationPrefix");
        if (change.kind() == 2) {
          rows.erase(key);
        } else {
          rows[key] = json.at("destinationId");
        }
      }
      break;
    default:
      ADD_FAILURE() << "an event of no kind";
  }
}

}  // namespace RowsTest
