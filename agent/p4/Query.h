// One query of a read: what it selects, checked.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "agent/p4/ActiveReads.h"
#include "agent/p4/Translator.h"
#include "p4/v1/p4runtime.pb.h"

namespace Agent::P4 {

struct Query {
  std::vector<ActiveReads::Step> steps;  // none for a default entry
  std::vector<const Role*> defaults;     // tables whose default entry is asked for
  // Entries with these only; at their default they narrow nothing.
  std::string metadata;
  uint64_t controllerMetadata = 0;

  bool selects(const p4::v1::Entity& entity) const;
};

// `at` is the query's place among those of its read. Throws Fault.
Query makeQuery(const Roles& roles, const Pipeline& pipeline, Translator& translator,
                const p4::v1::Entity& from, size_t at);

}  // namespace Agent::P4
