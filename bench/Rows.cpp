// Rows by themselves: made, read, hashed, compared; each beside the same steps written out by hand.
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "bench/Bare.h"
#include "bench/ByHand.h"
#include "bench/Data.h"
#include "bench/Groups.h"
#include "bench/Runner.h"

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
  for (auto _ : state) {
    copyLists(group, back);
    DoNotOptimize(back);
  }
  check(back.members == group.members && back.watches == group.watches, "the lists that came back");
  itemsPerStep(state, 1);
}
const Subject subjectBareGroup("BM_Bare_TwoListsCopied/members:1024", bareGroup);

}  // namespace
}  // namespace Bench
