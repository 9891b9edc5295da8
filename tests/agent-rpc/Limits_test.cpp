// What is beyond a limit is turned away, and what waits ends in time.
#include <condition_variable>
#include <future>
#include <mutex>

#include "tests/agent-rpc/Rpc.h"

namespace RpcTest {
namespace {

using std::chrono::milliseconds;

// Holds calls until the test lets them go.
class Latch {
 public:
  void wait() {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, std::chrono::seconds(60), [&] { return open_; });
  }
  void open() {
    const std::lock_guard lock(mutex_);
    open_ = true;
    changed_.notify_all();
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool open_ = false;
};

TEST(Limit, OfARequestsSizeIsKept) {
  Offer offer;
  offer.server.messageSize = 100'000;
  Served served(offer);
  const auto stub = served.client();
  Stream primary(*stub, stating(1));
  p4::v1::WriteRequest request = writeAs(1);
  std::string* const filling =
      request.add_updates()->mutable_entity()->mutable_table_entry()->mutable_metadata();
  filling->resize(90'000);
  EXPECT_EQ(write(*stub, request).error_code(), StatusCode::OK);
  filling->resize(100'001);
  EXPECT_EQ(write(*stub, request).error_code(), StatusCode::RESOURCE_EXHAUSTED);
}

TEST(Limit, OfARequestsSizeIsFarAboveFourMegabytesByDefault) {
  Served served;
  const auto stub = served.client();
  Stream primary(*stub, stating(1));
  p4::v1::WriteRequest request = writeAs(1);
  request.add_updates()->mutable_entity()->mutable_table_entry()->mutable_metadata()->resize(
      40'000'000);
  EXPECT_EQ(write(*stub, request).error_code(), StatusCode::OK);
}

TEST(Limit, OfCallsTurnsAwayWhatIsBeyond) {
  Offer offer;
  offer.calls.calls = 2;
  Served served(offer);
  const auto stub = served.client();
  Latch latch;
  served.target.onRead = [&](const p4::v1::ReadRequest&, const FakeTarget::Send&) {
    latch.wait();
    return FakeTarget::WriteResult{};
  };
  auto one = std::async(std::launch::async, [&] { return read(*stub, readOf()); });
  auto two = std::async(std::launch::async, [&] { return read(*stub, readOf()); });
  while (served.target.calls < 2) std::this_thread::yield();
  EXPECT_EQ(read(*stub, readOf()).error_code(), StatusCode::RESOURCE_EXHAUSTED);
  EXPECT_EQ(Stream(*stub).end().error_code(), StatusCode::RESOURCE_EXHAUSTED);
  latch.open();
  EXPECT_TRUE(one.get().ok());
  EXPECT_TRUE(two.get().ok());
  EXPECT_EQ(Stream(*stub, unset()).last.status().code(), StatusCode::NOT_FOUND)
      << "room is given back";
}

TEST(Limit, OfCallsLeavesRoomThatStreamsDoNotGet) {
  Offer offer;
  offer.calls.calls = 4;
  Served served(offer);
  const auto stub = served.client();
  Stream primary(*stub, stating(1)), two(*stub, unset()), three(*stub, unset());
  const grpc::Status turnedAway = Stream(*stub).end();
  EXPECT_EQ(turnedAway.error_code(), StatusCode::RESOURCE_EXHAUSTED);
  EXPECT_EQ(turnedAway.error_message(), "3 streams are open already");
  EXPECT_EQ(writes(*stub, 1), StatusCode::OK);
  three.close();
  EXPECT_EQ(Stream(*stub, unset()).last.status().code(), StatusCode::ALREADY_EXISTS);
}

TEST(Limit, OfRequestBytesIsOfAllThatAreUnderWay) {
  Offer offer;
  offer.calls.requestBytes = 100'000;
  Served served(offer);
  const auto stub = served.client();
  Latch latch;
  served.target.onRead = [&](const p4::v1::ReadRequest&, const FakeTarget::Send&) {
    latch.wait();
    return FakeTarget::WriteResult{};
  };
  p4::v1::ReadRequest large = readOf();
  large.set_role(std::string(60'000, 'r'));
  auto first = std::async(std::launch::async, [&] { return read(*stub, large); });
  while (served.target.calls < 1) std::this_thread::yield();
  const grpc::Status second = read(*stub, large);
  EXPECT_EQ(second.error_code(), StatusCode::RESOURCE_EXHAUSTED);
  EXPECT_NE(second.error_message().find("of 100000"), std::string::npos) << second.error_message();
  Stream primary(*stub, stating(1));
  EXPECT_EQ(writes(*stub, 1), StatusCode::OK) << "a small one has room";
  latch.open();
  EXPECT_TRUE(first.get().ok());
  EXPECT_TRUE(read(*stub, large).ok()) << "room is given back";
}

TEST(Limit, OfABatchIsToldBeforeTheTargetIsAsked) {
  Offer offer;
  offer.batches = {.updates = 3, .queries = 2};
  Served served(offer);
  const auto stub = served.client();
  Stream primary(*stub, stating(1));
  p4::v1::WriteRequest updates = writeAs(1);
  p4::v1::ReadRequest queries = readOf();
  for (int i = 0; i < 3; ++i) updates.add_updates();
  for (int i = 0; i < 2; ++i) queries.add_entities();
  EXPECT_TRUE(write(*stub, updates).ok());
  EXPECT_TRUE(read(*stub, queries).ok());
  updates.add_updates();
  queries.add_entities();
  const grpc::Status written = write(*stub, updates), answered = read(*stub, queries);
  EXPECT_EQ(written.error_code(), StatusCode::RESOURCE_EXHAUSTED);
  EXPECT_EQ(written.error_message(), "updates: expected at most 3, found 4");
  EXPECT_EQ(answered.error_code(), StatusCode::RESOURCE_EXHAUSTED);
  EXPECT_EQ(answered.error_message(), "entities: expected at most 2, found 3");
  EXPECT_EQ(served.target.calls, 2);
}

TEST(Limit, OfConnectionsTurnsAwayFurtherClientsOnly) {
  Offer offer;
  offer.calls.connections = 2;
  Served served(offer);
  const auto one = served.client(), two = served.client(), three = served.client();
  Stream first(*one, stating(1)), second(*two, stating(2));
  EXPECT_EQ(read(*three, readOf()).error_code(), StatusCode::RESOURCE_EXHAUSTED);
  EXPECT_TRUE(read(*one, readOf()).ok());
  second.close();
  EXPECT_TRUE(read(*three, readOf()).ok());
}

TEST(Limit, OfThreadsTurnsAwayWhatIsBeyondToo) {
  Offer offer;
  offer.server.threads = 6;
  Served served(offer);
  const auto stub = served.client();
  std::vector<std::unique_ptr<Stream>> streams;
  StatusCode last = StatusCode::OK;
  for (int i = 0; i < 8 && last == StatusCode::OK; ++i) {
    streams.push_back(std::make_unique<Stream>(*stub));
    streams.back()->send(unset());
    const Response answer = streams.back()->next();
    if (!answer.has_arbitration()) last = streams.back()->end().error_code();
  }
  EXPECT_EQ(last, StatusCode::RESOURCE_EXHAUSTED);
}

TEST(Deadline, OfTheClientReachesTheTarget) {
  Served served;
  const auto stub = served.client();
  Stream primary(*stub, stating(1));
  Agent::LoopGate::Deadline seen = Agent::LoopGate::never;
  served.target.onWrite = [&](const p4::v1::WriteRequest&, Agent::LoopGate::Deadline deadline) {
    seen = deadline;
    return FakeTarget::WriteResult{};
  };
  const auto now = std::chrono::system_clock::now();
  Context context(now + std::chrono::seconds(20));
  p4::v1::WriteResponse response;
  EXPECT_TRUE(stub->Write(&context, writeAs(1), &response).ok());
  EXPECT_GT(seen, now);
  EXPECT_LT(seen, now + std::chrono::seconds(30));
}

TEST(Deadline, OfTheServerHoldsForAClientWithoutOne) {
  Offer offer;
  offer.calls.longest = std::chrono::seconds(25);
  Served served(offer);
  const auto stub = served.client();
  Stream primary(*stub, stating(1));
  Agent::LoopGate::Deadline seen = Agent::LoopGate::never;
  served.target.onWrite = [&](const p4::v1::WriteRequest&, Agent::LoopGate::Deadline deadline) {
    seen = deadline;
    return FakeTarget::WriteResult{};
  };
  grpc::ClientContext context;
  p4::v1::WriteResponse response;
  EXPECT_TRUE(stub->Write(&context, writeAs(1), &response).ok());
  EXPECT_LT(seen, std::chrono::system_clock::now() + std::chrono::seconds(30));
}

TEST(Deadline, ThatPassesEndsACallWhoseWorkHasNotEnded) {
  Offer offer;
  offer.calls.longest = milliseconds(50);
  Served served(offer);
  const auto stub = served.client();
  Latch latch;
  served.target.onRead = [&](const p4::v1::ReadRequest&, const FakeTarget::Send&) {
    latch.wait();
    return FakeTarget::WriteResult{};
  };
  EXPECT_EQ(read(*stub, readOf()).error_code(), StatusCode::DEADLINE_EXCEEDED);
  latch.open();
}

TEST(Deadline, ThatPassesEndsAReadThatItsClientDoesNotTake) {
  Offer offer;
  offer.calls.longest = milliseconds(200);
  Served served(offer);
  const auto stub = served.client();
  std::promise<void> ended;
  served.target.onRead = [&](const p4::v1::ReadRequest&, const FakeTarget::Send& send) {
    p4::v1::ReadResponse part;
    part.add_entities()->mutable_table_entry()->set_metadata(std::string(1'000'000, 'x'));
    while (send(part)) {
    }
    ended.set_value();
    return FakeTarget::WriteResult{};
  };
  Context context;
  const auto reader = stub->Read(&context, readOf());
  EXPECT_EQ(ended.get_future().wait_for(std::chrono::seconds(60)), std::future_status::ready);
  p4::v1::ReadResponse part;
  while (reader->Read(&part)) {
  }
  EXPECT_EQ(reader->Finish().error_code(), StatusCode::DEADLINE_EXCEEDED);
}

TEST(Deadline, ThatPassesEndsAStreamThatHasNotBeenOpened) {
  Offer offer;
  offer.calls.opening = milliseconds(50);
  Served served(offer);
  const auto stub = served.client();
  EXPECT_EQ(Stream(*stub).end().error_code(), StatusCode::DEADLINE_EXCEEDED);
  Stream talking(*stub);
  talking.send(Request{});
  EXPECT_EQ(talking.end().error_code(), StatusCode::DEADLINE_EXCEEDED)
      << "other messages do not open it";
}

TEST(Deadline, DoesNotConcernOpenStreams) {
  Offer offer;
  offer.calls.longest = milliseconds(1);
  offer.calls.opening = milliseconds(2000);
  Served served(offer);
  const auto stub = served.client();
  Stream stream(*stub, stating(1));
  EXPECT_EQ(read(*stub, readOf(device + 1)).ok(), false);
  std::this_thread::sleep_for(offer.calls.opening + milliseconds(200));
  EXPECT_EQ(stream.state(stating(1)), StatusCode::OK);
}

TEST(Shutdown, EndsCallsThatDoNotEndByThemselves) {
  auto served = std::make_unique<Served>();
  const auto stub = served->client();
  Stream silent(*stub);
  served->target.onRead = [&](const p4::v1::ReadRequest&, const FakeTarget::Send& send) {
    p4::v1::ReadResponse part;
    part.add_entities()->mutable_table_entry()->set_metadata(std::string(1'000'000, 'x'));
    while (send(part)) {
    }
    return FakeTarget::WriteResult{};
  };
  Context context;
  const auto reader = stub->Read(&context, readOf());
  while (served->target.calls == 0) std::this_thread::yield();
  served.reset();
  p4::v1::ReadResponse part;
  while (reader->Read(&part)) {
  }
  EXPECT_FALSE(reader->Finish().ok());
  EXPECT_EQ(silent.end().error_code(), StatusCode::UNAVAILABLE);
}

}  // namespace
}  // namespace RpcTest
