#include "agent/p4/PackedRows.h"

#include <cstring>
#include <variant>

#include "Vane/detail/bytes.h"

namespace Agent::P4 {

size_t PackedRows::add(const Role& role, const std::vector<Vane::ColumnValue>& values) {
  const Vane::len_t fixedLength = role.layout.fixedLength();
  const auto& columns = role.layout.columns();
  if (made_.isNull() || made_.buffer()->length() < role.longestRow) {
    made_ = Vane::BaseRow(role.longestRow);
  }
  uint8_t* const bytes = made_.buffer()->data();
  std::memset(bytes, 0, fixedLength);
  {
    Vane::RowWriter writer(made_, fixedLength);
    for (size_t i = 0; i < columns.size(); ++i) {
      std::visit([&](const auto& held) { writer.set(columns[i].offset, held); }, values[i]);
    }
  }
  made_.rowTypeIs(role.rowTypeId);
  const size_t place = bytes_.size();
  bytes_.insert(bytes_.end(), bytes, bytes + made_.rowLength());
  return place;
}

void PackedRows::get(size_t place, Vane::BaseRow& row) const {
  const uint8_t* const bytes = bytes_.data() + place;
  const auto length = Vane::detail::loadLe<Vane::len_t>(bytes);
  if (row.isNull() || row.buffer()->length() != length) {
    row = Vane::BaseRow(length);
  } else {
    row.clear(length);
  }
  std::memcpy(row.buffer()->data(), bytes, length);
}

}  // namespace Agent::P4
