// The sample that subjects of single rows share, and the bare allocation beside them.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <vector>

#include "bench/Data.h"

namespace Bench {

// 1,024 routes: few enough to stay in the processor's caches.
std::vector<IpDestination> sampleEntries();
// How long the row of each of them is.
std::vector<uint16_t> rowLengths();

// What any row costs whose bytes come zeroed from the C allocator and are held by a shared pointer.
struct BareBuffer {
  explicit BareBuffer(uint16_t size)
      : bytes(static_cast<uint8_t*>(std::calloc(size, 1))), length(size) {}
  BareBuffer(const BareBuffer&) = delete;
  BareBuffer& operator=(const BareBuffer&) = delete;
  ~BareBuffer() { std::free(bytes); }
  uint8_t* bytes;
  uint16_t length;
};

}  // namespace Bench
