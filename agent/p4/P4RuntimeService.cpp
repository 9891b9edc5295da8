#include "agent/p4/P4RuntimeService.h"

#include <fmt/format.h>
#include <grpcpp/impl/rpc_service_method.h>
#include <grpcpp/support/method_handler.h>

#include <algorithm>
#include <chrono>

#include "agent/Log.h"
#include "agent/rpc/Status.h"

namespace Agent::P4 {
namespace {

using grpc::StatusCode;
using p4::v1::StreamMessageRequest;
using p4::v1::StreamMessageResponse;

// How long a stream that ends is kept for a client that has not read all that it was told.
constexpr std::chrono::seconds lastWords{2};
// The most that a stream's message may have: what is understood is far smaller.
constexpr size_t streamMessageBytes = size_t{1} << 20;

grpc::Status grpcStatus(const google::rpc::Status& status) {
  return status.code() == StatusCode::OK
             ? grpc::Status::OK
             : Rpc::refusal(static_cast<StatusCode>(status.code()), status.message());
}

// Texts that the target made, as clients can take them.
grpc::Status told(const grpc::Status& status) {
  return status.ok() ? status : Rpc::refusal(status.error_code(), status.error_message());
}

grpc::Status checkCount(const char* what, int found, size_t most) {
  if (static_cast<size_t>(found) <= most) return grpc::Status::OK;
  return Rpc::refusal(StatusCode::RESOURCE_EXHAUSTED,
                      fmt::format("{}: expected at most {}, found {}", what, most, found));
}

grpc::Status ending() { return Rpc::refusal(StatusCode::UNAVAILABLE, "the agent is ending"); }

StreamMessageResponse streamError(StatusCode code, const char* text) {
  StreamMessageResponse response;
  response.mutable_error()->set_canonical_code(code);
  response.mutable_error()->set_message(text);
  return response;
}

StreamMessageResponse packetError(bool isPrimary) {
  StreamMessageResponse response =
      isPrimary ? streamError(StatusCode::UNIMPLEMENTED, "packet: this agent sends no packets")
                : streamError(StatusCode::PERMISSION_DENIED, "packet: not the primary's");
  response.mutable_error()->mutable_packet_out();
  return response;
}

StreamMessageResponse digestError(const p4::v1::DigestListAck& ack) {
  StreamMessageResponse response =
      streamError(StatusCode::INVALID_ARGUMENT, "digest_ack.digest_id: there are no digests");
  auto& known = *response.mutable_error()->mutable_digest_list_ack()->mutable_digest_list_ack();
  known.set_digest_id(ack.digest_id());
  known.set_list_id(ack.list_id());
  return response;
}

StreamMessageResponse otherError(bool isSet) {
  StreamMessageResponse response =
      isSet ? streamError(StatusCode::UNIMPLEMENTED, "other: no other message is understood")
            : streamError(StatusCode::INVALID_ARGUMENT,
                          "update: expected arbitration, packet or digest_ack, found none");
  response.mutable_error()->mutable_other();
  return response;
}

StreamMessageResponse errorFor(const StreamMessageRequest& message, bool isPrimary) {
  if (message.has_packet()) return packetError(isPrimary);
  if (message.has_digest_ack()) return digestError(message.digest_ack());
  return otherError(message.has_other());
}

}  // namespace

grpc::Status statusOf(Target::WriteResult result) {
  const auto failed = std::ranges::count_if(
      result.results, [](const p4::v1::Error& error) { return error.canonical_code() != 0; });
  if (!result.refused.ok()) return told(result.refused);
  if (failed == 0) return grpc::Status::OK;
  google::rpc::Status status;
  status.set_code(StatusCode::UNKNOWN);
  status.set_message(fmt::format("{} of {} failed", failed, result.results.size()));
  for (p4::v1::Error& error : result.results) {
    error.set_message(Rpc::statusText(error.message()));
    status.add_details()->PackFrom(error);
  }
  return {StatusCode::UNKNOWN, status.message(), status.SerializeAsString()};
}

// A stream as stop() finds it, for as long as its handler runs.
class P4RuntimeService::OpenStream {
 public:
  OpenStream(P4RuntimeService& service, Outbox& outbox) : service_(service), outbox_(outbox) {
    const std::lock_guard lock(service_.mutex_);
    service_.streams_.insert(&outbox_);
    if (service_.stopping_) outbox_.end(ending());
  }
  ~OpenStream() {
    const std::lock_guard lock(service_.mutex_);
    service_.streams_.erase(&outbox_);
  }
  OpenStream(const OpenStream&) = delete;
  OpenStream& operator=(const OpenStream&) = delete;

 private:
  P4RuntimeService& service_;
  Outbox& outbox_;
};

P4RuntimeService::P4RuntimeService(Target& target, Rpc::Calls& calls, Arbitration::Limits limits,
                                   BatchLimits batches)
    : target_(target),
      calls_(calls),
      deviceId_(limits.deviceId),
      batches_(batches),
      arbitration_(limits) {
  using namespace grpc::internal;
  offer("/p4.v1.P4Runtime/Capabilities", &P4RuntimeService::capabilities);
  offer("/p4.v1.P4Runtime/GetForwardingPipelineConfig", &P4RuntimeService::pipeline);
  offer("/p4.v1.P4Runtime/SetForwardingPipelineConfig", &P4RuntimeService::pipelineIs);
  offer("/p4.v1.P4Runtime/Write", &P4RuntimeService::write);
  AddMethod(new RpcServiceMethod(
      "/p4.v1.P4Runtime/Read", RpcMethod::SERVER_STREAMING,
      new ServerStreamingHandler<P4RuntimeService, Request<p4::v1::ReadRequest>,
                                 p4::v1::ReadResponse>(&P4RuntimeService::read, this)));
  AddMethod(new RpcServiceMethod(
      "/p4.v1.P4Runtime/StreamChannel", RpcMethod::BIDI_STREAMING,
      new BidiStreamingHandler<P4RuntimeService, StreamMessageRequest, StreamMessageResponse>(
          &P4RuntimeService::streamChannel, this)));
}

template <class Asked, class Answered>
void P4RuntimeService::offer(const char* method, Unary<Asked, Answered> handler) {
  using namespace grpc::internal;
  AddMethod(new RpcServiceMethod(
      method, RpcMethod::NORMAL_RPC,
      new RpcMethodHandler<P4RuntimeService, Request<Asked>, Answered, Request<Asked>,
                           grpc::protobuf::MessageLite>(handler, this)));
}

void P4RuntimeService::stop() {
  const std::lock_guard lock(mutex_);
  stopping_ = true;
  for (Outbox* outbox : streams_) outbox->end(ending());
}

// Every call's frame: within the limits, and no exception gets out.
template <class Work>
grpc::Status P4RuntimeService::answer(grpc::ServerContext* context, Rpc::Calls::Kind kind,
                                      const Work& work) {
  try {
    Rpc::Calls::Call call(calls_, *context, kind);
    return call.status().ok() ? work(call) : call.status();
  } catch (const std::exception& failure) {
    Log::error("callFailed", {{"service", "p4runtime"}}, "P4Runtime: {}", failure.what());
    return Rpc::refusal(StatusCode::INTERNAL, failure.what());
  }
}

template <class Message, class Work>
grpc::Status P4RuntimeService::answer(grpc::ServerContext* context, const Request<Message>& request,
                                      const Work& work) {
  return answer(context, Rpc::Calls::Kind::bounded, [&](Rpc::Calls::Call& call) {
    const grpc::Status held = call.hold(request.bytes());
    return held.ok() ? work(call.deadline()) : held;
  });
}

grpc::Status P4RuntimeService::checkDevice(uint64_t deviceId) const {
  if (deviceId == deviceId_) return grpc::Status::OK;
  return Rpc::refusal(StatusCode::NOT_FOUND,
                      fmt::format("device_id: expected {}, found {}", deviceId_, deviceId));
}

template <class Message>
Arbitration::Admission P4RuntimeService::admit(const Message& request) {
  std::optional<ElectionId> id;
  if (request.has_election_id()) {
    id = ElectionId{request.election_id().high(), request.election_id().low()};
  }
  return arbitration_.admit(request.device_id(), roleKey(request.role(), request.role_id()), id);
}

grpc::Status P4RuntimeService::capabilities(grpc::ServerContext* context,
                                            const Request<p4::v1::CapabilitiesRequest>* request,
                                            p4::v1::CapabilitiesResponse* response) {
  return answer(context, *request, [&](LoopGate::Deadline) {
    response->set_p4runtime_api_version(apiVersion);
    return (*request)->device_id() == 0 ? grpc::Status::OK : checkDevice((*request)->device_id());
  });
}

grpc::Status P4RuntimeService::pipeline(
    grpc::ServerContext* context,
    const Request<p4::v1::GetForwardingPipelineConfigRequest>* request,
    p4::v1::GetForwardingPipelineConfigResponse* response) {
  return answer(context, *request, [&](LoopGate::Deadline) {
    const grpc::Status device = checkDevice((*request)->device_id());
    return device.ok() ? told(target_.pipeline(**request, *response)) : device;
  });
}

grpc::Status P4RuntimeService::pipelineIs(
    grpc::ServerContext* context,
    const Request<p4::v1::SetForwardingPipelineConfigRequest>* request,
    p4::v1::SetForwardingPipelineConfigResponse*) {
  return answer(context, *request, [&](LoopGate::Deadline deadline) {
    const Arbitration::Admission admission = admit(**request);
    if (admission.status.code() != StatusCode::OK) return grpcStatus(admission.status);
    return told(target_.pipelineIs(**request, deadline));
  });
}

grpc::Status P4RuntimeService::write(grpc::ServerContext* context,
                                     const Request<p4::v1::WriteRequest>* request,
                                     p4::v1::WriteResponse*) {
  return answer(context, *request, [&](LoopGate::Deadline deadline) {
    const Arbitration::Admission admission = admit(**request);
    if (admission.status.code() != StatusCode::OK) return grpcStatus(admission.status);
    const grpc::Status count = checkCount("updates", (*request)->updates_size(), batches_.updates);
    return count.ok() ? statusOf(target_.write(**request, deadline)) : count;
  });
}

grpc::Status P4RuntimeService::read(grpc::ServerContext* context,
                                    const Request<p4::v1::ReadRequest>* request,
                                    grpc::ServerWriter<p4::v1::ReadResponse>* writer) {
  return answer(context, *request, [&](LoopGate::Deadline deadline) {
    const grpc::Status device = checkDevice((*request)->device_id());
    if (!device.ok()) return device;
    const grpc::Status count =
        checkCount("entities", (*request)->entities_size(), batches_.queries);
    if (!count.ok()) return count;
    return statusOf(target_.read(**request, deadline, [&](const p4::v1::ReadResponse& response) {
      return !context->IsCancelled() && writer->Write(response);
    }));
  });
}

grpc::Status P4RuntimeService::streamChannel(grpc::ServerContext* context, Stream* stream) {
  return answer(context, Rpc::Calls::Kind::session, [&](Rpc::Calls::Call& call) {
    Outbox outbox(*context, *stream, unreadNotices);
    const OpenStream open(*this, outbox);
    return outbox.drain(converse(call, *stream, outbox), lastWords);
  });
}

// Until the client has no more to say, or the stream must end.
grpc::Status P4RuntimeService::converse(Rpc::Calls::Call& call, Stream& stream, Outbox& outbox) {
  Arbitration::Stream session(arbitration_, [&](const Arbitration::Notice& notice) {
    StreamMessageResponse response;
    *response.mutable_arbitration() = notice;
    outbox.put(response);
  });
  StreamMessageRequest message;
  while (stream.Read(&message)) {
    if (const size_t size = message.ByteSizeLong(); size > streamMessageBytes) {
      return Rpc::refusal(StatusCode::RESOURCE_EXHAUSTED,
                          fmt::format("a stream's message: expected at most {} bytes, found {}",
                                      streamMessageBytes, size));
    }
    if (message.has_arbitration()) {
      // Before it is accepted, which may wait for the old primary's writes; a refusal ends it.
      call.opened();
      const google::rpc::Status status = session.update(message.arbitration());
      if (status.code() != StatusCode::OK) return grpcStatus(status);
    } else {
      outbox.offer(errorFor(message, session.isPrimary()));
    }
  }
  return grpc::Status::OK;
}

}  // namespace Agent::P4
