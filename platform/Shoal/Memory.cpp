#include "platform/Shoal/Memory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/statvfs.h>

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

// First the addresses, with a page more on either side, then the memory in their middle.
void Memory::map(int protection, int flags) {
  constexpr uint64_t guards = 2 * pageSize;
  if (size_ > std::numeric_limits<size_t>::max() - guards) {
    throwNoAddressSpace(name_, size_, ENOMEM);
  }
  void* all = ::mmap(nullptr, static_cast<size_t>(size_ + guards), PROT_NONE,
                     MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (all == MAP_FAILED) throwNoAddressSpace(name_, size_, errno);
  base_ = static_cast<std::byte*>(all) + pageSize;
  if (::mmap(base_, static_cast<size_t>(size_), protection, flags | MAP_FIXED,
             file_ ? file_.get() : -1, 0) == MAP_FAILED) {
    const int error = errno;
    unmap();
    throwNoAddressSpace(name_, size_, error);
  }
  know(this, base_, size_, name_.c_str());
}

void Memory::unmap() { ::munmap(base_ - pageSize, static_cast<size_t>(size_ + 2 * pageSize)); }

// Enters the claimed pages into the page table now, in one go, which costs a fraction of one fault
// for each when it is first written. A kernel that cannot do it leaves it to the faults.
void Memory::populate(uint64_t offset, uint64_t bytes) {
#ifdef MADV_POPULATE_WRITE
  const uint64_t from = (offset + pageSize - 1) / pageSize * pageSize;
  const uint64_t to = (offset + bytes) / pageSize * pageSize;
  if (from < to) {
    ::madvise(base_ + from, static_cast<size_t>(to - from), MADV_POPULATE_WRITE);
  }
#else
  (void)offset, (void)bytes;
#endif
}

bool Memory::tryClaim(uint64_t offset, uint64_t bytes) {
  if (!file_ || bytes == 0) return true;
  int result;
  do {
    result = ::fallocate(file_.get(), 0, static_cast<off_t>(offset), static_cast<off_t>(bytes));
  } while (result != 0 && errno == EINTR);
  if (result != 0) return false;
  populate(offset, bytes);
  return true;
}

void Memory::claim(uint64_t offset, uint64_t bytes) {
  if (!tryClaim(offset, bytes)) throwNoMemory(name_, file_.get(), bytes, errno);
}

}  // namespace Shoal
