// Applies an input of commands, one JSON object a line.
#pragma once

#include <functional>

#include "agent/Command.h"
#include "agent/LineLoader.h"
#include "agent/RowTable.h"

namespace Agent {

class RowCommands final : public LineLoader {
 public:
  // Called for a sync command with its id, when all lines before it have been applied.
  using OnSync = std::function<void(uint64_t id)>;

  RowCommands(std::string inputName, bool strict, LoadCounts& counts, RowTables& tables,
              OnSync onSync)
      : LineLoader(std::move(inputName), strict, counts),
        tables_(tables),
        onSync_(std::move(onSync)) {}

 private:
  bool apply(std::string_view text) override;
  void applyTo(RowTable& table, const Command& command);

  RowTables& tables_;
  OnSync onSync_;
  CommandParser parser_;
};

}  // namespace Agent
