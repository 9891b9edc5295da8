#include "agent/p4/P4RuntimeService.h"

#include <fmt/format.h>

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

grpc::Status grpcStatus(const google::rpc::Status& status) {
  return status.code() == StatusCode::OK
             ? grpc::Status::OK
             : Rpc::refusal(static_cast<StatusCode>(status.code()), status.message());
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
  *response.mutable_error()->mutable_digest_list_ack()->mutable_digest_list_ack() = ack;
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
  if (!result.refused.ok()) {
    return Rpc::refusal(result.refused.error_code(), result.refused.error_message());
  }
  if (failed == 0) return grpc::Status::OK;
  google::rpc::Status status;
  status.set_code(StatusCode::UNKNOWN);
  status.set_message(fmt::format("{} of {} failed", failed, result.results.size()));
  for (p4::v1::Error& error : result.results) {
    error.set_message(Rpc::utf8(error.message()));
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

void P4RuntimeService::stop() {
  const std::lock_guard lock(mutex_);
  stopping_ = true;
  for (Outbox* outbox : streams_) outbox->end(ending());
}

// Every call's frame: within the limits, and no exception gets out.
template <class Work>
grpc::Status P4RuntimeService::answer(grpc::ServerContext* context, const Work& work) {
  const Rpc::Calls::Call call(calls_, *context);
  if (!call.status().ok()) return call.status();
  try {
    return work(call.deadline());
  } catch (const std::exception& failure) {
    Log::error("callFailed", {{"service", "p4runtime"}}, "P4Runtime: {}", failure.what());
    return Rpc::refusal(StatusCode::INTERNAL, failure.what());
  }
}

grpc::Status P4RuntimeService::checkDevice(uint64_t deviceId) const {
  if (deviceId == deviceId_) return grpc::Status::OK;
  return Rpc::refusal(StatusCode::NOT_FOUND,
                      fmt::format("device_id: expected {}, found {}", deviceId_, deviceId));
}

template <class Request>
Arbitration::Admission P4RuntimeService::admit(const Request& request) {
  std::optional<ElectionId> id;
  if (request.has_election_id()) {
    id = ElectionId{request.election_id().high(), request.election_id().low()};
  }
  return arbitration_.admit(request.device_id(), roleKey(request.role(), request.role_id()), id);
}

grpc::Status P4RuntimeService::Capabilities(grpc::ServerContext* context,
                                            const p4::v1::CapabilitiesRequest* request,
                                            p4::v1::CapabilitiesResponse* response) {
  return answer(context, [&](LoopGate::Deadline) {
    response->set_p4runtime_api_version(apiVersion);
    return request->device_id() == 0 ? grpc::Status::OK : checkDevice(request->device_id());
  });
}

grpc::Status P4RuntimeService::GetForwardingPipelineConfig(
    grpc::ServerContext* context, const p4::v1::GetForwardingPipelineConfigRequest* request,
    p4::v1::GetForwardingPipelineConfigResponse* response) {
  return answer(context, [&](LoopGate::Deadline) {
    const grpc::Status device = checkDevice(request->device_id());
    return device.ok() ? target_.pipeline(*request, *response) : device;
  });
}

grpc::Status P4RuntimeService::SetForwardingPipelineConfig(
    grpc::ServerContext* context, const p4::v1::SetForwardingPipelineConfigRequest* request,
    p4::v1::SetForwardingPipelineConfigResponse*) {
  return answer(context, [&](LoopGate::Deadline deadline) {
    const Arbitration::Admission admission = admit(*request);
    if (admission.status.code() != StatusCode::OK) return grpcStatus(admission.status);
    const grpc::Status status = target_.pipelineIs(*request, deadline);
    return status.ok() ? status : Rpc::refusal(status.error_code(), status.error_message());
  });
}

grpc::Status P4RuntimeService::Write(grpc::ServerContext* context,
                                     const p4::v1::WriteRequest* request, p4::v1::WriteResponse*) {
  return answer(context, [&](LoopGate::Deadline deadline) {
    const Arbitration::Admission admission = admit(*request);
    if (admission.status.code() != StatusCode::OK) return grpcStatus(admission.status);
    if (!target_.hasPipeline()) {
      return Rpc::refusal(StatusCode::FAILED_PRECONDITION, "there is no pipeline yet");
    }
    return statusOf(target_.write(*request, deadline));
  });
}

grpc::Status P4RuntimeService::Read(grpc::ServerContext* context,
                                    const p4::v1::ReadRequest* request,
                                    grpc::ServerWriter<p4::v1::ReadResponse>* writer) {
  return answer(context, [&](LoopGate::Deadline deadline) {
    const grpc::Status device = checkDevice(request->device_id());
    if (!device.ok()) return device;
    if (!target_.hasPipeline()) {
      return Rpc::refusal(StatusCode::FAILED_PRECONDITION, "there is no pipeline yet");
    }
    return statusOf(target_.read(*request, deadline, [&](const p4::v1::ReadResponse& response) {
      return !context->IsCancelled() && writer->Write(response);
    }));
  });
}

grpc::Status P4RuntimeService::StreamChannel(grpc::ServerContext* context, Stream* stream) {
  const Rpc::Calls::Call call(calls_, *context, Rpc::Calls::Kind::session);
  if (!call.status().ok()) return call.status();
  Outbox outbox(*context, *stream, unreadNotices);
  const OpenStream open(*this, outbox);
  grpc::Status status;
  {
    Arbitration::Stream session(arbitration_, [&](const Arbitration::Notice& notice) {
      StreamMessageResponse response;
      *response.mutable_arbitration() = notice;
      outbox.put(response);
    });
    StreamMessageRequest message;
    while (status.ok() && stream->Read(&message)) {
      if (message.has_arbitration()) {
        status = grpcStatus(session.update(message.arbitration()));
      } else {
        outbox.offer(errorFor(message, session.isPrimary()));
      }
    }
  }
  return outbox.drain(status, lastWords);
}

}  // namespace Agent::P4
