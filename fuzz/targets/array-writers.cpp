// Writers of variable-size columns against a model of plain vectors: after every step the row says
// what the model says, whoever shared its bytes sees what it saw, and what is refused is refused as
// docs/row-format.md tells.
//
//   | kind of row | operation | operands ... | operation | ...
#include <algorithm>
#include <array>
#include <cstring>
#include <numeric>
#include <optional>
#include <vector>

#include "Vane/baseRow.h"
#include "fuzz/Fuzz.h"

namespace {

using Fuzz::isRefused;
using Fuzz::need;
using Vane::BaseRow;
using Vane::len_t;
using Vane::VaOutOfRange;
using Vane::VaPermissionViolation;
using Array = std::vector<uint32_t>;
using Content = std::vector<uint8_t>;

constexpr len_t numberCol = 4;
constexpr std::array<len_t, 3> arrayCols{8, 12, 16};
constexpr len_t prefixCol = 20;
constexpr len_t addrCol = 24;
constexpr len_t linkCol = 28;
constexpr len_t fixedLength = 32;
constexpr len_t linkLength = 12;  // header, number, array

// A row type with every kind of variable-size column; its variable data is compacted.
class FullRow final : public BaseRow {
 public:
  explicit FullRow(len_t capacity) : BaseRow(fixedLength, capacity) {}
  explicit FullRow(const BaseRow& row) : BaseRow(row) {}
  const Vane::vcdType& vcd() const override {
    static const Vane::vcdType columns{8, 12, 16, prefixCol, addrCol, linkCol};
    return columns;
  }
  len_t baseRowLength() override { return fixedLength; }
  bool isFullyDefined() const override { return true; }
};

// The same without knowledge of its columns: dead bodies stay.
class GenericRow final : public BaseRow {
 public:
  explicit GenericRow(len_t capacity) : BaseRow(fixedLength, capacity) {}
  explicit GenericRow(const BaseRow& row) : BaseRow(row) {}
};

struct Model {
  uint32_t number = 0;
  std::array<Array, 3> arrays;
  Vane::IpGenPrefix prefix;
  Vane::IpGenAddr address;
  std::optional<Array> link;  // of the nested row: its number, and its array
};

Content contentOf(const BaseRow& row) {
  const uint8_t* const at = row.buffer()->data() + row.rowOffset();
  return {at, at + row.rowLength()};
}

Array arrayOf(const BaseRow& row, len_t col) {
  Array values;
  row.getFixElemArray<uint32_t>(col, values);
  return values;
}

template <class Row>
class History {
 public:
  explicit History(Fuzz::Input input) : input_(input), row_(capacity()) {}

  void run() {
    while (!input_.isEmpty()) {
      step();
      check();
    }
  }

 private:
  len_t capacity() {
    constexpr std::array<len_t, 4> capacities{fixedLength, fixedLength + 8, 400, 65535};
    return capacities[input_.below(4)];
  }

  // Small arrays mostly; and lengths at the bounds of the format.
  size_t arrayLength() {
    constexpr std::array<size_t, 8> bounds{0, 1, 4095, 4096, 8191, 8192, 16383, 16384};
    const uint32_t pick = input_.below(64);
    if (pick < bounds.size()) return bounds[pick];
    return pick < 56 ? pick - 8 : input_.take<uint16_t>() % 4096;
  }
  Array array() {
    Array values(arrayLength());
    std::iota(values.begin(), values.end(), input_.take<uint32_t>());
    return values;
  }
  Vane::IpGenAddr address() {
    switch (input_.below(3)) {
      case 0:
        return {};
      case 1:
        return Vane::IpGenAddr::ipv4(input_.take<uint32_t>());
      default:
        Wire::Ip6Addr bytes;
        std::ranges::copy(input_.bytes(16), bytes.bytes.begin());
        return Vane::IpGenAddr::ipv6(bytes);
    }
  }
  Vane::IpGenPrefix prefix() {
    const Vane::IpGenAddr from = address();
    const auto length = input_.take<uint8_t>();
    if (from.family == Wire::AddressFamily::unset) return {};
    if (from.family == Wire::AddressFamily::ipv4) {
      return Vane::IpGenPrefix::ipv4(from.ip4HostOrder(), length % 33);
    }
    return Vane::IpGenPrefix::ipv6(from.ip6(), length % 129);
  }

  // A column write that may find no room: then the column, whose old place was given up, is absent,
  // and nothing else has changed.
  template <class Write>
  bool isPlaced(const Write& write, auto& column) {
    const len_t before = row_.rowLength();
    if (!isRefused<VaOutOfRange>(write)) return true;
    need(row_.rowLength() <= before, "a row that found no room has not grown");
    column = {};
    return false;
  }

  void setArray(size_t which) {
    const Array values = array();
    const len_t col = arrayCols[which];
    const Content before = contentOf(row_);
    Array& known = model_.arrays[which];
    // What a descriptor cannot describe is found out after it has been written.
    const bool isDescribable = 2 + 4 * values.size() <= 32767;
    const bool isCountable = 2 + 4 * values.size() <= 65535;
    if (!isDescribable) {
      need(isRefused<Guard::AssertException, VaOutOfRange>(
               [&] { row_.template setColumn<uint32_t>(col, values, fixedLength); }),
           "an array too long to describe is refused");
      if (!isCountable) {
        need(contentOf(row_) == before, "an array too long to count changes nothing");
      } else {
        known.clear();
        need(arrayOf(row_, col).empty(), "an array too long to describe leaves the column absent");
      }
      return;
    }
    if (isPlaced([&] { row_.template setColumn<uint32_t>(col, values, fixedLength); }, known)) {
      known = values;
      known.resize(values.size() & 0x0FFF);  // the count has 12 bits
    }
  }

  void setLink() {
    BaseRow nested(linkLength);
    const auto number = input_.take<uint16_t>();
    nested.setColumn<uint32_t>(4, number, linkLength);
    Array values(input_.below(40), number);
    nested.setColumn<uint32_t>(8, values, linkLength);
    values.insert(values.begin(), number);
    const auto write = [&] {
      const len_t length = nested.rowLength();
      makePrivate();
      auto& vct = *reinterpret_cast<Vane::VColType*>(row_.buffer()->data() + linkCol);
      const len_t at = row_.makeFreeSpace(vct, length, fixedLength);
      std::memcpy(row_.buffer()->data() + at, nested.buffer()->data(), length);
      row_.updateVCT(linkCol, at, length);
    };
    if (isPlaced(write, model_.link)) model_.link = values;
  }

  void makePrivate() { row_.template setColumn<uint32_t>(numberCol, model_.number, fixedLength); }

  void setNumber() {
    model_.number = input_.take<uint32_t>();
    makePrivate();
  }

  void setPrefix() {
    const Vane::IpGenPrefix value = prefix();
    const auto write = [&] { row_.setColumn(prefixCol, value, fixedLength); };
    if (isPlaced(write, model_.prefix)) model_.prefix = value;
  }

  void setAddress() {
    const Vane::IpGenAddr value = address();
    const auto write = [&] { row_.setColumn(addrCol, value, fixedLength); };
    if (isPlaced(write, model_.address)) model_.address = value;
  }

  // A read-only handle shares the bytes, and writes none. Emptying a column is let through, into a
  // copy of its own.
  void writeReadOnly() {
    Row locked = row_;
    locked.readOnlyIs(true);
    const Array values(1 + input_.below(40), 7);
    const auto array = [&] {
      locked.template setColumn<uint32_t>(arrayCols[0], values, fixedLength);
    };
    const auto number = [&] { locked.template setColumn<uint32_t>(numberCol, 9, fixedLength); };
    need(isRefused<VaPermissionViolation, VaOutOfRange>(array), "a read-only array is not written");
    need(isRefused<VaPermissionViolation>(number), "a read-only number is not written");
    need(isRefused<VaPermissionViolation>([&] { locked.clear(fixedLength); }), "nor cleared");
  }

  // A copy goes on; the bytes that it shared with this one stay as they were.
  void share() {
    witness_ = row_;
    witnessed_ = contentOf(row_);
  }

  void goOnWithClone() {
    const Content before = contentOf(row_);
    row_ = Row(row_.clone());
    need(contentOf(row_) == before, "a copy has the same bytes");
    need(row_.buffer()->length() == row_.rowLength(), "a copy has no spare bytes");
  }

  // A write through a nested row's handle takes a copy of its own.
  void writeThroughView() {
    BaseRow view;
    row_.getColumnStruct(linkCol, view);
    need(view.isNull() == !model_.link.has_value(), "a nested row is there or not");
    if (view.isNull()) return;
    const Array values(input_.below(20), 0xABCD);
    view.setColumn<uint32_t>(8, values, linkLength);
    need(arrayOf(view, 8) == values, "a view is written");
  }

  void clearAll() {
    row_.clear(fixedLength);
    model_ = Model();
  }

  void compact() {
    if (!row_.isFullyDefined()) return;
    makePrivate();
    const len_t length = row_.compactVariableData(fixedLength);
    need(length <= row_.rowLength(), "a compact row is no longer");
    row_.rowLengthIs(length);
  }

  // Written in place: those that share the bytes see it.
  void setType() {
    row_.rowTypeIs(input_.take<uint16_t>());
    if (witness_.isNull() || witness_.buffer() != row_.buffer()) return;
    need(witness_.rowType() == row_.rowType(), "who shares the bytes sees the type");
    witnessed_ = contentOf(witness_);
  }

  void step() {
    switch (input_.below(16)) {
      case 0:
        return setPrefix();
      case 1:
        return setAddress();
      case 2:
        return setLink();
      case 3:
        return setNumber();
      case 4:
        return setType();
      case 5:
        return share();
      case 6:
        return goOnWithClone();
      case 7:
        return writeThroughView();
      case 8:
        return writeReadOnly();
      case 9:
        return compact();
      case 10:
        return clearAll();
      default:
        return setArray(input_.below(3));
    }
  }

  void check() const {
    need(row_.rowLength() >= fixedLength && row_.rowLength() <= row_.buffer()->length(),
         "the row lies in its buffer");
    need(row_.template getScalar<uint32_t>(numberCol) == model_.number,
         "the number is the model's");
    for (size_t i = 0; i < arrayCols.size(); ++i) {
      need(arrayOf(row_, arrayCols[i]) == model_.arrays[i], "an array is the model's");
    }
    Vane::IpGenPrefix prefix;
    row_.getColumn(prefixCol, prefix);
    need(prefix == model_.prefix, "the prefix is the model's");
    Vane::IpGenAddr address;
    row_.getColumn(addrCol, address);
    need(address == model_.address, "the address is the model's");
    BaseRow link;
    row_.getColumnStruct(linkCol, link);
    need(link.isNull() == !model_.link.has_value(), "the nested row is there or not");
    if (!link.isNull()) {
      Array values = arrayOf(link, 8);
      values.insert(values.begin(), link.getScalar<uint32_t>(4));
      need(values == *model_.link, "the nested row is the model's");
    }
    if (!witness_.isNull()) {
      need(contentOf(witness_) == witnessed_, "who shared the bytes sees what it saw");
    }
  }

  Fuzz::Input input_;
  Row row_;
  Model model_;
  BaseRow witness_;
  Content witnessed_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Fuzz::Input input(data, size);
  if (input.take<uint8_t>() % 2 == 0) {
    History<FullRow>(input).run();
  } else {
    History<GenericRow>(input).run();
  }
  return 0;
}
