#include "agent/RowCommands.h"

namespace Agent {

bool RowCommands::apply(std::string_view text) {
  const Command& command = parser_.parse(text);
  if (command.op == Command::Op::sync) {
    onSync_(command.id);
    return false;
  }
  RowTable& table = tables_.table(command.table);
  try {
    applyTo(table, command);
  } catch (const std::exception& refusal) {
    BadLine::throwException(fmt::format("table {}: {}", table.name(), refusal.what()));
  }
  return true;
}

void RowCommands::applyTo(RowTable& table, const Command& command) {
  switch (command.op) {
    case Command::Op::set:
      return table.set(command.row);
    case Command::Op::del:
      return table.del(command.row);
    default:
      return table.clear();
  }
}

}  // namespace Agent
