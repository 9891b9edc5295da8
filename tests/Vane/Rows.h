// What the row tests share: bytes in hex, and two row types.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "Vane/baseRow.h"

namespace Vane::Test {

inline constexpr auto nullRow = "null row";
inline constexpr auto readOnly = "Attempting to modify read-only row";

template <class Error>
void expectThrows(auto&& action, const std::string& message) {
  try {
    action();
    ADD_FAILURE() << "expected \"" << message << '"';
  } catch (const Error& e) {
    EXPECT_EQ(e.message(), message);
  }
}

// Bytes `from` to `from + count` of the row, as "0a ff".
inline std::string hex(const BaseRow& row, size_t from, size_t count) {
  constexpr char digits[] = "0123456789abcdef";
  const uint8_t* const bytes = row.buffer()->data() + row.rowOffset() + from;
  std::string text;
  for (size_t i = 0; i < count; ++i) {
    if (i != 0) text += ' ';
    text += digits[bytes[i] >> 4];
    text += digits[bytes[i] & 15];
  }
  return text;
}

inline std::string hex(const BaseRow& row) { return hex(row, 0, row.rowLength()); }

inline uint8_t* bytesOf(BaseRow& row) { return row.buffer()->data() + row.rowOffset(); }

inline void poke16(BaseRow& row, size_t at, uint16_t value) {
  bytesOf(row)[at] = static_cast<uint8_t>(value);
  bytesOf(row)[at + 1] = static_cast<uint8_t>(value >> 8);
}

// Writes a descriptor as hostile bytes would hold it.
inline void pokeDescriptor(BaseRow& row, len_t col, uint16_t offset, uint16_t lengthWord) {
  poke16(row, col, offset);
  poke16(row, col + 2, lengthWord);
}

inline std::vector<uint32_t> arrayOf(const BaseRow& row, len_t col) {
  std::vector<uint32_t> values;
  row.getFixElemArray<uint32_t>(col, values);
  return values;
}

// Puts a copy of `nested` into a column of a private row.
inline void setNested(BaseRow& row, len_t col, const BaseRow& nested, len_t fdLen) {
  auto& vct = *reinterpret_cast<VColType*>(bytesOf(row) + col);
  const len_t length = nested.rowLength();
  const len_t at = row.makeFreeSpace(vct, length, fdLen);
  std::memcpy(bytesOf(row) + at, nested.buffer()->data() + nested.rowOffset(), length);
  row.updateVCT(col, at, length);
}

// A row type as plain as can be: a number and a flag.
class LinkRow final : public BaseRow {
 public:
  static constexpr len_t fixedLength = 9;
  static constexpr len_t type = 77;
  static constexpr len_t numberCol = 4;
  static constexpr len_t flagCol = 8;

  LinkRow(uint32_t number, bool flag) : BaseRow(fixedLength) {
    setColumn<uint32_t>(numberCol, number, fixedLength);
    setColumn<bool>(flagCol, flag, fixedLength);
    rowTypeIs(type);
  }
  explicit LinkRow(BaseRow&& row) : BaseRow(std::move(row)) {}

  bool rowEqual(const BaseRow& other) const override {
    return rowType() == other.rowType() && columnEqual<uint32_t>(numberCol, other, numberCol) &&
           columnEqual<bool>(flagCol, other, flagCol);
  }
  bool rowLess(const BaseRow& other) const override {
    return columnLess<uint32_t>(numberCol, other, numberCol);
  }
  uint32_t rowHash() const override { return columnHash<uint32_t>(numberCol) + 1000; }
  len_t baseRowLength() override { return fixedLength; }
  bool isFullyDefined() const override { return true; }
};

// A fully defined row type with every kind of variable-size column.
class PathRow final : public BaseRow {
 public:
  static constexpr len_t numberCol = 4;
  static constexpr len_t prefixCol = 8;
  static constexpr len_t membersCol = 12;
  static constexpr len_t linkCol = 16;
  static constexpr len_t addrCol = 20;
  static constexpr len_t watchCol = 24;
  static constexpr len_t fixedLength = 28;

  PathRow() : BaseRow(fixedLength) {}
  explicit PathRow(len_t bufLen) : BaseRow(fixedLength, bufLen) {}

  const vcdType& vcd() const override {
    static const vcdType columns{prefixCol, membersCol, linkCol, addrCol, watchCol};
    return columns;
  }
  len_t baseRowLength() override { return fixedLength; }
  bool isFullyDefined() const override { return true; }
};

}  // namespace Vane::Test
