#include "agent/RowReader.h"

#include <fmt/format.h>

#include <limits>
#include <optional>

namespace Agent {
namespace {

using Kind = JsonValue::Kind;
using Vane::LayoutColumn;
using Wire::AddressFamily;

constexpr size_t maxElements = 4095;

[[noreturn]] void throwValue(const LayoutColumn& column, std::string_view expected,
                             std::string_view found) {
  BadLine::throwException(
      fmt::format("column \"{}\": expected {}, found {}", column.name, expected, found));
}

// Makes `to` what `from` says; false if it says no value of this type.
template <class T>
requires std::integral<T> &&(!std::same_as<T, bool>)bool convert(const JsonValue& from, T& to) {
  using Limits = std::numeric_limits<T>;
  if (from.kind == Kind::natural && from.bits <= static_cast<uint64_t>(Limits::max())) {
    to = static_cast<T>(from.bits);
    return true;
  }
  if constexpr (Limits::is_signed) {
    if (from.kind == Kind::negative && from.negative() >= Limits::min()) {
      to = static_cast<T>(from.negative());
      return true;
    }
  }
  return false;
}

bool convert(const JsonValue& from, bool& to) {
  to = from.bits != 0;
  return from.kind == Kind::boolean;
}

// An unset address or prefix is written "", as rows print it.
template <class T>
requires requires(std::string_view text) { T::parse(text); }
bool convert(const JsonValue& from, T& to) {
  to = T{};
  if (from.kind != Kind::text) return false;
  if (from.text.empty()) return true;
  const std::optional<T> parsed = T::parse(from.text);
  if (parsed) to = *parsed;
  return parsed.has_value();
}

bool convert(const JsonValue& from, std::vector<uint32_t>& to) {
  to = from.elements;
  return from.kind == Kind::array && !from.wrongElement && to.size() <= maxElements;
}

// What a column can hold, for people.
template <class T>
std::string expected(const LayoutColumn& column) {
  if constexpr (std::same_as<T, bool>) {
    return "true or false";
  } else if constexpr (std::integral<T>) {
    return fmt::format("{} ({} to {})", Vane::wordOf(column.type), std::numeric_limits<T>::min(),
                       std::numeric_limits<T>::max());
  } else if constexpr (std::same_as<T, Wire::EthAddr>) {
    return "a MAC address such as \"02:00:00:00:00:01\"";
  } else if constexpr (std::same_as<T, Wire::IpGenAddr>) {
    return "an address such as \"192.0.2.1\" or \"2001:db8::1\"";
  } else if constexpr (std::same_as<T, Wire::IpGenPrefix>) {
    return "a prefix without host bits such as \"10.0.0.0/8\" or \"2001:db8::/32\"";
  } else {
    return fmt::format("an array of at most {} numbers (0 to 4294967295)", maxElements);
  }
}

std::string found(const JsonValue& value) {
  if (value.kind != Kind::array) return value.described();
  if (value.wrongElement) return fmt::format("{} at place {}", value.text, *value.wrongElement);
  return fmt::format("an array of {}", value.elements.size());
}

constexpr std::string_view familyName(AddressFamily family) {
  return family == AddressFamily::ipv4 ? "an IPv4 prefix" : "an IPv6 prefix";
}

}  // namespace

RowReader::RowReader(const Vane::RowLayout& layout, AddressFamily family)
    : layout_(layout), family_(family) {
  for (const LayoutColumn& column : layout.columns()) {
    values_.push_back(Vane::zeroValue(column.type));
  }
}

const std::vector<Vane::ColumnValue>& RowReader::read(std::span<const Command::Member> members) {
  given_.assign(values_.size(), false);
  for (size_t i = 0; i < members.size(); ++i) {
    const size_t at = indexOf(members[i].name, i);
    const LayoutColumn& column = layout_.columns()[at];
    if (given_[at]) BadLine::throwException(fmt::format("column \"{}\" stands twice", column.name));
    given_[at] = true;
    store(column, members[i].value, values_[at]);
  }
  needKeys();
  for (size_t i = 0; i < values_.size(); ++i) {
    if (!given_[i]) values_[i] = Vane::zeroValue(layout_.columns()[i].type);
  }
  return values_;
}

// Members mostly stand in column order, which makes the first guess right.
size_t RowReader::indexOf(const std::string& name, size_t likely) const {
  const auto& columns = layout_.columns();
  if (likely < columns.size() && columns[likely].name == name) return likely;
  if (const LayoutColumn* column = layout_.column(name)) return column - columns.data();
  std::string names;
  for (const LayoutColumn& column : columns) names += (names.empty() ? "" : ", ") + column.name;
  BadLine::throwException(fmt::format("row type {} has no column {}; expected one of {}",
                                      layout_.typeName(), inQuotes(name), names));
}

void RowReader::store(const LayoutColumn& column, const JsonValue& from,
                      Vane::ColumnValue& to) const {
  std::visit(
      [&]<class T>(T& held) {
        if (!convert(from, held)) throwValue(column, expected<T>(column), found(from));
        if constexpr (std::same_as<T, Wire::IpGenPrefix>) {
          if (column.isKey && held.family == AddressFamily::unset) {
            throwValue(column, expected<T>(column), found(from));
          }
          if (family_ != AddressFamily::unset && column.isKey && held.family != family_) {
            throwValue(column, familyName(family_), found(from));
          }
        }
      },
      to);
}

void RowReader::needKeys() const {
  for (size_t i = 0; i < given_.size(); ++i) {
    const LayoutColumn& column = layout_.columns()[i];
    if (column.isKey && !given_[i]) {
      BadLine::throwException(fmt::format("key column \"{}\": expected, not found", column.name));
    }
  }
}

}  // namespace Agent
