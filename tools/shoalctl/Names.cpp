#include "tools/shoalctl/Names.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <string_view>

#include "platform/Shoal/SharedTable.h"
#include "tools/common/Nearest.h"

namespace ShoalCtl {

namespace fs = std::filesystem;
using Tools::ExitCode;
using Tools::Failure;

namespace {

std::string lastPart(const std::string& path) { return path.substr(path.rfind('/') + 1); }

}  // namespace

ExitCode refusal(const fs::path& file) {
  if (::access(file.c_str(), R_OK) == 0) return ExitCode::refused;
  return errno == ENOENT || errno == ENOTDIR ? ExitCode::absent : ExitCode::permission;
}

std::vector<std::string> tablePaths(const fs::path& root) {
  if (const ExitCode code = refusal(root); code != ExitCode::refused) {
    const char* what = code == ExitCode::absent ? "no such directory" : "not ours to read";
    throw Failure(code, fmt::format("{}: {}", root.string(), what));
  }
  auto paths = Shoal::tablesBelow(root);
  if (paths.empty()) throw Failure(ExitCode::absent, fmt::format("{}: no tables", root.string()));
  return paths;
}

std::string rowDatabaseName(const std::string& path) {
  constexpr std::string_view ending = "Table";
  std::string name = lastPart(path);
  if (name.ends_with(ending)) name.resize(name.size() - ending.size());
  if (!name.empty()) name[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(name[0])));
  return "Vane" + name;
}

std::string findTable(const fs::path& root, const std::string& text) {
  std::vector<std::string> names;
  for (const std::string& path : tablePaths(root)) {
    for (const std::string& name : {rowDatabaseName(path), lastPart(path), path}) {
      if (text == name) return path;
      names.push_back(name);
    }
  }
  throw Failure(ExitCode::absent, Tools::unknownName("table", text, names));
}

}  // namespace ShoalCtl
