// The bodies of BaseRow's column operations. Part of Vane/baseRow.h, which alone is to be included.
#pragma once

#include <algorithm>
#include <cstring>

#include "Vane/baseRow.h"

namespace Vane {

// Scalars.

template <ScalarColumn T>
void BaseRow::setColumn(len_t col, const T& value, len_t fdLen) {
  Guard::standardAssert(fdLen != 0, "fdLen != 0");
  const bool copied = isShared() || isView_;
  copyOnWrite();
  if (copied) needInside(col, col, sizeof(typename detail::Scalar<T>::Raw));
  detail::Scalar<T>::store(header() + col, value);
}

template <ScalarColumn T>
T BaseRow::getScalar(len_t col) const {
  needBuffer();
  return detail::Scalar<T>::value(detail::Scalar<T>::load(header() + col));
}

template <std::same_as<EthAddr> T>
void BaseRow::getColumn(len_t col, T& out) const {
  if (isNull()) {
    setToNull(out);
  } else {
    out = getScalar<T>(col);
  }
}

template <ScalarColumn T>
uint32_t BaseRow::columnHash(len_t col) const {
  needBuffer();
  return detail::Scalar<T>::hash(detail::Scalar<T>::load(header() + col));
}

template <ScalarColumn T>
bool BaseRow::columnEqual(len_t col, const BaseRow& other, len_t otherCol) const {
  needBuffer();
  other.needBuffer();
  using Column = detail::Scalar<T>;
  return Column::load(header() + col) == Column::load(other.header() + otherCol);
}

template <ScalarColumn T>
bool BaseRow::columnLess(len_t col, const BaseRow& other, len_t otherCol) const {
  needBuffer();
  other.needBuffer();
  using Column = detail::Scalar<T>;
  return Column::load(header() + col) < Column::load(other.header() + otherCol);
}

// Addresses and prefixes.

template <AddressColumn T>
inline detail::AddressBody<T> BaseRow::addressBody(len_t col) const {
  needBuffer();
  const Body found = body(col);
  if (!detail::AddressBody<T>::isLength(found.length)) [[unlikely]] {
    throwNoAddressLength(col, found.length);
  }
  return {found.at, found.length};
}

template <AddressColumn T>
void BaseRow::setColumn(len_t col, const T& value, len_t fdLen) {
  Guard::standardAssert(fdLen != 0, "fdLen != 0");
  copyOnWrite();
  const len_t length = bodyLength(value);
  if (length == 0) {
    descriptor(col).clear();
    return;
  }
  writeBody(col, length, fdLen, [&](uint8_t* to) { detail::AddressBody<T>::store(to, value); });
}

template <AddressColumn T>
void BaseRow::getColumn(len_t col, T& out) const {
  if (isNull()) {
    setToNull(out);
  } else {
    out = addressBody<T>(col).value();
  }
}

template <AddressColumn T>
uint32_t BaseRow::columnHash(len_t col) const {
  return addressBody<T>(col).hash();
}

template <AddressColumn T>
bool BaseRow::columnEqual(len_t col, const BaseRow& other, len_t otherCol) const {
  const auto mine = addressBody<T>(col);
  return mine == other.addressBody<T>(otherCol);
}

template <AddressColumn T>
bool BaseRow::columnLess(len_t col, const BaseRow& other, len_t otherCol) const {
  const auto mine = addressBody<T>(col);
  return mine < other.addressBody<T>(otherCol);
}

template <class Fill>
void BaseRow::writeBody(len_t col, len_t length, len_t baseRowLength, Fill fill) {
  const len_t offset = makeFreeSpace(descriptor(col), length, baseRowLength);
  needInside(col, offset, length);
  fill(header() + offset);
  updateVCT(col, offset, length);
}

// Nested rows.

// Making the view counts as one copy, handing it over as one move: it is returned through a named
// optional for that.
inline std::optional<SubRow> BaseRow::nestedRow(len_t col) const {
  if (isNull()) return std::nullopt;
  const VColType& vct = descriptor(col);
  if (vct.length() == 0) return std::nullopt;
  needInside(col, vct.offset(), std::max(vct.length(), va_contentOffset));
  SubRow view(*this, vct.offset());
  return view;
}

template <RowHandle R>
void BaseRow::getColumnStruct(len_t col, R& out) const {
  if (auto view = nestedRow(col)) {
    if constexpr (RowType<R>) view->needFixedArea(out.baseRowLength());
    static_cast<BaseRow&>(out) = std::move(*view);
  } else {
    static_cast<BaseRow&>(out) = BaseRow();
  }
}

template <RowType R>
uint32_t BaseRow::columnHash(len_t col) const {
  R nested{BaseRow()};
  getColumnStruct(col, nested);
  return nested.rowHash();
}

template <RowType R>
bool BaseRow::columnEqual(len_t col, const BaseRow& other, len_t otherCol) const {
  BaseRow mine;
  BaseRow others;
  getColumnStruct(col, mine);
  other.getColumnStruct(otherCol, others);
  if (mine.isNull() || others.isNull()) return false;
  R typed{BaseRow()};
  // A row too short for R's fixed area is of another type: equal to no R, and not to be read as
  // one.
  const len_t fixed = typed.baseRowLength();
  if (!mine.hasFixedArea(fixed) || !others.hasFixedArea(fixed)) return false;
  static_cast<BaseRow&>(typed) = std::move(mine);
  return typed.rowEqual(others);
}

template <RowType R>
bool BaseRow::columnLess(len_t col, const BaseRow& other, len_t otherCol) const {
  R mine{BaseRow()};
  BaseRow others;
  getColumnStruct(col, mine);
  other.getColumnStruct(otherCol, others);
  if (mine.isNull() || others.isNull()) return mine.isNull() && !others.isNull();
  others.needFixedArea(mine.baseRowLength());
  return mine.rowLess(others);
}

// Arrays.

template <std::same_as<uint32_t> T>
void BaseRow::setColumn(len_t col, const std::vector<T>& values, len_t fdLen) {
  Guard::standardAssert(fdLen != 0, "fdLen != 0");
  makePrivate();
  updateFixElemArray(col, fdLen, values);
}

template <ArrayColumn T>
uint32_t BaseRow::columnHash(len_t col) const {
  needBuffer();
  const Elements mine = elements(col);
  uint32_t h = Wire::murmurBlock(0, mine.count);
  for (len_t i = 0; i < mine.count; ++i) h = Wire::murmurBlock(h, mine[i]);
  return Wire::murmurAvalanche(h);
}

template <ArrayColumn T>
bool BaseRow::columnEqual(len_t col, const BaseRow& other, len_t otherCol) const {
  needBuffer();
  other.needBuffer();
  const Elements mine = elements(col);
  const Elements others = other.elements(otherCol);
  return mine.count == others.count &&
         (mine.count == 0 || std::memcmp(mine.at, others.at, 4 * mine.count) == 0);
}

template <ArrayColumn T>
bool BaseRow::columnLess(len_t col, const BaseRow& other, len_t otherCol) const {
  needBuffer();
  other.needBuffer();
  const Elements mine = elements(col);
  const Elements others = other.elements(otherCol);
  const len_t common = std::min(mine.count, others.count);
  for (len_t i = 0; i < common; ++i) {
    if (mine[i] != others[i]) return mine[i] < others[i];
  }
  return mine.count < others.count;
}

extern template void BaseRow::getFixElemArray<uint32_t>(len_t, std::vector<uint32_t>&) const;
extern template void BaseRow::updateFixElemArray<uint32_t>(len_t, len_t,
                                                           const std::vector<uint32_t>&);

}  // namespace Vane
