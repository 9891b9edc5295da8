// The hot operations, each a fixed number of times, for counting their instructions: this program
// is run by valgrind's callgrind, which counts while `measuredRounds` runs and writes a file at its
// end. The names are printed in the order of the files. bench/instructions.py puts both together.
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "bench/Instructions.h"
#include "bench/Runner.h"
#include "bench/SharedRoutes.h"

// Allocations are counted on their way to the C library.
extern "C" void* __libc_malloc(size_t size);
extern "C" void* __libc_calloc(size_t count, size_t size);
extern "C" void* __libc_realloc(void* block, size_t size);

static uint64_t allocations = 0;

extern "C" void* malloc(size_t size) {
  ++allocations;
  return __libc_malloc(size);
}
extern "C" void* calloc(size_t count, size_t size) {
  ++allocations;
  return __libc_calloc(count, size);
}
extern "C" void* realloc(void* block, size_t size) {
  ++allocations;
  return __libc_realloc(block, size);
}

extern "C" [[gnu::noinline]] void measuredRounds(void (*round)(void*, uint32_t), void* operation,
                                                 uint32_t rounds) {
  for (uint32_t i = 0; i < rounds; ++i) round(operation, i);
}

namespace Bench {

uint64_t allocationsSoFar() { return allocations; }

namespace {

std::vector<IpDestinationRow> keyRows() {
  std::vector<IpDestinationRow> rows;
  for (const auto& prefix : present) rows.push_back(IpDestinationRow::key(prefix));
  return rows;
}

void rows() {
  const auto entries = routes(1);
  const auto some = rowsOf(entries);
  const auto others = rowsOf(entries);
  measure("row.fromEntry",
          [&](uint32_t i) { keep(P4RuntimeVane::rowOf<IpDestinationTraits>(entries[i])); });
  IpDestination back;
  measure("row.toEntry", [&](uint32_t i) {
    IpDestinationTraits::Columns::fromRow(some[i], back);
    keep(back);
  });
  measure("row.keyHash", [&](uint32_t i) { keep(some[i].hash()); });
  measure("row.rowHash", [&](uint32_t i) { keep(some[i].rowHash()); });
  measure("row.keyEqual", [&](uint32_t i) { keep(some[i] == others[i]); });

  EcmpMemberList group = largestGroup();
  const auto groupRow = P4RuntimeVane::rowOf<EcmpMemberListTraits>(group);
  measureFrom("group.fromEntry", 1, 16,
              [&](uint32_t) { keep(P4RuntimeVane::rowOf<EcmpMemberListTraits>(group)); });
  measureFrom("group.toEntry", 1, 16, [&](uint32_t) {
    EcmpMemberListTraits::Columns::fromRow(groupRow, group);
    keep(group);
  });
}

void tables() {
  SharedRoutes shared(rounds);
  const auto first = routes(1);
  const auto second = routes(2);
  measure("table.insert", [&](uint32_t i) { shared.set(first[i]); });
  measure("table.replace", [&](uint32_t i) { shared.set(second[i]); });
  bool found = false;
  measure("table.find", [&](uint32_t i) { keep(shared.map.safeLookup(present[i], found)); });
  check(found, "a present key");
  measure("table.findAbsent", [&](uint32_t i) { keep(shared.map.safeLookup(absent[i], found)); });
  check(!found, "an absent key");
  IpDestination entry;
  Shoal::IterHint hint;
  measure("table.next", [&](uint32_t i) {
    found = i == 0 ? shared.map.first(hint, entry)
                   : shared.map.next(entry.destinationPrefix, hint, entry);
  });
  check(found, "an entry for each step of the walk");
  const auto follower = Shoal::follow(shared.table->store(), rounds);  // all that its ring holds
  Shoal::ChangeFollower::Changes changes;
  measure("follower.take", [&](uint32_t) {
    changes.clear();
    found = follower->take(changes, 1) == Shoal::ChangeFollower::Result::changes;
  });
  check(found, "a change for each round");
}

void adapters() {
  AdaptedRoutes adapted(rounds);
  auto& adapter = *adapted.adapter;
  auto first = rowsOf(routes(1));
  auto second = rowsOf(routes(2));
  const auto keys = keyRows();
  measure("adapter.rowIs.fresh", [&](uint32_t i) { adapter.rowIs(first[i], false); });
  measure("adapter.rowIs.replace", [&](uint32_t i) { adapter.rowIs(second[i], false); });
  measure("adapter.row", [&](uint32_t i) { keep(adapter.row(keys[i], 0)); });
  measure("adapter.find", [&](uint32_t i) { keep(**adapter.find(keys[i], 0)); });
  std::unique_ptr<Vane::VaRowIteratorImpl> walk;
  measure("adapter.next", [&](uint32_t i) {
    if (i == 0) walk = adapter.begin(0);
    keep(**walk);
    ++*walk;
  });
  check(!*walk, "a walk that ends behind the last row");
  walk.reset();
  check(adapter.latestChangeIdx() == 4 * rounds, "a change for each row set");
}

void changeLog() {
  IpDestinationVaneWrapper::Log log(rounds);
  measure("log.record.fresh", [&](uint32_t i) { log.record(present[i], false); });
  measure("log.record.again", [&](uint32_t i) { log.record(present[i], false); });
  measure("log.upperBound", [&](uint32_t i) { keep(log.after(2 * rounds + i)); });
  measure("log.prune", [&](uint32_t i) { log.prune(2 * rounds + 2 * (i + 1)); });
  check(log.after(0) == log.end(), "a log of which all is pruned");
}

}  // namespace

void check(bool holds, const char* what) {
  if (holds) return;
  std::cerr << "instructions: wrong answer: " << what << std::endl;
  std::_Exit(3);
}

}  // namespace Bench

int main() {
  Bench::database();
  Bench::rows();
  Bench::byHand();
  Bench::tables();
  Bench::adapters();
  Bench::changeLog();
}
