// Rows by themselves: made, read, hashed, compared; each beside the same steps written out by hand.
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "bench/Bare.h"
#include "bench/Data.h"
#include "bench/Groups.h"
#include "bench/Runner.h"
#include "platform/Wire/Hash.h"

namespace Bench {
namespace {

std::vector<IpDestinationRow> sampleRows() {
  std::vector<IpDestinationRow> rows;
  for (const IpDestination& entry : sampleEntries())
    rows.push_back(P4RuntimeVane::rowOf<IpDestinationTraits>(entry));
  return rows;
}

void rowFromEntry(State& state) {
  const std::vector<IpDestination> entries = sampleEntries();
  const IpDestinationRow first = P4RuntimeVane::rowOf<IpDestinationTraits>(entries[0]);
  check(first.destinationPrefix() == entries[0].destinationPrefix, "the row's prefix");
  Cycle<IpDestination> cycle(entries);
  for (auto _ : state) {
    const IpDestinationRow row = P4RuntimeVane::rowOf<IpDestinationTraits>(cycle.next());
    DoNotOptimize(row);
  }
  itemsPerStep(state, 1);
}
const Subject subjectRowFromEntry("BM_RowFromEntry/IpDestination", rowFromEntry);

// By hand.

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

IpGenPrefix packedPrefixOf(const uint8_t* row) {
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

uint32_t packedPrefixHash(const uint8_t* row) {
  const PackedPrefix body(row);
  const uint32_t family = body.length == 5 ? 1 : 2;
  uint32_t h = Wire::murmurBlock(0, family << 8 | *body.at);
  for (uint16_t i = 1; i < body.length; i = static_cast<uint16_t>(i + 4))
    h = Wire::murmurBlock(h, Wire::networkWord(body.at + i));
  return Wire::murmurAvalanche(h);
}

uint32_t packedKeyHash(const uint8_t* row) { return Wire::murmurBlock(0, packedPrefixHash(row)); }

uint32_t packedRowHash(const uint8_t* row) {
  uint32_t h = Wire::murmurBlock(0, loadAt<uint32_t>(row + 4));
  h = Wire::murmurBlock(h, loadAt<uint32_t>(row + 12));
  h = Wire::murmurBlock(h, row[20]);
  h = Wire::murmurBlock(h, loadAt<uint32_t>(row + 21));
  h = Wire::murmurBlock(h, packedPrefixHash(row));
  h = Wire::murmurBlock(h, loadAt<uint32_t>(row + 29));
  return Wire::murmurBlock(h, loadAt<uint32_t>(row + 33));
}

bool packedKeysEqual(const uint8_t* a, const uint8_t* b) {
  const PackedPrefix first(a);
  const PackedPrefix second(b);
  return first.length == second.length && std::memcmp(first.at, second.at, first.length) == 0;
}

// All columns, folded into one value so that none is left out.
uint64_t folded(uint64_t genId, uint64_t handle, bool valid, uint32_t entryId,
                const IpGenPrefix& prefix, int32_t type, uint32_t id) {
  uint64_t words[2];
  std::memcpy(words, prefix.bytes.data(), sizeof words);
  return genId + handle + valid + entryId + words[0] + words[1] + prefix.length +
         static_cast<uint32_t>(type) + id;
}

uint64_t columnsByName(const IpDestinationRow& row) {
  return folded(row.genId(), row.entryHandle(), row.valid(), row.entryId(), row.destinationPrefix(),
                row.destinationType(), row.destinationId());
}

uint64_t packedColumns(const uint8_t* row) {
  return folded(loadAt<uint64_t>(row + 4), loadAt<uint64_t>(row + 12), row[20] != 0,
                loadAt<uint32_t>(row + 21), packedPrefixOf(row), loadAt<int32_t>(row + 29),
                loadAt<uint32_t>(row + 33));
}

const uint8_t* bytesOf(const IpDestinationRow& row) { return row.buffer()->data(); }

// `byName` over rows, and `byHand` over their bytes, which must come to the same.
template <auto byName, auto byHand>
void named(State& state) {
  const std::vector<IpDestinationRow> rows = sampleRows();
  for (const auto& row : rows) check(byName(row) == byHand(bytesOf(row)), "by hand and by name");
  Cycle<IpDestinationRow> cycle(rows);
  for (auto _ : state) DoNotOptimize(byName(cycle.next()));
  itemsPerStep(state, 1);
}

// Through the row's handle, as whoever has a row comes to its bytes.
template <auto byHand>
void packed(State& state) {
  const std::vector<IpDestinationRow> rows = sampleRows();
  Cycle<IpDestinationRow> cycle(rows);
  for (auto _ : state) DoNotOptimize(byHand(bytesOf(cycle.next())));
  itemsPerStep(state, 1);
}

uint32_t keyHashByName(const IpDestinationRow& row) { return row.hash(); }
uint32_t rowHashByName(const IpDestinationRow& row) { return row.rowHash(); }

const Subject columnsNamed("BM_RowColumns_ByName/IpDestination",
                           named<&columnsByName, &packedColumns>);
const Subject columnsPacked("BM_Bare_PackedLoads/IpDestination", packed<&packedColumns>);
const Subject keyHashNamed("BM_RowKeyHash/IpDestination", named<&keyHashByName, &packedKeyHash>);
const Subject keyHashPacked("BM_Bare_KeyHash/IpDestination", packed<&packedKeyHash>);
const Subject rowHashNamed("BM_RowHash/IpDestination", named<&rowHashByName, &packedRowHash>);
const Subject rowHashPacked("BM_Bare_RowHash/IpDestination", packed<&packedRowHash>);

// Equal keys in two rows: nothing can be told from the first byte.
void keyEqual(State& state) {
  const std::vector<IpDestinationRow> rows = sampleRows();
  const std::vector<IpDestinationRow> others = sampleRows();
  check(rows[0] == others[0] && !(rows[0] == others[1]), "equality of keys");
  size_t i = 0;
  for (auto _ : state) {
    DoNotOptimize(rows[i] == others[i]);
    i = (i + 1) % rows.size();
  }
  itemsPerStep(state, 1);
}
void bareKeyEqual(State& state) {
  const std::vector<IpDestinationRow> rows = sampleRows();
  const std::vector<IpDestinationRow> others = sampleRows();
  check(packedKeysEqual(bytesOf(rows[0]), bytesOf(others[0])), "equality of keys by hand");
  size_t i = 0;
  for (auto _ : state) {
    DoNotOptimize(packedKeysEqual(bytesOf(rows[i]), bytesOf(others[i])));
    i = (i + 1) % rows.size();
  }
  itemsPerStep(state, 1);
}
const Subject subjectKeyEqual("BM_RowKeyEqual/IpDestination", keyEqual);
const Subject subjectBareKeyEqual("BM_Bare_KeyEqual/IpDestination", bareKeyEqual);

// A group, to a row and back to an entry.

void groupToRowAndBack(State& state) {
  const EcmpMemberList group = largestGroup();
  EcmpMemberList back;
  for (auto _ : state) {
    const EcmpMemberListRow row = P4RuntimeVane::rowOf<EcmpMemberListTraits>(group);
    EcmpMemberListTraits::Columns::fromRow(row, back);
    back.id = group.id;
    DoNotOptimize(back);
  }
  check(back == group, "the group that came back");
  itemsPerStep(state, 1);
}
const Subject subjectGroup("BM_GroupToRowAndBack/members:1024", groupToRowAndBack);

// The same lists into one buffer and out of it.
void bareGroup(State& state) {
  const EcmpMemberList group = largestGroup();
  EcmpMemberList back;
  constexpr size_t list = sizeof group.members;
  for (auto _ : state) {
    const auto buffer = std::make_shared<BareBuffer>(static_cast<uint16_t>(37 + 2 * (2 + list)));
    std::memcpy(buffer->bytes + 39, group.members.data(), list);
    std::memcpy(buffer->bytes + 41 + list, group.watches.data(), list);
    DoNotOptimize(buffer->bytes);
    std::memcpy(back.members.data(), buffer->bytes + 39, list);
    std::memcpy(back.watches.data(), buffer->bytes + 41 + list, list);
    DoNotOptimize(back);
  }
  check(back.members == group.members && back.watches == group.watches, "the lists that came back");
  itemsPerStep(state, 1);
}
const Subject subjectBareGroup("BM_Bare_TwoListsCopied/members:1024", bareGroup);

}  // namespace
}  // namespace Bench
