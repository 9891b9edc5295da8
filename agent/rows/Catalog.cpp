#include "agent/rows/Catalog.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "Vane/detail/bytes.h"
#include "agent/Command.h"
#include "agent/RowReader.h"
#include "agent/Tables.h"
#include "agent/rows/Refusal.h"
#include "tools/common/Nearest.h"

namespace Agent::Rows {
namespace {

using Vane::BaseRow;
using Vane::ColumnType;
using Vane::LayoutColumn;
using Wire::AddressFamily;

[[noreturn]] void refuse(const std::string& text) {
  throw Refusal(grpc::StatusCode::INVALID_ARGUMENT, text);
}

bool hasBody(ColumnType type) {
  return type == ColumnType::prefix || type == ColumnType::addr || type == ColumnType::u32Array;
}

}  // namespace

// Hears of every change of the table, and moves the place up to which its log is kept.
class OfferedTable::Counter final : public Vane::VaTableObserver {
 public:
  void onChange(uint64_t, uint64_t index, bool deleted, const BaseRow&) override {
    ++(deleted ? deletes : writes);
    if (place && index > span) place->reached = std::max(place->reached, index - span);
  }

  uint64_t writes = 0;
  uint64_t deletes = 0;
  std::shared_ptr<Vane::VaTableImplementation::ReaderPlace> place;
  uint64_t span = 0;
};

OfferedTable::OfferedTable(std::string name, std::shared_ptr<Vane::VaTableImplementation> table)
    : name_(std::move(name)),
      family_(AddressFamily::unset),
      table_(std::move(table)),
      layout_(Vane::RowLayout::of(table_->rowTypeName())),
      metadata_(*Vane::rowMetadata(table_->rowTypeName())),
      rowTypeId_(table_->rowTypeId()),
      counter_(std::make_shared<Counter>()) {
  if (const TableInfo* info = tableInfo(name_)) {
    path_ = info->path;
    family_ = info->family;
  }
  table_->observerIs(counter_);
}

OfferedTable::~OfferedTable() { table_->observerDel(counter_); }

uint64_t OfferedTable::writes() const { return counter_->writes; }
uint64_t OfferedTable::deletes() const { return counter_->deletes; }

void OfferedTable::keepHistory(uint64_t span) {
  if (counter_->place) return;
  counter_->span = span;
  counter_->place = table_->registerReader(table_->oldestChangeIdx());
}

BaseRow OfferedTable::rowOf(const v1::Row& message) const {
  if (message.packed().empty() == message.json().empty()) {
    refuse("row: expected its packed bytes or its JSON, found " +
           std::string(message.json().empty() ? "neither" : "both"));
  }
  if (!message.packed().empty()) return unpacked(message.packed());
  RowReader reader(layout_, family_);
  CommandParser parser;
  return layout_.row(rowTypeId_, reader.read(parser.parseRow(message.json())));
}

BaseRow OfferedTable::unpacked(const std::string& bytes) const {
  if (bytes.size() < layout_.fixedLength() || bytes.size() > Vane::maxRowLength) {
    refuse(fmt::format("packed row: expected {} to {} bytes, found {}", layout_.fixedLength(),
                       Vane::maxRowLength, bytes.size()));
  }
  BaseRow row(static_cast<Vane::len_t>(bytes.size()));
  std::memcpy(row.buffer()->data(), bytes.data(), bytes.size());
  if (row.rowLength() != bytes.size()) {
    refuse(fmt::format("packed row: its header says {} bytes, there are {}", row.rowLength(),
                       bytes.size()));
  }
  if (row.rowType() != rowTypeId_) {
    refuse(fmt::format("packed row: expected row type {}, which is {} in this run, found {}",
                       rowTypeId_, layout_.typeName(), row.rowType()));
  }
  std::vector<Vane::ColumnValue> values;
  for (const LayoutColumn& column : layout_.columns()) {
    if (hasBody(column.type)) checkBody(bytes, column);
    values.push_back(layout_.value(row, column));
    if (const auto* prefix = std::get_if<Wire::IpGenPrefix>(&values.back())) {
      checkPrefix(column, *prefix);
    }
  }
  return layout_.row(rowTypeId_, values);
}

// A body lies behind the fixed area; that it ends in the row is checked when it is read.
void OfferedTable::checkBody(const std::string& bytes, const LayoutColumn& column) const {
  const auto* descriptor = reinterpret_cast<const uint8_t*>(bytes.data()) + column.offset;
  const auto offset = Vane::detail::loadLe<uint16_t>(descriptor);
  const auto length = Vane::detail::loadLe<uint16_t>(descriptor + 2) & 0x7FFF;
  if (length != 0 && offset < layout_.fixedLength()) {
    refuse(
        fmt::format("packed row: column \"{}\": its data lies at {}, inside the fixed area of "
                    "{} bytes",
                    column.name, offset, layout_.fixedLength()));
  }
}

// A row carries any length and any host bits; a table must not.
void OfferedTable::checkPrefix(const LayoutColumn& column, const Wire::IpGenPrefix& prefix) const {
  const auto complain = [&](std::string_view expected) {
    refuse(fmt::format("packed row: column \"{}\": expected {}", column.name, expected));
  };
  if (prefix.family != AddressFamily::unset) {
    const bool fits = prefix.length <= 8 * Wire::addressLength(prefix.family);
    if (!fits || Wire::IpGenPrefix::parse(prefix.text()) != prefix) {
      complain("a prefix of its family's length, without host bits");
    }
  }
  if (!column.isKey) return;
  if (prefix.family == AddressFamily::unset) complain("a prefix, found none");
  if (family_ != AddressFamily::unset && prefix.family != family_) {
    complain(family_ == AddressFamily::ipv4 ? "an IPv4 prefix" : "an IPv6 prefix");
  }
}

void OfferedTable::toMessage(const BaseRow& row, bool json, v1::Row& message) const {
  message.set_packed(row.buffer()->data() + row.rowOffset(), row.rowLength());
  if (json) message.set_json(metadata_.toJson(row));
}

BaseRow OfferedTable::keyOf(const BaseRow& row) const {
  std::vector<Vane::ColumnValue> values;
  for (const LayoutColumn& column : layout_.columns()) {
    values.push_back(column.isKey ? layout_.value(row, column) : Vane::zeroValue(column.type));
  }
  return layout_.row(rowTypeId_, values);
}

bool OfferedTable::sameKey(const BaseRow& a, const BaseRow& b) const {
  return std::ranges::all_of(layout_.columns(), [&](const LayoutColumn& column) {
    return !column.isKey || layout_.value(a, column) == layout_.value(b, column);
  });
}

bool OfferedTable::isGone(const BaseRow& row) const {
  return std::ranges::all_of(layout_.columns(), [&](const LayoutColumn& column) {
    return layout_.value(row, column) == Vane::zeroValue(column.type);
  });
}

Catalog::Catalog(const Vane::VaneDB& database) {
  for (const std::string& name : database.tableNames()) {
    tables_.push_back(std::make_unique<OfferedTable>(name, database.table(name)));
  }
}

OfferedTable& Catalog::table(const std::string& name) const {
  const TableInfo* info = tableInfo(name);
  const std::string_view wanted = info ? info->name : std::string_view(name);
  std::vector<std::string> names;
  for (const auto& table : tables_) {
    if (table->name() == wanted) return *table;
    names.push_back(table->name());
  }
  constexpr size_t longest = 64;  // of a name worth comparing
  throw Refusal(grpc::StatusCode::NOT_FOUND,
                Tools::unknownName("table", name.substr(0, longest), names));
}

}  // namespace Agent::Rows
