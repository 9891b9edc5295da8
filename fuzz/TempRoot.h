// A directory on a memory file system that goes with the process; that of a process which died of a
// finding goes with the next one.
#pragma once

#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "fuzz/Fuzz.h"

namespace Fuzz {

class TempRoot {
 public:
  TempRoot() {
    removeStale();
    std::string name = place + std::to_string(::getpid()) + "-XXXXXX";
    need(::mkdtemp(name.data()) != nullptr, "there is a private directory");
    path = name;
  }
  TempRoot(const TempRoot&) = delete;
  TempRoot& operator=(const TempRoot&) = delete;
  ~TempRoot() { remove(path); }

  std::filesystem::path path;

 private:
  static inline const std::string place = "/dev/shm/fuzz-";  // the process id follows

  static void remove(const std::filesystem::path& which) {
    std::error_code ignored;
    std::filesystem::remove_all(which, ignored);
  }
  static void removeStale() {
    for (const auto& entry : std::filesystem::directory_iterator("/dev/shm")) {
      const std::string name = entry.path().string();
      if (!name.starts_with(place)) continue;
      const int pid = std::atoi(name.c_str() + place.size());
      if (pid > 0 && ::kill(pid, 0) != 0 && errno == ESRCH) remove(entry.path());
    }
  }
};

}  // namespace Fuzz
