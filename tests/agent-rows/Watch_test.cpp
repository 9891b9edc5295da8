// Tables followed over a socket.
#include <atomic>
#include <thread>

#include "tests/agent-rows/Bench.h"

namespace {

using namespace RowsTest;
using Event = v1::WatchTablesResponse;
using grpc::StatusCode;

// Takes events until the model has reached the table's latest index.
void catchUp(Watcher& watcher, Model& model, v1::RowDatabase::Stub& stub) {
  const uint64_t latest = described(stub, routes).latest_change_index();
  while (model.reached < latest) model.take(watcher.next());
}

TEST(Watch, ChangesFromNowOnComeInOrderWithTheirRows) {
  Bench bench;
  setRoutes(*bench.stub, 0, 3, 1);
  Watcher watcher(*bench.stub, watchOf(routes));
  const Event start = watcher.next();
  ASSERT_EQ(start.event_case(), Event::kStart);
  EXPECT_EQ(start.table(), routes);
  // Three sets from index 1: 2, 4, 6.
  EXPECT_EQ(start.start().index(), 6u);
  EXPECT_EQ(start.start().life(), described(*bench.stub, routes).life());

  write(*bench.stub,
        {setChange(routes, route(prefix(7), 42)), delChange(routes, routeKey(prefix(0)))});
  Model model;
  model.take(start);
  model.rows = {{prefix(0), 1}, {prefix(1), 1}, {prefix(2), 1}};
  catchUp(watcher, model, *bench.stub);
  EXPECT_EQ(model.rows, destinations(*bench.stub, routes));
  EXPECT_EQ(model.rows.at(prefix(7)), 42u);
  EXPECT_EQ(model.changes, 2u);
  EXPECT_EQ(model.resyncs, 0);
}

TEST(Watch, ARemovalCarriesTheKeyAlone) {
  Bench bench;
  setRoutes(*bench.stub, 0, 1, 77);
  Watcher watcher(*bench.stub, watchOf(routes));
  watcher.next(Event::kStart);
  write(*bench.stub, {delChange(routes, routeKey(prefix(0)))});
  const Event event = watcher.next(Event::kChanges);
  ASSERT_EQ(event.changes().changes_size(), 1);
  const auto& change = event.changes().changes(0);
  EXPECT_EQ(change.kind(), 2u);
  EXPECT_EQ(change.index(), 5u);
  EXPECT_NE(change.row().json().find("10.0.0.0/32"), std::string::npos);
  EXPECT_NE(change.row().json().find(R"("destinationId":0)"), std::string::npos);
  EXPECT_EQ(change.row().packed().size(), 42u);
}

TEST(Watch, WithoutATableNamedAllAreFollowed) {
  Bench bench;
  v1::WatchTablesRequest request;
  Watcher watcher(*bench.stub, request);
  std::set<std::string> started;
  for (int i = 0; i < 10; ++i) started.insert(watcher.next(Event::kStart).table());
  EXPECT_EQ(started.size(), 10u);
  write(*bench.stub, {setChange("VaneIpv6Encap", R"({"encapId":3,"encapType":1})")});
  const Event event = watcher.next();
  EXPECT_EQ(event.table(), "VaneIpv6Encap");
  EXPECT_TRUE(event.changes().changes(0).row().json().empty());
}

TEST(Watch, AnUnknownTableAndATableNamedTwiceAreRefused) {
  Bench bench;
  EXPECT_EQ(Watcher(*bench.stub, watchOf("VaneNothing")).ended().error_code(),
            StatusCode::NOT_FOUND);
  v1::WatchTablesRequest twice = watchOf(routes);
  twice.add_tables()->set_table("ipv4OverrideTable");
  EXPECT_EQ(Watcher(*bench.stub, twice).ended().error_code(), StatusCode::INVALID_ARGUMENT);
}

TEST(Watch, ASnapshotComesFirstAndTheChangesSince) {
  Bench bench;
  setRoutes(*bench.stub, 0, 1500, 1);
  Watcher watcher(*bench.stub, watchOf(routes, /*snapshot=*/true));
  Model model;
  while (true) {
    const Event event = watcher.next();
    model.take(event);
    if (event.event_case() == Event::kSnapshotEnd) break;
  }
  EXPECT_EQ(model.rows, destinations(*bench.stub, routes));
  setRoutes(*bench.stub, 1400, 200, 2);
  catchUp(watcher, model, *bench.stub);
  EXPECT_EQ(model.rows, destinations(*bench.stub, routes));
  EXPECT_EQ(model.changes, 200u);
}

// A row that is told by a change does not stand in the snapshot with the value of that change.
TEST(Watch, NoChangeIsLostOrToldTwiceWhileTheSnapshotIsTaken) {
  BenchOptions options;
  options.watches.batch = 16;  // so that writes come in between
  Bench bench(options);
  for (uint32_t round = 1; round <= 2; ++round) {
    setRoutes(*bench.stub, 0, 3000, round);
    std::atomic<bool> stop = false;
    std::thread writer([&] {
      const auto stub = bench.newStub();
      for (uint32_t n = 0; !stop; ++n) {
        // Each value is written once.
        write(*stub, {setChange(routes, route(prefix(n * 7919 % 3000), 1000000 * round + n)),
                      delChange(routes, routeKey(prefix(n * 104729 % 3000)))});
      }
    });
    Watcher watcher(*bench.stub, watchOf(routes, /*snapshot=*/true));
    Model model;
    std::map<std::string, uint32_t> fromSnapshot;
    uint64_t seen = 0;
    bool inSnapshot = true;
    for (int events = 0; inSnapshot || events < 200; ++events) {
      const Event event = watcher.next();
      model.take(event);
      if (event.event_case() == Event::kSnapshotEnd) {
        inSnapshot = false;
        fromSnapshot = model.rows;
        events = 0;
      }
      for (const auto& change : event.changes().changes()) {
        if (change.kind() != 1) continue;
        Model one;
        Event single;
        *single.mutable_changes()->add_changes() = change;
        one.take(single);
        const auto& [key, value] = *one.rows.begin();
        const auto found = fromSnapshot.find(key);
        EXPECT_FALSE(found != fromSnapshot.end() && found->second == value)
            << key << " with " << value << " came in the snapshot and by a change";
        ++seen;
      }
    }
    stop = true;
    writer.join();
    catchUp(watcher, model, *bench.stub);
    EXPECT_EQ(model.rows, destinations(*bench.stub, routes));
    EXPECT_GT(seen, 0u);
    EXPECT_EQ(model.resyncs, 0);
  }
}

TEST(Watch, AReaderThatComesBackGoesOnBehindItsIndex) {
  Bench bench;
  Model model;
  uint64_t life = 0;
  {
    Watcher watcher(*bench.stub, watchOf(routes));
    const Event start = watcher.next();
    life = start.start().life();
    model.take(start);
    setRoutes(*bench.stub, 0, 5, 1);
    catchUp(watcher, model, *bench.stub);
  }
  // Another one reads on meanwhile, which does not shorten the log.
  Watcher other(*bench.stub, watchOf(routes));
  Model otherModel;
  otherModel.take(other.next());
  setRoutes(*bench.stub, 3, 5, 2);
  catchUp(other, otherModel, *bench.stub);

  v1::WatchTablesRequest request = watchOf(routes);
  request.mutable_tables(0)->set_after_index(model.reached);
  request.mutable_tables(0)->set_life(life);
  Watcher watcher(*bench.stub, request);
  EXPECT_EQ(watcher.next(Event::kStart).start().index(), model.reached);
  catchUp(watcher, model, *bench.stub);
  EXPECT_EQ(model.rows, destinations(*bench.stub, routes));
  EXPECT_EQ(model.resyncs, 0);
}

TEST(Watch, AnIndexThatTheLogNoLongerReachesIsAnsweredWithAResync) {
  BenchOptions options;
  options.watches.history = 100;
  Bench bench(options);
  {
    Watcher first(*bench.stub, watchOf(routes));
    first.next(Event::kStart);  // from now on the log is kept so far back, and no farther
    setRoutes(*bench.stub, 0, 200, 1);
  }
  v1::WatchTablesRequest request = watchOf(routes);
  request.mutable_tables(0)->set_after_index(10);
  Watcher watcher(*bench.stub, request);
  EXPECT_EQ(watcher.next().event_case(), Event::kStart);
  const Event resync = watcher.next();
  ASSERT_EQ(resync.event_case(), Event::kResync);
  // 200 sets from index 1.
  EXPECT_EQ(resync.resync().index(), 400u);
  EXPECT_NE(resync.resync().reason().find("10"), std::string::npos) << resync.resync().reason();
  setRoutes(*bench.stub, 200, 1, 1);
  const Event changes = watcher.next();
  ASSERT_EQ(changes.event_case(), Event::kChanges);
  EXPECT_EQ(changes.changes().changes(0).index(), 402u);
}

TEST(Watch, AnIndexThatIsStillInTheLogIsNot) {
  BenchOptions options;
  options.watches.history = 100;
  Bench bench(options);
  Watcher first(*bench.stub, watchOf(routes));
  first.next(Event::kStart);
  setRoutes(*bench.stub, 0, 200, 1);
  v1::WatchTablesRequest request = watchOf(routes);
  request.mutable_tables(0)->set_after_index(300);
  Watcher watcher(*bench.stub, request);
  Model model;
  model.take(watcher.next());
  catchUp(watcher, model, *bench.stub);
  EXPECT_EQ(model.resyncs, 0);
  EXPECT_EQ(model.changes, 50u);
}

TEST(Watch, AfterAResyncTheSnapshotThatWasAskedForFollows) {
  Bench bench;
  setRoutes(*bench.stub, 0, 40, 6);
  v1::WatchTablesRequest request = watchOf(routes, /*snapshot=*/true);
  request.mutable_tables(0)->set_after_index(1000000);  // the table has not come to it
  Watcher watcher(*bench.stub, request);
  Model model;
  while (true) {
    const Event event = watcher.next();
    model.take(event);
    if (event.event_case() == Event::kSnapshotEnd) break;
  }
  EXPECT_EQ(model.resyncs, 1);
  EXPECT_EQ(model.rows, destinations(*bench.stub, routes));
}

TEST(Watch, AnIndexOfAnotherRunIsAnsweredWithAResync) {
  Bench bench;
  setRoutes(*bench.stub, 0, 40, 6);
  v1::WatchTablesRequest request = watchOf(routes);
  request.mutable_tables(0)->set_after_index(10);
  request.mutable_tables(0)->set_life(described(*bench.stub, routes).life() + 1);
  Watcher watcher(*bench.stub, request);
  watcher.next(Event::kStart);
  const Event resync = watcher.next();
  ASSERT_EQ(resync.event_case(), Event::kResync);
  EXPECT_EQ(resync.resync().index(), 80u);
}

// A client that does not read for a while: what it has not been sent stays in the log, which is
// bounded; beyond that it is told.
TEST(Watch, ASlowReaderIsToldThatItHasMissedChanges) {
  BenchOptions options;
  options.watches.history = 1000;
  Bench bench(options);
  Watcher watcher(*bench.stub, watchOf(routes, /*snapshot=*/true));
  Model model;
  model.snapshots = true;
  model.take(watcher.next());
  // More than the connection holds unread: each round is 4,000 changes of some 150 bytes.
  for (uint32_t round = 1; round <= 15; ++round) setRoutes(*bench.stub, 0, 4000, round);
  uint64_t oldest = described(*bench.stub, routes).oldest_change_index();
  EXPECT_EQ(oldest, described(*bench.stub, routes).latest_change_index() - 1000);
  catchUp(watcher, model, *bench.stub);
  EXPECT_GT(model.resyncs, 0);
  EXPECT_EQ(model.rows, destinations(*bench.stub, routes));
}

TEST(Watch, OneMoreThanTheLimitIsTurnedAwayUntilAnotherHasGone) {
  BenchOptions options;
  options.watches.watches = 2;
  Bench bench(options);
  Watcher first(*bench.stub, watchOf(routes));
  first.next(Event::kStart);
  Watcher second(*bench.stub, watchOf(routes));
  second.next(Event::kStart);
  EXPECT_EQ(Watcher(*bench.stub, watchOf(routes)).ended().error_code(),
            StatusCode::RESOURCE_EXHAUSTED);
  first.end();
  // The agent learns of it a moment later.
  const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (status(*bench.stub).observers_size() != 1 && std::chrono::steady_clock::now() < patience) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  Watcher third(*bench.stub, watchOf(routes));
  EXPECT_EQ(third.next().event_case(), Event::kStart);
}

TEST(Watch, TheStatusSaysWhereEachWatchStands) {
  Bench bench;
  v1::WatchTablesRequest request = watchOf(routes);
  request.set_name("tester\u00e9");
  Watcher watcher(*bench.stub, request);
  Model model;
  model.take(watcher.next());
  setRoutes(*bench.stub, 0, 5, 1);
  catchUp(watcher, model, *bench.stub);
  const v1::Status all = status(*bench.stub);
  ASSERT_EQ(all.observers_size(), 1);
  EXPECT_EQ(all.observers(0).name(), "tester??");
  EXPECT_EQ(all.observers(0).table(), routes);
  EXPECT_EQ(all.observers(0).reached(), 10u);
  EXPECT_EQ(all.observers(0).lag(), 0u);
}

TEST(Watch, WhenTheAgentEndsItsWatchesAreUnavailable) {
  Bench bench;
  Watcher watcher(*bench.stub, watchOf(routes));
  watcher.next(Event::kStart);
  bench.stop();
  EXPECT_EQ(watcher.ended().error_code(), StatusCode::UNAVAILABLE);
}

TEST(Watch, ManyReadersAllSeeTheSameTable) {
  Bench bench;
  std::vector<std::unique_ptr<Watcher>> watchers;
  std::vector<Model> models(8);
  for (size_t i = 0; i < models.size(); ++i) {
    watchers.push_back(std::make_unique<Watcher>(*bench.stub, watchOf(routes, true)));
  }
  uint32_t random = 7;
  for (uint32_t round = 0; round < 200; ++round) {
    random = random * 1664525 + 1013904223;
    const std::string key = prefix((random >> 10) % 64);
    write(*bench.stub, {random >> 31 ? setChange(routes, route(key, round + 1))
                                     : delChange(routes, routeKey(key))});
  }
  const auto expected = destinations(*bench.stub, routes);
  for (size_t i = 0; i < models.size(); ++i) {
    catchUp(*watchers[i], models[i], *bench.stub);
    EXPECT_EQ(models[i].rows, expected);
  }
}

}  // namespace
