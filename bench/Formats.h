// The same route as a record of other formats. A format says its name and has record(entry), which
// makes a finished record that can be handed on, and fold(record), which reads all of it.
#pragma once

#include <cstring>
#include <string>
#include <vector>

#include "bench/Bare.h"
#include "bench/Runner.h"

namespace Bench {

// All columns in one number, so that none is left out.
inline uint64_t foldedColumns(uint64_t genId, uint64_t handle, bool valid, uint32_t entryId,
                              uint8_t length, const void* address, size_t addressLength,
                              int32_t type, uint32_t id) {
  uint64_t words[2] = {};
  std::memcpy(words, address, addressLength);
  return genId + handle + valid + entryId + words[0] + words[1] + length +
         static_cast<uint32_t>(type) + id;
}

inline uint64_t foldedEntry(const IpDestination& entry) {
  const auto& prefix = entry.destinationPrefix;
  return foldedColumns(entry.genId, entry.entryHandle, entry.valid, entry.entryId, prefix.length,
                       prefix.bytes.data(), prefix.bytes.size(), entry.destinationType,
                       entry.destinationId);
}

template <class Format>
void makeRecord(State& state) {
  const std::vector<IpDestination> entries = sampleEntries();
  for (const auto& entry : entries)
    check(Format::fold(Format::record(entry)) == foldedEntry(entry), "the record's columns");
  Cycle<IpDestination> cycle(entries);
  for (auto _ : state) {
    const auto record = Format::record(cycle.next());
    DoNotOptimize(record);
  }
  itemsPerStep(state, 1);
}

template <class Format>
void readRecord(State& state) {
  std::vector<decltype(Format::record(IpDestination()))> records;
  for (const IpDestination& entry : sampleEntries()) records.push_back(Format::record(entry));
  size_t i = 0;
  for (auto _ : state) {
    DoNotOptimize(Format::fold(records[i]));
    i = (i + 1) % records.size();
  }
  itemsPerStep(state, 1);
}

template <class Format>
struct FormatSubjects {
  Subject make{std::string("BM_") + Format::name + "FromEntry/IpDestination", makeRecord<Format>};
  Subject read{std::string("BM_") + Format::name + "Columns/IpDestination", readRecord<Format>};
};

}  // namespace Bench
