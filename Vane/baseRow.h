// A packed row: one run of bytes that is the row, in memory and between components.
//
//   0        2        4               fixed length         row length
//   | length | type   | column slots  | variable data      |    little-endian, no alignment
//     u16      u16      scalars, and     array bodies, addresses,
//                       descriptors ---> nested rows
//
// A column is addressed by the offset of its slot from the row's header. A scalar stands in its
// slot. A variable-size column has a four-byte descriptor there, which says where in the variable
// data its body lies. The whole format is told in docs/row-format.md.
//
// A handle is null (no buffer), private, shared (other handles hold the buffer too) or a view (a
// nested row inside its parent's bytes). Copying a handle shares the bytes; the first column write
// to a shared row or a view gives it a private copy, exactly as long as the row.
//
// Invariants of a row that was built by these operations: 4 <= row length <= 65535, and the row
// lies in its buffer. Bytes from elsewhere may break them: every operation that follows a length, a
// descriptor or an array count checks it against the buffer and throws VaOutOfRange rather than
// look outside. Scalar columns are not checked; their offsets are the row type's, whose fixed area
// the row has.
//
// One thread uses a handle at a time; handles that share bytes may live on different threads.
#pragma once

#include <atomic>
#include <concepts>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "Vane/detail/address.h"
#include "Vane/detail/bytes.h"
#include "Vane/detail/scalar.h"
#include "Vane/rowBuffer.h"
#include "platform/Guard/Assert.h"
#include "platform/Vane/VaExceptions.h"
#include "platform/Vane/Values.h"

namespace Vane {

class BaseRow;
class RowWriter;
class SubRow;

// The offsets of a row type's variable-size columns, in column order.
using vcdType = std::vector<len_t>;

// The descriptor of a variable-size column, lying in its slot.
//
//   0        2
//   | offset | length, bit 15: written |
//
// Offset and length are those of the body, in bytes from the row's header; length 0 means absent.
// The written mark is set by every write of a value and stays until the row is cleared.
class VColType {
 public:
  static constexpr len_t maxBodyLength = 32767;

  len_t offset() const { return detail::loadLe<len_t>(bytes_); }
  len_t length() const { return lengthWord() & maxBodyLength; }

  void set(len_t offset, len_t length) {
    detail::storeLe(bytes_, offset);
    detail::storeLe<len_t>(bytes_ + 2, length | writtenBit);
  }
  // The body has moved.
  void offsetIs(len_t offset) { detail::storeLe(bytes_, offset); }
  // Marks the column absent; the written mark stays.
  void clear() {
    detail::storeLe<len_t>(bytes_, 0);
    detail::storeLe<len_t>(bytes_ + 2, lengthWord() & writtenBit);
  }

 private:
  static constexpr len_t writtenBit = 0x8000;
  len_t lengthWord() const { return detail::loadLe<len_t>(bytes_ + 2); }

  uint8_t bytes_[4] = {};
};
static_assert(sizeof(VColType) == 4 && alignof(VColType) == 1,
              "a descriptor lies anywhere in a row");

// What a nested row can be read as: a generic handle or a row type, which knows its own columns.
template <class R>
concept RowHandle = std::derived_from<R, BaseRow>;
template <class R>
concept RowType = RowHandle<R> && !OneOf<R, BaseRow, SubRow>;

// A column that holds an array of fixed-size elements, named by the vector that it is read into.
template <class T>
concept ArrayColumn = std::same_as<T, std::vector<uint32_t>>;

// What an array can be read into: a number of 32 bits, whatever its name.
template <class T>
concept ArrayElement = (std::integral<T> || std::is_enum_v<T>)&&sizeof(T) == sizeof(uint32_t);

// How often this thread did what to row handles.
struct BaseRowCounters {
  uint64_t defaultConstructions = 0;
  uint64_t bufferConstructions = 0;  // of a row with a buffer of its own: by length, or by clone()
  uint64_t copyConstructions = 0;
  uint64_t moveConstructions = 0;
  uint64_t copyAssignments = 0;
  uint64_t moveAssignments = 0;
};

class BaseRow {
 public:
  // The order of the virtual operations is part of the binary interface; a test guards it.

  // Takes a share of the other row's buffer. Offset and flags stay this row's own.
  virtual void shareContents(const BaseRow& other);
  virtual ~BaseRow() = default;
  // The row type's variable-size columns. A generic row has none to tell: assertion "0".
  virtual const vcdType& vcd() const;
  virtual std::string toString() const;
  // "" for a generic row.
  virtual std::string toJson() const;
  // Whether the two rows are the same bytes, header included.
  virtual bool rowEqual(const BaseRow& other) const;
  // A generic row has no order and no hash: VaNotSupported.
  virtual bool rowLess(const BaseRow& other) const;
  virtual uint32_t rowHash() const;
  // The fixed-data length. A generic row has none: assertion "0".
  virtual len_t baseRowLength();
  // Whether the row type knows all of its variable-size columns, so that its variable data may be
  // compacted when a column outgrows its place.
  virtual bool isFullyDefined() const;
  // Empties every column; length and type stay. Does nothing to a null row.
  virtual void clearRow();

  // A null row.
  BaseRow() { ++baseRowCounters.defaultConstructions; }
  // A zero row of `len` bytes, in a buffer of as many or of `bufLen` bytes. `bufLen` may be less
  // than `len`, but the header must fit.
  explicit BaseRow(len_t len) : BaseRow(len, len) {}
  BaseRow(len_t len, len_t bufLen) : buffer_(std::make_shared<VaRowBuf>(bufLen)) {
    Guard::standardAssert(len >= va_contentOffset, "len >= va_contentOffset");
    rowLengthIs(len);
    ++baseRowCounters.bufferConstructions;
  }
  BaseRow(const BaseRow& other)
      : buffer_(other.buffer_),
        rowOffset_(other.rowOffset_),
        isView_(other.isView_),
        readOnly_(other.readOnly_) {
    ++baseRowCounters.copyConstructions;
  }
  // The source is left without a buffer.
  BaseRow(BaseRow&& other) noexcept
      : buffer_(std::move(other.buffer_)),
        rowOffset_(other.rowOffset_),
        isView_(other.isView_),
        readOnly_(other.readOnly_) {
    ++baseRowCounters.moveConstructions;
  }
  BaseRow& operator=(const BaseRow& other) {
    if (this == &other) return *this;
    buffer_ = other.buffer_;
    placeIsThatOf(other);
    ++baseRowCounters.copyAssignments;
    return *this;
  }
  BaseRow& operator=(BaseRow&& other) noexcept {
    if (this == &other) return *this;
    buffer_ = std::move(other.buffer_);
    placeIsThatOf(other);
    ++baseRowCounters.moveAssignments;
    return *this;
  }

  // A row with a private copy of exactly this row's bytes; null for a null row.
  BaseRow clone() const;
  // Makes this a zero row of `fdLen` bytes, type 0, in a buffer of the old one's capacity. Offset
  // and view flag stay as they were.
  void clear(len_t fdLen);

  len_t rowLength() const { return headerField(lengthField); }
  len_t rowType() const { return headerField(typeField); }
  // Written in place: every handle that shares the buffer sees the new value. For rows that were
  // just built or made private.
  void rowLengthIs(len_t length) { headerFieldIs(lengthField, length); }
  void rowTypeIs(len_t type) { headerFieldIs(typeField, type); }

  bool isNull() const { return buffer_ == nullptr; }
  // Whether the row can be read and written as one of this fixed-data length: so many bytes are
  // there, and its own length says so. Whoever takes a generic row for one of a type asks first;
  // scalar columns are not checked one by one. Throws "null row" for a null row.
  bool hasFixedArea(len_t fdLen) const { return rowLength() >= fdLen && room() >= fdLen; }
  // Throws VaOutOfRange unless hasFixedArea().
  void needFixedArea(len_t fdLen) const {
    if (!hasFixedArea(fdLen)) [[unlikely]]
      throwNoFixedArea(fdLen);
  }
  const std::shared_ptr<VaRowBuf>& buffer() const { return buffer_; }
  // Where the row's header lies in the buffer; not 0 only for a nested row.
  len_t rowOffset() const { return rowOffset_; }
  bool isView() const { return isView_; }
  bool isReadOnly() const { return readOnly_; }
  void readOnlyIs(bool readOnly) { readOnly_ = readOnly; }

  // Scalar columns. `fdLen` is the row type's fixed-data length, which must not be 0.
  template <ScalarColumn T>
  void setColumn(len_t col, const T& value, len_t fdLen);
  // Throws "null row" for a null row.
  template <ScalarColumn T>
  T getScalar(len_t col) const;
  // The null address for a null row.
  template <std::same_as<EthAddr> T>
  void getColumn(len_t col, T& out) const;
  template <ScalarColumn T>
  uint32_t columnHash(len_t col) const;
  template <ScalarColumn T>
  bool columnEqual(len_t col, const BaseRow& other, len_t otherCol) const;
  // "Less", for every kind of column: this row's column comes before the other row's.
  template <ScalarColumn T>
  bool columnLess(len_t col, const BaseRow& other, len_t otherCol) const;

  // Address and prefix columns. An unset value is a value: it comes before every other. Reading it
  // from a null row is no error; hashing and comparing are.
  template <AddressColumn T>
  void setColumn(len_t col, const T& value, len_t fdLen);
  template <AddressColumn T>
  void getColumn(len_t col, T& out) const;
  // Throws "null row" for a null row.
  template <AddressColumn T>
  T getAddress(len_t col) const {
    return addressBody<T>(col).value();
  }
  template <AddressColumn T>
  uint32_t columnHash(len_t col) const;
  template <AddressColumn T>
  bool columnEqual(len_t col, const BaseRow& other, len_t otherCol) const;
  template <AddressColumn T>
  bool columnLess(len_t col, const BaseRow& other, len_t otherCol) const;

  // Columns that hold a nested row. An absent one is equal to nothing, not even to another absent
  // one, and comes before every present one. A null row's nested rows are absent.
  //
  // Makes `out` a view of the nested row, or null if that is absent. `out` keeps its own type: the
  // nested row's type is not looked at.
  template <RowHandle R>
  void getColumnStruct(len_t col, R& out) const;
  template <RowType R>
  uint32_t columnHash(len_t col) const;
  template <RowType R>
  bool columnEqual(len_t col, const BaseRow& other, len_t otherCol) const;
  template <RowType R>
  bool columnLess(len_t col, const BaseRow& other, len_t otherCol) const;

  // Array columns: at most 4095 elements; the count keeps 12 bits.
  template <std::same_as<uint32_t> T>
  void setColumn(len_t col, const std::vector<T>& values, len_t fdLen);
  // Appends the elements to `out`; none for a null row.
  template <std::same_as<uint32_t> T>
  void getFixElemArray(len_t col, std::vector<T>& out) const;
  // Reads the elements into `out`, as many as it has room for, and returns how many there are.
  template <ArrayElement T>
  size_t readFixElemArray(len_t col, std::span<T> out) const;
  // The body of setColumn, for a row that is already private.
  template <std::same_as<uint32_t> T>
  void updateFixElemArray(len_t col, len_t baseRowLength, const std::vector<T>& values);
  // Compared element by element, the shorter of two arrays with a common start first; an absent
  // array is an empty one.
  template <ArrayColumn T>
  uint32_t columnHash(len_t col) const;
  template <ArrayColumn T>
  bool columnEqual(len_t col, const BaseRow& other, len_t otherCol) const;
  template <ArrayColumn T>
  bool columnLess(len_t col, const BaseRow& other, len_t otherCol) const;

  // Variable data of a private row, whatever the kind of column.
  //
  // Finds a place for a body of `needed` bytes: the column's old place if it fits there, else the
  // end of the row, which grows by as much. `vct` is the column's descriptor in this row; it does
  // not outlive the call if the buffer grows. Returns the place's offset.
  len_t makeFreeSpace(VColType& vct, len_t needed, len_t baseRowLength);
  // Records in the column's descriptor where its body now lies.
  void updateVCT(len_t col, len_t offset, len_t length);
  // Moves the bodies of the row type's columns, in the order in which they lie, to follow the fixed
  // area without gaps, in a buffer of the row's own. Returns the row length that results; recording
  // it is the caller's part.
  len_t compactVariableData(len_t baseRowLength);

  // Reached without a call, also from a library that is loaded later: it is small enough for the
  // room that the loader keeps for such.
  [[gnu::tls_model("initial-exec")]] static constinit thread_local BaseRowCounters baseRowCounters;

 private:
  friend class RowWriter;
  friend class SubRow;

  static constexpr len_t lengthField = 0;
  static constexpr len_t typeField = 2;

  struct Body {
    const uint8_t* at = nullptr;
    len_t length = 0;  // 0: absent
  };
  struct Elements {
    const uint8_t* at = nullptr;
    len_t count = 0;
    uint32_t operator[](len_t i) const { return detail::loadLe<uint32_t>(at + 4 * i); }
  };

  // A row that holds `buffer` alone; counted by the caller.
  explicit BaseRow(std::shared_ptr<VaRowBuf> buffer) : buffer_(std::move(buffer)) {}

  void placeIsThatOf(const BaseRow& other) {
    rowOffset_ = other.rowOffset_;
    isView_ = other.isView_;
    readOnly_ = other.readOnly_;
  }
  void needBuffer() const {
    if (!buffer_) [[unlikely]]
      throwNullRow();
  }
  // Requires: the row has a buffer.
  const uint8_t* header() const { return buffer_->data() + rowOffset_; }
  uint8_t* header() { return buffer_->data() + rowOffset_; }
  // Bytes from the row's header to the end of the buffer; negative for a row that took on the
  // contents of a buffer too short for its offset.
  int32_t room() const { return int32_t{buffer_->length()} - int32_t{rowOffset_}; }

  len_t headerField(len_t at) const {
    needBuffer();
    if (room() < va_contentOffset) [[unlikely]]
      throwHeaderOutsideBuffer();
    return detail::loadLe<len_t>(header() + at);
  }
  void headerFieldIs(len_t at, len_t value) {
    if (readOnly_) [[unlikely]]
      throwReadOnly();
    needBuffer();
    if (room() < va_contentOffset) [[unlikely]]
      throwHeaderOutsideBuffer();
    detail::storeLe(header() + at, value);
  }
  // The row length, when that many bytes are there and begin with a whole header.
  len_t checkedRowLength() const;

  bool isShared() const {
    if (buffer_.use_count() != 1) return true;
      // use_count() is a relaxed load. A handle that another thread has just dropped may have been
      // read through until then: those reads come before our writes in place.
#ifndef __SANITIZE_THREAD__  // which does not know fences
    std::atomic_thread_fence(std::memory_order_acquire);
#endif
    return false;
  }
  void makePrivate() {
    if (isShared() || isView_) [[unlikely]]
      copyBytes();
  }
  void copyBytes();
  // The first step of every column write. The copy follows the row's own length, so a row that says
  // less than its type's fixed area has no room for a column afterwards.
  void copyOnWrite() {
    makePrivate();
    if (readOnly_) [[unlikely]]
      throwReadOnly();
    needBuffer();
  }

  void needInside(len_t col, uint32_t offset, uint32_t length) const {
    if (static_cast<int64_t>(offset) + length > room()) [[unlikely]] {
      throwOutsideBuffer(col, offset, length);
    }
  }
  // Requires: the row has a buffer.
  const VColType& descriptor(len_t col) const {
    needInside(col, col, sizeof(VColType));
    return *reinterpret_cast<const VColType*>(header() + col);
  }
  VColType& descriptor(len_t col) {
    return const_cast<VColType&>(std::as_const(*this).descriptor(col));
  }
  Body body(len_t col) const {
    const VColType& vct = descriptor(col);
    if (vct.length() == 0) return {};
    needInside(col, vct.offset(), vct.length());
    return {header() + vct.offset(), vct.length()};
  }
  Elements elements(len_t col) const;
  // Places a body of `length` bytes, has `fill` write it, and records it.
  template <class Fill>
  void writeBody(len_t col, len_t length, len_t baseRowLength, Fill fill);
  // Where the lowest body at or above `from` is described; null if there is none.
  VColType* lowestBody(const vcdType& columns, uint32_t from);

  template <AddressColumn T>
  detail::AddressBody<T> addressBody(len_t col) const;

  // The nested row in column `col`, if there is one; its header is in the buffer.
  std::optional<SubRow> nestedRow(len_t col) const;

  [[noreturn]] static void throwNullRow();
  [[noreturn]] static void throwReadOnly();
  [[noreturn]] void throwHeaderOutsideBuffer() const;
  [[noreturn]] void throwNoFixedArea(len_t fdLen) const;
  [[noreturn]] void throwOutsideBuffer(len_t col, uint32_t offset, uint32_t length) const;
  [[noreturn]] static void throwNoAddressLength(len_t col, len_t length);

  std::shared_ptr<VaRowBuf> buffer_;
  len_t rowOffset_ = 0;
  bool isView_ = false;
  bool readOnly_ = false;
};

// The handle of a nested row: a view of bytes inside its parent's buffer.
class SubRow final : public BaseRow {
 public:
  SubRow() = default;
  SubRow(const SubRow&) = default;
  SubRow(SubRow&&) noexcept = default;
  SubRow& operator=(const SubRow&) = default;
  SubRow& operator=(SubRow&&) noexcept = default;
  ~SubRow() override = default;

 private:
  friend class BaseRow;
  // The row whose header lies `offset` bytes after the parent's; its place has been checked.
  SubRow(const BaseRow& parent, len_t offset) : BaseRow(parent) {
    rowOffset_ = static_cast<len_t>(rowOffset_ + offset);
    isView_ = true;
  }
};

// Writes the columns of a row that was just made, each of them once: as setColumn does, but nothing
// that setColumn looks at can come up. The row has its buffer alone, with room for all the bodies.
class RowWriter {
 public:
  // requires: a row of `fdLen` bytes whose columns have not been written.
  RowWriter(BaseRow& row, len_t fdLen) : header_(row.header()), end_(fdLen) {}
  // The row ends where its bodies do.
  ~RowWriter() { detail::storeLe(header_ + BaseRow::lengthField, end_); }
  RowWriter(const RowWriter&) = delete;
  RowWriter& operator=(const RowWriter&) = delete;

  void typeIs(len_t type) { detail::storeLe(header_ + BaseRow::typeField, type); }
  template <ScalarColumn T>
  void set(len_t col, const T& value) {
    detail::Scalar<T>::store(header_ + col, value);
  }
  template <AddressColumn T>
  void set(len_t col, const T& value) {
    if (const len_t length = bodyLength(value); length != 0) {
      detail::AddressBody<T>::store(body(col, length), value);
    }
  }
  // requires: at most maxElements values.
  void set(len_t col, const std::vector<uint32_t>& values);
  static constexpr size_t maxElements = 4095;

 private:
  uint8_t* body(len_t col, len_t length) {
    reinterpret_cast<VColType*>(header_ + col)->set(end_, length);
    return header_ + std::exchange(end_, static_cast<len_t>(end_ + length));
  }

  uint8_t* header_;
  len_t end_;
};

}  // namespace Vane

#include "Vane/detail/columns.h"
