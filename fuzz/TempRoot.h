// A directory on a memory file system that goes with the process.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <string>

#include "fuzz/Fuzz.h"

namespace Fuzz {

class TempRoot {
 public:
  TempRoot() {
    std::string name = "/dev/shm/fuzz-XXXXXX";
    need(::mkdtemp(name.data()) != nullptr, "there is a private directory");
    path = name;
  }
  TempRoot(const TempRoot&) = delete;
  TempRoot& operator=(const TempRoot&) = delete;
  ~TempRoot() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }

  std::filesystem::path path;
};

}  // namespace Fuzz
