// Rows of a table that the agent has described: as records, and from what people type.
#pragma once

#include <string>
#include <vector>

#include "platform/Vane/RowLayout.h"
#include "tools/common/Output.h"
#include "vane/rowdb/v1/rowdb.pb.h"

namespace VaneCtl {

namespace v1 = vane::rowdb::v1;

class RowForm {
 public:
  explicit RowForm(const v1::Table& table);

  // One column of a record for each of the row.
  std::vector<Tools::Column> columns() const;
  void write(const v1::Row& row, Tools::RecordWriter& records) const;
  // Appends the row as its own JSON.
  void appendJson(std::string& to, const v1::Row& row) const;
  // The key columns, with commas between them.
  std::string keyText(const v1::Row& row) const;

  // The row with only a key, from its values with commas between them, or from JSON.
  v1::Row key(const std::string& text) const;
  // From "column=value", or from one JSON object.
  v1::Row row(const std::vector<std::string>& words) const;

 private:
  // Valid until the next one.
  const Vane::BaseRow& unpacked(const v1::Row& row) const;
  std::vector<const Vane::LayoutColumn*> keyColumns() const;
  std::string json(const Vane::LayoutColumn& column, const std::string& text) const;

  std::string table_;
  std::vector<std::string> keyNames_;
  Vane::RowLayout layout_;
  std::vector<std::string> jsonHeads_;  // by column: what stands before its value
  mutable Vane::BaseRow unpacked_;      // the last one, for its buffer
};

}  // namespace VaneCtl
