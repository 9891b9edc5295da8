// The mixing steps of 32-bit MurmurHash3, and the words that they are fed from address bytes.
// Results are the same on every host: a word of address bytes is read in network order.
#pragma once

#include <bit>
#include <cstdint>

namespace Wire {

// One block step: mixes the word `k` into the state `h`.
constexpr uint32_t murmurBlock(uint32_t h, uint32_t k) {
  k *= 0xCC9E2D51;
  k = std::rotl(k, 15);
  k *= 0x1B873593;
  h ^= k;
  h = std::rotl(h, 13);
  return h * 5 + 0xE6546B64;
}

// The final avalanche: every bit of the state comes to depend on every other.
constexpr uint32_t murmurAvalanche(uint32_t h) {
  h ^= h >> 16;
  h *= 0x85EBCA6B;
  h ^= h >> 13;
  h *= 0xC2B2AE35;
  h ^= h >> 16;
  return h;
}

// Four bytes in network order as a number.
constexpr uint32_t networkWord(const uint8_t* bytes) {
  return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
}

}  // namespace Wire
