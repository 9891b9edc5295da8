#include "agent/RowTable.h"

#include <fmt/format.h>

#include "agent/Tables.h"

namespace Agent {
namespace {

Wire::AddressFamily familyOf(const std::string& tableName) {
  const TableInfo* info = tableInfo(tableName);
  return info ? info->family : Wire::AddressFamily::unset;
}

}  // namespace

RowTable::RowTable(std::string name, std::shared_ptr<Vane::VaTableImplementation> table)
    : name_(std::move(name)),
      table_(std::move(table)),
      layout_(Vane::RowLayout::of(table_->rowTypeName())),
      reader_(layout_, familyOf(name_)) {}

void RowTable::set(const std::vector<Vane::ColumnValue>& values) {
  Vane::BaseRow row = layout_.row(table_->rowTypeId(), values);
  table_->rowIs(row, false);
}

void RowTable::del(std::span<const Command::Member> members) {
  table_->rowDel(layout_.row(table_->rowTypeId(), reader_.read(members)));
}

RowTable& RowTables::table(const std::string& nameOrPath) {
  const auto known = tables_.find(nameOrPath);
  if (known != tables_.end()) return *known->second;

  const TableInfo* info = tableInfo(nameOrPath);
  const std::string name = info ? std::string(info->name) : nameOrPath;
  auto implementation = database_->table(name);
  if (!implementation) {
    std::string names;
    for (const auto& each : database_->tableNames()) names += (names.empty() ? "" : ", ") + each;
    BadLine::throwException(
        fmt::format("table {} is not known; expected one of {}", inQuotes(nameOrPath), names));
  }
  auto made = std::make_unique<RowTable>(name, std::move(implementation));
  return *tables_.emplace(nameOrPath, std::move(made)).first->second;
}

}  // namespace Agent
