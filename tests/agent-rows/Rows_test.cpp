// Tables described, rows written, read and scanned, over a socket.
#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
#include <thread>

#include "tests/agent-rows/Bench.h"

namespace {

using namespace RowsTest;
using grpc::StatusCode;
using Json = nlohmann::json;

class RowServiceTest : public testing::Test {
 protected:
  grpc::Status get(const std::string& table, const v1::Row& key, v1::Row& found) {
    v1::GetRowRequest request;
    request.set_table(table);
    *request.mutable_key() = key;
    request.set_json(true);
    Context context;
    return bench.stub->GetRow(&context, request, &found);
  }
  grpc::Status get(const std::string& table, const std::string& keyJson, v1::Row& found) {
    v1::Row key;
    key.set_json(keyJson);
    return get(table, key, found);
  }
  // What the service says to a packed row that is set in a table of routes.
  v1::WriteRowsResponse::Failure refusalOf(const std::string& packed,
                                           const std::string& table = routes) {
    v1::RowChange change;
    change.set_table(table);
    change.mutable_set()->set_packed(packed);
    const auto response = write(*bench.stub, {change});
    EXPECT_EQ(response.applied(), 0u);
    return response.failures_size() == 1 ? response.failures(0) : v1::WriteRowsResponse::Failure();
  }

  Bench bench;
};

TEST_F(RowServiceTest, TenTablesAreListedWithTheirTypesAndSizes) {
  setRoutes(*bench.stub, 0, 3, 7);
  v1::ListTablesResponse response;
  Context context;
  ASSERT_TRUE(bench.stub->ListTables(&context, {}, &response).ok());
  ASSERT_EQ(response.tables_size(), 10);
  std::set<std::string> names;
  for (const auto& table : response.tables()) {
    names.insert(table.name());
    EXPECT_TRUE(Json::parse(table.signature()).is_object()) << table.signature();
    EXPECT_GT(table.fixed_length(), 4u);
    EXPECT_FALSE(table.key_columns().empty());
    EXPECT_NE(table.row_type_id(), 0u);
    EXPECT_NE(table.life(), 0u);
    EXPECT_TRUE(table.writable());
    EXPECT_EQ(table.size(), table.name() == routes ? 3u : 0u);
  }
  EXPECT_EQ(names.size(), 10u);
  EXPECT_TRUE(names.contains("VaneEcmpGroup"));
}

TEST_F(RowServiceTest, ATableIsDescribedByNameByPathAndByItsLastPart) {
  for (const char* name : {"VaneIpv4Override", "ipv4OverrideTable",
                           "p4runtime/outputTables/routing/ipv4OverrideTable"}) {
    const v1::Table table = described(*bench.stub, name);
    EXPECT_EQ(table.name(), "VaneIpv4Override");
    EXPECT_EQ(table.path(), "p4runtime/outputTables/routing/ipv4OverrideTable");
    // 4 of header, 8 + 8 + 1 + 4 + 4 + 4 + 4 of columns.
    EXPECT_EQ(table.fixed_length(), 37u);
    ASSERT_EQ(table.key_columns_size(), 1);
    EXPECT_EQ(table.key_columns(0), "destinationPrefix");
  }
}

TEST_F(RowServiceTest, AnUnknownTableIsNotFoundAndTheNearestIsNamed) {
  v1::DescribeTableRequest request;
  request.set_table("VaneIpv4Overide");
  v1::Table response;
  Context context;
  const grpc::Status status = bench.stub->DescribeTable(&context, request, &response);
  EXPECT_EQ(status.error_code(), StatusCode::NOT_FOUND);
  EXPECT_NE(status.error_message().find("VaneIpv4Override"), std::string::npos);
}

TEST_F(RowServiceTest, AnUnknownNameOfAMegabyteIsAnsweredInALine) {
  v1::DescribeTableRequest request;
  request.set_table(std::string(1 << 20, 'x'));
  v1::Table response;
  Context context;
  const grpc::Status status = bench.stub->DescribeTable(&context, request, &response);
  EXPECT_EQ(status.error_code(), StatusCode::NOT_FOUND);
  EXPECT_LT(status.error_message().size(), 300u);
}

TEST_F(RowServiceTest, ARowSetAsJsonComesBackAsBytesAndAsJson) {
  ASSERT_EQ(write(*bench.stub, {setChange(routes, route("10.0.0.0/8", 5))}).applied(), 1u);
  v1::Row found;
  ASSERT_TRUE(get(routes, routeKey("10.0.0.0/8"), found).ok());
  EXPECT_EQ(Json::parse(found.json()),
            Json::parse(R"({"genId":0, "entryHandle":0, "valid":false, "entryId":0,
                            "destinationPrefix":"10.0.0.0/8", "destinationType":1,
                            "destinationId":5})"));
  // Fixed area and one IPv4 prefix.
  ASSERT_EQ(found.packed().size(), 42u);
  EXPECT_EQ(found.packed()[0], 42);
  EXPECT_EQ(found.packed()[1], 0);
  EXPECT_EQ(static_cast<uint8_t>(found.packed()[2]),
            described(*bench.stub, routes).row_type_id() & 255);
  EXPECT_EQ(found.packed().substr(37), std::string("\x08\x0a\0\0\0", 5));
}

TEST_F(RowServiceTest, ARowSetAsBytesComesBackAsItWas) {
  ASSERT_EQ(write(*bench.stub, {setChange(routes, route("10.0.0.0/8", 5))}).applied(), 1u);
  v1::Row first;
  ASSERT_TRUE(get(routes, routeKey("10.0.0.0/8"), first).ok());
  ASSERT_EQ(write(*bench.stub, {delChange(routes, routeKey("10.0.0.0/8"))}).applied(), 1u);

  v1::RowChange change;
  change.set_table(routes);
  change.mutable_set()->set_packed(first.packed());
  ASSERT_EQ(write(*bench.stub, {change}).applied(), 1u);
  v1::Row key;
  key.set_packed(first.packed());
  v1::Row second;
  ASSERT_TRUE(get(routes, key, second).ok());
  EXPECT_EQ(second.packed(), first.packed());
  EXPECT_EQ(second.json(), first.json());
}

TEST_F(RowServiceTest, AnAbsentRowIsNotFoundAndItsDeletionSucceeds) {
  v1::Row found;
  EXPECT_EQ(get(routes, routeKey("10.0.0.0/8"), found).error_code(), StatusCode::NOT_FOUND);
  // The member with the id 0 looks like a row of zeros.
  EXPECT_EQ(get("VaneEcmpMember", R"({"id":0})", found).error_code(), StatusCode::NOT_FOUND);
  EXPECT_EQ(write(*bench.stub, {delChange(routes, routeKey("10.0.0.0/8"))}).applied(), 1u);
}

TEST_F(RowServiceTest, EachChangeHasItsOwnResult) {
  const auto response = write(*bench.stub, {
                                               setChange(routes, route("10.0.0.0/8", 1)),
                                               setChange(routes, route("10.0.0.1/8", 2)),
                                               setChange("VaneNothing", "{}"),
                                               setChange(routes, route("10.1.0.0/16", 3)),
                                               setChange(routes, route("2001:db8::/32", 4)),
                                               setChange(routes, "[]"),
                                           });
  EXPECT_EQ(response.applied(), 2u);
  ASSERT_EQ(response.failures_size(), 4);
  const std::vector<std::pair<uint32_t, StatusCode>> expected = {{1, StatusCode::INVALID_ARGUMENT},
                                                                 {2, StatusCode::NOT_FOUND},
                                                                 {4, StatusCode::INVALID_ARGUMENT},
                                                                 {5, StatusCode::INVALID_ARGUMENT}};
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(response.failures(i).index(), expected[i].first);
    EXPECT_EQ(response.failures(i).code(), expected[i].second) << response.failures(i).message();
  }
  EXPECT_EQ(destinations(*bench.stub, routes).size(), 2u);
}

TEST_F(RowServiceTest, TheFirstRefusedChangeStopsTheRestWhenAsked) {
  const auto response = write(*bench.stub,
                              {
                                  setChange(routes, route("10.0.0.0/8", 1)),
                                  setChange(routes, route("10.0.0.1/8", 2)),
                                  setChange(routes, route("10.1.0.0/16", 3)),
                              },
                              /*stopAtError=*/true);
  EXPECT_EQ(response.applied(), 1u);
  EXPECT_EQ(response.failures_size(), 1);
  EXPECT_EQ(destinations(*bench.stub, routes).size(), 1u);
}

TEST_F(RowServiceTest, AMessageThatIsCutInsideACharacterIsStillText) {
  std::string name(63, 'x');
  name += "\u00e9\u00e9";
  const auto response = write(*bench.stub, {setChange(routes, "{\"" + name + "\":1}")});
  ASSERT_EQ(response.failures_size(), 1);
  EXPECT_NE(response.failures(0).message().find("has no column"), std::string::npos);
}

TEST_F(RowServiceTest, AFullTableRefusesAndKeepsWhatItHas) {
  // The encapsulation tables have room for 1,024, which the plug-in asks for.
  std::vector<v1::RowChange> changes;
  for (int id = 0; id < 1030; ++id) {
    changes.push_back(
        setChange("VaneIpv4Encap", "{\"encapId\":" + std::to_string(id) + ",\"encapType\":1}"));
  }
  const auto response = write(*bench.stub, changes);
  const auto size = described(*bench.stub, "VaneIpv4Encap").size();
  EXPECT_EQ(response.applied(), size);
  EXPECT_LT(size, 1030u);
  EXPECT_GE(size, 1024u);
  ASSERT_GT(response.failures_size(), 0);
  EXPECT_EQ(response.failures(0).code(), StatusCode::RESOURCE_EXHAUSTED);
}

TEST_F(RowServiceTest, ClearRemovesEveryRowAndSaysHowMany) {
  setRoutes(*bench.stub, 0, 300, 1);
  v1::ClearTableRequest request;
  request.set_table(routes);
  v1::ClearTableResponse response;
  Context context;
  ASSERT_TRUE(bench.stub->ClearTable(&context, request, &response).ok());
  EXPECT_EQ(response.rows(), 300u);
  EXPECT_TRUE(scan(*bench.stub, routes).empty());
}

TEST_F(RowServiceTest, HostilePackedRowsAreRefused) {
  setRoutes(*bench.stub, 0, 1, 1);
  v1::Row row;
  ASSERT_TRUE(get(routes, routeKey(prefix(0)), row).ok());
  const std::string good = row.packed();
  const auto with = [&](size_t at, std::string bytes) {
    std::string changed = good;
    return changed.replace(at, bytes.size(), bytes);
  };
  // The descriptor of the prefix stands at 25, its body at 37: length, then the address.
  const std::map<std::string, std::string> hostile = {
      {"a header and nothing else", std::string("\x04\0\x01\0", 4)},
      {"cut in its fixed area", good.substr(0, 36)},
      {"longer than it says", good + "x"},
      {"shorter than it says", good.substr(0, 40)},
      {"of another type", with(2, std::string("\xFE\xFE", 2))},
      {"a body behind the end", with(25, std::string("\x26\0", 2))},
      {"a body far outside", with(25, std::string("\xFF\xFF", 2))},
      {"a body in the header", with(25, std::string("\0\0", 2))},
      {"a body in the fixed area", with(25, std::string("\x24\0", 2))},
      {"a body of an odd length", with(27, std::string("\x04\x80", 2))},
      {"a body of the longest length", with(27, std::string("\xFF\xFF", 2))},
      {"no prefix", with(27, std::string("\0\x80", 2))},
      {"33 bits of IPv4", with(37, "\x21")},
      {"host bits", with(37, "\x08\x0a\x01\x01\x01")},
      {"too long for any row", std::string(65536, '\x2a')},
  };
  for (const auto& [what, bytes] : hostile) {
    const auto failure = refusalOf(bytes);
    EXPECT_EQ(failure.code(), StatusCode::INVALID_ARGUMENT) << what << ": " << failure.message();
  }
  EXPECT_EQ(refusalOf(good, "VaneIpv6Override").code(), StatusCode::INVALID_ARGUMENT);
  EXPECT_EQ(refusalOf(good, "VaneEcmpGroup").code(), StatusCode::INVALID_ARGUMENT);
  EXPECT_EQ(destinations(*bench.stub, routes).size(), 1u);
}

TEST_F(RowServiceTest, BytesTurnedOverAtRandomNeverDoHarm) {
  ASSERT_EQ(write(*bench.stub,
                  {setChange("VaneEcmpGroup", R"({"id":7,"members":[1,2,3],"watchPorts":[4]})")})
                .applied(),
            1u);
  v1::Row row;
  ASSERT_TRUE(get("VaneEcmpGroup", R"({"id":7})", row).ok());
  uint32_t random = 20260101;
  std::vector<v1::RowChange> changes;
  for (int i = 0; i < 3000; ++i) {
    std::string bytes = row.packed();
    for (int flips = 0; flips < 3; ++flips) {
      random = random * 1664525 + 1013904223;
      // Not in the length and the type, which would be refused at once.
      bytes[4 + (random >> 8) % (bytes.size() - 4)] = static_cast<char>(random >> 24);
    }
    v1::RowChange change;
    change.set_table("VaneEcmpGroup");
    change.mutable_set()->set_packed(bytes);
    changes.push_back(change);
  }
  const auto response = write(*bench.stub, changes);
  EXPECT_EQ(response.applied() + response.failures_size(), 3000u);
  EXPECT_GT(response.failures_size(), 0);
  for (const auto& failure : response.failures()) {
    EXPECT_TRUE(failure.code() == StatusCode::INVALID_ARGUMENT ||
                failure.code() == StatusCode::RESOURCE_EXHAUSTED)
        << failure.code() << ": " << failure.message();
  }
  EXPECT_EQ(scan(*bench.stub, "VaneEcmpGroup").size(),
            described(*bench.stub, "VaneEcmpGroup").size());
}

TEST_F(RowServiceTest, ARowIsGivenInOneFormOnly) {
  v1::RowChange both = setChange(routes, route("10.0.0.0/8"));
  both.mutable_set()->set_packed("x");
  v1::RowChange none;
  none.set_table(routes);
  none.mutable_set();
  v1::RowChange nothing;
  nothing.set_table(routes);
  const auto response = write(*bench.stub, {both, none, nothing});
  ASSERT_EQ(response.failures_size(), 3);
  for (const auto& failure : response.failures()) {
    EXPECT_EQ(failure.code(), StatusCode::INVALID_ARGUMENT);
  }
}

TEST_F(RowServiceTest, AScanGivesEveryRowOnceAcrossItsPieces) {
  setRoutes(*bench.stub, 0, 2000, 9);
  const auto found = destinations(*bench.stub, routes);
  ASSERT_EQ(found.size(), 2000u);
  for (uint32_t n = 0; n < 2000; ++n) EXPECT_TRUE(found.contains(prefix(n))) << n;
}

TEST_F(RowServiceTest, AScanGoesOnBehindAKeyThatHasGone) {
  setRoutes(*bench.stub, 0, 1000, 9);
  const auto all = scan(*bench.stub, routes);
  const auto firstPart = scan(*bench.stub, routes, 400);
  ASSERT_EQ(firstPart.size(), 400u);
  const std::string lastKey =
      routeKey(Json::parse(firstPart.back().json()).at("destinationPrefix"));
  ASSERT_EQ(write(*bench.stub, {delChange(routes, lastKey)}).applied(), 1u);
  const auto rest = scan(*bench.stub, routes, 0, lastKey);
  ASSERT_EQ(rest.size(), 600u);
  for (size_t i = 0; i < rest.size(); ++i) EXPECT_EQ(rest[i].packed(), all[400 + i].packed());
}

TEST_F(RowServiceTest, AScanOfAnEmptyTableIsEmpty) {
  EXPECT_TRUE(scan(*bench.stub, "VaneIpv6Encap").empty());
}

// The largest rows that there are: groups of 1,024 members, some 10 KiB each as JSON.
void setLargestGroups(v1::RowDatabase::Stub& stub, uint32_t from, uint32_t count) {
  std::string list = "[0";
  for (int i = 1; i < 1024; ++i) list += "," + std::to_string(i);
  list += "]";
  std::vector<v1::RowChange> changes;
  for (uint32_t id = from + 1; id <= from + count; ++id) {
    changes.push_back(setChange("VaneEcmpGroup", "{\"id\":" + std::to_string(id) + ",\"members\":" +
                                                     list + ",\"watchPorts\":" + list + "}"));
  }
  ASSERT_EQ(write(stub, changes).applied(), count);
}

TEST_F(RowServiceTest, LargeRowsComeInMessagesOfBoundedSize) {
  setLargestGroups(*bench.stub, 0, 600);
  v1::ScanRowsRequest request;
  request.set_table("VaneEcmpGroup");
  request.set_json(true);
  Context context;
  const auto reader = bench.stub->ScanRows(&context, request);
  v1::ScanRowsResponse response;
  int rows = 0;
  while (reader->Read(&response)) {
    EXPECT_LT(response.ByteSizeLong(), size_t{2} << 20);
    rows += response.rows_size();
  }
  EXPECT_TRUE(reader->Finish().ok());
  EXPECT_EQ(rows, 600);
}

TEST_F(RowServiceTest, WhatWaitsForWrittenRowsIsToldOncePerBatch) {
  setRoutes(*bench.stub, 0, 100, 1);
  int writes = 0;
  bench.onLoop([&] { writes = bench.host.writes; });
  EXPECT_EQ(writes, 1);
}

TEST_F(RowServiceTest, TheStatusCountsWritesDeletesAndErrorsByReason) {
  setRoutes(*bench.stub, 0, 10, 1);
  write(*bench.stub, {delChange(routes, routeKey(prefix(0))), setChange(routes, route("bad"))});
  v1::Row found;
  EXPECT_EQ(get(routes, routeKey(prefix(0)), found).error_code(), StatusCode::NOT_FOUND);
  const v1::Status all = status(*bench.stub);
  EXPECT_EQ(all.version(), "test");
  EXPECT_EQ(all.log_level(), "info");
  ASSERT_EQ(all.tables_size(), 10);
  for (const auto& table : all.tables()) {
    if (table.name() != routes) continue;
    EXPECT_EQ(table.entries(), 9u);
    EXPECT_EQ(table.capacity(), 64u);
    EXPECT_EQ(table.writes(), 10u);
    EXPECT_EQ(table.deletes(), 1u);
    EXPECT_EQ(table.errors(), 1u);
    // Ten sets from index 1: 2, 4 ... 20; then a removal: 23.
    EXPECT_EQ(table.latest_change_index(), 23u);
  }
  std::map<std::string, uint64_t> errors;
  for (const auto& error : all.errors()) errors[error.reason()] = error.count();
  EXPECT_EQ(errors,
            (std::map<std::string, uint64_t>{{"rows INVALID_ARGUMENT", 1}, {"rows NOT_FOUND", 1}}));
}

TEST_F(RowServiceTest, TheLogLevelIsToldChangedAndRefused) {
  const auto setLevel = [&](const std::string& level, v1::SetLogLevelResponse& response) {
    v1::SetLogLevelRequest request;
    request.set_level(level);
    Context context;
    return bench.stub->SetLogLevel(&context, request, &response);
  };
  v1::SetLogLevelResponse response;
  ASSERT_TRUE(setLevel("debug", response).ok());
  EXPECT_EQ(response.previous(), "info");
  EXPECT_EQ(response.present(), "debug");
  ASSERT_TRUE(setLevel("", response).ok());
  EXPECT_EQ(response.present(), "debug");
  EXPECT_EQ(setLevel("loud", response).error_code(), StatusCode::INVALID_ARGUMENT);
}

TEST_F(RowServiceTest, ACallThatTheLoopDoesNotComeToInTimeHasExceededItsDeadline) {
  std::promise<void> go;
  std::promise<void> held;
  std::thread holder([&] {
    bench.gate().run([&] {
      held.set_value();
      go.get_future().get();
    });
  });
  held.get_future().get();
  v1::Table response;
  v1::DescribeTableRequest request;
  request.set_table(routes);
  grpc::ClientContext context;
  context.set_deadline(std::chrono::system_clock::now() + std::chrono::milliseconds(50));
  EXPECT_EQ(bench.stub->DescribeTable(&context, request, &response).error_code(),
            StatusCode::DEADLINE_EXCEEDED);
  go.set_value();
  holder.join();
}

TEST(RowServiceLimits, ACallThatFindsTheLoopsRoomTakenIsTurnedAway) {
  BenchOptions options;
  options.room = 1;
  Bench bench(options);
  std::promise<void> go;
  std::promise<void> held;
  std::thread holder([&] {
    bench.gate().run([&] {
      held.set_value();
      go.get_future().get();
    });
  });
  held.get_future().get();
  // One call fits into the room and waits; of several that come at once, the others do not.
  std::vector<std::thread> callers;
  std::atomic<int> full = 0;
  std::atomic<int> done = 0;
  for (int i = 0; i < 4; ++i) {
    callers.emplace_back([&] {
      Context context;
      v1::ListTablesResponse response;
      const grpc::Status status = bench.stub->ListTables(&context, {}, &response);
      if (status.ok()) ++done;
      if (status.error_code() == StatusCode::RESOURCE_EXHAUSTED && ++full == 3) go.set_value();
    });
  }
  for (auto& caller : callers) caller.join();
  EXPECT_EQ(full, 3);
  EXPECT_EQ(done, 1);
  holder.join();
}

// A scan of more than a connection holds, in messages of some megabyte.
struct LongScan {
  explicit LongScan(Agent::Rpc::Calls::Limits limits)
      : bench({.watches = {}, .capacity = 4096, .room = 16, .calls = limits}) {
    for (uint32_t from = 0; from < count; from += 100) setLargestGroups(*bench.stub, from, 100);
    v1::ScanRowsRequest request;
    request.set_table("VaneEcmpGroup");
    request.set_json(true);
    reader = bench.stub->ScanRows(&context, request);
  }

  static constexpr uint32_t count = 2000;
  Bench bench;
  Context context;
  std::unique_ptr<grpc::ClientReader<v1::ScanRowsResponse>> reader;
  v1::ScanRowsResponse response;
};

TEST(RowServiceLimits, ACallBeyondTheirNumberIsTurnedAway) {
  LongScan scan({.calls = 1});
  ASSERT_TRUE(scan.reader->Read(&scan.response));
  Context context;
  v1::Status status;
  EXPECT_EQ(scan.bench.stub->GetStatus(&context, {}, &status).error_code(),
            StatusCode::RESOURCE_EXHAUSTED);
  while (scan.reader->Read(&scan.response)) {
  }
  EXPECT_TRUE(scan.reader->Finish().ok());
}

TEST(RowServiceLimits, ARequestThatIsTooLargeBesideOthersIsTurnedAway) {
  Bench bench({.watches = {}, .calls = {.requestBytes = 1000}});
  v1::WriteRowsRequest request;
  for (uint32_t n = 0; n < 100; ++n) *request.add_changes() = setChange(routes, route(prefix(n)));
  v1::WriteRowsResponse response;
  Context context;
  EXPECT_EQ(bench.stub->WriteRows(&context, request, &response).error_code(),
            StatusCode::RESOURCE_EXHAUSTED);
  EXPECT_TRUE(scan(*bench.stub, routes).empty());
}

TEST(RowServiceLimits, AScanThatItsClientDoesNotTakeIsEnded) {
  LongScan scan({.longest = std::chrono::milliseconds(2500)});
  ASSERT_TRUE(scan.reader->Read(&scan.response));
  std::this_thread::sleep_for(std::chrono::milliseconds(5000));
  while (scan.reader->Read(&scan.response)) {
  }
  EXPECT_EQ(scan.reader->Finish().error_code(), StatusCode::DEADLINE_EXCEEDED);
}

TEST(RowServiceLimits, AScanThatItsClientGoesOnTakingMayLastLonger) {
  LongScan scan({.longest = std::chrono::milliseconds(2500)});
  uint32_t rows = 0;
  while (scan.reader->Read(&scan.response)) {
    rows += static_cast<uint32_t>(scan.response.rows_size());
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
  }
  EXPECT_TRUE(scan.reader->Finish().ok());
  EXPECT_EQ(rows, LongScan::count);
}

TEST(RowServiceLimits, ACallWhenTheLoopHasEndedIsUnavailable) {
  Bench bench;
  bench.onLoop([&] { bench.gate().close(); });
  Context context;
  v1::ListTablesResponse response;
  EXPECT_EQ(bench.stub->ListTables(&context, {}, &response).error_code(), StatusCode::UNAVAILABLE);
}

}  // namespace
