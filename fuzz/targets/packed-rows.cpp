// Bytes from elsewhere as a packed row. Whatever they say, reading stays inside the buffer, and
// what it says is what a second reading of the format says, byte by byte, a few lines long.
//
//   | how | type | bytes of the row ... |     how: bit 0: the header is made to fit the row type
//                                              bit 1: a second row, with one byte changed
//                                              bit 2: the row lies inside another one
#include <cstring>
#include <optional>
#include <vector>

#include "Vane/baseRow.h"
#include "fuzz/Fuzz.h"
#include "fuzz/RowTypes.h"
#include "platform/Vane/RowLayout.h"

namespace {

using Fuzz::isRefused;
using Fuzz::need;
using Vane::BaseRow;
using Vane::len_t;
using Vane::VaOutOfRange;
using Content = std::vector<uint8_t>;

Content contentOf(const BaseRow& row) {
  const uint8_t* const at = row.buffer()->data();
  return {at, at + row.buffer()->length()};
}

// The format once more, by its page alone.
class Format {
 public:
  explicit Format(Content bytes) : bytes_(std::move(bytes)) {}

  uint32_t u16(size_t at) const { return bytes_[at] | uint32_t{bytes_[at + 1]} << 8; }

  // Nothing for a body outside the buffer.
  std::optional<Content> body(size_t column) const {
    const size_t offset = u16(column);
    const size_t length = u16(column + 2) & 0x7FFF;
    if (length == 0) return Content();
    if (offset + length > bytes_.size()) return std::nullopt;
    return Content(bytes_.begin() + offset, bytes_.begin() + offset + length);
  }
  std::optional<std::vector<uint32_t>> array(size_t column) const {
    const auto found = body(column);
    if (!found) return std::nullopt;
    if (found->empty()) return std::vector<uint32_t>();
    const size_t offset = u16(column);
    if (offset + 2 > bytes_.size()) return std::nullopt;
    const size_t count = u16(offset) & 0x0FFF;
    if (offset + 2 + 4 * count > bytes_.size()) return std::nullopt;
    std::vector<uint32_t> values;
    for (size_t at = offset + 2; values.size() < count; at += 4) {
      values.push_back(u16(at) | u16(at + 2) << 16);
    }
    return values;
  }

 private:
  Content bytes_;
};

// What a variable-size column says, and whether it can be read at all.
template <class T>
bool isReadable(const Format& format, len_t column) {
  if constexpr (Vane::ArrayColumn<T>) {
    return format.array(column).has_value();
  } else {
    constexpr size_t extra = std::same_as<T, Vane::IpGenPrefix> ? 1 : 0;
    const auto body = format.body(column);
    return body && (body->empty() || body->size() == 4 + extra || body->size() == 16 + extra);
  }
}

template <class T>
bool says(const Format& format, len_t column, const T& value) {
  if constexpr (Vane::ArrayColumn<T>) {
    return format.array(column) == value;
  } else {
    Content expected;
    if constexpr (std::same_as<T, Vane::IpGenPrefix>) {
      if (value.family != Wire::AddressFamily::unset) expected.push_back(value.length);
    }
    expected.insert(expected.end(), value.bytes.begin(),
                    value.bytes.begin() + Wire::addressLength(value.family));
    return format.body(column) == expected;
  }
}

// requires: the row is the whole of its buffer.
template <class Row>
void readColumns(const Row& row) {
  const Format format(contentOf(row));
  bool isWhole = true;
  Row::Columns::Variable::forEach([&]<class C>(C) {
    using T = typename C::Type;
    T value{};
    const bool refused =
        isRefused<VaOutOfRange>([&] { value = Vane::columnValue<T>(row, C::offset); });
    need(refused != isReadable<T>(format, C::offset), "a column is refused if it cannot be read");
    if (!refused) need(says(format, C::offset, value), "a column is what its bytes say");
    isWhole = isWhole && !refused;
  });
  std::string text;
  need(isRefused<VaOutOfRange>([&] { text = row.toString(); }) == !isWhole,
       "a text of all or none");
  need(isRefused<VaOutOfRange>([&] { text = row.toJson(); }) == !isWhole, "JSON of all or none");
  need(isRefused<VaOutOfRange>([&] { row.rowHash(); }) == !isWhole, "a hash of all or none");
}

// Equal rows have one hash and no order; of unequal ones one is the lesser.
template <class Row>
void compare(const Row& a, const Row& b) {
  bool equal = false, less = false, greater = false;
  isRefused<VaOutOfRange>([&] {
    equal = a.rowEqual(b);
    need(equal == b.rowEqual(a), "equality goes both ways");
    less = a.rowLess(b);
    greater = b.rowLess(a);
    const uint32_t hashes[] = {a.rowHash(), b.rowHash()};
    need(equal + less + greater == 1, "of equal, less and greater one holds");
    need(!equal || hashes[0] == hashes[1], "equal rows have one hash");
    need(!(a == b) || a.hash() == b.hash(), "equal keys have one hash");
    need(!equal || a == b, "equal rows have one key");
    need(!equal || a.toJson() == b.toJson(), "equal rows have one text");
  });
}

template <class Row>
void lookThroughTheLayout(const BaseRow& row) {
  static const Vane::RowLayout layout = Vane::RowLayout::of(Row::rowTypeName());
  for (const auto& column : layout.columns()) {
    isRefused<VaOutOfRange>([&] { layout.value(row, column); });
  }
}

template <class Row>
void clone(const Row& row) {
  const bool isWhole = row.rowLength() >= 4 && row.rowLength() <= row.buffer()->length();
  Row copy{BaseRow()};
  // A copy is as long as the row says, which may be less than the fixed area or than its bodies
  // need.
  const bool refused = isRefused<VaOutOfRange>([&] { copy = row.clone(); });
  need(!refused || !isWhole || row.rowLength() < Row::baseRowLength_, "what is whole has a copy");
  if (refused) return;
  const Content all = contentOf(row);
  need(contentOf(copy) == Content(all.begin(), all.begin() + row.rowLength()),
       "a copy is the row's own bytes");
  readColumns(copy);
}

// Into bytes that no writer left: nothing is asked for but that it stays inside and leaves those
// alone who share the bytes.
template <class Row>
void write(Row row, Fuzz::Input input) {
  const BaseRow witness = row;
  const Content before = contentOf(witness);
  Row::Columns::All::forEach([&]<class C>(C) {
    using T = typename C::Type;
    T value{};
    if constexpr (Vane::ArrayColumn<T>) value.resize(input.below(32), 0x01020304);
    if constexpr (std::same_as<T, Vane::IpGenPrefix>) value = T::ipv4(input.take<uint32_t>(), 32);
    if constexpr (std::same_as<T, Vane::IpGenAddr>) value = T::ipv4(input.take<uint32_t>());
    isRefused<VaOutOfRange>([&] { setColumnValue(row, C::offset, value, Row::baseRowLength_); });
  });
  isRefused<VaOutOfRange>([&] { row.compactVariableData(Row::baseRowLength_); });
  isRefused<VaOutOfRange, Guard::AssertException>([&] { row.clearRow(); });
  need(contentOf(witness) == before, "a write leaves those alone who share the bytes");
}

// The operations that know of no row type, at any column.
void readGeneric(const BaseRow& row, const BaseRow& other, Fuzz::Input input) {
  need(!row.toString().empty(), "every row has a text");
  isRefused<VaOutOfRange>([&] { row.rowEqual(other); });
  isRefused<VaOutOfRange>([&] { row.clone(); });
  while (!input.isEmpty()) {
    const auto column = input.take<uint16_t>();
    std::vector<uint32_t> values;
    Vane::IpGenPrefix prefix;
    Vane::IpGenAddr address;
    isRefused<VaOutOfRange>([&] { row.getFixElemArray<uint32_t>(column, values); });
    isRefused<VaOutOfRange>([&] { row.getColumn(column, prefix); });
    isRefused<VaOutOfRange>([&] { row.getColumn(column, address); });
    isRefused<VaOutOfRange>([&] { row.columnHash<Vane::IpGenPrefix>(column); });
    isRefused<VaOutOfRange>([&] { row.columnLess<Vane::IpGenAddr>(column, other, column); });
    isRefused<VaOutOfRange>([&] { row.columnEqual<std::vector<uint32_t>>(column, other, column); });
    BaseRow nested;
    isRefused<VaOutOfRange>([&] { row.getColumnStruct(column, nested); });
    if (!nested.isNull()) {
      nested.toString();
      isRefused<VaOutOfRange>([&] { nested.getFixElemArray<uint32_t>(column, values); });
      isRefused<VaOutOfRange>([&] { nested.setColumn<uint32_t>(column, values, 4); });
    }
    BaseRow written = row;
    values.resize(input.below(64));
    isRefused<VaOutOfRange>([&] { written.setColumn<uint32_t>(column, values, 4); });
  }
}

BaseRow rowOf(const Content& bytes) {
  BaseRow row(4, static_cast<len_t>(bytes.size()));
  std::memcpy(row.buffer()->data(), bytes.data(), bytes.size());
  return row;
}

// A row whose fourth and following bytes hold a nested row of these bytes, if there is room.
BaseRow inside(const Content& bytes) {
  if (bytes.size() > 32767) return rowOf(bytes);
  Content outer(8);
  const auto length = static_cast<uint16_t>(bytes.size());
  outer[4] = 8;
  outer[6] = static_cast<uint8_t>(length);
  outer[7] = static_cast<uint8_t>(length >> 8);
  outer.insert(outer.end(), bytes.begin(), bytes.end());
  BaseRow nested;
  rowOf(outer).getColumnStruct(4, nested);
  return nested;
}

template <class Row>
void look(const BaseRow& generic, const BaseRow& other, Fuzz::Input writes) {
  Row row{BaseRow()};
  Row second{BaseRow()};
  using Vane::VaBadCast;
  if (isRefused<VaOutOfRange, VaBadCast>([&] { row = Row(generic); })) return;
  if (!row.isView()) readColumns(row);
  compare(row, row);
  if (!isRefused<VaOutOfRange, VaBadCast>([&] { second = Row(other); })) compare(row, second);
  if (!row.isView()) clone(row);
  lookThroughTheLayout<Row>(generic);
  write(row, writes);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Fuzz::needRowDatabase();
  if (size < 2 + 5 || size - 2 > Vane::maxRowLength) return 0;
  const uint8_t how = data[0];
  Content bytes(data + 2, data + size);
  Fuzz::withRowType(data[1] % Fuzz::rowTypes, [&]<class Row>() {
    if (how & 1) {
      const uint16_t header[] = {static_cast<uint16_t>(bytes.size()), Row::protRowType()};
      for (size_t i = 0; i < 4; ++i) bytes[i] = static_cast<uint8_t>(header[i / 2] >> i % 2 * 8);
    }
    Content changed = bytes;
    if (how & 2) changed[bytes[4] % changed.size()] ^= bytes.back();
    const BaseRow row = how & 4 ? inside(bytes) : rowOf(bytes);
    const BaseRow other = rowOf(changed);
    const Content before = contentOf(row);
    const size_t operands = std::min<size_t>(size - 2, 24);
    const Fuzz::Input input(data + size - operands, operands);
    look<Row>(row, other, input);
    readGeneric(row, other, input);
    need(contentOf(row) == before, "reading changes nothing");
  });
  return 0;
}
