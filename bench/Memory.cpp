#include "bench/Memory.h"

#include <malloc.h>

#include <fstream>
#include <stdexcept>
#include <string>

namespace Bench {
namespace {

// A line of /proc/self/smaps_rollup, "Rss:   1234 kB": counted page by page, where the sums in
// /proc/self/status may lag behind by some dozens of pages.
uint64_t rollupBytes(const std::string& name) {
  std::ifstream rollup("/proc/self/smaps_rollup");
  for (std::string word; rollup >> word;) {
    uint64_t kilobytes = 0;
    if (word == name + ":" && rollup >> kilobytes) return kilobytes * 1024;
  }
  throw std::runtime_error("/proc/self/smaps_rollup: expected a line " + name);
}

}  // namespace

uint64_t residentBytes() { return rollupBytes("Rss"); }
uint64_t privateBytes() { return rollupBytes("Anonymous"); }

void giveBackFreed() { ::malloc_trim(0); }

uint64_t allocatedBytes() {
  const struct mallinfo2 info = ::mallinfo2();
  return info.uordblks + info.hblkhd;
}

}  // namespace Bench
