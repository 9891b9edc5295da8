// vanectl status: how the agent and its tables are.
#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "tools/vanectl/Client.h"
#include "tools/vanectl/Commands.h"

namespace VaneCtl {
namespace {

using Tools::number;
using Tools::RecordWriter;
using Tools::text;
using Json = nlohmann::ordered_json;

Json agentOf(const v1::Status& status) {
  return {{"pid", status.pid()},
          {"uptimeSeconds", status.uptime_seconds()},
          {"version", status.version()},
          {"shoalRoot", status.shoal_root()},
          {"logLevel", status.log_level()},
          {"listening",
           Json(std::vector<std::string>(status.listening().begin(), status.listening().end()))},
          {"p4Writes", status.p4_writes()},
          {"p4Reads", status.p4_reads()}};
}

Json tableOf(const v1::Status::TableStatus& table) {
  return {{"name", table.name()},
          {"entries", table.entries()},
          {"capacity", table.capacity()},
          {"writes", table.writes()},
          {"deletes", table.deletes()},
          {"errors", table.errors()},
          {"oldestChange", table.oldest_change_index()},
          {"latestChange", table.latest_change_index()}};
}

Json observerOf(const v1::Status::Observer& observer) {
  return {{"observer", observer.name()},
          {"table", observer.table()},
          {"reached", observer.reached()},
          {"lag", observer.lag()}};
}

// Everything as one object: agent, tables, errors by reason, observers.
Json all(const v1::Status& status) {
  Json tables = Json::array();
  for (const auto& table : status.tables()) tables.push_back(tableOf(table));
  Json errors = Json::object();
  for (const auto& error : status.errors()) errors[error.reason()] = error.count();
  Json observers = Json::array();
  for (const auto& observer : status.observers()) observers.push_back(observerOf(observer));
  return {
      {"agent", agentOf(status)}, {"tables", tables}, {"errors", errors}, {"observers", observers}};
}

std::string plain(const Json& value) {
  if (value.is_string()) return value.get<std::string>();
  if (!value.is_array()) return value.dump();
  std::string joined;
  for (const auto& element : value) joined += (joined.empty() ? "" : " ") + plain(element);
  return joined;
}

// Everything as records of one form.
void writeItems(const v1::Status& status, RecordWriter& records) {
  const auto item = [&](const char* part, const std::string& name, const std::string& what,
                        const Json& value) {
    records << part << name << what << plain(value);
    records.endRecord();
  };
  const Json agent = agentOf(status);
  for (const auto& [what, value] : agent.items()) item("agent", "", what, value);
  for (const auto& table : status.tables()) {
    const Json members = tableOf(table);
    for (const auto& [what, value] : members.items()) {
      if (what != "name") item("table", table.name(), what, value);
    }
  }
  for (const auto& error : status.errors()) item("error", error.reason(), "count", error.count());
  for (const auto& observer : status.observers()) {
    const std::string name = fmt::format("{} {}", observer.name(), observer.table());
    item("observer", name, "reached", observer.reached());
    item("observer", name, "lag", observer.lag());
  }
}

// For people: a table for each part.
void writeParts(const v1::Status& status, const Options& options, Tools::Output& out) {
  const Json agent = agentOf(status);
  for (const auto& [what, value] : agent.items()) {
    out.write(fmt::format("{:<14}{}\n", what, plain(value)));
  }
  out.write("\n");
  RecordWriter tables(out, options.output,
                      {text("table", 18), number("entries", 9), number("capacity", 9),
                       number("writes", 9), number("deletes", 9), number("errors", 9),
                       number("oldestChange", 12), number("latestChange", 12)});
  for (const auto& table : status.tables()) {
    tables << table.name() << table.entries() << table.capacity() << table.writes()
           << table.deletes() << table.errors() << table.oldest_change_index()
           << table.latest_change_index();
    tables.endRecord();
  }
  tables.finish();
  if (!status.errors().empty()) {
    out.write("\n");
    RecordWriter errors(out, options.output, {text("error", 28), number("count", 9)});
    for (const auto& error : status.errors()) {
      errors << error.reason() << error.count();
      errors.endRecord();
    }
    errors.finish();
  }
  if (!status.observers().empty()) {
    out.write("\n");
    RecordWriter observers(
        out, options.output,
        {text("observer", 18), text("table", 18), number("reached", 12), number("lag", 9)});
    for (const auto& observer : status.observers()) {
      observers << observer.name() << observer.table() << observer.reached() << observer.lag();
      observers.endRecord();
    }
    observers.finish();
  }
}

}  // namespace

void showStatus(const Options& options, Tools::Output& out) {
  Client client(options.socket);
  const auto status = client.call(&v1::RowDatabase::Stub::GetStatus, v1::GetStatusRequest());
  const auto format = formatOf(options.output, out);
  if (format == Tools::Format::json) {
    out.write(all(status).dump() + "\n");
  } else if (format == Tools::Format::table && options.output.columns.empty()) {
    writeParts(status, options, out);
  } else {
    RecordWriter records(out, options.output,
                         {text("part", 8), text("name", 24), text("what", 14), text("value", 20)});
    writeItems(status, records);
    records.finish();
  }
}

}  // namespace VaneCtl
