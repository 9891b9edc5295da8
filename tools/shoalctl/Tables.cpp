// shoalctl tables and shoalctl summary: a record for each table.
#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <set>

#include "platform/Shoal/SharedTable.h"
#include "tools/common/Exit.h"
#include "tools/shoalctl/Commands.h"
#include "tools/shoalctl/Names.h"
#include "tools/shoalctl/Table.h"

namespace ShoalCtl {
namespace {

using Tools::absent;
using Tools::number;
using Tools::RecordWriter;
using Tools::text;

// Shows every table with `show`; one that cannot be read does not keep the others from it.
template <class Show>
void forEachTable(const Options& options, RecordWriter& records, Show&& show) {
  std::optional<Tools::Failure> failure;
  for (const std::string& path : tablePaths(options.root)) {
    try {
      show(path);
    } catch (const Tools::Failure& cause) {
      Tools::complain("shoalctl", cause.what());
      failure = Tools::Failure(cause.code(), "not every table could be read");
    }
  }
  records.finish();
  if (failure) throw *failure;
}

// What the entries of a table come to.
struct Summary {
  uint64_t members = 0, groups = 0, others = 0;  // routes that lead to one
  std::optional<unsigned> shortest, longest;     // prefixes, in bits
  std::set<uint32_t> vrfs;

  void add(const Route& route) {
    const unsigned length = route.prefix.length;
    shortest = std::min(shortest.value_or(length), length);
    longest = std::max(longest.value_or(length), length);
    if (route.vrf) vrfs.insert(*route.vrf);
    ++(route.to.type == Reference::member  ? members
       : route.to.type == Reference::group ? groups
                                           : others);
  }
};

void writeSummary(const Table& table, RecordWriter& records) {
  const bool isRoute = table.kind().isRoute();
  Summary summary;
  uint64_t entries = 0;
  table.walk([&](Shoal::Bytes entry) {
    table.needEntry(entry);
    ++entries;
    if (isRoute) summary.add(table.kind().route(entry));
    return true;
  });
  records << table.name() << entries
          << fmt::format("{:.1f}%", 100.0 * static_cast<double>(entries) /
                                        static_cast<double>(table.store()->capacity()));
  if (!isRoute) {
    records << absent << absent << absent << absent << absent << absent;
  } else {
    records << summary.members << summary.groups << summary.others << summary.shortest
            << summary.longest;
    table.kind().hasVrf() ? records << summary.vrfs.size() : records << absent;
  }
  records.endRecord();
}

}  // namespace

void listTables(const Options& options, Tools::Output& out) {
  RecordWriter records(out, options.output,
                       {text("name", 18), number("entries", 9), number("capacity", 9),
                        number("bytes", 12), number("generation"), number("changes", 9),
                        number("writer", 8), text("type", 38), text("path", 45)});
  forEachTable(options, records, [&](const std::string& path) {
    const auto table =
        attaching(options.root, path, [&] { return Shoal::tableStatus(options.root, path); });
    records << rowDatabaseName(path) << table.entries << table.capacity << table.bytes
            << table.generation << table.changes;
    table.writerPid != 0 ? records << table.writerPid : records << absent;
    records << table.layout.typeName << path;
    records.endRecord();
  });
}

void summarize(const Options& options, Tools::Output& out) {
  RecordWriter records(out, options.output,
                       {text("name", 18), number("entries", 9), text("used", 6),
                        number("toMember", 9), number("toGroup", 9), number("toOther", 9),
                        number("shortest", 8), number("longest", 8), number("vrfs", 6)});
  forEachTable(options, records,
               [&](const std::string& path) { writeSummary(Table(options.root, path), records); });
}

}  // namespace ShoalCtl
