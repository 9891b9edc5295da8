// shoalctl watch: the changes of tables, as their writers tell them in the tables' own rings.
//
// A table is watched from attach to removal; what is found in its place then is a new table, whose
// changes are numbered afresh. Writers come and go in between and go on with the numbers.
#include <fmt/format.h>
#include <sys/stat.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string_view>
#include <thread>
#include <utility>

#include "tools/common/Exit.h"
#include "tools/shoalctl/Commands.h"
#include "tools/shoalctl/Names.h"
#include "tools/shoalctl/Table.h"

namespace ShoalCtl {
namespace {

using Shoal::ChangeFollower;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using Tools::absent;
using Tools::ExitCode;
using Tools::Failure;
using Tools::RecordWriter;
using Tools::Style;

constexpr milliseconds longestSleep{20};   // of one table, while others may have changes
constexpr milliseconds betweenLooks{100};  // at who writes a table
constexpr size_t changesAtATime = 256;

// Tells one file from another that took its name.
struct FileId {
  dev_t device = 0;
  ino_t inode = 0;
  friend bool operator==(const FileId&, const FileId&) = default;
};
std::optional<FileId> idOf(const std::filesystem::path& file) {
  struct stat status;
  if (::stat(file.c_str(), &status) != 0) return std::nullopt;
  return FileId{status.st_dev, status.st_ino};
}

// What all watched tables share.
struct Watching {
  const Options& options;
  RecordWriter records;
  uint64_t left;  // changes to show before the end

  void record(const std::string& table, std::optional<uint64_t> change, const char* kind,
              Style style, const std::string& note = {}) {
    records << table << change << kind << style << absent;
    note.empty() ? records << absent : records << note;
    records << absent;
    records.endRecord();
  }
};

class WatchedTable {
 public:
  WatchedTable(Watching& watching, const std::string& path)
      : watching_(watching), path_(path), name_(rowDatabaseName(path)) {
    attach(watching.options.watch.since);
    table_->kind();  // known, or refused at once
    lookAtWriter();
    if (watching.options.watch.snapshot) snapshot();
  }

  // Shows the changes that are ready; whether there were any.
  bool showChanges() {
    if (steady_clock::now() >= nextLook_) look();
    if (!table_) return false;
    ChangeFollower::Changes changes;
    const auto limit = std::min<uint64_t>(changesAtATime, watching_.left);
    const uint64_t before = follower_->position();
    const auto result = follower_->take(changes, limit);
    for (const auto& change : changes) show(change);
    if (result == ChangeFollower::Result::missed) {
      resync(fmt::format("changes {} to {} are missed", before + 1, follower_->position()));
    }
    return result != ChangeFollower::Result::none;
  }

  void sleep() const {
    if (table_) {
      follower_->wait(longestSleep);
    } else {
      std::this_thread::sleep_for(longestSleep);
    }
  }

 private:
  void attach(std::optional<uint64_t> since) {
    const auto& root = watching_.options.root;
    const auto file = Shoal::tableFile(root, path_);
    // Once more if the file was changed for another meanwhile.
    for (std::optional<FileId> id; !id || id != file_;) {
      id = idOf(file);
      table_ = std::make_unique<Table>(root, path_);
      file_ = idOf(file);
    }
    follower_ = Shoal::follow(table_->store(), since);
  }

  // Who writes the table, and whether it is still the same table.
  void look() {
    nextLook_ = steady_clock::now() + betweenLooks;
    const auto file = idOf(Shoal::tableFile(watching_.options.root, path_));
    if (table_ && file != file_) return gone();
    if (!table_ && file) return comeBack();
    if (table_) lookAtWriter();
  }

  void lookAtWriter() {
    Shoal::TableStatus status;
    try {
      status = Shoal::tableStatus(watching_.options.root, path_);
    } catch (const Shoal::AttachException&) {
      return;  // it has just gone; the next look tells
    }
    // Before a process has raised the generation it holds the lock of a table that is not yet its
    // own.
    const std::pair<int32_t, uint64_t> now{status.writerPid, status.generation};
    const bool endedBefore = writer_ == std::pair<int32_t, uint64_t>{0, status.generation};
    if (endedBefore || std::exchange(writer_, now) == now) return;
    if (status.writerPid != 0) {
      watching_.record(
          name_, status.changes, "writer", Style::good,
          fmt::format("process {}, generation {}", status.writerPid, status.generation));
    } else {
      noWriter("noWriter", status.changes,
               fmt::format("generation {} has ended", status.generation));
    }
  }

  void noWriter(const char* kind, std::optional<uint64_t> change, const std::string& note) {
    watching_.record(name_, change, kind, Style::bad, note);
    if (watching_.options.watch.needsWriter) {
      throw Failure(ExitCode::stalled, fmt::format("table {} has no writer", name_));
    }
  }

  // What its last writer left in the ring is shown first.
  void gone() {
    ChangeFollower::Changes changes;
    while (watching_.left != 0 && follower_->take(changes, 1) == ChangeFollower::Result::changes) {
      show(changes.back());
    }
    table_.reset();
    follower_.reset();
    writer_.reset();
    noWriter("gone", std::nullopt, "the table has been removed");
  }

  // Everything in the new table is news, and all that was in the old one has gone.
  void comeBack() {
    try {
      attach(0);
    } catch (const Failure& failure) {
      if (failure.code() == ExitCode::absent) return;
      throw;
    }
    table_->kind();
    resync("another table has taken its place");
    lookAtWriter();
  }

  // Changes up to the follower's place are in the entries that a walk from now on finds.
  void resync(const std::string& note) {
    watching_.record(name_, follower_->position(), "resync", Style::bad, note);
    if (watching_.options.watch.snapshot) snapshot();
  }

  void snapshot() {
    table_->walk([&](Shoal::Bytes entry) {
      table_->needEntry(entry);
      row("entry", follower_->position(), table_->keyOf(entry), Style::usual, entry);
      return true;
    });
  }

  void show(const ChangeFollower::Change& change) {
    if (watching_.left == 0) return;
    --watching_.left;
    if (change.removed) {
      row("removed", change.number, change.key, Style::bad, {});
    } else {
      const auto entry = table_->find(change.key);
      row("set", change.number, change.key, Style::good,
          entry ? Shoal::Bytes(*entry) : Shoal::Bytes{});
    }
  }

  // An empty `entry`: there is none.
  void row(const char* kind, uint64_t change, Shoal::Bytes key, Style style, Shoal::Bytes entry) {
    RecordWriter& records = watching_.records;
    records << name_ << change << kind << style << table_->kind().keyText(key) << absent;
    entry.empty() ? records << absent : records << table_->kind().json(entry);
    records.endRecord();
  }

  Watching& watching_;
  std::string path_;
  std::string name_;
  std::unique_ptr<Table> table_;  // null while it has been removed
  std::optional<FileId> file_;
  std::unique_ptr<ChangeFollower> follower_;
  std::optional<std::pair<int32_t, uint64_t>> writer_;  // process, 0: none; and generation
  steady_clock::time_point nextLook_ = steady_clock::now() + betweenLooks;
};

std::vector<std::string> watchedPaths(const Options& options) {
  if (options.tables.empty()) return tablePaths(options.root);
  std::vector<std::string> paths;
  for (const std::string& name : options.tables) paths.push_back(findTable(options.root, name));
  return paths;
}

}  // namespace

void watchChanges(const Options& options, Tools::Output& out) {
  Watching watching{
      options,
      RecordWriter(out, options.output,
                   {Tools::text("table", 18), Tools::number("change"), Tools::text("kind", 8),
                    Tools::text("key", 18), Tools::text("note", 4), Tools::object("row")}),
      options.watch.limit.value_or(std::numeric_limits<uint64_t>::max())};
  std::vector<std::unique_ptr<WatchedTable>> tables;
  for (const std::string& path : watchedPaths(options)) {
    tables.push_back(std::make_unique<WatchedTable>(watching, path));
  }
  while (watching.left != 0) {
    bool any = false;
    for (const auto& table : tables) any = table->showChanges() || any;
    if (any) continue;
    watching.records.finish();
    out.endIfUnread();
    tables.front()->sleep();
  }
  watching.records.finish();
}

}  // namespace ShoalCtl
