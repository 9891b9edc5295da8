// Makes routes of a plain list of prefixes, one a line; lines that begin with '#' are comments.
//
// The prefixes of a family go to its override, fallback and VRF tables in turn. Route n, counted
// from 1 over all lists, has genId 1, entryHandle n, valid, destinationType 1 (a member) and
// destinationId 1 + (n - 1) % 1024. VRF routes go to the instances 1 to 16 in turn.
#pragma once

#include <array>
#include <vector>

#include "agent/LineLoader.h"
#include "agent/RowTable.h"

namespace Agent {

class PrefixRows final : public LineLoader {
 public:
  // What has been made so far, by all lists of a run.
  struct Progress {
    uint64_t routes = 0;
    std::array<uint64_t, 2> ofFamily{};  // IPv4, IPv6
  };

  PrefixRows(std::string inputName, bool strict, LoadCounts& counts, RowTables& tables,
             Progress& progress)
      : LineLoader(std::move(inputName), strict, counts), tables_(tables), progress_(progress) {}

 private:
  bool apply(std::string_view text) override;
  void put(const char* column, Vane::ColumnValue value, const RowTable& table);

  RowTables& tables_;
  Progress& progress_;
  std::vector<Vane::ColumnValue> values_;
};

}  // namespace Agent
