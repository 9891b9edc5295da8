// A P4Runtime server over a socket, on a switch that does what the test says; and its clients.
#pragma once

#include <grpcpp/grpcpp.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "agent/p4/P4RuntimeService.h"
#include "agent/rpc/Server.h"

namespace RpcTest {

using grpc::StatusCode;
using Arbitration = p4::v1::MasterArbitrationUpdate;
using Request = p4::v1::StreamMessageRequest;
using Response = p4::v1::StreamMessageResponse;

constexpr uint64_t device = 1;

// Does what the test has set, and by default nothing, well.
class FakeTarget : public Agent::P4::Target {
 public:
  std::function<WriteResult(const p4::v1::WriteRequest&, Agent::LoopGate::Deadline)> onWrite;
  std::function<WriteResult(const p4::v1::ReadRequest&, const Send&)> onRead;
  std::function<grpc::Status(const p4::v1::SetForwardingPipelineConfigRequest&)> onPipelineIs;
  p4::v1::ForwardingPipelineConfig config;
  std::atomic<bool> isReady = true;
  std::atomic<int> calls = 0;  // that have arrived here

  WriteResult write(const p4::v1::WriteRequest& request,
                    Agent::LoopGate::Deadline deadline) override {
    ++calls;
    if (!isReady) return withoutPipeline();
    return onWrite ? onWrite(request, deadline) : WriteResult{};
  }
  WriteResult read(const p4::v1::ReadRequest& request, Agent::LoopGate::Deadline,
                   const Send& send) override {
    ++calls;
    if (!isReady) return withoutPipeline();
    return onRead ? onRead(request, send) : WriteResult{};
  }
  grpc::Status pipelineIs(const p4::v1::SetForwardingPipelineConfigRequest& request,
                          Agent::LoopGate::Deadline) override {
    ++calls;
    return onPipelineIs ? onPipelineIs(request) : grpc::Status::OK;
  }
  grpc::Status pipeline(const p4::v1::GetForwardingPipelineConfigRequest&,
                        p4::v1::GetForwardingPipelineConfigResponse& response) override {
    ++calls;
    *response.mutable_config() = config;
    return grpc::Status::OK;
  }

 private:
  static WriteResult withoutPipeline() {
    return {{StatusCode::FAILED_PRECONDITION, "there is no pipeline"}, {}};
  }
};

// Long enough for any machine; a test that gets there has failed.
inline std::chrono::system_clock::time_point soon() {
  return std::chrono::system_clock::now() + std::chrono::seconds(60);
}

struct Offer {
  std::string listen = "127.0.0.1:0";
  Agent::P4::Arbitration::Limits arbitration{};
  Agent::P4::P4RuntimeService::BatchLimits batches{};
  Agent::Rpc::Calls::Limits calls{};
  Agent::Rpc::Server::Limits server{};
};

struct Served {
  explicit Served(const Offer& offer = {})
      : calls(offer.calls), service(target, calls, offer.arbitration, offer.batches) {
    Agent::Rpc::Server::Settings settings;
    settings.addresses = {Agent::Rpc::listenAddress(offer.listen)};
    settings.limits = offer.server;
    server = std::make_unique<Agent::Rpc::Server>(settings, std::vector<grpc::Service*>{&service});
  }
  ~Served() { stop(); }
  void stop() {
    service.stop();
    server->stop(std::chrono::seconds(1));
  }
  std::string address() const { return server->addresses().front().text(); }
  // Of a connection of its own.
  std::unique_ptr<p4::v1::P4Runtime::Stub> client() const {
    grpc::ChannelArguments arguments;
    arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
    arguments.SetMaxReceiveMessageSize(-1);
    return p4::v1::P4Runtime::NewStub(
        grpc::CreateCustomChannel(address(), grpc::InsecureChannelCredentials(), arguments));
  }

  FakeTarget target;
  Agent::Rpc::Calls calls;
  Agent::P4::P4RuntimeService service;
  std::unique_ptr<Agent::Rpc::Server> server;
};

struct Context : grpc::ClientContext {
  explicit Context(std::chrono::system_clock::time_point deadline = soon()) {
    set_deadline(deadline);
    // A server that has only just begun to listen is waited for.
    set_wait_for_ready(true);
  }
};

inline Arbitration unset(const std::string& role = {}) {
  Arbitration message;
  message.set_device_id(device);
  if (!role.empty()) message.mutable_role()->set_name(role);
  return message;
}

inline Arbitration stating(uint64_t id, const std::string& role = {}) {
  Arbitration message = unset(role);
  message.mutable_election_id()->set_low(id);
  return message;
}

// A client's stream.
class Stream {
 public:
  explicit Stream(p4::v1::P4Runtime::Stub& stub) : stream_(stub.StreamChannel(&context_)) {}
  // Opens and states; the answer is read.
  Stream(p4::v1::P4Runtime::Stub& stub, const Arbitration& message) : Stream(stub) {
    state(message);
  }
  ~Stream() { context_.TryCancel(); }

  void send(const Request& request) { stream_->Write(request); }
  void send(const Arbitration& message) {
    Request request;
    *request.mutable_arbitration() = message;
    send(request);
  }
  // The next message; an empty one if the stream has ended.
  Response next() {
    Response response;
    if (!stream_->Read(&response)) response.Clear();
    return response;
  }
  // The code of the next notice; -1 if the next message is none, -2 if it lacks its status.
  int notice() {
    const Response response = next();
    if (!response.has_arbitration()) return -1;
    last = response.arbitration();
    return last.has_status() ? last.status().code() : -2;
  }
  int state(const Arbitration& message) {
    send(message);
    return notice();
  }
  // Reads to the end; the status that the stream ended with.
  grpc::Status end() {
    Response response;
    while (stream_->Read(&response)) {
    }
    return stream_->Finish();
  }
  StatusCode endsWith(const Arbitration& message) {
    send(message);
    return end().error_code();
  }
  // The client has no more to say; the stream's status.
  grpc::Status close() {
    stream_->WritesDone();
    return end();
  }
  void cancel() { context_.TryCancel(); }

  Arbitration last;

 private:
  Context context_;
  std::unique_ptr<grpc::ClientReaderWriter<Request, Response>> stream_;
};

inline p4::v1::WriteRequest writeAs(uint64_t id, const std::string& role = {}) {
  p4::v1::WriteRequest request;
  request.set_device_id(device);
  request.set_role(role);
  request.mutable_election_id()->set_low(id);
  return request;
}

inline grpc::Status write(p4::v1::P4Runtime::Stub& stub, const p4::v1::WriteRequest& request) {
  Context context;
  p4::v1::WriteResponse response;
  return stub.Write(&context, request, &response);
}

inline StatusCode writes(p4::v1::P4Runtime::Stub& stub, uint64_t id, const std::string& role = {}) {
  return write(stub, writeAs(id, role)).error_code();
}

inline grpc::Status read(p4::v1::P4Runtime::Stub& stub, const p4::v1::ReadRequest& request,
                         std::vector<p4::v1::ReadResponse>* answers = nullptr) {
  Context context;
  const auto reader = stub.Read(&context, request);
  p4::v1::ReadResponse response;
  while (reader->Read(&response)) {
    if (answers != nullptr) answers->push_back(response);
  }
  return reader->Finish();
}

inline p4::v1::ReadRequest readOf(uint64_t deviceId = device) {
  p4::v1::ReadRequest request;
  request.set_device_id(deviceId);
  return request;
}

// The errors in the details of a failed batch.
inline std::vector<p4::v1::Error> errorsOf(const grpc::Status& status) {
  google::rpc::Status details;
  EXPECT_TRUE(details.ParseFromString(status.error_details()));
  EXPECT_EQ(details.code(), status.error_code());
  EXPECT_EQ(details.message(), status.error_message());
  std::vector<p4::v1::Error> errors;
  for (const auto& detail : details.details()) {
    EXPECT_EQ(detail.type_url(), "type.googleapis.com/p4.v1.Error");
    EXPECT_TRUE(detail.UnpackTo(&errors.emplace_back()));
  }
  return errors;
}

inline p4::v1::Error error(int code, const std::string& text) {
  p4::v1::Error error;
  error.set_canonical_code(code);
  error.set_message(text);
  return error;
}

}  // namespace RpcTest
