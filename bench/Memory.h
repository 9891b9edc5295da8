// What this process has of the machine's memory.
#pragma once

#include <cstdint>

namespace Bench {

uint64_t residentBytes();  // all pages it has touched, shared ones too
uint64_t privateBytes();   // pages that are nobody else's and no file's

// What the C allocator holds back of freed memory would hide the next thing's pages: it is
// returned.
void giveBackFreed();

// Bytes that the C allocator has handed out.
uint64_t allocatedBytes();

}  // namespace Bench
