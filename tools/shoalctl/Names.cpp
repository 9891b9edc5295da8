#include "tools/shoalctl/Names.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <numeric>
#include <string_view>
#include <utility>

#include "platform/Shoal/SharedTable.h"
#include "tools/shoalctl/Failure.h"

namespace ShoalCtl {
namespace {

namespace fs = std::filesystem;

std::string lastPart(const std::string& path) { return path.substr(path.rfind('/') + 1); }

// Insertions, deletions and replacements that turn one text into the other.
size_t distance(std::string_view a, std::string_view b) {
  std::vector<size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), size_t{0});
  for (size_t i = 0; i < a.size(); ++i) {
    size_t diagonal = std::exchange(row[0], i + 1);
    for (size_t j = 0; j < b.size(); ++j) {
      const size_t replaced = diagonal + (std::tolower(a[i]) != std::tolower(b[j]));
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j + 1] + 1, row[j] + 1});
    }
  }
  return row.back();
}

// Why a file or directory that is there cannot be used.
ExitStatus refusal(const fs::path& file) {
  if (::access(file.c_str(), R_OK) == 0) return ExitStatus::refused;
  return errno == ENOENT || errno == ENOTDIR ? ExitStatus::absent : ExitStatus::permission;
}

}  // namespace

std::vector<std::string> tablePaths(const fs::path& root) {
  if (const ExitStatus status = refusal(root); status != ExitStatus::refused) {
    throw Failure(status, fmt::format("{}: {}", root.string(),
                                      status == ExitStatus::absent ? "no such directory"
                                                                   : "not ours to read"));
  }
  auto paths = Shoal::tablesBelow(root);
  if (paths.empty()) {
    throw Failure(ExitStatus::absent, fmt::format("{}: no tables", root.string()));
  }
  return paths;
}

std::string rowDatabaseName(const std::string& path) {
  constexpr std::string_view ending = "Table";
  std::string name = lastPart(path);
  if (name.ends_with(ending)) name.resize(name.size() - ending.size());
  if (!name.empty()) name[0] = static_cast<char>(std::toupper(name[0]));
  return "Vane" + name;
}

std::string findTable(const fs::path& root, const std::string& text) {
  std::string nearest;
  size_t least = std::string::npos;
  for (const std::string& path : tablePaths(root)) {
    for (const std::string& name : {rowDatabaseName(path), lastPart(path), path}) {
      const size_t apart = distance(text, name);
      if (text == name) return path;
      if (apart < least) nearest = name;
      least = std::min(least, apart);
    }
  }
  throw Failure(ExitStatus::absent,
                fmt::format("no table \"{}\"; the nearest name is {}", text, nearest));
}

std::shared_ptr<Shoal::TableStore> attach(const fs::path& root, const std::string& path) {
  try {
    return Shoal::attachReader(root, path);
  } catch (const Shoal::AttachException& cause) {
    throw Failure(refusal(Shoal::tableFile(root, path)), cause.what());
  }
}

}  // namespace ShoalCtl
