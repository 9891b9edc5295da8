#include "bench/Memory.h"

#include <malloc.h>

#include <fstream>
#include <stdexcept>
#include <string>

namespace Bench {
namespace {

// A line of /proc/self/status, "RssAnon:   1234 kB".
uint64_t statusBytes(const std::string& name) {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    uint64_t kilobytes = 0;
    if (word == name + ":" && status >> kilobytes) return kilobytes * 1024;
  }
  throw std::runtime_error("/proc/self/status: expected a line " + name);
}

}  // namespace

uint64_t residentBytes() { return statusBytes("VmRSS"); }
uint64_t privateBytes() { return statusBytes("RssAnon"); }

void giveBackFreed() { ::malloc_trim(0); }

uint64_t allocatedBytes() {
  const struct mallinfo2 info = ::mallinfo2();
  return info.uordblks + info.hblkhd;
}

}  // namespace Bench
