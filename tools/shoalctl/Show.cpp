// shoalctl show, get and dump: rows as they are read, in slot order.
#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <string_view>

#include "tools/common/Exit.h"
#include "tools/shoalctl/Commands.h"
#include "tools/shoalctl/Names.h"
#include "tools/shoalctl/Table.h"

namespace ShoalCtl {
namespace {

using Tools::ExitCode;
using Tools::Failure;
using Tools::RecordWriter;

// Whether `inner` is `outer` or lies inside it.
bool contains(const Wire::IpGenPrefix& outer, const Wire::IpGenPrefix& inner) {
  if (inner.family != outer.family || inner.length < outer.length) return false;
  const size_t whole = outer.length / 8;
  const unsigned rest = outer.length % 8;
  if (!std::equal(outer.bytes.begin(), outer.bytes.begin() + whole, inner.bytes.begin())) {
    return false;
  }
  return rest == 0 || ((outer.bytes[whole] ^ inner.bytes[whole]) >> (8 - rest)) == 0;
}

// Which entries of a table are wanted. Looks at entries, not at rows.
class Wanted {
 public:
  Wanted(const Table& table, const Filter& filter) : kind_(table.kind()), filter_(filter) {
    const auto needs = [&](bool given, bool possible, const char* option, const char* what) {
      if (!given || possible) return;
      throw Failure(ExitCode::usage,
                    fmt::format("{}: table {} has no {}", option, table.name(), what));
    };
    needs(filter.prefix.has_value(), kind_.isRoute(), "--prefix", "prefixes");
    needs(filter.type.has_value(), kind_.isRoute(), "--type", "destinations");
    needs(filter.vrf.has_value(), kind_.hasVrf(), "--vrf", "routing instances");
    all_ = !filter.prefix && !filter.type && !filter.vrf;
    if (filter.prefix) prefix_ = parsePrefix(*filter.prefix);
  }

  bool operator()(Shoal::Bytes entry) const {
    if (all_) return true;
    const Route route = kind_.route(entry);
    return (!filter_.type || route.to.type == *filter_.type) &&
           (!filter_.vrf || route.vrf == *filter_.vrf) && (!filter_.prefix || isIn(route.prefix));
  }

 private:
  static Wire::IpGenPrefix parsePrefix(const std::string& text) {
    const auto prefix = Wire::IpGenPrefix::parse(text);
    if (prefix) return *prefix;
    throw Failure(
        ExitCode::usage,
        fmt::format("--prefix: expected a prefix such as 10.0.0.0/8, found \"{}\"", text));
  }
  bool isIn(const Wire::IpGenPrefix& prefix) const {
    return filter_.longer ? contains(prefix_, prefix) : prefix == prefix_;
  }

  const Kind& kind_;
  const Filter& filter_;
  Wire::IpGenPrefix prefix_;
  bool all_ = true;
};

// The tables that others lead to come first, so that whoever loads them in this order never meets a
// row that leads to nothing.
int rank(const std::string& name) {
  return name == "VaneEcmpMember" ? 0 : name == "VaneEcmpGroup" ? 1 : 2;
}

std::vector<Table> tablesInOrder(const Options& options) {
  std::vector<Table> tables;
  if (options.tables.empty()) {
    for (const std::string& path : tablePaths(options.root))
      tables.emplace_back(options.root, path);
  } else {
    for (const std::string& name : options.tables) tables.push_back(openTable(options.root, name));
  }
  std::ranges::stable_sort(tables, {}, [](const Table& table) { return rank(table.name()); });
  return tables;
}

}  // namespace

void showEntries(const Options& options, Tools::Output& out) {
  if (options.key) return getEntry(options, out);
  const Table table = openTable(options.root, options.table);
  const Filter& filter = options.filter;
  const Wanted wanted(table, filter);
  std::optional<KeyBytes> after;
  if (filter.after) after = table.kind().parseKey(*filter.after);
  RecordWriter records(out, options.output, table.columns());
  uint64_t left = filter.limit.value_or(std::numeric_limits<uint64_t>::max());
  if (left != 0) {
    table.walk(after, [&](Shoal::Bytes entry) {
      table.needEntry(entry);
      if (!wanted(entry)) return true;
      table.kind().write(entry, records);
      records.endRecord();
      return --left != 0;
    });
  }
  records.finish();
}

void getEntry(const Options& options, Tools::Output& out) {
  const Table table = openTable(options.root, options.table);
  RecordWriter records(out, options.output, table.columns());
  const auto entry = table.find(table.kind().parseKey(*options.key));
  if (!entry) {
    throw Failure(ExitCode::absent,
                  fmt::format("table {} has no key {}", options.table, *options.key));
  }
  table.kind().write(*entry, records);
  records.endRecord();
  records.finish();
}

void dumpTables(const Options& options, Tools::Output& out) {
  const auto tables = tablesInOrder(options);
  Tools::OutputOptions output = options.output;
  output.format = output.format.value_or(Tools::Format::json);
  RecordWriter records(out, output, {Tools::text("table", 18), Tools::object("row")});
  for (const Table& table : tables) {
    table.walk([&](Shoal::Bytes entry) {
      table.needEntry(entry);
      records << table.name() << table.kind().json(entry);
      records.endRecord();
      return true;
    });
  }
  records.finish();
}

}  // namespace ShoalCtl
