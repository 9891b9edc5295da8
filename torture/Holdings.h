// What a process has of tables, and what lies below a root: to be the same after a failure as
// before it.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace Torture {

struct Holdings {
  size_t files = 0;   // open descriptors
  size_t tables = 0;  // maps of tables
  // Maps without any rights, which stand beside each map of a table. 0 under a sanitizer.
  size_t guards = 0;

  static Holdings now();
  // What of it is there now and was not, or is not any more; nothing if it is the same.
  std::string changed() const;
  friend bool operator==(const Holdings&, const Holdings&) = default;
};

// By their paths from the root on, in order; directories are left out.
std::vector<std::string> filesBelow(const std::filesystem::path& root);

}  // namespace Torture
