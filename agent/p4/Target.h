// What the P4Runtime service asks of the switch: its pipeline, writes and reads.
//
// The calls come from the service's threads. What concerns the row database is handed to the
// agent's loop, a whole batch at a time; turning messages into rows and rows into messages is done
// outside it. Who may call what is the service's business: a call that arrives here is permitted.
#pragma once

#include <grpcpp/support/status.h>

#include <functional>
#include <vector>

#include "agent/LoopGate.h"
#include "p4/v1/p4runtime.pb.h"

namespace Agent::P4 {

class Target {
 public:
  virtual ~Target() = default;

  // A batch as a whole was refused before any update was tried (`refused` is not OK and there are
  // no results), or each update has its result, in order of the request.
  struct WriteResult {
    grpc::Status refused;
    std::vector<p4::v1::Error> results;
  };
  virtual WriteResult write(const p4::v1::WriteRequest& request, LoopGate::Deadline deadline) = 0;

  // Hands the answer to `send` in messages below 4 MB; `send` returns false when nobody listens any
  // more, which ends the reading. As with write(): refused as a whole, or one result per query.
  using Send = std::function<bool(const p4::v1::ReadResponse&)>;
  virtual WriteResult read(const p4::v1::ReadRequest& request, LoopGate::Deadline deadline,
                           const Send& send) = 0;

  virtual grpc::Status pipelineIs(const p4::v1::SetForwardingPipelineConfigRequest& request,
                                  LoopGate::Deadline deadline) = 0;
  virtual grpc::Status pipeline(const p4::v1::GetForwardingPipelineConfigRequest& request,
                                p4::v1::GetForwardingPipelineConfigResponse& response) = 0;
};

}  // namespace Agent::P4
