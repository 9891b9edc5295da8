// A tally in memory that a campaign and its child processes share, so that what a child has counted
// is still there when it has been killed; and the children themselves.
#pragma once

#include <sys/types.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "torture/Campaign.h"

namespace Torture {

// Memory for one T that children made from now on share.
void* sharedMemory(size_t bytes);
void freeSharedMemory(void* memory, size_t bytes);

template <class T>
class SharedMemory {
 public:
  SharedMemory() : value_(new (sharedMemory(sizeof(T))) T{}) {}
  ~SharedMemory() { freeSharedMemory(value_, sizeof(T)); }
  SharedMemory(const SharedMemory&) = delete;
  SharedMemory& operator=(const SharedMemory&) = delete;
  T* operator->() const { return value_; }
  T& operator*() const { return *value_; }

 private:
  T* value_;
};

class SharedTally {
 public:
  void add(uint64_t Tally::*what, uint64_t count = 1) { number(what).fetch_add(count); }
  // All that the other one has counted and found.
  void add(const Tally& other);
  // As Tally::found.
  void found(uint64_t Tally::*head, const std::string& what);
  Tally tally() const;

 private:
  static constexpr size_t findingsKept = 20;
  static constexpr size_t findingLength = 600;

  void keep(const std::string& finding);
  std::atomic_ref<uint64_t> number(uint64_t Tally::*what) const {
    return std::atomic_ref(shared_->numbers.*what);
  }

  struct Shared {
    alignas(8) Tally numbers;  // its findings stay empty
    std::atomic<uint32_t> findings{0};
    std::array<std::array<char, findingLength>, findingsKept> texts{};
  };
  SharedMemory<Shared> shared_;
};

// How a child process ended.
struct ChildEnd {
  bool timedOut = false;  // and was killed for it
  int status = 0;         // as waitpid gives it
  bool ok() const { return !timedOut && status == 0; }
  // "ended with status 3", "was killed by signal 11 (Segmentation fault)", ...
  std::string text() const;
};

// This process dies when its parent does; at once if that is no longer the one named. Does not
// outlive a change of user.
void dieWithParent(pid_t parent);

// Runs `body` in a child process, which exits with its answer; an exception is told on standard
// error and is 99. The child dies with the thread that made it.
pid_t startChild(const std::function<int()>& body);
ChildEnd endOfChild(pid_t child, std::chrono::seconds limit);
inline ChildEnd runChild(std::chrono::seconds limit, const std::function<int()>& body) {
  return endOfChild(startChild(body), limit);
}

// A directory of the campaign's own, by default on a memory file system; it goes with the object,
// with all that is in it, in the process that made it.
class PrivateDirectory {
 public:
  explicit PrivateDirectory(const std::string& parent = "/dev/shm");
  ~PrivateDirectory();
  PrivateDirectory(const PrivateDirectory&) = delete;
  PrivateDirectory& operator=(const PrivateDirectory&) = delete;
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
  pid_t maker_;
};

}  // namespace Torture
