// The columns of a row type that is known only by its signature.
//
// A signature is a one-line JSON object, {"genId":"uint64_t", "destinationPrefix":"IpGenPrefix"}:
// column names to type words, in column order. The words give the slot widths (ColumnKinds.h), and
// so the offsets.
//
// The first column lies at offset 4, after the header, and each next one follows without a gap.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "Vane/baseRow.h"
#include "platform/Vane/RowOps.h"

namespace Vane {

// What a column can hold. The order is that of ColumnType.
using ColumnValue = std::variant<uint64_t, uint32_t, int32_t, uint16_t, bool, EthAddr, IpGenPrefix,
                                 IpGenAddr, std::vector<uint32_t>>;

enum class ColumnType : uint8_t { u64, u32, i32, u16, boolean, ethAddr, prefix, addr, u32Array };

// The type word of a signature: "uint64_t" and so on.
std::string_view wordOf(ColumnType type);

struct LayoutColumn {
  std::string name;
  ColumnType type = ColumnType::u64;
  len_t offset = 0;  // of its slot, from the row's header
  bool isKey = false;
};

class RowLayout {
 public:
  // Throws VaNotSupported for a signature that cannot be read, a type word that is not in use, a
  // key column that is not in the signature, or a fixed length other than the one that the type
  // states.
  explicit RowLayout(const RowMetadata& metadata);
  // The layout of a row type by its name. Throws VaUnknownName.
  static RowLayout of(const std::string& typeName);

  const std::string& typeName() const { return typeName_; }
  const std::vector<LayoutColumn>& columns() const { return columns_; }
  // Null for a name that the type does not have.
  const LayoutColumn* column(std::string_view name) const;
  // Bytes of header and fixed area.
  len_t fixedLength() const { return fixedLength_; }

  // A row of type `typeId` with these values, one per column. The buffer is exactly as long as the
  // row. Throws VaOutOfRange for a row above 65535 bytes.
  //
  // requires: values[i] holds columns()[i].type; an array has at most 4095 elements.
  BaseRow row(len_t typeId, const std::vector<ColumnValue>& values) const;

  // One column of a row of this type. Throws VaNullRow for a null row, VaOutOfRange for one without
  // the whole fixed area.
  ColumnValue value(const BaseRow& row, const LayoutColumn& column) const;
  // requires: `value` holds the column's type.
  void set(BaseRow& row, const LayoutColumn& column, const ColumnValue& value) const;

 private:
  void parse(std::string_view signature);

  std::string typeName_;
  std::vector<LayoutColumn> columns_;
  len_t fixedLength_ = va_contentOffset;
};

// The zero of a type: 0, false, an unset address, an empty array.
ColumnValue zeroValue(ColumnType type);

}  // namespace Vane
