// vanectl watch: what happens to tables, as the agent tells it.
#include <fmt/format.h>

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <thread>

#include <unistd.h>

#include "tools/common/Exit.h"
#include "tools/vanectl/Client.h"
#include "tools/vanectl/Commands.h"
#include "tools/vanectl/Rows.h"

namespace VaneCtl {
namespace {

using Event = v1::WatchTablesResponse;
using Tools::absent;
using Tools::ExitCode;
using Tools::Failure;
using Tools::Style;

constexpr auto betweenTries = std::chrono::milliseconds(100);  // to reach an agent that has gone

class Watch {
 public:
  Watch(const Options& options, Tools::Output& out)
      : options_(options),
        records_(out, options.output,
                 {Tools::text("table", 18), Tools::number("change"), Tools::text("kind", 8),
                  Tools::text("key", 24), Tools::text("note", 12), Tools::object("row")}),
        left_(options.limit) {}

  void run() {
    records_.finish();  // the heading, before anything happens
    while (!done()) {
      try {
        follow();
      } catch (const Failure& failure) {
        if (failure.code() != ExitCode::stalled || !options_.reconnect) throw;
        if (!std::exchange(away_, true)) {
          Tools::complain("vanectl", fmt::format("{}; waiting for it", failure.what()));
        }
        std::this_thread::sleep_for(betweenTries);
      }
    }
  }

 private:
  // Where a table was left, and in which run of the agent.
  struct Place {
    uint64_t index = 0;
    uint64_t life = 0;
  };

  bool done() const { return left_ && *left_ == 0; }

  void follow() {
    Client client(options_.socket);
    forms_.clear();
    for (const v1::Table& table : client.tables()) forms_.emplace(table.name(), RowForm(table));
    grpc::ClientContext context;
    const auto reader = client.stub().WatchTables(&context, request(client));
    Event event;
    while (!done() && reader->Read(&event)) {
      away_ = false;
      take(event);
      records_.finish();
    }
    if (done()) context.TryCancel();
    const grpc::Status status = reader->Finish();
    if (!done()) check(status);
  }

  v1::WatchTablesRequest request(Client& client) const {
    v1::WatchTablesRequest request;
    request.set_snapshot(options_.snapshot);
    request.set_json(true);
    request.set_name(fmt::format("vanectl {}", ::getpid()));
    std::vector<std::string> names;
    for (const std::string& name : options_.tables) names.push_back(client.describe(name).name());
    if (names.empty()) {
      for (const auto& [name, form] : forms_) names.push_back(name);
    }
    for (const std::string& name : names) {
      auto& from = *request.add_tables();
      from.set_table(name);
      if (const auto place = places_.find(name); place != places_.end()) {
        from.set_after_index(place->second.index);
        from.set_life(place->second.life);
      } else if (options_.since) {
        from.set_after_index(*options_.since);
      }
    }
    return request;
  }

  void take(const Event& event) {
    Place& place = places_[event.table()];
    switch (event.event_case()) {
      case Event::kStart:
        place = {event.start().index(), event.start().life()};
        break;
      case Event::kResync:
        place = {event.resync().index(), event.resync().life()};
        record(event.table(), place.index, "resync", Style::bad, event.resync().reason());
        break;
      case Event::kSnapshot:
        for (const v1::Row& row : event.snapshot().rows()) {
          record(event.table(), std::nullopt, "entry", Style::usual, row);
        }
        break;
      case Event::kSnapshotEnd:
        place.index = event.snapshot_end().index();
        record(event.table(), place.index, "entries", Style::usual, "all have been told");
        break;
      case Event::kChanges:
        for (const auto& change : event.changes().changes()) takeChange(event, change, place);
        break;
      case Event::EVENT_NOT_SET:
        break;  // of a later version
    }
  }

  void takeChange(const Event& event, const Event::Change& change, Place& place) {
    if (done()) return;
    if (left_) --*left_;
    place.index = change.index();
    const bool removed = change.kind() == 2;
    record(event.table(), change.index(), removed ? "removed" : "set",
           removed ? Style::bad : Style::good, change.row());
  }

  void record(const std::string& table, uint64_t change, const char* kind, Style style,
              const std::string& note) {
    records_ << table << change << kind << style << absent << note << absent;
    records_.endRecord();
  }
  void record(const std::string& table, std::optional<uint64_t> change, const char* kind,
              Style style, const v1::Row& row) {
    records_ << table << change << kind << style << forms_.at(table).keyText(row) << absent
             << row.json();
    records_.endRecord();
  }

  const Options& options_;
  Tools::RecordWriter records_;
  std::optional<uint64_t> left_;  // changes to show before the end
  std::map<std::string, RowForm> forms_;
  std::map<std::string, Place> places_;
  bool away_ = false;
};

}  // namespace

void watchTables(const Options& options, Tools::Output& out) { Watch(options, out).run(); }

}  // namespace VaneCtl
