#include "platform/Shoal/Memory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/statvfs.h>

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

}  // namespace

Memory::Memory(FileDescriptor file, uint64_t size, bool writable, std::string name)
    : file_(std::move(file)), size_(size), name_(std::move(name)) {
  map(writable ? PROT_READ | PROT_WRITE : PROT_READ, MAP_SHARED);
}

Memory::Memory(uint64_t size, std::string name) : size_(size), name_(std::move(name)) {
  map(PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE);
}

Memory::~Memory() { ::munmap(base_, static_cast<size_t>(size_)); }

void Memory::map(int protection, int flags) {
  if (size_ > std::numeric_limits<size_t>::max()) throwNoAddressSpace(name_, size_, ENOMEM);
  void* base =
      ::mmap(nullptr, static_cast<size_t>(size_), protection, flags, file_ ? file_.get() : -1, 0);
  if (base == MAP_FAILED) throwNoAddressSpace(name_, size_, errno);
  base_ = static_cast<std::byte*>(base);
}

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
