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
    size_t query = 0;  // which one asks
  };
  struct Found {
    size_t query;
    Image image;
  };
  struct Piece {
    std::vector<Found> found;
    bool isLast = false;
  };
  struct Limits {
    size_t rows = 2048;  // of a piece, as the next
    size_t bytes = 512 << 10;
    size_t keptBytes = 64u << 20;  // of a read
  };

  ActiveReads(RowStore& store, Limits limits) : store_(store), limits_(limits) {}

  Id begin(std::vector<Step> steps);
  // The read is over after its last piece, and when a Fault is thrown.
  Piece next(Id id);
  // From any thread: nobody will ask for the next piece.
  void abandon(Id id);
  // All reads end with this fault.
  void endAll(const Fault& fault);

  void beforeChange(const Role& role, const Vane::BaseRow& key,
                    const Vane::BaseRow& before) override;

 private:
  struct Read {
    std::vector<Step> steps;
    size_t at = 0;                                   // the step under way
    std::unique_ptr<Vane::VaRowIteratorImpl> row{};  // stands on the row last given
    // As it was; without a row: it was not there.
    std::unordered_map<EntityKey, std::optional<Image>, EntityKeyHash> kept{};
    size_t keptBytes = 0;
    std::optional<Fault> fault{};
  };
  // Fills one piece.
  class Filling;

  void dropAbandoned();
  void keep(Read& read, const Role& role, const Vane::BaseRow& key, const Vane::BaseRow& before);
  static bool asksFor(const Step& step, const Role& role, const EntityKey& key);

  RowStore& store_;
  const Limits limits_;
  std::map<Id, Read> reads_;
  Id last_ = 0;
  std::mutex mutex_;  // guards abandoned_
  std::vector<Id> abandoned_;
};

}  // namespace Agent::P4
