// An observer of a table for tests.
#pragma once

#include <cstdint>
#include <functional>
#include <type_traits>
#include <vector>

#include "platform/Vane/VaTable.h"

namespace testing_tables {

// Writes down what it is told, with each row as `describe` tells it, and then does what the test
// wants.
template <auto describe>
struct Witness final : Vane::VaTableObserver {
  using Row = std::invoke_result_t<decltype(describe), const Vane::BaseRow&>;
  struct Told {
    uint64_t previous;
    uint64_t index;
    bool deleted;
    Row row;
    bool operator==(const Told&) const = default;
  };

  void onChange(uint64_t previous, uint64_t index, bool deleted,
                const Vane::BaseRow& row) override {
    told.push_back({previous, index, deleted, describe(row)});
    if (then) then();
    kept.push_back(row);
    afterwards.push_back(describe(row));
  }

  std::vector<Told> told;
  std::vector<Row> afterwards;
  std::vector<Vane::BaseRow> kept;
  std::function<void()> then;
};

}  // namespace testing_tables
