// The hash that places a key in a table's index. Part of the file's format (hash id 1): the same in
// every process that shares a table, whatever its word size.
//
//   h = 0x9E3779B97F4A7C15 * (size + 1)
//   for each 8-byte little-endian word of the key, the last one filled up with zeros:
//     h = (h ^ word) * 0xD6E8FEB86659FD93;  h = h ^ (h >> 32)
//   h = h * 0xFF51AFD7ED558CCD;  h = h ^ (h >> 29)
//
// In unsigned 64-bit arithmetic. Bits 32-63 choose the place in the index, bits 0 and up are the
// tag.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace Shoal {

namespace detail {

inline uint64_t littleEndian(uint64_t word) {
  if constexpr (std::endian::native == std::endian::big) return __builtin_bswap64(word);
  return word;
}

// `size` bytes, at most 8, as a little-endian word.
inline uint64_t tailWord(const std::byte* bytes, size_t size) {
  uint64_t word = 0;
  for (size_t i = 0; i < size; ++i) word |= uint64_t{std::to_integer<uint8_t>(bytes[i])} << (8 * i);
  return word;
}

constexpr uint64_t hashStep(uint64_t h, uint64_t word) {
  h = (h ^ word) * 0xD6E8FEB86659FD93u;
  return h ^ (h >> 32);
}

}  // namespace detail

inline uint64_t keyHash(const std::byte* key, size_t size) {
  uint64_t h = 0x9E3779B97F4A7C15u * (size + 1);
  for (; size >= 8; key += 8, size -= 8) {
    uint64_t word;
    std::memcpy(&word, key, 8);
    h = detail::hashStep(h, detail::littleEndian(word));
  }
  if (size == 4) {  // the usual tail
    uint32_t word;
    std::memcpy(&word, key, 4);
    if constexpr (std::endian::native == std::endian::big) word = __builtin_bswap32(word);
    h = detail::hashStep(h, word);
  } else if (size != 0) {
    h = detail::hashStep(h, detail::tailWord(key, size));
  }
  h *= 0xFF51AFD7ED558CCDu;
  return h ^ (h >> 29);
}

// Tells a key from another well enough to notice that a hint belongs to another walk. Cheaper than
// the hash, because every step of a walk takes two.
inline uint64_t keyMark(const std::byte* key, size_t size) {
  uint64_t mark = size;
  for (; size > 8; key += 8, size -= 8) {
    uint64_t word;
    std::memcpy(&word, key, 8);
    mark = std::rotl(mark, 27) ^ word;
  }
  if (size != 4) return std::rotl(mark, 27) ^ detail::tailWord(key, size);
  uint32_t word;
  std::memcpy(&word, key, 4);
  return std::rotl(mark, 27) ^ word;
}

}  // namespace Shoal
