// Turns the members of a JSON object into the column values of a row type.
#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "agent/Command.h"
#include "platform/Vane/RowLayout.h"

namespace Agent {

class RowReader {
 public:
  // `family`: the one that prefixes must have; unset: any.
  RowReader(const Vane::RowLayout& layout, Wire::AddressFamily family);

  // One value per column; valid until the next call. Columns that are not given are zero. Throws
  // BadLine for an unknown, repeated or missing key column, and for a value that its column cannot
  // hold.
  const std::vector<Vane::ColumnValue>& read(std::span<const Command::Member> members);

 private:
  size_t indexOf(const std::string& name, size_t likely) const;
  void store(const Vane::LayoutColumn& column, const JsonValue& from, Vane::ColumnValue& to) const;
  void needKeys() const;

  const Vane::RowLayout& layout_;
  Wire::AddressFamily family_;
  std::vector<Vane::ColumnValue> values_;
  std::vector<bool> given_;
};

}  // namespace Agent
