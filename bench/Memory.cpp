#include "bench/Memory.h"

#include <malloc.h>
#include <sys/mman.h>

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

void warmMemoryFor(size_t routes) {
  constexpr size_t mostForOne = 256, page = 4096;
  const size_t bytes = routes * mostForOne;
  void* const memory =
      ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::runtime_error("no memory to be warmed");
  ::madvise(memory, bytes, MADV_HUGEPAGE);
  for (size_t at = 0; at < bytes; at += page) static_cast<volatile char*>(memory)[at] = 1;
  ::munmap(memory, bytes);
}

uint64_t allocatedBytes() {
  const struct mallinfo2 info = ::mallinfo2();
  return info.uordblks + info.hblkhd;
}

}  // namespace Bench
