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
#include "agent/rpc/Calls.h"
#include "agent/rpc/Outbox.h"
#include "p4/v1/p4runtime.grpc.pb.h"

namespace Agent::P4 {

class P4RuntimeService final : public p4::v1::P4Runtime::Service {
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
                   BatchLimits batches)
      : target_(target),
        calls_(calls),
        deviceId_(limits.deviceId),
        batches_(batches),
        arbitration_(limits) {}

  // Ends the open streams, and new ones as they come, with UNAVAILABLE.
  void stop();

  grpc::Status Capabilities(grpc::ServerContext* context,
                            const p4::v1::CapabilitiesRequest* request,
                            p4::v1::CapabilitiesResponse* response) override;
  grpc::Status GetForwardingPipelineConfig(
      grpc::ServerContext* context, const p4::v1::GetForwardingPipelineConfigRequest* request,
      p4::v1::GetForwardingPipelineConfigResponse* response) override;
  grpc::Status SetForwardingPipelineConfig(
      grpc::ServerContext* context, const p4::v1::SetForwardingPipelineConfigRequest* request,
      p4::v1::SetForwardingPipelineConfigResponse* response) override;
  grpc::Status Write(grpc::ServerContext* context, const p4::v1::WriteRequest* request,
                     p4::v1::WriteResponse* response) override;
  grpc::Status Read(grpc::ServerContext* context, const p4::v1::ReadRequest* request,
                    grpc::ServerWriter<p4::v1::ReadResponse>* writer) override;
  using Stream =
      grpc::ServerReaderWriter<p4::v1::StreamMessageResponse, p4::v1::StreamMessageRequest>;
  grpc::Status StreamChannel(grpc::ServerContext* context, Stream* stream) override;

 private:
  using Outbox = Rpc::Outbox<p4::v1::StreamMessageResponse, p4::v1::StreamMessageRequest>;
  class OpenStream;

  template <class Work>
  grpc::Status answer(grpc::ServerContext* context, Rpc::Calls::Kind kind, const Work& work);
  template <class Request, class Work>
  grpc::Status answer(grpc::ServerContext* context, const Request& request, const Work& work);
  grpc::Status converse(Rpc::Calls::Call& call, Stream& stream, Outbox& outbox);
  grpc::Status checkDevice(uint64_t deviceId) const;
  template <class Request>
  Arbitration::Admission admit(const Request& request);

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
