// The target behind the service and a socket, as controllers have it, and a client that is primary.
#pragma once

#include <grpcpp/grpcpp.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "agent/p4/P4RuntimeService.h"
#include "agent/rpc/Calls.h"
#include "agent/rpc/Server.h"
#include "google/rpc/status.pb.h"

namespace P4Test {

class Socket {
 public:
  using Result = Agent::P4::Target::WriteResult;

  explicit Socket(Agent::P4::Target& target)
      : calls_({}), service_(target, calls_, {.deviceId = device}, {}) {
    Agent::Rpc::Server::Settings settings;
    settings.addresses = {Agent::Rpc::listenAddress("127.0.0.1:0")};
    server_ =
        std::make_unique<Agent::Rpc::Server>(settings, std::vector<grpc::Service*>{&service_});
    grpc::ChannelArguments arguments;
    arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
    // A failed batch tells of each update in a trailer.
    arguments.SetInt(GRPC_ARG_MAX_METADATA_SIZE, 64 << 20);
    stub_ = p4::v1::P4Runtime::NewStub(grpc::CreateCustomChannel(
        server_->addresses().front().text(), grpc::InsecureChannelCredentials(), arguments));
    becomePrimary();
  }
  ~Socket() {
    stream_->WritesDone();
    service_.stop();
    stream_->Finish();
    server_->stop(std::chrono::seconds(1));
  }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  Result write(p4::v1::WriteRequest request) {
    sign(request);
    Context context;
    p4::v1::WriteResponse response;
    return resultOf(stub_->Write(&context, request, &response), request.updates_size());
  }
  Result read(p4::v1::ReadRequest request,
              const std::function<void(const p4::v1::ReadResponse&)>& take) {
    request.set_device_id(device);
    Context context;
    const auto reader = stub_->Read(&context, request);
    p4::v1::ReadResponse response;
    while (reader->Read(&response)) take(response);
    return resultOf(reader->Finish(), request.entities_size());
  }
  grpc::Status pipelineIs(p4::v1::SetForwardingPipelineConfigRequest request) {
    sign(request);
    Context context;
    p4::v1::SetForwardingPipelineConfigResponse response;
    return stub_->SetForwardingPipelineConfig(&context, request, &response);
  }
  grpc::Status pipeline(p4::v1::GetForwardingPipelineConfigRequest request,
                        p4::v1::GetForwardingPipelineConfigResponse& response) {
    request.set_device_id(device);
    Context context;
    return stub_->GetForwardingPipelineConfig(&context, request, &response);
  }

 private:
  static constexpr uint64_t device = 1;
  static constexpr uint64_t electionId = 1;

  struct Context : grpc::ClientContext {
    Context() { set_deadline(std::chrono::system_clock::now() + std::chrono::seconds(60)); }
  };

  template <class Request>
  static void sign(Request& request) {
    request.set_device_id(device);
    request.mutable_election_id()->set_low(electionId);
  }

  void becomePrimary() {
    streamContext_ = std::make_unique<grpc::ClientContext>();
    stream_ = stub_->StreamChannel(streamContext_.get());
    p4::v1::StreamMessageRequest request;
    request.mutable_arbitration()->set_device_id(device);
    request.mutable_arbitration()->mutable_election_id()->set_low(electionId);
    p4::v1::StreamMessageResponse answer;
    if (!stream_->Write(request) || !stream_->Read(&answer)) {
      throw std::runtime_error("not primary: " + stream_->Finish().error_message());
    }
  }

  // What the status says of each update or query: nothing at all when the call was refused.
  static Result resultOf(const grpc::Status& status, int count) {
    Result result;
    if (status.ok()) {
      result.results.resize(count);
      return result;
    }
    google::rpc::Status details;
    if (status.error_code() != grpc::StatusCode::UNKNOWN ||
        !details.ParseFromString(status.error_details())) {
      result.refused = status;
      return result;
    }
    EXPECT_EQ(details.code(), status.error_code());
    EXPECT_EQ(details.message(), status.error_message());
    for (const auto& detail : details.details()) {
      EXPECT_TRUE(detail.UnpackTo(&result.results.emplace_back()));
    }
    EXPECT_EQ(result.results.size(), static_cast<size_t>(count));
    return result;
  }

  Agent::Rpc::Calls calls_;
  Agent::P4::P4RuntimeService service_;
  std::unique_ptr<Agent::Rpc::Server> server_;
  std::unique_ptr<p4::v1::P4Runtime::Stub> stub_;
  std::unique_ptr<grpc::ClientContext> streamContext_;
  std::unique_ptr<
      grpc::ClientReaderWriter<p4::v1::StreamMessageRequest, p4::v1::StreamMessageResponse>>
      stream_;
};

}  // namespace P4Test
