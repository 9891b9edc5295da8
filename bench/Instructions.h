// What is counted: operations that run a fixed number of times. Everything here is the same in
// every run: no clock, no random numbers, no input.
#pragma once

#include <cstdint>
#include <cstring>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

#include "bench/Data.h"
#include "bench/Groups.h"

// The name that callgrind looks for.
extern "C" void measuredRounds(void (*round)(void*, uint32_t), void* operation, uint32_t rounds);

namespace Bench {

inline constexpr uint32_t rounds = 1024;

// Allocations of this process so far.
uint64_t allocationsSoFar();

template <class T>
void keep(const T& value) {
  asm volatile("" : : "r"(&value) : "memory");
}

// Once to warm up: what happens the first time only is no part of it.
template <class Operation>
void measureFrom(const std::string& name, uint32_t first, uint32_t count, Operation operation) {
  for (uint32_t i = 0; i < first; ++i) operation(i);
  struct Shifted {
    Operation& operation;
    uint32_t first;
  } shifted{operation, first};
  const uint64_t before = allocationsSoFar();
  measuredRounds(
      [](void* made, uint32_t i) {
        auto& [run, begin] = *static_cast<Shifted*>(made);
        run(begin + i);
      },
      &shifted, count);
  std::cout << name << ' ' << count << ' ' << allocationsSoFar() - before << '\n';
}
template <class Operation>
void measure(const std::string& name, Operation operation) {
  measureFrom(name, 1, rounds - 1, std::move(operation));
}

// Host routes, a sixth of them IPv6; distinct, and scattered.
inline std::vector<IpGenPrefix> hostPrefixes(uint32_t first, uint32_t count) {
  std::vector<IpGenPrefix> all;
  for (uint32_t i = first; i < first + count; ++i) {
    const uint32_t scattered = i * 2654435761u;
    if (i % 6 == 0) {
      Wire::Ip6Addr address;
      address.bytes = {0x20, 0x01, 0x0d, 0xb8};
      std::memcpy(&address.bytes[4], &scattered, sizeof scattered);
      all.push_back(IpGenPrefix::ipv6(address, 128));
    } else {
      all.push_back(IpGenPrefix::ipv4(scattered, 32));
    }
  }
  return all;
}

inline const std::vector<IpGenPrefix> present = hostPrefixes(0, rounds);
inline const std::vector<IpGenPrefix> absent = hostPrefixes(rounds, rounds);

inline std::vector<IpDestination> routes(uint64_t version) {
  std::vector<IpDestination> all;
  for (uint32_t i = 0; i < rounds; ++i) all.push_back(routeTo(present[i], i, version));
  return all;
}
inline std::vector<IpDestinationRow> rowsOf(const std::vector<IpDestination>& entries) {
  std::vector<IpDestinationRow> rows;
  for (const auto& entry : entries)
    rows.push_back(P4RuntimeVane::rowOf<IpDestinationTraits>(entry));
  return rows;
}

// The same as some of the operations, by hand, and what any row costs that has memory of its own:
// below that nothing is to be saved.
void byHand();

}  // namespace Bench
