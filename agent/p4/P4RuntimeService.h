// The P4Runtime service: checks who may call what, keeps the clients' streams, and leaves the rest
// to the target.
//
// What is looked at before a call's work, in this order:
//
//   Capabilities                  the device, unless it is 0
//   GetForwardingPipelineConfig   the device
//   SetForwardingPipelineConfig   the device; role and election id are the primary's
//   Read                          the device; the number of queries
//   Write                         the device; role and election id are the primary's; the number
//                                 of updates
//
// Another device is NOT_FOUND, a caller who is not the primary PERMISSION_DENIED, too large a batch
// RESOURCE_EXHAUSTED. There is no packet I/O.
//
// A stream is opened by its first arbitration message, for which it has a limited time.
#pragma once

#include <mutex>
#include <set>

#include "agent/p4/Arbitration.h"
#include "agent/p4/Target.h"
#include "agent/rpc/ArenaRequest.h"
#include "agent/rpc/Calls.h"
#include "agent/rpc/Outbox.h"
#include "p4/v1/p4runtime.grpc.pb.h"

namespace Agent::P4 {

class P4RuntimeService final : public grpc::Service {
 public:
  // Notices that a stream's client may leave unread.
  static constexpr size_t unreadNotices = 256;
  static constexpr const char* apiVersion = "1.5.0";

  // What one call may ask for at once.
  struct BatchLimits {
    size_t updates = 1'000'000;
    size_t queries = 10'000;
  };

  P4RuntimeService(Target& target, Rpc::Calls& calls, Arbitration::Limits limits,
                   BatchLimits batches);

  // Ends the open streams, and new ones as they come, with UNAVAILABLE.
  void stop();

  using Stream =
      grpc::ServerReaderWriter<p4::v1::StreamMessageResponse, p4::v1::StreamMessageRequest>;

 private:
  template <class Message>
  using Request = Rpc::ArenaRequest<Message>;
  using Outbox = Rpc::Outbox<p4::v1::StreamMessageResponse, p4::v1::StreamMessageRequest>;
  class OpenStream;

  grpc::Status capabilities(grpc::ServerContext* context,
                            const Request<p4::v1::CapabilitiesRequest>* request,
                            p4::v1::CapabilitiesResponse* response);
  grpc::Status pipeline(grpc::ServerContext* context,
                        const Request<p4::v1::GetForwardingPipelineConfigRequest>* request,
                        p4::v1::GetForwardingPipelineConfigResponse* response);
  grpc::Status pipelineIs(grpc::ServerContext* context,
                          const Request<p4::v1::SetForwardingPipelineConfigRequest>* request,
                          p4::v1::SetForwardingPipelineConfigResponse* response);
  grpc::Status write(grpc::ServerContext* context, const Request<p4::v1::WriteRequest>* request,
                     p4::v1::WriteResponse* response);
  grpc::Status read(grpc::ServerContext* context, const Request<p4::v1::ReadRequest>* request,
                    grpc::ServerWriter<p4::v1::ReadResponse>* writer);
  grpc::Status streamChannel(grpc::ServerContext* context, Stream* stream);

  template <class Asked, class Answered>
  using Unary = grpc::Status (P4RuntimeService::*)(grpc::ServerContext*, const Request<Asked>*,
                                                   Answered*);
  template <class Asked, class Answered>
  void offer(const char* method, Unary<Asked, Answered> handler);

  template <class Work>
  grpc::Status answer(grpc::ServerContext* context, Rpc::Calls::Kind kind, const Work& work);
  template <class Message, class Work>
  grpc::Status answer(grpc::ServerContext* context, const Request<Message>& request,
                      const Work& work);
  grpc::Status converse(Rpc::Calls::Call& call, Stream& stream, Outbox& outbox);
  grpc::Status checkDevice(uint64_t deviceId) const;
  template <class Message>
  Arbitration::Admission admit(const Message& request);

  Target& target_;
  Rpc::Calls& calls_;
  const uint64_t deviceId_;
  const BatchLimits batches_;
  Arbitration arbitration_;
  std::mutex mutex_;  // guards what follows
  std::set<Outbox*> streams_;
  bool stopping_ = false;
};

// The status for a batch's results: OK, or UNKNOWN with one p4.v1.Error per result in its details.
grpc::Status statusOf(Target::WriteResult result);

}  // namespace Agent::P4
