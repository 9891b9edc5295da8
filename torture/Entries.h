// Entries that can be told from torn ones, and keys that collide.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <vector>

#include "platform/Shoal/KeyHash.h"
#include "platform/Shoal/ShoalMap.h"
#include "platform/Shoal/TableStore.h"

namespace Torture {

// An entry of `size` bytes with a key of `keyBytes` bytes at `keyAt`. All bytes but the key follow
// from the key's number and a version, so that a mixture of two entries shows.
template <size_t size, size_t keyAt, size_t keyBytes>
struct Checked {
  static constexpr size_t entrySize = size;
  using Key = std::array<uint8_t, keyBytes>;
  using Map = Shoal::ShoalMap<Key, Checked>;

  std::array<uint8_t, keyAt> before;
  Key id;
  std::array<uint8_t, size - keyAt - keyBytes> after;

  static constexpr auto key = &Checked::id;

  static Shoal::EntryLayout layout() {
    return {std::string("Test::Checked").append(std::to_string(size)), size, keyAt, keyBytes};
  }
  static Key keyOf(uint32_t number) {
    Key result{};
    for (size_t i = 0; i < keyBytes && i < 4; ++i)
      result[i] = static_cast<uint8_t>(number >> 8 * i);
    return result;
  }
  static Checked make(const Key& key, uint32_t version) {
    Checked entry;
    entry.id = key;
    uint32_t state = version;
    for (const uint8_t byte : key) state = state * 31 + byte;
    entry.each([&](uint8_t& byte, size_t at) {
      if (at % 16 < 4) {
        byte = static_cast<uint8_t>(version >> 8 * (at % 4));
      } else {
        byte = static_cast<uint8_t>((state = state * 1664525 + 1013904223) >> 24);
      }
    });
    return entry;
  }
  static Checked make(uint32_t number, uint32_t version) { return make(keyOf(number), version); }

  uint32_t version() const {
    uint32_t result = 0;
    const_cast<Checked*>(this)->each([&](uint8_t& byte, size_t at) {
      if (at < 4) result |= uint32_t{byte} << 8 * at;
    });
    return result;
  }
  bool sound() const { return *this == make(id, version()); }

  friend bool operator==(const Checked& a, const Checked& b) {
    return std::memcmp(&a, &b, sizeof(Checked)) == 0;
  }

 private:
  // All bytes outside the key, counted from 0.
  template <class Visit>
  void each(Visit visit) {
    size_t at = 0;
    for (uint8_t& byte : before) visit(byte, at++);
    for (uint8_t& byte : after) visit(byte, at++);
  }
};

using Route = Checked<56, 24, 20>;  // the usual kind
using Tiny = Checked<16, 4, 4>;
using Odd = Checked<23, 5, 3>;       // nothing aligned to anything
using Group = Checked<8232, 28, 4>;  // larger than a page
static_assert(sizeof(Route) == 56 && sizeof(Tiny) == 16 && sizeof(Odd) == 23 &&
              sizeof(Group) == 8232);

template <class Entry>
Shoal::Bytes bytesOf(const Entry& value) {
  return std::as_bytes(std::span<const Entry, 1>(&value, 1));
}
template <class Entry>
void put(Shoal::TableStore& table, const Entry& entry) {
  table.set(bytesOf(entry.id), bytesOf(entry));
}

// Numbers whose keys begin their search at the same place of the smallest index of at least 1024
// words, and have the same tag in its lowest bits.
template <class Entry>
std::vector<typename Entry::Key> collidingKeys(size_t count, uint32_t words, uint32_t tagBits) {
  std::vector<typename Entry::Key> keys;
  uint64_t wanted = 0;
  for (uint32_t number = 0; keys.size() < count; ++number) {
    const auto key = Entry::keyOf(number);
    const uint64_t hash =
        Shoal::keyHash(reinterpret_cast<const std::byte*>(key.data()), key.size());
    const uint64_t part =
        (hash >> 32 & (words - 1)) << 32 | (hash & ((uint64_t{1} << tagBits) - 1));
    if (keys.empty()) wanted = part;
    if (part == wanted) keys.push_back(key);
  }
  return keys;
}

}  // namespace Torture
