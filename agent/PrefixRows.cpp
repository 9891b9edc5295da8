#include "agent/PrefixRows.h"

#include <fmt/format.h>

#include "agent/Command.h"

namespace Agent {
namespace {

constexpr uint32_t members = 1024;
constexpr uint32_t vrfs = 16;
constexpr int32_t memberDestination = 1;

constexpr std::array<std::array<const char*, 3>, 2> tableNames{{
    {"VaneIpv4Override", "VaneIpv4Fallback", "VaneIpv4VrfPrefix"},
    {"VaneIpv6Override", "VaneIpv6Fallback", "VaneIpv6VrfPrefix"},
}};
constexpr size_t vrfTable = 2;

std::string_view trimmed(std::string_view text) {
  const size_t begin = text.find_first_not_of(" \t");
  return text.substr(begin, text.find_last_not_of(" \t") + 1 - begin);
}

Wire::IpGenPrefix prefixOf(std::string_view text) {
  const auto prefix = Wire::IpGenPrefix::parse(text);
  if (!prefix || prefix->family == Wire::AddressFamily::unset) {
    BadLine::throwException(fmt::format(
        "expected a prefix without host bits such as 10.0.0.0/8 or 2001:db8::/32, found {}",
        inQuotes(text)));
  }
  return *prefix;
}

}  // namespace

bool PrefixRows::apply(std::string_view text) {
  text = trimmed(text);
  if (text.starts_with('#')) return false;
  const Wire::IpGenPrefix prefix = prefixOf(text);
  const size_t family = prefix.family == Wire::AddressFamily::ipv4 ? 0 : 1;
  const uint64_t turn = progress_.ofFamily[family];
  const size_t kind = turn % tableNames[family].size();
  RowTable& table = tables_.table(tableNames[family][kind]);

  values_.clear();
  for (const auto& column : table.layout().columns()) {
    values_.push_back(Vane::zeroValue(column.type));
  }
  const uint64_t number = progress_.routes + 1;
  put("genId", uint64_t{1}, table);
  put("entryHandle", number, table);
  put("valid", true, table);
  if (kind == vrfTable) put("vrfId", static_cast<uint32_t>(1 + turn / 3 % vrfs), table);
  put(kind == vrfTable ? "prefix" : "destinationPrefix", prefix, table);
  put("destinationType", memberDestination, table);
  put("destinationId", static_cast<uint32_t>(1 + (number - 1) % members), table);
  table.set(values_);
  progress_.routes = number;
  ++progress_.ofFamily[family];
  return true;
}

void PrefixRows::put(const char* column, Vane::ColumnValue value, const RowTable& table) {
  const Vane::LayoutColumn* found = table.layout().column(column);
  if (found == nullptr || static_cast<size_t>(found->type) != value.index()) {
    BadLine::throwException(fmt::format("table {}: row type {} has no column \"{}\" for a route",
                                        table.name(), table.layout().typeName(), column));
  }
  values_[found - table.layout().columns().data()] = std::move(value);
}

}  // namespace Agent
