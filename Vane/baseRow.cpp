#include "Vane/baseRow.h"

#include <cstring>
#include <iomanip>
#include <sstream>

namespace Vane {
namespace {

// The assertion "0": the generic row has no answer, a row type must give it.
[[noreturn]] void noAnswer(int line = __builtin_LINE(), const char* who = __builtin_FUNCTION()) {
  Guard::assertionFailed("0", __FILE__, line, who);
}

[[noreturn]] void throwLongerThanBuffer() {
  Guard::Platform::DebugStream message;
  message << "setting fixed data length forBaseRow longer than buffer size";
  Guard::debugAndThrowAssertException(message, "Vane/baseRow", "clear", __LINE__);
}

}  // namespace

constinit thread_local BaseRowCounters BaseRow::baseRowCounters;

void BaseRow::shareContents(const BaseRow& other) { buffer_ = other.buffer_; }

BaseRow BaseRow::clone() const {
  if (isNull()) return BaseRow();
  auto copy = std::make_shared<VaRowBuf>(header(), checkedRowLength());
  ++baseRowCounters.bufferConstructions;
  return BaseRow(std::move(copy));
}

void BaseRow::clear(len_t fdLen) {
  needBuffer();
  Guard::standardAssert(fdLen >= va_contentOffset, "len >= va_contentOffset");
  if (room() < fdLen) throwLongerThanBuffer();
  if (readOnly_) throwReadOnly();
  if (isShared() || isView_) {
    buffer_ = std::make_shared<VaRowBuf>(buffer_->length());
  } else {
    std::memset(header(), 0, fdLen);
  }
  rowLengthIs(fdLen);
}

void BaseRow::clearRow() {
  if (readOnly_) throwReadOnly();
  if (isNull()) return;
  copyOnWrite();
  const len_t length = checkedRowLength();
  std::memset(header() + va_contentOffset, 0, length - va_contentOffset);
}

const vcdType& BaseRow::vcd() const { noAnswer(); }

len_t BaseRow::baseRowLength() { noAnswer(); }

bool BaseRow::isFullyDefined() const { return false; }

std::string BaseRow::toJson() const { return ""; }

// "len: 6, type: 258, content: 0a ff"; a length that the buffer does not hold is told, not
// followed.
std::string BaseRow::toString() const {
  if (isNull()) return "len: 0, NULL";
  std::ostringstream text;
  text << "len: " << rowLength() << ", type: " << rowType() << ", content:";
  const int32_t end = std::min<int32_t>(rowLength(), room());
  text << std::hex << std::setfill('0');
  for (int32_t i = va_contentOffset; i < end; ++i) {
    text << ' ' << std::setw(2) << unsigned{header()[i]};
  }
  return text.str();
}

bool BaseRow::rowEqual(const BaseRow& other) const {
  if (rowLength() != other.rowLength()) return false;
  const len_t length = checkedRowLength();
  other.checkedRowLength();
  return std::memcmp(header(), other.header(), length) == 0;
}

bool BaseRow::rowLess(const BaseRow&) const {
  VaNotSupported::throwException("rowLess not supported on generic base rows");
}

uint32_t BaseRow::rowHash() const {
  VaNotSupported::throwException("rowHash not supported on generic base rows");
}

void BaseRow::copyBytes() {
  const len_t length = checkedRowLength();
  buffer_ = std::make_shared<VaRowBuf>(header(), length);
  rowOffset_ = 0;
  isView_ = false;
}

len_t BaseRow::checkedRowLength() const {
  const len_t length = rowLength();
  if (length >= va_contentOffset && length <= room()) return length;
  std::ostringstream message;
  message << "row length " << length << ": expected at least " << va_contentOffset
          << " and at most the " << room() << " bytes that the buffer has from the row's header";
  VaOutOfRange::throwException(message.str());
}

void BaseRow::throwNullRow() { VaNullRow::throwException("null row"); }

void BaseRow::throwReadOnly() {
  VaPermissionViolation::throwException("Attempting to modify read-only row");
}

void BaseRow::throwHeaderOutsideBuffer() const {
  std::ostringstream message;
  message << "row header at offset " << rowOffset_ << " lies outside the row's buffer of "
          << buffer_->length() << " bytes";
  VaOutOfRange::throwException(message.str());
}

void BaseRow::throwNoFixedArea(len_t fdLen) const {
  std::ostringstream message;
  message << "row of length " << rowLength() << " with " << room()
          << " bytes from its header: expected a fixed area of " << fdLen << " bytes";
  VaOutOfRange::throwException(message.str());
}

void BaseRow::throwOutsideBuffer(len_t col, uint32_t offset, uint32_t length) const {
  std::ostringstream message;
  message << "column " << col << ": " << length << " bytes at offset " << offset
          << " lie outside the row's buffer, which has " << room()
          << " bytes from the row's header";
  VaOutOfRange::throwException(message.str());
}

void BaseRow::throwNoAddressLength(len_t col, len_t length) {
  std::ostringstream message;
  message << "column " << col << ": a body of " << length
          << " bytes is no address or prefix, which take 4, 5, 16 or 17";
  VaOutOfRange::throwException(message.str());
}

}  // namespace Vane
