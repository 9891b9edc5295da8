// The address values that a row column can hold. They are the tables' own values: an entry field
// and its row column have one type, and a conversion between them is a copy.
//
// How such a column is laid out in a row is told in docs/row-format.md.
#pragma once

#include "platform/Wire/Address.h"
#include "platform/Wire/Hash.h"

namespace Vane {

using IpGenAddr = Wire::IpGenAddr;
using IpGenPrefix = Wire::IpGenPrefix;
using EthAddr = Wire::EthAddr;

// Puts the null value of its type into `value`.
template <class T>
void setToNull(T& value) {
  value = T{};
}

// Formats a value for the JSON and text forms of a row: `out << FMT<bool>(true)` writes "true".
template <class T>
struct FMT {
  explicit FMT(const T& v) : value(v) {}
  T value;
};

template <class Stream>
Stream& operator<<(Stream& out, const FMT<bool>& b) {
  out << (b.value ? "true" : "false");
  return out;
}

}  // namespace Vane
