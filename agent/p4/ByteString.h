// Values as P4Runtime carries them: unsigned numbers, big-endian, in as few bytes as hold them;
// zero is one zero byte. Received ones may have leading zero bytes; what counts is the number.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "platform/Vane/RowLayout.h"

namespace Agent::P4 {

// Puts the number into `out`, big-endian with leading zeros. Throws an INVALID_ARGUMENT Fault for
// an empty string and for a number of more than `width` bits.
//
// requires: width <= 8 * out.size().
void readBytes(std::string_view bytes, int width, std::span<uint8_t> out);
// requires: width <= 64.
uint64_t readNumber(std::string_view bytes, int width);

std::string byteString(std::span<const uint8_t> bigEndian);
std::string byteString(uint64_t number);
// Into `out`, whose memory is used again.
void byteString(const Wire::IpGenPrefix& prefix, std::string& out);

// The same for the value of a column, which has the type that `value` holds already. An address or
// a prefix is one of `family`, a prefix with its full length; int32_t travels as two's complement.
// Arrays do not travel.
void readColumn(std::string_view bytes, int width, Wire::AddressFamily family,
                Vane::ColumnValue& value);
std::string byteString(const Vane::ColumnValue& value);

// Whether the bits past the prefix length are zero, and the length fits the family.
bool isCanonical(const Wire::IpGenPrefix& prefix);

}  // namespace Agent::P4
