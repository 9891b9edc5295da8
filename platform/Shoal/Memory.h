// The memory that a table is mapped in: its file, or private memory for a snapshot.
//
// A file is sparse. Every part of it is claimed before it is written, so that a memory file system
// without room is an exception here and never a fault signal later.
//
// Memory that is claimed is in huge pages where the kernel makes some on request: tables are read
// at random, and with small pages most of a look-up's time goes into finding where its page is.
//
// On either side of the map lies a page that nobody may touch, so that a wrong place in it is a
// fault at once and never another object's bytes.
//
// One fault remains that nothing can keep away: a file that its owner cuts short while it is mapped
// (SIGBUS). Every map is known by its addresses, for a handler that tells which table it was.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/Kit/FileDescriptor.h"

namespace Shoal {

using Kit::FileDescriptor;

inline constexpr uint64_t hugePageSize = 2u << 20;

class Memory {
 public:
  // Maps `size` bytes of the file. Throws Guard::MemoryResourceException if the address space has
  // no room for them. `name` is for messages.
  Memory(FileDescriptor file, uint64_t size, bool writable, std::string name);
  // Private zeroed memory.
  Memory(uint64_t size, std::string name);
  ~Memory();
  Memory(const Memory&) = delete;
  Memory& operator=(const Memory&) = delete;

  std::byte* base() const { return base_; }

  // The name of the memory in which the address lies, or null. May be called in a signal handler.
  static const char* nameAt(const void* address) noexcept;

  // Makes sure that these bytes have memory. Throws Guard::MemoryResourceException, with the bytes
  // needed and free. What is already there stays. All from `since` to `offset` is claimed already.
  void claim(uint64_t offset, uint64_t bytes, uint64_t since);
  void claim(uint64_t offset, uint64_t bytes) { claim(offset, bytes, offset); }
  // The same, but only answers whether it could.
  bool tryClaim(uint64_t offset, uint64_t bytes, uint64_t since);

 private:
  void map(int protection, int flags);
  void unmap();
  bool allocate(uint64_t from, uint64_t to);
  bool claimPages(uint64_t from, uint64_t to);
  bool claimHugePages(uint64_t from, uint64_t to);

  FileDescriptor file_;
  uint64_t size_;
  std::string name_;
  std::byte* base_ = nullptr;
  bool hasHugePages_ = true;  // until it is known better
};

}  // namespace Shoal
