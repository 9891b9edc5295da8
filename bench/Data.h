// What the subjects work on: distinct prefixes in random order, the same in every run, and routes
// made of them.
//
// $ROUTING_PREFIXES names a directory with lists of real prefixes (one a line, plain or gzip); they
// come first. Generated ones with the same mix of lengths follow, or stand alone.
#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <vector>

#include "platform/State/RoutingTypes.h"
#include "platform/Wire/Address.h"

namespace Bench {

using P4RuntimeRouting::IpDestination;
using Wire::IpGenPrefix;

std::span<const IpGenPrefix> prefixes(size_t count);
// Others: as many, but no more than two million.
std::span<const IpGenPrefix> absentPrefixes(size_t count);
// "real, then generated" or "generated".
std::string whichPrefixes();

IpDestination routeTo(const IpGenPrefix& prefix, uint32_t number, uint64_t version = 1);

// Walks a list round and round.
template <class T>
class Cycle {
 public:
  explicit Cycle(std::span<const T> values) : values_(values) {}
  const T& next() {
    const T& value = values_[at_];
    if (++at_ == values_.size()) at_ = 0;
    return value;
  }

 private:
  std::span<const T> values_;
  size_t at_ = 0;
};

// A directory of its own on the memory file system, which goes with the object. $ROUTING_BENCH_DIR
// is where it is made; by default /dev/shm.
class Directory {
 public:
  Directory();
  ~Directory();
  Directory(const Directory&) = delete;
  Directory& operator=(const Directory&) = delete;
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

}  // namespace Bench
