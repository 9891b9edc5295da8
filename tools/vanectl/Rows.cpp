#include "tools/vanectl/Rows.h"

#include <fmt/format.h>

#include <charconv>
#include <concepts>
#include <cstring>
#include <type_traits>
#include <utility>
#include <variant>

#include "platform/Vane/ColumnKinds.h"
#include "tools/common/Exit.h"
#include "tools/common/Nearest.h"

namespace VaneCtl {
namespace {

using Tools::ExitCode;
using Tools::Failure;
using Vane::ColumnType;
using Vane::LayoutColumn;

Vane::RowMetadata metadataOf(const v1::Table& table) {
  Vane::RowMetadata metadata;
  metadata.typeName = table.row_type();
  metadata.signature = table.signature();
  metadata.keyColumns = {table.key_columns().begin(), table.key_columns().end()};
  metadata.baseRowLength = static_cast<uint16_t>(table.fixed_length());
  return metadata;
}

Tools::Column columnOf(const LayoutColumn& column) {
  switch (column.type) {
    case ColumnType::boolean:
      return Tools::truth(column.name);
    case ColumnType::ethAddr:
    case ColumnType::prefix:
    case ColumnType::addr:
      return Tools::text(column.name, 18);
    case ColumnType::u32Array:
      return Tools::list(column.name);
    default:
      return Tools::number(column.name);
  }
}

std::vector<std::string> split(const std::string& text) {
  std::vector<std::string> parts;
  for (size_t from = 0; from <= text.size();) {
    const size_t comma = std::min(text.find(',', from), text.size());
    parts.push_back(text.substr(from, comma - from));
    from = comma + 1;
  }
  return parts;
}

std::string textOf(const Vane::ColumnValue& value) {
  return std::visit(
      []<class T>(const T& held) -> std::string {
        if constexpr (std::integral<T>) {
          return std::to_string(held);
        } else if constexpr (Tools::HasText<T>) {
          return held.text();
        } else {
          return fmt::format("{} elements", held.size());
        }
      },
      value);
}

void appendValue(std::string& to, std::integral auto number) {
  char digits[20];
  to.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}
void appendValue(std::string& to, bool value) { to += value ? "true" : "false"; }
// Addresses have no character that JSON has a meaning for.
void appendValue(std::string& to, const Tools::HasText auto& value) {
  to += '"';
  to += value.text();
  to += '"';
}
void appendValue(std::string& to, const std::vector<uint32_t>& elements) {
  to += '[';
  for (const uint32_t& element : elements) {
    if (&element != elements.data()) to += ", ";
    appendValue(to, element);
  }
  to += ']';
}

// Calls `each` with the value of a column, of its own type. requires: the row has its fixed area.
template <class Each, class... Kinds>
void withValue(const Vane::BaseRow& row, const LayoutColumn& column, const Each& each,
               std::type_identity<std::variant<Kinds...>>) {
  size_t type = 0;
  static_cast<void>(((static_cast<size_t>(column.type) == type++ &&
                      (each(Vane::columnValue<Kinds>(row, column.offset)), true)) ||
                     ...));
}

v1::Row ofJson(std::string text) {
  v1::Row row;
  row.set_json(std::move(text));
  return row;
}

bool isJson(const std::string& text) { return text.starts_with('{'); }

bool isNumber(const std::string& text) {
  const size_t digits = text.find_first_of("0123456789");
  return digits != std::string::npos && digits <= (text.starts_with('-') ? 1u : 0u) &&
         text.find_first_not_of("0123456789", digits) == std::string::npos &&
         (text[digits] != '0' || text.size() == digits + 1);
}

}  // namespace

RowForm::RowForm(const v1::Table& table)
    : table_(table.name()),
      keyNames_(table.key_columns().begin(), table.key_columns().end()),
      layout_(metadataOf(table)) {
  for (const LayoutColumn& column : layout_.columns()) {
    std::string& head = jsonHeads_.emplace_back(jsonHeads_.empty() ? "{" : ", ");
    Tools::appendJson(head, column.name);
    head += ':';
  }
}

std::vector<Tools::Column> RowForm::columns() const {
  std::vector<Tools::Column> columns;
  for (const LayoutColumn& column : layout_.columns()) columns.push_back(columnOf(column));
  return columns;
}

const Vane::BaseRow& RowForm::unpacked(const v1::Row& row) const {
  const std::string& bytes = row.packed();
  if (bytes.size() < layout_.fixedLength() || bytes.size() > Vane::maxRowLength) {
    throw Failure(ExitCode::refused,
                  fmt::format("table {}: the agent sent a row of {} bytes", table_, bytes.size()));
  }
  if (unpacked_.isNull() || unpacked_.buffer()->length() != bytes.size()) {
    unpacked_ = Vane::BaseRow(static_cast<Vane::len_t>(bytes.size()));
  }
  std::memcpy(unpacked_.buffer()->data(), bytes.data(), bytes.size());
  return unpacked_;
}

void RowForm::write(const v1::Row& message, Tools::RecordWriter& records) const {
  const Vane::BaseRow& row = unpacked(message);
  for (const LayoutColumn& column : layout_.columns()) {
    std::visit([&](const auto& value) { records << value; }, layout_.value(row, column));
  }
  records.endRecord();
}

void RowForm::appendJson(std::string& to, const v1::Row& message) const {
  const Vane::BaseRow& row = unpacked(message);
  row.needFixedArea(layout_.fixedLength());
  for (size_t i = 0; i < jsonHeads_.size(); ++i) {
    to += jsonHeads_[i];
    withValue(
        row, layout_.columns()[i], [&](const auto& value) { appendValue(to, value); },
        std::type_identity<Vane::ColumnValue>());
  }
  to += '}';
}

std::string RowForm::keyText(const v1::Row& message) const {
  const Vane::BaseRow& row = unpacked(message);
  std::string text;
  for (const LayoutColumn* column : keyColumns()) {
    if (!text.empty()) text += ',';
    text += textOf(layout_.value(row, *column));
  }
  return text;
}

std::vector<const LayoutColumn*> RowForm::keyColumns() const {
  std::vector<const LayoutColumn*> columns;
  for (const std::string& name : keyNames_) columns.push_back(layout_.column(name));
  return columns;
}

v1::Row RowForm::key(const std::string& text) const {
  if (isJson(text)) return ofJson(text);
  const auto columns = keyColumns();
  const auto values = split(text);
  if (values.size() != columns.size()) {
    std::string form;
    for (const std::string& name : keyNames_) form += (form.empty() ? "" : ",") + name;
    throw Failure(ExitCode::usage,
                  fmt::format("key of table {}: expected {}, found \"{}\"", table_, form, text));
  }
  std::string members;
  for (size_t i = 0; i < columns.size(); ++i) {
    if (!members.empty()) members += ',';
    members += json(*columns[i], values[i]);
  }
  return ofJson("{" + members + "}");
}

v1::Row RowForm::row(const std::vector<std::string>& words) const {
  if (words.size() == 1 && isJson(words.front())) return ofJson(words.front());
  std::string members;
  for (const std::string& word : words) {
    const size_t equals = word.find('=');
    if (equals == std::string::npos) {
      throw Failure(ExitCode::usage,
                    fmt::format("expected COLUMN=VALUE or a JSON object, found \"{}\"", word));
    }
    const std::string name = word.substr(0, equals);
    const LayoutColumn* column = layout_.column(name);
    if (column == nullptr) {
      std::vector<std::string> names;
      for (const LayoutColumn& known : layout_.columns()) names.push_back(known.name);
      throw Failure(ExitCode::usage, Tools::unknownName("column", name, names));
    }
    if (!members.empty()) members += ',';
    members += json(*column, word.substr(equals + 1));
  }
  return ofJson("{" + members + "}");
}

// What is no number stays a text: the agent says what it expected instead.
std::string RowForm::json(const LayoutColumn& column, const std::string& text) const {
  std::string member;
  Tools::appendJson(member, column.name);
  member += ':';
  const auto append = [&member](const std::string& value, bool verbatim) {
    verbatim ? static_cast<void>(member += value) : Tools::appendJson(member, value);
  };
  switch (columnOf(column).type) {
    case Tools::ColumnType::truth:
      append(text, text == "true" || text == "false");
      break;
    case Tools::ColumnType::number:
      append(text, isNumber(text));
      break;
    case Tools::ColumnType::list:
      member += '[';
      if (!text.empty()) {
        for (const std::string& element : split(text)) {
          if (!member.ends_with('[')) member += ',';
          append(element, isNumber(element));
        }
      }
      member += ']';
      break;
    default:
      append(text, false);
  }
  return member;
}

}  // namespace VaneCtl
