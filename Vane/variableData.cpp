#include <algorithm>
#include <bit>
#include <cstring>
#include <sstream>

#include "Vane/baseRow.h"

namespace Vane {
namespace {

// The array body's first two bytes: the count, a bit that every write clears, three that it keeps.
constexpr len_t countMask = 0x0FFF;
static_assert(RowWriter::maxElements == countMask);
constexpr len_t keptMask = 0xE000;
constexpr len_t countLength = 2;
constexpr len_t elementLength = 4;

[[noreturn]] void throwArrayTooLong() {
  Guard::Platform::DebugStream message;
  message << "array "
          << "field length greater than " << VColType::maxBodyLength << " bytes";
  Guard::debugAndThrowAssertException(message, "Vane/baseRow", "updateVCT", __LINE__);
}

[[noreturn]] void throwDesiredSize(uint32_t wanted) {
  std::ostringstream message;
  message << "desired row size " << wanted << " is greater than maxRowLength: " << maxRowLength;
  VaOutOfRange::throwException(message.str());
}

[[noreturn]] void throwBodiesOverlap(len_t baseRowLength) {
  std::ostringstream message;
  message << "variable data of a row with fixed-data length " << baseRowLength
          << ": bodies overlap each other or the fixed area";
  VaOutOfRange::throwException(message.str());
}

void storeElements(uint8_t* to, const std::vector<uint32_t>& values) {
  if constexpr (std::endian::native == std::endian::little) {
    std::memcpy(to, values.data(), values.size() * elementLength);
  } else {
    for (const uint32_t value : values) {
      detail::storeLe(to, value);
      to += elementLength;
    }
  }
}

void loadElements(uint32_t* to, const uint8_t* from, len_t count) {
  if constexpr (std::endian::native == std::endian::little) {
    std::memcpy(to, from, size_t{count} * elementLength);
  } else {
    for (len_t i = 0; i < count; ++i) to[i] = detail::loadLe<uint32_t>(from + i * elementLength);
  }
}

}  // namespace

BaseRow::Elements BaseRow::elements(len_t col) const {
  const Body found = body(col);
  if (found.length == 0) return {};
  const len_t offset = descriptor(col).offset();
  needInside(col, offset, countLength);
  const len_t count = detail::loadLe<len_t>(found.at) & countMask;
  needInside(col, offset, countLength + elementLength * count);
  return {found.at + countLength, count};
}

template <std::same_as<uint32_t> T>
void BaseRow::getFixElemArray(len_t col, std::vector<T>& out) const {
  if (isNull()) return;
  const Elements found = elements(col);
  if (found.count == 0) return;
  out.reserve(found.count);
  const size_t before = out.size();
  out.resize(before + found.count);
  loadElements(out.data() + before, found.at, found.count);
}

template <std::same_as<uint32_t> T>
void BaseRow::updateFixElemArray(len_t col, len_t baseRowLength, const std::vector<T>& values) {
  needBuffer();
  if (values.empty()) {
    descriptor(col).clear();
    return;
  }
  // A body that a 16-bit length cannot even count is refused before anything changes. From 32768
  // bytes on the body is written first, and the row has grown, when updateVCT finds it too long to
  // describe.
  if (values.size() > (maxRowLength - countLength) / elementLength) throwArrayTooLong();
  const auto needed = static_cast<len_t>(countLength + elementLength * values.size());
  writeBody(col, needed, baseRowLength, [&](uint8_t* to) {
    const len_t kept = detail::loadLe<len_t>(to) & keptMask;
    detail::storeLe<len_t>(to, kept | (values.size() & countMask));
    storeElements(to + countLength, values);
  });
}

template void BaseRow::getFixElemArray<uint32_t>(len_t, std::vector<uint32_t>&) const;
template void BaseRow::updateFixElemArray<uint32_t>(len_t, len_t, const std::vector<uint32_t>&);

void RowWriter::set(len_t col, const std::vector<uint32_t>& values) {
  if (values.empty()) return;
  const auto count = static_cast<len_t>(values.size());
  uint8_t* const to = body(col, static_cast<len_t>(countLength + elementLength * count));
  detail::storeLe(to, count);
  storeElements(to + countLength, values);
}

len_t BaseRow::makeFreeSpace(VColType& vct, len_t needed, len_t baseRowLength) {
  Guard::standardAssert(baseRowLength != 0, "baseRowLength != 0");
  needBuffer();
  if (vct.length() != 0 && needed <= vct.length()) {
    if (readOnly_) throwReadOnly();
    return vct.offset();
  }
  if (vct.length() != 0) {
    vct.clear();
    if (isFullyDefined()) rowLengthIs(compactVariableData(baseRowLength));
  }
  const len_t end = rowLength();
  const uint32_t grown = uint32_t{end} + needed;
  if (static_cast<int64_t>(grown) > room()) {
    if (grown > maxRowLength) throwDesiredSize(grown);
    if (readOnly_) throwReadOnly();
    buffer_->resize(rowOffset_ + grown);
  }
  rowLengthIs(static_cast<len_t>(grown));
  return end;
}

void BaseRow::updateVCT(len_t col, len_t offset, len_t length) {
  if (length > VColType::maxBodyLength) throwArrayTooLong();
  if (readOnly_) throwReadOnly();
  needBuffer();
  descriptor(col).set(offset, length);
}

VColType* BaseRow::lowestBody(const vcdType& columns, uint32_t from) {
  VColType* lowest = nullptr;
  for (const len_t col : columns) {
    VColType& vct = descriptor(col);
    if (vct.length() == 0 || vct.offset() < from) continue;
    if (lowest == nullptr || vct.offset() < lowest->offset()) lowest = &vct;
  }
  return lowest;
}

len_t BaseRow::compactVariableData(len_t baseRowLength) {
  needBuffer();
  makePrivate();
  const vcdType& columns = vcd();
  // Walking the bodies from end to start of the next meets every one, unless some overlap.
  const auto bodies = std::count_if(columns.begin(), columns.end(),
                                    [&](len_t col) { return body(col).length != 0; });
  ptrdiff_t apart = 0;
  uint32_t next = baseRowLength;
  while (const VColType* vct = lowestBody(columns, next)) {
    next = vct->offset() + vct->length();
    ++apart;
  }
  if (apart != bodies) throwBodiesOverlap(baseRowLength);

  // A moved body lies below `next`, so the walk does not meet it again.
  len_t end = baseRowLength;
  next = baseRowLength;
  while (VColType* vct = lowestBody(columns, next)) {
    next = vct->offset() + vct->length();
    std::memmove(header() + end, header() + vct->offset(), vct->length());
    vct->offsetIs(end);
    end += vct->length();
  }
  return end;
}

}  // namespace Vane
