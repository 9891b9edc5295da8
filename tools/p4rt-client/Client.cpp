#include "tools/p4rt-client/Client.h"

#include <fmt/format.h>
#include <google/protobuf/arena.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "google/rpc/status.pb.h"
#include "tools/common/Exit.h"

namespace P4Client {
namespace {

using Tools::ExitCode;
using Tools::Failure;

// A batch's results come in a trailer, which is limited to 8 KiB unless the client says otherwise.
constexpr int maxMetadata = 4 << 20;

// What may be on its way to us, so that the agent makes the next messages while we work on these.
// By itself gRPC goes by the delay of the connection, which has next to none.
constexpr int lookAhead = 1 << 20;  // bytes

std::string contents(const std::string& file) {
  std::ifstream in(file);
  std::ostringstream text;
  if (!in || !(text << in.rdbuf())) throw Failure(ExitCode::absent, file + ": cannot be read");
  return text.str();
}

std::shared_ptr<grpc::ChannelCredentials> credentials(const ClientOptions& options) {
  if (options.tlsAuthority.empty()) return grpc::InsecureChannelCredentials();
  grpc::SslCredentialsOptions ssl;
  ssl.pem_root_certs = contents(options.tlsAuthority);
  if (!options.tlsCertificate.empty()) {
    ssl.pem_cert_chain = contents(options.tlsCertificate);
    ssl.pem_private_key = contents(options.tlsKey);
  }
  return grpc::SslCredentials(ssl);
}

ExitCode exitCodeOf(grpc::StatusCode code) {
  switch (code) {
    case grpc::StatusCode::NOT_FOUND:
      return ExitCode::absent;
    case grpc::StatusCode::PERMISSION_DENIED:
    case grpc::StatusCode::UNAUTHENTICATED:
      return ExitCode::permission;
    case grpc::StatusCode::DATA_LOSS:
      return ExitCode::corrupt;
    case grpc::StatusCode::DEADLINE_EXCEEDED:
      return ExitCode::timedOut;
    case grpc::StatusCode::UNAVAILABLE:
      return ExitCode::stalled;
    default:
      return ExitCode::failed;
  }
}

using Clock = std::chrono::steady_clock;

[[noreturn]] void fail(const std::string& what, const grpc::Status& status) {
  throw Failure(exitCodeOf(status.error_code()),
                fmt::format("{}: {}", what, status.error_message()));
}

}  // namespace

Client::Client(ClientOptions options) : options_(std::move(options)) {
  grpc::ChannelArguments arguments;
  arguments.SetMaxReceiveMessageSize(-1);
  arguments.SetInt(GRPC_ARG_HTTP2_BDP_PROBE, 0);
  arguments.SetInt(GRPC_ARG_HTTP2_STREAM_LOOKAHEAD_BYTES, lookAhead);
  arguments.SetInt(GRPC_ARG_MAX_METADATA_SIZE, maxMetadata);
  // A connection of its own for each client, also for several in one process.
  arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
  stub_ = p4::v1::P4Runtime::NewStub(
      grpc::CreateCustomChannel(options_.address, credentials(options_), arguments));
}

Client::~Client() {
  if (!stream_) return;
  stream_->WritesDone();
  streamContext_->TryCancel();
  stream_->Finish();
}

std::unique_ptr<grpc::ClientContext> Client::context() const {
  return std::make_unique<grpc::ClientContext>();
}

void Client::becomePrimary() {
  streamContext_ = context();
  stream_ = stub_->StreamChannel(streamContext_.get());
  p4::v1::StreamMessageRequest request;
  auto& arbitration = *request.mutable_arbitration();
  arbitration.set_device_id(options_.deviceId);
  arbitration.mutable_election_id()->set_low(options_.electionId);
  if (!options_.role.empty()) arbitration.mutable_role()->set_name(options_.role);
  p4::v1::StreamMessageResponse answer;
  if (!stream_->Write(request) || !stream_->Read(&answer)) {
    const grpc::Status status = stream_->Finish();
    stream_.reset();
    fail("becoming primary at " + options_.address, status);
  }
  if (answer.arbitration().status().code() != grpc::StatusCode::OK) {
    throw Failure(ExitCode::permission,
                  fmt::format("becoming primary at {}: another client is, or was, with election id "
                              "{}; ours is {}",
                              options_.address, answer.arbitration().election_id().low(),
                              options_.electionId));
  }
}

void Client::begin(p4::v1::WriteRequest& request) const {
  request.set_device_id(options_.deviceId);
  request.set_role(options_.role);
  request.mutable_election_id()->set_low(options_.electionId);
}

p4::v1::ReadRequest Client::newRead() const {
  p4::v1::ReadRequest request;
  request.set_device_id(options_.deviceId);
  request.set_role(options_.role);
  return request;
}

void Client::read(const p4::v1::ReadRequest& request,
                  const std::function<void(const p4::v1::ReadResponse&)>& take) {
  const auto call = context();
  const auto reader = stub_->Read(call.get(), request);
  // A message and all its parts go at once.
  google::protobuf::Arena arena;
  for (;;) {
    auto* const response = google::protobuf::Arena::CreateMessage<p4::v1::ReadResponse>(&arena);
    if (!reader->Read(response)) break;
    take(*response);
    arena.Reset();
  }
  if (const grpc::Status status = reader->Finish(); !status.ok()) fail("reading", status);
}

p4::v1::ForwardingPipelineConfig Client::pipeline() {
  const auto call = context();
  p4::v1::GetForwardingPipelineConfigRequest request;
  request.set_device_id(options_.deviceId);
  p4::v1::GetForwardingPipelineConfigResponse response;
  const grpc::Status status = stub_->GetForwardingPipelineConfig(call.get(), request, &response);
  if (!status.ok()) fail("asking for the pipeline at " + options_.address, status);
  if (!response.has_config()) throw Failure(ExitCode::absent, "the agent has no pipeline yet");
  return response.config();
}

std::string Client::apiVersion() {
  const auto call = context();
  p4::v1::CapabilitiesResponse response;
  const grpc::Status status = stub_->Capabilities(call.get(), {}, &response);
  if (!status.ok()) fail("asking what the agent at " + options_.address + " can do", status);
  return response.p4runtime_api_version();
}

struct Writes::Call {
  std::unique_ptr<grpc::ClientContext> context;
  std::unique_ptr<grpc::ClientAsyncResponseReader<p4::v1::WriteResponse>> reader;
  p4::v1::WriteResponse response;
  grpc::Status status;
  int updates = 0;
  Clock::time_point begun;
};

Writes::Writes(Client& client, uint32_t inFlight, Take take)
    : client_(client), inFlight_(inFlight), take_(std::move(take)) {}

Writes::~Writes() {
  for (const auto& call : calls_) call->context->TryCancel();
  done_.Shutdown();
  void* tag = nullptr;
  bool isGood = false;
  while (done_.Next(&tag, &isGood)) {
  }
}

void Writes::put(const p4::v1::WriteRequest& request) {
  while (calls_.size() >= inFlight_) takeOne();
  Call& call = *calls_.emplace_back(std::make_unique<Call>());
  call.context = client_.context();
  call.updates = request.updates_size();
  call.begun = Clock::now();
  call.reader = client_.stub_->AsyncWrite(call.context.get(), request, &done_);
  call.reader->Finish(&call.response, &call.status, &call);
}

void Writes::finish() {
  while (!calls_.empty()) takeOne();
}

void Writes::takeOne() {
  void* tag = nullptr;
  bool isGood = false;
  done_.Next(&tag, &isGood);
  const auto at = std::ranges::find_if(calls_, [&](const auto& call) { return call.get() == tag; });
  const std::unique_ptr<Call> call = std::move(*at);
  calls_.erase(at);
  const auto took = Clock::now() - call->begun;
  std::vector<p4::v1::Error> results(static_cast<size_t>(call->updates));
  if (!call->status.ok()) {
    google::rpc::Status details;
    if (call->status.error_code() != grpc::StatusCode::UNKNOWN ||
        !details.ParseFromString(call->status.error_details()) ||
        details.details_size() != call->updates) {
      fail("writing", call->status);
    }
    for (int i = 0; i < call->updates; ++i) {
      details.details(i).UnpackTo(&results[static_cast<size_t>(i)]);
    }
  }
  take_(results, took);
}

}  // namespace P4Client
