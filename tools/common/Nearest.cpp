#include "tools/common/Nearest.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <numeric>
#include <utility>
#include <vector>

namespace Tools {
namespace {

int lower(char c) { return std::tolower(static_cast<unsigned char>(c)); }

size_t distance(std::string_view a, std::string_view b) {
  std::vector<size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), size_t{0});
  for (size_t i = 0; i < a.size(); ++i) {
    size_t diagonal = std::exchange(row[0], i + 1);
    for (size_t j = 0; j < b.size(); ++j) {
      const size_t replaced = diagonal + (lower(a[i]) != lower(b[j]));
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j + 1] + 1, row[j] + 1});
    }
  }
  return row.back();
}

}  // namespace

std::string_view nearest(std::string_view text, std::span<const std::string> names) {
  const auto found = std::ranges::min_element(
      names, {}, [&](const std::string& name) { return distance(text, name); });
  return found == names.end() ? std::string_view() : std::string_view(*found);
}

std::string unknownName(std::string_view kind, std::string_view text,
                        std::span<const std::string> names) {
  std::string message = fmt::format("no {} \"{}\"", kind, text);
  if (!names.empty()) message += fmt::format("; the nearest name is {}", nearest(text, names));
  return message;
}

}  // namespace Tools
