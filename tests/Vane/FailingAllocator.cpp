#include "tests/Vane/FailingAllocator.h"

#include <algorithm>
#include <cstdlib>

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define ROWS_OWN_ALLOCATOR 0
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || !defined(__GLIBC__)
#define ROWS_OWN_ALLOCATOR 0
#endif
#ifndef ROWS_OWN_ALLOCATOR
#define ROWS_OWN_ALLOCATOR 1
#endif

namespace FailingAllocator {

constinit thread_local int allocationsUntilFailure = 0;
constinit thread_local bool staysExhausted = false;
constinit thread_local long liveBlocks = 0;
constinit thread_local size_t longestBlock = 0;
constinit thread_local int callocCalls = 0;
constinit thread_local int reallocCalls = 0;

namespace {

bool countsAllocations() {
  const long before = liveBlocks;
  void* volatile block = std::malloc(1);
  const bool counts = liveBlocks != before;
  std::free(block);
  return counts;
}

}  // namespace

const bool isOurs = countsAllocations();

}  // namespace FailingAllocator

#if ROWS_OWN_ALLOCATOR
namespace {

using FailingAllocator::liveBlocks;

bool failsNow(size_t size) {
  FailingAllocator::longestBlock = std::max(FailingAllocator::longestBlock, size);
  int& left = FailingAllocator::allocationsUntilFailure;
  if (left == 0) return false;
  if (left > 0 && --left > 0) return false;
  left = FailingAllocator::staysExhausted ? -1 : 0;
  return true;
}

void* counted(void* block) {
  if (block != nullptr) ++liveBlocks;
  return block;
}

}  // namespace

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void __libc_free(void* block);

void* malloc(size_t size) noexcept {
  return failsNow(size) ? nullptr : counted(__libc_malloc(size));
}
void* calloc(size_t count, size_t size) noexcept {
  ++FailingAllocator::callocCalls;
  return failsNow(count * size) ? nullptr : counted(__libc_calloc(count, size));
}
void* realloc(void* block, size_t size) noexcept {
  ++FailingAllocator::reallocCalls;
  if (failsNow(size)) return nullptr;
  if (block != nullptr) --liveBlocks;
  return counted(__libc_realloc(block, size));
}
void free(void* block) noexcept {
  if (block != nullptr) --liveBlocks;
  __libc_free(block);
}
}
#endif
