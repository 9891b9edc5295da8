// What is done with a row of a route, written out by hand over its packed bytes: no type, no
// bounds.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>

#include "bench/Bare.h"
#include "bench/Data.h"
#include "bench/Groups.h"
#include "platform/Wire/Hash.h"

namespace Bench {

// A packed row as bytes.
template <class T>
T loadAt(const uint8_t* at) {
  T value;
  std::memcpy(&value, at, sizeof value);
  return value;
}

struct PackedPrefix {
  explicit PackedPrefix(const uint8_t* row)
      : at(row + loadAt<uint16_t>(row + 25)), length(loadAt<uint16_t>(row + 27) & 0x7FFF) {}
  const uint8_t* at;
  uint16_t length;  // 5 for IPv4, 17 for IPv6
};

inline IpGenPrefix packedPrefixOf(const uint8_t* row) {
  const PackedPrefix body(row);
  IpGenPrefix prefix;
  prefix.family = body.length == 5 ? Wire::AddressFamily::ipv4 : Wire::AddressFamily::ipv6;
  prefix.length = *body.at;
  if (body.length == 5) {
    std::memcpy(prefix.bytes.data(), body.at + 1, 4);
  } else {
    std::memcpy(prefix.bytes.data(), body.at + 1, 16);
  }
  return prefix;
}

inline uint32_t packedPrefixHash(const uint8_t* row) {
  const PackedPrefix body(row);
  const uint32_t family = body.length == 5 ? 1 : 2;
  uint32_t h = Wire::murmurBlock(0, family << 8 | *body.at);
  for (uint16_t i = 1; i < body.length; i = static_cast<uint16_t>(i + 4))
    h = Wire::murmurBlock(h, Wire::networkWord(body.at + i));
  return Wire::murmurAvalanche(h);
}

inline uint32_t packedKeyHash(const uint8_t* row) {
  return Wire::murmurBlock(0, packedPrefixHash(row));
}

inline uint32_t packedRowHash(const uint8_t* row) {
  uint32_t h = Wire::murmurBlock(0, loadAt<uint32_t>(row + 4));
  h = Wire::murmurBlock(h, loadAt<uint32_t>(row + 12));
  h = Wire::murmurBlock(h, row[20]);
  h = Wire::murmurBlock(h, loadAt<uint32_t>(row + 21));
  h = Wire::murmurBlock(h, packedPrefixHash(row));
  h = Wire::murmurBlock(h, loadAt<uint32_t>(row + 29));
  return Wire::murmurBlock(h, loadAt<uint32_t>(row + 33));
}

inline bool packedKeysEqual(const uint8_t* a, const uint8_t* b) {
  const PackedPrefix first(a);
  const PackedPrefix second(b);
  return first.length == second.length && std::memcmp(first.at, second.at, first.length) == 0;
}

// All columns, folded into one value so that none is left out.
inline uint64_t folded(uint64_t genId, uint64_t handle, bool valid, uint32_t entryId,
                       const IpGenPrefix& prefix, int32_t type, uint32_t id) {
  uint64_t words[2];
  std::memcpy(words, prefix.bytes.data(), sizeof words);
  return genId + handle + valid + entryId + words[0] + words[1] + prefix.length +
         static_cast<uint32_t>(type) + id;
}

// By the names of the row type.
inline uint64_t columnsByName(const IpDestinationRow& row) {
  return folded(row.genId(), row.entryHandle(), row.valid(), row.entryId(), row.destinationPrefix(),
                row.destinationType(), row.destinationId());
}

inline uint64_t packedColumns(const uint8_t* row) {
  return folded(loadAt<uint64_t>(row + 4), loadAt<uint64_t>(row + 12), row[20] != 0,
                loadAt<uint32_t>(row + 21), packedPrefixOf(row), loadAt<int32_t>(row + 29),
                loadAt<uint32_t>(row + 33));
}

inline const uint8_t* bytesOf(const IpDestinationRow& row) { return row.buffer()->data(); }

// A group's lists into a buffer of its own and out of it again.
inline void copyLists(const EcmpMemberList& group, EcmpMemberList& back) {
  constexpr size_t list = sizeof group.members;
  const auto buffer = std::make_shared<BareBuffer>(static_cast<uint16_t>(37 + 2 * (2 + list)));
  std::memcpy(buffer->bytes + 39, group.members.data(), list);
  std::memcpy(buffer->bytes + 41 + list, group.watches.data(), list);
  asm volatile("" : : "r"(buffer->bytes) : "memory");
  std::memcpy(back.members.data(), buffer->bytes + 39, list);
  std::memcpy(back.watches.data(), buffer->bytes + 41 + list, list);
}

}  // namespace Bench
