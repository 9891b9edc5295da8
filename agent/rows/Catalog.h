// The tables that the service offers, with what is needed to read and make their rows.
//
// Made once, on the loop, when every table is there. Names, layouts and conversions may be used on
// any thread; the tables themselves belong to the loop.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/Vane/RowLayout.h"
#include "platform/Vane/VaneDB.h"
#include "platform/Wire/Address.h"
#include "vane/rowdb/v1/rowdb.pb.h"

namespace Agent::Rows {

namespace v1 = vane::rowdb::v1;

// A message of rows is sent when it has come to this.
inline constexpr size_t messageBytes = size_t{1} << 20;

class OfferedTable {
 public:
  OfferedTable(std::string name, std::shared_ptr<Vane::VaTableImplementation> table);
  ~OfferedTable();

  const std::string& name() const { return name_; }
  const std::string& path() const { return path_; }
  const Vane::RowLayout& layout() const { return layout_; }
  const Vane::RowMetadata& metadata() const { return metadata_; }
  uint16_t rowTypeId() const { return rowTypeId_; }

  // A row that was received, made anew from its values, so that no byte of it reaches a table
  // unseen. Throws a Refusal (INVALID_ARGUMENT) or BadLine for what is no row of this table.
  Vane::BaseRow rowOf(const v1::Row& message) const;
  void toMessage(const Vane::BaseRow& row, bool json, v1::Row& message) const;

  // The key columns of a row; the others are zero. The same key has the same bytes.
  Vane::BaseRow keyOf(const Vane::BaseRow& row) const;
  bool sameKey(const Vane::BaseRow& a, const Vane::BaseRow& b) const;
  // A row whose every column is zero stands for an entry that has gone.
  bool isGone(const Vane::BaseRow& row) const;

  // On the loop.
  Vane::VaTableImplementation& table() const { return *table_; }
  const std::shared_ptr<Vane::VaTableImplementation>& handle() const { return table_; }
  // Rows written and removed since this was made, by whomever.
  uint64_t writes() const;
  uint64_t deletes() const;
  // From now on the log of changes is kept as far back as this many indices, so that readers who
  // come back find it. Twice is once.
  void keepHistory(uint64_t span);

  // Changes that the service refused.
  mutable std::atomic<uint64_t> errors = 0;

 private:
  class Counter;

  Vane::BaseRow unpacked(const std::string& bytes) const;
  void checkBody(const std::string& bytes, const Vane::LayoutColumn& column) const;
  void checkPrefix(const Vane::LayoutColumn& column, const Wire::IpGenPrefix& prefix) const;

  std::string name_;
  std::string path_;
  Wire::AddressFamily family_;
  std::shared_ptr<Vane::VaTableImplementation> table_;
  Vane::RowLayout layout_;
  Vane::RowMetadata metadata_;
  uint16_t rowTypeId_;
  std::shared_ptr<Counter> counter_;
};

class Catalog {
 public:
  explicit Catalog(const Vane::VaneDB& database);

  const std::vector<std::unique_ptr<OfferedTable>>& tables() const { return tables_; }
  // By row-database name, path, or last part of the path. Throws a Refusal (NOT_FOUND) that names
  // the nearest.
  OfferedTable& table(const std::string& name) const;

 private:
  std::vector<std::unique_ptr<OfferedTable>> tables_;
};

}  // namespace Agent::Rows
