// Counts for people who look after the agent. Counted in several threads, read in any.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "agent/p4/Roles.h"

namespace Agent::P4 {

struct Counters {
  static constexpr size_t codes = 17;  // canonical codes: 0 to 16

  struct Table {
    std::string rowTable;
    uint64_t writes = 0;   // rows set
    uint64_t deletes = 0;  // rows removed one by one
    uint64_t errors = 0;   // updates refused
  };
  uint64_t updatesApplied = 0;
  uint64_t entitiesRead = 0;
  std::array<uint64_t, codes> errors{};  // by canonical code: of updates, queries and whole calls
  std::vector<Table> tables;
};

class Tally {
 public:
  explicit Tally(const Roles& roles) : roles_(roles), tables_(roles.all().size()) {}

  void applied(uint64_t count) { applied_ += count; }
  void read(uint64_t count) { read_ += count; }
  void failed(int code, const Role* role) {
    if (code > 0 && static_cast<size_t>(code) < Counters::codes) {
      ++errors_[static_cast<size_t>(code)];
    }
    if (role) ++tables_[role->index].errors;
  }
  void wrote(const Role& role) { ++tables_[role.index].writes; }
  void deleted(const Role& role) { ++tables_[role.index].deletes; }

  Counters counters() const;

 private:
  struct Table {
    std::atomic<uint64_t> writes{0};
    std::atomic<uint64_t> deletes{0};
    std::atomic<uint64_t> errors{0};
  };
  const Roles& roles_;
  std::atomic<uint64_t> applied_{0};
  std::atomic<uint64_t> read_{0};
  std::array<std::atomic<uint64_t>, Counters::codes> errors_{};
  std::vector<Table> tables_;  // by role
};

}  // namespace Agent::P4
