#include "platform/Shoal/Memory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <limits>
#include <sstream>

#include "platform/Guard/Exception.h"
#include "platform/Shoal/TableFormat.h"

namespace Shoal {

namespace {

[[noreturn]] void throwNoAddressSpace(const std::string& name, uint64_t size, int error) {
  std::ostringstream text;
  text << "shared table \"" << name << "\": cannot map " << size
       << " bytes: " << std::strerror(error);
  Guard::MemoryResourceException::throwException(text.str());
}

[[noreturn]] void throwNoMemory(const std::string& name, int file, uint64_t bytes, int error) {
  std::ostringstream text;
  text << "shared table \"" << name << "\": out of memory: " << bytes << " bytes needed";
  struct statvfs system;
  if (::fstatvfs(file, &system) == 0) {
    text << ", " << uint64_t{system.f_bavail} * system.f_frsize << " free";
  }
  text << " on its file system (" << std::strerror(error) << ')';
  Guard::MemoryResourceException::throwException(text.str());
}

// The maps of this process, for nameAt. A place is taken by its `memory`, and counts while its
// `end` is not 0. Maps beyond the last place are not known, which costs a message its table's name.
struct KnownMap {
  std::atomic<const Memory*> memory{nullptr};
  std::atomic<const std::byte*> base{nullptr};
  std::atomic<const char*> name{nullptr};
  std::atomic<uintptr_t> end{0};
};
std::array<KnownMap, 256> knownMaps;

void know(const Memory* memory, const std::byte* base, uint64_t size, const char* name) {
  for (KnownMap& known : knownMaps) {
    const Memory* nobody = nullptr;
    if (!known.memory.compare_exchange_strong(nobody, memory)) continue;
    known.base = base;
    known.name = name;
    known.end = reinterpret_cast<uintptr_t>(base) + static_cast<uintptr_t>(size);
    return;
  }
}

void forget(const Memory* memory) {
  for (KnownMap& known : knownMaps) {
    if (known.memory.load() != memory) continue;
    known.end = 0;
    known.memory = nullptr;
    return;
  }
}

}  // namespace

const char* Memory::nameAt(const void* address) noexcept {
  const auto at = reinterpret_cast<uintptr_t>(address);
  for (const KnownMap& known : knownMaps) {
    const bool below = at < known.end.load();
    if (below && at >= reinterpret_cast<uintptr_t>(known.base.load())) return known.name.load();
  }
  return nullptr;
}

Memory::Memory(FileDescriptor file, uint64_t size, bool writable, std::string name)
    : file_(std::move(file)), size_(size), name_(std::move(name)) {
  map(writable ? PROT_READ | PROT_WRITE : PROT_READ, MAP_SHARED);
}

Memory::Memory(uint64_t size, std::string name) : size_(size), name_(std::move(name)) {
  map(PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE);
}

Memory::~Memory() {
  forget(this);
  unmap();
}

// First the addresses, with a page more on either side, then the memory in their middle. What is
// larger than a huge page begins at a multiple of one, as the file does.
void Memory::map(int protection, int flags) {
  const uint64_t alignment = size_ < hugePageSize ? pageSize : hugePageSize;
  const uint64_t around = pageSize + alignment;
  if (size_ > std::numeric_limits<size_t>::max() - around) {
    throwNoAddressSpace(name_, size_, ENOMEM);
  }
  const auto length = static_cast<size_t>(size_ + around);
  void* const all =
      ::mmap(nullptr, length, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (all == MAP_FAILED) throwNoAddressSpace(name_, size_, errno);
  const auto address = reinterpret_cast<uintptr_t>(all);
  const auto above = static_cast<size_t>(alignUp(address + pageSize, alignment) - address);
  base_ = static_cast<std::byte*>(all) + above;
  ::munmap(all, above - pageSize);
  ::munmap(base_ + size_ + pageSize, length - above - static_cast<size_t>(size_ + pageSize));
  if (::mmap(base_, static_cast<size_t>(size_), protection, flags | MAP_FIXED,
             file_ ? file_.get() : -1, 0) == MAP_FAILED) {
    const int error = errno;
    unmap();
    throwNoAddressSpace(name_, size_, error);
  }
  know(this, base_, size_, name_.c_str());
}

void Memory::unmap() { ::munmap(base_ - pageSize, static_cast<size_t>(size_ + 2 * pageSize)); }

bool Memory::allocate(uint64_t from, uint64_t to) {
  int result;
  do {
    result = ::fallocate(file_.get(), 0, static_cast<off_t>(from), static_cast<off_t>(to - from));
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

// Enters the pages into the page table now, in one go, which costs a fraction of one fault for each
// when it is first written. A kernel that cannot do it leaves it to the faults.
bool Memory::claimPages(uint64_t from, uint64_t to) {
  if (from >= to) return true;
  if (!allocate(from, to)) return false;
#ifdef MADV_POPULATE_WRITE
  from = alignUp(from, pageSize);
  to = to / pageSize * pageSize;
  if (from < to) ::madvise(base_ + from, static_cast<size_t>(to - from), MADV_POPULATE_WRITE);
#endif
  return true;
}

// The kernel makes a huge page of those that are there and fills up what is missing, if one is
// there: with huge pages at hand that takes a fifth of the time of all the small ones, and else up
// to some milliseconds more. Not every kernel and file system does it; and one that has none left
// is not asked again.
bool Memory::claimHugePages(uint64_t from, uint64_t to) {
  constexpr int collapse = 25;  // MADV_COLLAPSE, which older C libraries do not name
  for (uint64_t at = from; at < to && hasHugePages_; at += hugePageSize) {
    hasHugePages_ = allocate(at, at + pageSize);
  }
  hasHugePages_ =
      hasHugePages_ && ::madvise(base_ + from, static_cast<size_t>(to - from), collapse) == 0;
  return hasHugePages_;
}

bool Memory::tryClaim(uint64_t offset, uint64_t bytes, uint64_t since) {
  if (!file_ || bytes == 0) return true;
  const uint64_t end = offset + bytes;
  const uint64_t firstHuge =
      std::max(alignUp(since, hugePageSize), offset / hugePageSize * hugePageSize);
  const uint64_t lastHuge = end / hugePageSize * hugePageSize;
  if (firstHuge < lastHuge && claimHugePages(firstHuge, lastHuge)) {
    return claimPages(offset, firstHuge) && claimPages(std::max(offset, lastHuge), end);
  }
  return claimPages(offset, end);
}

void Memory::claim(uint64_t offset, uint64_t bytes, uint64_t since) {
  if (!tryClaim(offset, bytes, since)) throwNoMemory(name_, file_.get(), bytes, errno);
}

}  // namespace Shoal
