// The switch as P4Runtime sees it, over the tables of the row database.
//
// Messages are checked and made into rows in the caller's thread, and rows into messages; what
// concerns the tables runs on the agent's loop, a whole batch or a piece of a read at a time.
//
// What was decided where P4Runtime leaves the choice:
// - Updates of a batch are applied in order. ROLLBACK_ON_ERROR is offered: the update that failed
//   reports why, all others report ABORTED. DATAPLANE_ATOMIC is not: processes that read the tables
//   see each entry whole, not each batch.
// - What rows have no column for (metadata, max_size, how a port was given, the mode of an action
//   set) comes back unchanged until the agent ends; entries that it finds when it starts have none.
// - After VERIFY_AND_SAVE, writes reach the tables at once, and COMMIT removes what was not written
//   since; entries of the pipeline before can be inserted anew. Asked for its pipeline, the agent
//   answers with the one that reads and writes are checked against: the saved one, if there is one.
// - A commit that removes entries ends the reads that are under way, with ABORTED.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "agent/LoopGate.h"
#include "agent/p4/ActiveReads.h"
#include "agent/p4/Forwarding.h"
#include "agent/p4/Pipeline.h"
#include "agent/p4/Query.h"
#include "agent/p4/Renderer.h"
#include "agent/p4/RowStore.h"
#include "agent/p4/Tally.h"
#include "agent/p4/Target.h"
#include "platform/Vane/VaneDB.h"

namespace Agent::P4 {

class RowTarget final : public Target {
 public:
  struct Options {
    std::map<std::string, uint64_t> capacities;  // by row table; others as agent/Tables.h says
    bool hasFixedPipeline = true;                // begins with the agent's own P4Info committed
    ActiveReads::Limits reads{};
    // Runs on the loop after each batch that may have changed tables.
    std::function<void()> afterBatch = [] {};
  };

  // On the loop's thread, as is the end, when the tables are there; takes over what they hold.
  RowTarget(const std::shared_ptr<Vane::VaneDB>& database, LoopGate& gate, Options options);
  ~RowTarget() override;

  WriteResult write(const p4::v1::WriteRequest& request, LoopGate::Deadline deadline) override;
  WriteResult read(const p4::v1::ReadRequest& request, LoopGate::Deadline deadline,
                   const Send& send) override;
  grpc::Status pipelineIs(const p4::v1::SetForwardingPipelineConfigRequest& request,
                          LoopGate::Deadline deadline) override;
  grpc::Status pipeline(const p4::v1::GetForwardingPipelineConfigRequest& request,
                        p4::v1::GetForwardingPipelineConfigResponse& response) override;

  const Roles& roles() const { return roles_; }
  // From any thread.
  Counters counters() const { return tally_.counters(); }

 private:
  using PipelinePtr = std::shared_ptr<const Pipeline>;
  struct Batch;
  class Answer;

  // What reads and writes go by; null: nothing yet.
  PipelinePtr current() const;

  void translate(const p4::v1::WriteRequest& request, LoopGate::Deadline deadline, Batch& batch);
  void apply(Batch& batch);
  void applyAll(Batch& batch);

  // What the good queries select; each has its result.
  Selection select(const p4::v1::ReadRequest& request, const Pipeline& pipeline,
                   LoopGate::Deadline deadline, std::vector<p4::v1::Error>& results);
  // False, with nothing sent, if the pipeline has changed before the first look at the tables.
  bool answer(const Selection& selection, const PipelinePtr& pipeline, LoopGate::Deadline deadline,
              Answer& to);

  void commit(p4::v1::SetForwardingPipelineConfigRequest::Action action,
              std::shared_ptr<Pipeline> pipeline);
  void currentIs(PipelinePtr pipeline, bool committed);

  // Throws a Fault unless the work has run.
  void onLoop(LoopGate::Deadline deadline, const std::function<void()>& work);
  // What a call that failed as a whole returns, counted.
  grpc::Status refused(const Fault& fault);

  const Roles roles_;
  LoopGate& gate_;
  Options options_;
  Tally tally_;
  RowStore store_;
  Forwarding forwarding_;
  ActiveReads reads_;
  uint64_t lastNumber_;       // of a pipeline
  mutable std::mutex mutex_;  // guards what follows; changed on the loop only
  PipelinePtr current_;
  std::shared_ptr<Pipeline> saved_;  // not yet committed
};

}  // namespace Agent::P4
