#include "agent/p4/Tally.h"

namespace Agent::P4 {

Counters Tally::counters() const {
  Counters made;
  made.updatesApplied = applied_;
  made.entitiesRead = read_;
  for (size_t code = 0; code < Counters::codes; ++code) made.errors[code] = errors_[code];
  for (const Role& role : roles_.all()) {
    const Table& table = tables_[role.index];
    made.tables.push_back({role.rowTable, table.writes, table.deletes, table.errors});
  }
  return made;
}

}  // namespace Agent::P4
