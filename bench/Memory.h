// What this process has of the machine's memory.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Bench {

uint64_t residentBytes();  // all pages it has touched, shared ones too
uint64_t privateBytes();   // pages that are nobody else's and no file's

// What the C allocator holds back of freed memory would hide the next thing's pages: it is
// returned.
void giveBackFreed();

// Bytes that the C allocator has handed out.
uint64_t allocatedBytes();

// Has the kernel hand out memory for so many routes in any kind of map, and takes it back. What is
// timed next then is the kernel's first touch of a page, and not that of a virtual machine's host,
// which takes pages away that have been free for a second: dozens of times as long, now and then.
void warmMemoryFor(size_t routes);

}  // namespace Bench
