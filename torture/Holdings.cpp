#include "torture/Holdings.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>

namespace Torture {

namespace fs = std::filesystem;

namespace {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool guardsCount = false;  // a sanitizer's allocator has maps without rights, too
#else
constexpr bool guardsCount = true;
#endif
}  // namespace

Holdings Holdings::now() {
  Holdings result;
  result.files = static_cast<size_t>(
      std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    result.tables += line.find(".shoal") != std::string::npos;
    result.guards += guardsCount && line.find(" ---p ") != std::string::npos;
  }
  return result;
}

std::string Holdings::changed() const {
  const Holdings after = now();
  if (after == *this) return {};
  return fmt::format("{} descriptors, {} maps of tables and {} guards became {}, {} and {}", files,
                     tables, guards, after.files, after.tables, after.guards);
}

std::vector<std::string> filesBelow(const fs::path& root) {
  std::vector<std::string> names;
  std::error_code error;
  for (fs::recursive_directory_iterator at(root, error), end; !error && at != end; ++at) {
    if (!at->is_directory()) names.push_back(at->path().lexically_relative(root));
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace Torture
