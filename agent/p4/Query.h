// The queries of a read: what they select, checked, and each told once.
#pragma once

#include <compare>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "agent/p4/ActiveReads.h"
#include "agent/p4/Translator.h"
#include "p4/v1/p4runtime.pb.h"

namespace Agent::P4 {

// Entries with these only; at their default they narrow nothing.
struct Filter {
  std::string metadata;
  uint64_t controllerMetadata = 0;

  bool selects(const p4::v1::Entity& entity) const;
  friend auto operator<=>(const Filter&, const Filter&) = default;
};

class Selection {
 public:
  void entitiesOf(const Role& role, Vane::BaseRow key, const Filter& filter);
  void defaultOf(const Role& table) { defaults_.insert(table.id); }

  const ActiveReads::Plan& plan() const { return plan_; }
  // Tables whose default entry is asked for, by P4 id.
  const std::set<uint32_t>& defaults() const { return defaults_; }
  // Whether a query that asked for the step wants this entity that it gave.
  bool wants(size_t step, const p4::v1::Entity& entity) const;

 private:
  ActiveReads::Plan plan_;
  std::vector<std::set<Filter>> filters_;  // by step
  std::set<uint32_t> defaults_;
};

// Adds a query. Throws Fault; then the selection is as it was.
void addQuery(const Roles& roles, const Pipeline& pipeline, Translator& translator,
              const p4::v1::Entity& from, Selection& to);

}  // namespace Agent::P4
