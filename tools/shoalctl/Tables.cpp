#include "tools/shoalctl/Tables.h"

#include <fmt/format.h>

#include <cstdio>
#include <nlohmann/json.hpp>
#include <optional>

#include "platform/Shoal/SharedTable.h"
#include "tools/shoalctl/Failure.h"
#include "tools/shoalctl/Names.h"

namespace ShoalCtl {
namespace {

void showLine(const Shoal::TableStatus& table) {
  fmt::print("{:<20} {:>9} {:>9} {:>12} {:>10} {:>8}  {}\n", rowDatabaseName(table.path),
             table.entries, table.capacity, table.bytes, table.generation,
             table.writerPid ? std::to_string(table.writerPid) : "none", table.path);
}

void showJson(const Shoal::TableStatus& table) {
  const nlohmann::ordered_json line{
      {"name", rowDatabaseName(table.path)},
      {"path", table.path},
      {"type", table.layout.typeName},
      {"entries", table.entries},
      {"capacity", table.capacity},
      {"bytes", table.bytes},
      {"generation", table.generation},
      {"changes", table.changes},
      {"writer",
       table.writerPid ? nlohmann::ordered_json(table.writerPid) : nlohmann::ordered_json()},
  };
  fmt::print("{}\n", line.dump());
}

}  // namespace

void showTables(const Options& options) {
  std::optional<Failure> failure;
  const auto paths = tablePaths(options.root);
  if (!options.json) {
    fmt::print("{:<20} {:>9} {:>9} {:>12} {:>10} {:>8}  {}\n", "table", "entries", "capacity",
               "bytes", "generation", "writer", "path");
  }
  for (const std::string& path : paths) {
    try {
      attach(options.root, path);  // says by its failure what is wrong, if anything is
      const auto table = Shoal::tableStatus(options.root, path);
      options.json ? showJson(table) : showLine(table);
    } catch (const Failure& cause) {
      fmt::print(stderr, "shoalctl: {}\n", cause.what());
      failure = Failure(cause.status(), "not every table could be read");
    }
  }
  if (failure) throw *failure;
}

}  // namespace ShoalCtl
