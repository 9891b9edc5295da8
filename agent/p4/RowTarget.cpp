#include "agent/p4/RowTarget.h"

#include <chrono>
#include <utility>

#include "agent/p4/P4Info.h"

namespace Agent::P4 {
namespace {

using grpc::StatusCode;
using p4::v1::SetForwardingPipelineConfigRequest;
using p4::v1::WriteRequest;

// Runs at the end of a block, also when an exception leaves it.
template <class F>
class AtEnd {
 public:
  explicit AtEnd(F f) : f_(std::move(f)) {}
  AtEnd(const AtEnd&) = delete;
  ~AtEnd() { f_(); }

 private:
  F f_;
};

// Updates or queries that are translated between two looks at the clock.
constexpr size_t betweenLooks = 256;

void needTime(LoopGate::Deadline deadline) {
  if (std::chrono::system_clock::now() < deadline) return;
  fail(StatusCode::DEADLINE_EXCEEDED, "the deadline passed before the whole request was read");
}

Fault pipelineChanged() {
  return {StatusCode::ABORTED, "another forwarding pipeline was committed meanwhile"};
}

}  // namespace

// One write request on its way.
struct RowTarget::Batch {
  PipelinePtr pipeline;
  bool isAllOrNothing = false;
  std::vector<Update> updates;  // in order of the request; void where there is a fault
  PackedRows rows;
  std::vector<p4::v1::Error> results;
  bool hasFailed = false;
  bool isOutdated = false;  // the pipeline has changed; nothing was applied

  void failed(size_t at, const Fault& fault) {
    results[at] = errorOf(fault);
    hasFailed = true;
  }
  bool isGood(size_t at) const { return results[at].canonical_code() == 0; }
  // Every update that has no fault of its own is reported as not done.
  void abortRest(const char* why) {
    for (size_t at = 0; at < results.size(); ++at) {
      if (isGood(at)) results[at] = errorOf({StatusCode::ABORTED, why});
    }
  }
};

// Collects entities into messages and hands these on. A message holds one piece of a read, whose
// rows are limited; as a message they take less than three times as much. It is one message, used
// again and again with all its parts.
class RowTarget::Answer {
 public:
  explicit Answer(const Send& send) : send_(send) {}

  // What it holds is of no account.
  p4::v1::Entity& next() {
    auto& entities = *message_.mutable_entities();
    if (used_ == entities.size()) entities.Add();
    return *entities.Mutable(used_++);
  }
  // The last one is no part of the answer after all.
  void drop() { --used_; }
  void flush() {
    if (used_ == 0) return;
    auto& entities = *message_.mutable_entities();
    entities.DeleteSubrange(used_, entities.size() - used_);
    count_ += static_cast<uint64_t>(used_);
    if (isHeard_) isHeard_ = send_(message_);
    used_ = 0;
  }
  bool isHeard() const { return isHeard_; }
  uint64_t count() const { return count_; }

 private:
  const Send& send_;
  p4::v1::ReadResponse message_;
  int used_ = 0;  // of its entities
  uint64_t count_ = 0;
  bool isHeard_ = true;
};

RowTarget::RowTarget(const std::shared_ptr<Vane::VaneDB>& database, LoopGate& gate, Options options)
    : roles_(options.capacities, database.get()),
      gate_(gate),
      options_(std::move(options)),
      tally_(roles_),
      store_(roles_, *database, tally_),
      forwarding_(roles_, store_),
      reads_(store_, options_.reads),
      lastNumber_(store_.highestGenId()) {
  store_.witnessIs(&reads_);
  if (!options_.hasFixedPipeline) return;
  p4::v1::ForwardingPipelineConfig own;
  *own.mutable_p4info() = makeP4Info(roles_);
  auto pipeline = realise(roles_, own);
  pipeline->number = ++lastNumber_;
  currentIs(std::move(pipeline), true);
}

RowTarget::~RowTarget() = default;

RowTarget::PipelinePtr RowTarget::current() const {
  const std::lock_guard lock(mutex_);
  return current_;
}

void RowTarget::currentIs(PipelinePtr pipeline, bool committed) {
  const std::lock_guard lock(mutex_);
  current_ = std::move(pipeline);
  if (committed) saved_ = nullptr;
}

void RowTarget::onLoop(LoopGate::Deadline deadline, const std::function<void()>& work) {
  switch (gate_.run(work, deadline)) {
    case LoopGate::Outcome::done:
      return;
    case LoopGate::Outcome::full:
      fail(StatusCode::RESOURCE_EXHAUSTED, "the agent has too much to do; try again later");
    case LoopGate::Outcome::late:
      fail(StatusCode::DEADLINE_EXCEEDED, "the deadline passed before the agent came to it");
    case LoopGate::Outcome::closed:
      fail(StatusCode::UNAVAILABLE, "the agent is ending");
  }
}

grpc::Status RowTarget::refused(const Fault& fault) {
  tally_.failed(fault.code(), nullptr);
  return fault.status();
}

Target::WriteResult RowTarget::write(const WriteRequest& request, LoopGate::Deadline deadline) try {
  Batch batch;
  switch (request.atomicity()) {
    case WriteRequest::CONTINUE_ON_ERROR:
      break;
    case WriteRequest::ROLLBACK_ON_ERROR:
      batch.isAllOrNothing = true;
      break;
    case WriteRequest::DATAPLANE_ATOMIC:
      fail(StatusCode::UNIMPLEMENTED,
           "DATAPLANE_ATOMIC: readers in other processes see each entry whole, not each batch");
    default:
      invalid("atomicity {} is not known", static_cast<int>(request.atomicity()));
  }
  do {
    translate(request, deadline, batch);
    if (batch.isAllOrNothing && batch.hasFailed) {
      batch.abortRest("not tried: another update of the batch is faulty");
    } else if (!batch.updates.empty()) {
      onLoop(deadline, [&] { apply(batch); });
    }
  } while (batch.isOutdated);

  uint64_t applied = 0;
  for (size_t at = 0; at < batch.results.size(); ++at) {
    if (batch.isGood(at)) {
      ++applied;
    } else {
      tally_.failed(batch.results[at].canonical_code(), batch.updates[at].role);
    }
  }
  tally_.applied(applied);
  return {grpc::Status::OK, std::move(batch.results)};
} catch (...) {
  return {refused(currentFault()), {}};
}

void RowTarget::translate(const WriteRequest& request, LoopGate::Deadline deadline, Batch& batch) {
  batch.pipeline = current();
  if (!batch.pipeline) {
    fail(StatusCode::FAILED_PRECONDITION, "there is no forwarding pipeline yet");
  }
  const auto count = static_cast<size_t>(request.updates_size());
  batch.isOutdated = batch.hasFailed = false;
  batch.updates.clear();
  batch.updates.resize(count);
  batch.results.clear();
  batch.results.resize(count);
  Translator translator(roles_, *batch.pipeline);
  for (size_t at = 0; at < count; ++at) {
    if (at % betweenLooks == 0) needTime(deadline);
    try {
      batch.updates[at] = translator.update(request.updates(static_cast<int>(at)));
    } catch (...) {
      batch.failed(at, currentFault());
      batch.updates[at].role = translator.role();
    }
  }
  batch.rows = translator.takeRows();
}

void RowTarget::apply(Batch& batch) {
  if (batch.pipeline != current()) {
    batch.isOutdated = true;
    return;
  }
  const AtEnd changed(options_.afterBatch);
  const AtEnd done([&] { store_.emptyJournal(); });
  applyAll(batch);
}

void RowTarget::applyAll(Batch& batch) {
  const size_t mark = store_.mark();
  Vane::BaseRow spare;  // the row of an update that is done, for its buffer
  for (size_t at = 0; at < batch.updates.size(); ++at) {
    if (!batch.isGood(at)) continue;
    Update& update = batch.updates[at];
    try {
      update.row = std::move(spare);
      batch.rows.get(update.packed, update.row);
      forwarding_.apply(update, *batch.pipeline);
    } catch (...) {
      // First of all: telling of the fault may fail as well.
      const bool undone = !batch.isAllOrNothing || store_.undo(mark);
      batch.failed(at, currentFault());
      if (!batch.isAllOrNothing) continue;
      batch.abortRest(undone ? "rolled back: another update of the batch failed"
                             : "another update of the batch failed; rolling back failed too");
      return;
    }
    if (!batch.isAllOrNothing) store_.emptyJournal();
    spare = std::move(update.row);
  }
}

Target::WriteResult RowTarget::read(const p4::v1::ReadRequest& request, LoopGate::Deadline deadline,
                                    const Send& send) try {
  for (;;) {
    const PipelinePtr pipeline = current();
    if (!pipeline) fail(StatusCode::FAILED_PRECONDITION, "there is no forwarding pipeline yet");
    WriteResult result;
    const Selection selection = select(request, *pipeline, deadline, result.results);
    Answer to(send);
    if (!answer(selection, pipeline, deadline, to)) continue;
    tally_.read(to.count());
    for (const auto& error : result.results) tally_.failed(error.canonical_code(), nullptr);
    return result;
  }
} catch (...) {
  return {refused(currentFault()), {}};
}

Selection RowTarget::select(const p4::v1::ReadRequest& request, const Pipeline& pipeline,
                            LoopGate::Deadline deadline, std::vector<p4::v1::Error>& results) {
  Selection selection;
  Translator translator(roles_, pipeline);
  for (const auto& entity : request.entities()) {
    if (results.size() % betweenLooks == 0) needTime(deadline);
    p4::v1::Error& error = results.emplace_back();
    try {
      addQuery(roles_, pipeline, translator, entity, selection);
    } catch (...) {
      error = errorOf(currentFault());
    }
  }
  return selection;
}

bool RowTarget::answer(const Selection& selection, const PipelinePtr& pipeline,
                       LoopGate::Deadline deadline, Answer& to) {
  for (const uint32_t table : selection.defaults()) {
    Renderer::defaultEntry(*roles_.table(table), to.next());
  }
  const Renderer renderer(roles_, *pipeline);
  ActiveReads::Plan plan = selection.plan();
  ActiveReads::Id id = 0;
  ActiveReads::Piece piece;
  piece.isLast = plan.steps().empty();
  bool isOutdated = false;
  try {
    while (!piece.isLast) {
      onLoop(deadline, [&] {
        if (id == 0) {
          isOutdated = pipeline != current();
          if (isOutdated) return;
          id = reads_.begin(std::move(plan));
        }
        reads_.next(id, piece);
      });
      if (isOutdated) return false;
      for (const ActiveReads::Found& found : piece.found) {
        p4::v1::Entity& entity = to.next();
        if (!renderer.entity(found.image, entity) || !selection.wants(found.step, entity)) {
          to.drop();
        }
      }
      to.flush();
      if (to.isHeard() || piece.isLast) continue;
      reads_.abandon(id);
      return true;
    }
  } catch (...) {
    if (id != 0) reads_.abandon(id);
    throw;
  }
  to.flush();
  return true;
}

grpc::Status RowTarget::pipelineIs(const SetForwardingPipelineConfigRequest& request,
                                   LoopGate::Deadline deadline) try {
  const auto action = request.action();
  switch (action) {
    case SetForwardingPipelineConfigRequest::VERIFY:
    case SetForwardingPipelineConfigRequest::VERIFY_AND_SAVE:
    case SetForwardingPipelineConfigRequest::VERIFY_AND_COMMIT:
    case SetForwardingPipelineConfigRequest::RECONCILE_AND_COMMIT:
      break;
    case SetForwardingPipelineConfigRequest::COMMIT:
      if (request.has_config()) invalid("COMMIT takes the saved config; expected none with it");
      onLoop(deadline, [&] { commit(action, nullptr); });
      return grpc::Status::OK;
    default:
      invalid("action {}: expected one of VERIFY to RECONCILE_AND_COMMIT",
              static_cast<int>(action));
  }
  if (!request.has_config()) invalid("expected a config");
  auto pipeline = realise(roles_, request.config());
  if (action != SetForwardingPipelineConfigRequest::VERIFY) {
    onLoop(deadline, [&] { commit(action, std::move(pipeline)); });
  }
  return grpc::Status::OK;
} catch (...) {
  return refused(currentFault());
}

// The next pipeline becomes the one to go by before anything is removed: writes that were checked
// against the one before come too late.
void RowTarget::commit(SetForwardingPipelineConfigRequest::Action action,
                       std::shared_ptr<Pipeline> pipeline) {
  if (action == SetForwardingPipelineConfigRequest::COMMIT) {
    pipeline = saved_;
    if (!pipeline) fail(StatusCode::NOT_FOUND, "COMMIT: no config has been saved");
    currentIs(pipeline, true);
    reads_.endAll(pipelineChanged());
    const AtEnd changed(options_.afterBatch);
    forwarding_.removeOld();
    return;
  }
  if (action == SetForwardingPipelineConfigRequest::RECONCILE_AND_COMMIT) {
    forwarding_.needRoomFor(*pipeline);
  }
  pipeline->number = ++lastNumber_;
  if (action == SetForwardingPipelineConfigRequest::VERIFY_AND_SAVE) {
    {
      const std::lock_guard lock(mutex_);
      saved_ = pipeline;
    }
    store_.beginRecent();
    return currentIs(std::move(pipeline), false);
  }
  currentIs(std::move(pipeline), true);
  store_.endRecent();
  if (action == SetForwardingPipelineConfigRequest::RECONCILE_AND_COMMIT) return;
  reads_.endAll(pipelineChanged());
  const AtEnd changed(options_.afterBatch);
  store_.clear();
}

grpc::Status RowTarget::pipeline(const p4::v1::GetForwardingPipelineConfigRequest& request,
                                 p4::v1::GetForwardingPipelineConfigResponse& response) {
  using Request = p4::v1::GetForwardingPipelineConfigRequest;
  const auto type = request.response_type();
  if (!Request::ResponseType_IsValid(type)) {
    return refused({StatusCode::INVALID_ARGUMENT,
                    fmt::format("response type {} is not known", static_cast<int>(type))});
  }
  response.Clear();
  const PipelinePtr pipeline = current();
  if (!pipeline) return grpc::Status::OK;
  auto& config = *response.mutable_config();
  if (type == Request::ALL || type == Request::P4INFO_AND_COOKIE) {
    *config.mutable_p4info() = pipeline->config.p4info();
  }
  if (type == Request::ALL || type == Request::DEVICE_CONFIG_AND_COOKIE) {
    config.set_p4_device_config(pipeline->config.p4_device_config());
  }
  if (pipeline->config.has_cookie()) *config.mutable_cookie() = pipeline->config.cookie();
  return grpc::Status::OK;
}

}  // namespace Agent::P4
