// Reads that are under way, each handed out in pieces, and each sees all tables as they were when
// it began.
//
// Writes may run between two pieces. Before one changes a key, it leaves the entity as it was in
// each read that has not come by yet, or may not have. The walk skips such keys, and what was kept
// of them is given out at the end: an entity may so be given twice, but never in a later state.
// What a read keeps is bounded; one that needs more fails.
//
// On the agent's loop only, but for abandon().
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <unordered_map>
#include <vector>

#include "agent/p4/Fault.h"
#include "agent/p4/Image.h"
#include "agent/p4/RowStore.h"

namespace Agent::P4 {

class ActiveReads final : public ChangeWitness {
 public:
  using Id = uint64_t;

  // The entity of one key, or, without a key, all of a role.
  struct Step {
    const Role* role = nullptr;
    Vane::BaseRow key;
  };
  // What a read asks for, each once.
  class Plan {
   public:
    static constexpr size_t none = ~size_t{0};

    // The step that asks for this, a new one if there is none yet.
    size_t step(const Role& role, Vane::BaseRow key);
    std::span<const Step> steps() const { return steps_; }
    // The steps that give an entity; none if there is none.
    size_t ofRole(const Role& role) const;
    size_t ofKey(const EntityKey& key) const;

   private:
    std::vector<Step> steps_;
    std::vector<size_t> ofRole_;  // by role
    std::unordered_map<EntityKey, size_t, EntityKeyHash> ofKey_;
  };
  struct Found {
    size_t step;
    Image image;
  };
  struct Piece {
    std::vector<Found> found;
    bool isLast = false;
  };
  struct Limits {
    size_t visits = 2048;          // of rows and keys, there or not, for a piece
    size_t bytes = 512 << 10;      // of a piece
    size_t keptBytes = 64u << 20;  // of a read
  };

  ActiveReads(RowStore& store, Limits limits) : store_(store), limits_(limits) {}

  Id begin(Plan plan);
  // Makes `piece` the next one; what was in it goes on the loop, where its memory is wanted again.
  // The read is over after its last piece, and when an exception is thrown: a Fault, or
  // CorruptionDetectedException at the end of a table that had rows which could not be read.
  void next(Id id, Piece& piece);
  // From any thread: nobody will ask for the next piece.
  void abandon(Id id);
  // All reads end with this fault.
  void endAll(const Fault& fault);

  void beforeChange(const Role& role, const Vane::BaseRow& key,
                    const Vane::BaseRow& before) override;

 private:
  struct Read {
    Plan plan;
    size_t at = 0;                                   // the step under way
    std::unique_ptr<Vane::VaRowIteratorImpl> row{};  // stands on the row last given
    std::optional<CompleteWalk> walk{};              // of that step
    // As it was; without a row: it was not there.
    std::unordered_map<EntityKey, std::optional<Image>, EntityKeyHash> kept{};
    size_t keptBytes = 0;
    std::optional<Fault> fault{};
  };
  // Fills one piece.
  class Filling;

  void dropAbandoned();
  void keep(Read& read, const Role& role, const Vane::BaseRow& key, const Vane::BaseRow& before);

  RowStore& store_;
  const Limits limits_;
  std::map<Id, Read> reads_;
  Id last_ = 0;
  std::mutex mutex_;  // guards abandoned_
  std::vector<Id> abandoned_;
};

}  // namespace Agent::P4
