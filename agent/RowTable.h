// One table of the row database, as the agent writes it.
#pragma once

#include <memory>
#include <string>
#include <unordered_map>

#include "agent/RowReader.h"
#include "platform/Vane/RowLayout.h"
#include "platform/Vane/VaneDB.h"

namespace Agent {

class RowTable {
 public:
  RowTable(std::string name, std::shared_ptr<Vane::VaTableImplementation> table);
  RowTable(const RowTable&) = delete;
  RowTable& operator=(const RowTable&) = delete;

  const std::string& name() const { return name_; }
  const Vane::RowLayout& layout() const { return layout_; }
  Vane::VaTableImplementation& table() { return *table_; }

  // Throw BadLine for members that make no row of this table, and what the table throws.
  void set(std::span<const Command::Member> members) { set(reader_.read(members)); }
  void del(std::span<const Command::Member> members);
  void clear() { table_->rowDelAll(); }

  void set(const std::vector<Vane::ColumnValue>& values);

 private:
  std::string name_;
  std::shared_ptr<Vane::VaTableImplementation> table_;
  Vane::RowLayout layout_;
  RowReader reader_;
};

// The tables that can be written, by name; made as they are asked for.
class RowTables {
 public:
  explicit RowTables(std::shared_ptr<Vane::VaneDB> database) : database_(std::move(database)) {}
  // By row-database name, or by the path of a routing table. Throws BadLine for an unknown one.
  RowTable& table(const std::string& nameOrPath);
  Vane::VaneDB& database() { return *database_; }

 private:
  std::shared_ptr<Vane::VaneDB> database_;
  std::unordered_map<std::string, std::unique_ptr<RowTable>> tables_;
};

}  // namespace Agent
