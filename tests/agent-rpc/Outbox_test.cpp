// A stream's way out, with a client that reads nothing until the handler has returned.
#include "agent/rpc/Outbox.h"

#include <future>

#include "tests/agent-rpc/Rpc.h"

namespace RpcTest {
namespace {

using Outbox = Agent::Rpc::Outbox<Response, Request>;
using Agent::P4::P4RuntimeService;

// Says far more than the connection holds, and then does as the test says.
class Talker final : public p4::v1::P4Runtime::Service {
 public:
  explicit Talker(std::function<grpc::Status(Outbox&)> last) : last_(std::move(last)) {}
  grpc::Status StreamChannel(grpc::ServerContext* context,
                             P4RuntimeService::Stream* stream) override {
    grpc::Status status(StatusCode::INTERNAL, "thrown");
    try {
      Outbox outbox(*context, *stream, 100);
      Response much;
      much.mutable_packet()->set_payload(std::string(1'000'000, 'x'));
      for (int i = 0; i < 50; ++i) outbox.put(much);
      status = last_(outbox);
    } catch (const std::exception&) {
    }
    returned.set_value();
    return status;
  }
  std::promise<void> returned;

 private:
  const std::function<grpc::Status(Outbox&)> last_;
};

// The status that the client is left with.
StatusCode after(const std::function<grpc::Status(Outbox&)>& last) {
  Talker talker(last);
  Agent::Rpc::Server::Settings settings;
  settings.addresses = {Agent::Rpc::listenAddress("127.0.0.1:0")};
  Agent::Rpc::Server server(settings, {&talker});
  const auto stub = p4::v1::P4Runtime::NewStub(
      grpc::CreateChannel(server.addresses().front().text(), grpc::InsecureChannelCredentials()));
  Stream client(*stub);
  EXPECT_EQ(talker.returned.get_future().wait_for(std::chrono::seconds(30)),
            std::future_status::ready);
  return client.end().error_code();
}

TEST(Outbox, DrainedInVainDoesNotEndWithOk) {
  EXPECT_EQ(after([](Outbox& outbox) {
              return outbox.drain(grpc::Status::OK, std::chrono::milliseconds(50));
            }),
            StatusCode::RESOURCE_EXHAUSTED);
}

TEST(Outbox, DrainedInVainEndsWithTheReasonThatThereIs) {
  EXPECT_EQ(after([](Outbox& outbox) {
              return outbox.drain({StatusCode::NOT_FOUND, "no such device"},
                                  std::chrono::milliseconds(50));
            }),
            StatusCode::NOT_FOUND);
}

TEST(Outbox, LeftByAnExceptionEndsTheStreamAndWaitsForNobody) {
  EXPECT_EQ(after([](Outbox&) -> grpc::Status { throw std::runtime_error("out of luck"); }),
            StatusCode::INTERNAL);
}

}  // namespace
}  // namespace RpcTest
