#include "tools/routing-demo/Reader.h"

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <memory>
#include <nlohmann/json.hpp>
#include <vector>

#include "platform/Shoal/SharedTable.h"

namespace Demo {
namespace {

using Json = nlohmann::json;

// What was found wrong with a table: the first few in words, all of them counted.
class Complaints {
 public:
  template <class... Args>
  void add(fmt::format_string<Args...> format, Args&&... args) {
    if (++count_ <= shown) texts_.push_back(fmt::format(format, std::forward<Args>(args)...));
  }
  void appendTo(Json& all) const {
    for (const std::string& text : texts_) all.push_back(text);
    if (count_ > shown) all.push_back(fmt::format("and {} more", count_ - shown));
  }

 private:
  static constexpr uint64_t shown = 10;
  uint64_t count_ = 0;
  std::vector<std::string> texts_;
};

// One table, compared with the model.
class TableCheck {
 public:
  TableCheck(const Model& model, Table table, std::shared_ptr<Shoal::TableStore> store)
      : model_(model),
        table_(table),
        store_(std::move(store)),
        follower_(Shoal::follow(store_, 0)) {}
  virtual ~TableCheck() = default;

  // Takes the changes that are there; whether there were any.
  bool follow() {
    changes_.clear();
    const uint64_t before = follower_->position();
    switch (follower_->take(changes_, 1024)) {
      case Shoal::ChangeFollower::Result::none:
        return false;
      case Shoal::ChangeFollower::Result::missed:
        ++timesMissed_;
        missed_ += follower_->position() - before;
        break;
      case Shoal::ChangeFollower::Result::changes:
        for (const auto& change : changes_) count(change);
    }
    return true;
  }

  Json verify(Stage stage, Complaints& complaints) {
    while (follow()) {
    }
    accountForChanges(stage, complaints);
    const auto begun = std::chrono::steady_clock::now();
    const uint64_t compared = compare(stage, complaints);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begun;
    return {{"table", name()},
            {"compared", compared},
            {"seconds", took.count()},
            {"followed", followed_},
            {"removals", removals_},
            {"missed", missed_},
            {"timesMissed", timesMissed_}};
  }

 protected:
  // Every entry that is there, and every key that should be.
  virtual uint64_t compare(Stage stage, Complaints& complaints) const = 0;

  const char* name() const { return nameOf(table_).row; }

  const Model& model_;
  const Table table_;
  const std::shared_ptr<Shoal::TableStore> store_;

 private:
  void count(const Shoal::ChangeFollower::Change& change) {
    if (change.number != last_ + 1 && missed_ == 0) ++jumps_;
    last_ = change.number;
    ++followed_;
    removals_ += change.removed;
  }

  void accountForChanges(Stage stage, Complaints& complaints) const {
    const Model::Work expected = model_.workUpTo(table_, stage);
    if (followed_ + missed_ != expected.sets + expected.deletes) {
      complaints.add("{}: followed {} changes and was told of {} missed, expected {}", name(),
                     followed_, missed_, expected.sets + expected.deletes);
    }
    if (missed_ == 0 && removals_ != expected.deletes) {
      complaints.add("{}: followed {} removals, expected {}", name(), removals_, expected.deletes);
    }
    if (jumps_ != 0) complaints.add("{}: {} change numbers out of turn", name(), jumps_);
  }

  std::unique_ptr<Shoal::ChangeFollower> follower_;
  Shoal::ChangeFollower::Changes changes_;
  uint64_t last_ = 0;
  uint64_t followed_ = 0;
  uint64_t removals_ = 0;
  uint64_t missed_ = 0;  // changes that the writer had overwritten
  uint64_t timesMissed_ = 0;
  uint64_t jumps_ = 0;
};

template <class Traits>
class TypedCheck final : public TableCheck {
 public:
  using Entry = typename Traits::Entry;
  using Key = typename Traits::Key;

  TypedCheck(const Model& model, Table table, std::shared_ptr<Shoal::TableStore> store)
      : TableCheck(model, table, std::move(store)) {
    map_.storeIs(store_);
  }

 private:
  uint64_t compare(Stage stage, Complaints& complaints) const override {
    std::vector<bool> seen(model_.count(table_));
    walk(stage, seen, complaints);
    uint64_t live = 0;
    Entry expected;
    for (uint32_t i = 0; i < seen.size(); ++i) {
      model_.make(table_, i, model_.version(i, stage), expected);
      bool found = false;
      const Entry held = map_.safeLookup(expected.*Traits::key, found);
      const bool wanted = model_.isLive(table_, i, stage);
      live += wanted;
      if (found != wanted)
        complaints.add("{}: entry {} {}", name(), i, found ? "should be gone" : "is missing");
      if (found && wanted && held != expected) complaints.add("{}: entry {} differs", name(), i);
      if (wanted && !seen[i]) complaints.add("{}: entry {} was not met in a walk", name(), i);
    }
    if (map_.size() != live) {
      complaints.add("{}: says that it has {} entries, expected {}", name(), map_.size(), live);
    }
    return live;
  }

  // An entry says by its handle which it claims to be; it must be all of it, and stand there once.
  void walk(Stage stage, std::vector<bool>& seen, Complaints& complaints) const {
    Shoal::IterHint hint;
    Entry entry;
    Entry expected;
    for (bool more = map_.first(hint, entry); more;
         more = map_.next(entry.*Traits::key, hint, entry)) {
      const uint32_t i = static_cast<uint32_t>(entry.entryHandle) - 1;
      if (i >= seen.size() || seen[i] || !model_.isLive(table_, i, stage)) {
        complaints.add("{}: an entry with handle {} that should not be there", name(),
                       entry.entryHandle);
        continue;
      }
      seen[i] = true;
      model_.make(table_, i, model_.version(i, stage), expected);
      if (entry != expected) complaints.add("{}: entry {} differs in a walk", name(), i);
    }
  }

  Shoal::ShoalMap<Key, Entry> map_;
};

std::unique_ptr<TableCheck> makeCheck(const Model& model, Table table,
                                      const std::filesystem::path& root) {
  auto store = Shoal::attachReader(root, nameOf(table).path);
  return withTraits(
      table, [&]<class Traits>(std::type_identity<Traits>) -> std::unique_ptr<TableCheck> {
        const Shoal::EntryLayout& found = store->layout();
        if (found.typeName != Traits::typeName ||
            found.entrySize != sizeof(typename Traits::Entry) ||
            found.keySize != sizeof(typename Traits::Key)) {
          Shoal::AttachException::throwException(fmt::format("{}: expected entries of {}, found {}",
                                                             nameOf(table).path, Traits::typeName,
                                                             found.typeName));
        }
        return std::make_unique<TypedCheck<Traits>>(model, table, std::move(store));
      });
}

// Standard input, a line at a time, without waiting longer than asked.
class Commands {
 public:
  enum class Result { line, nothingYet, ended };

  Result next(std::string& line, int milliseconds) {
    const size_t end = unread_.find('\n');
    if (end != std::string::npos) {
      line = unread_.substr(0, end);
      unread_.erase(0, end + 1);
      return Result::line;
    }
    pollfd input{STDIN_FILENO, POLLIN, 0};
    if (::poll(&input, 1, milliseconds) <= 0) return Result::nothingYet;
    std::array<char, 256> piece;
    const ssize_t count = ::read(STDIN_FILENO, piece.data(), piece.size());
    if (count <= 0) return Result::ended;
    unread_.append(piece.data(), static_cast<size_t>(count));
    return next(line, 0);
  }

 private:
  std::string unread_;
};

void answer(const std::string& line) {
  fmt::print("{}\n", line);
  std::fflush(stdout);
}

}  // namespace

int runReader(const Model& model, const std::filesystem::path& root) {
  std::vector<std::unique_ptr<TableCheck>> checks;
  forEachTable([&](Table table) { checks.push_back(makeCheck(model, table, root)); });
  answer("ready");

  Commands commands;
  std::string line;
  for (;;) {
    bool busy = false;
    for (const auto& check : checks) busy = check->follow() || busy;
    const auto result = commands.next(line, busy ? 0 : 2);
    if (result == Commands::Result::ended) return 0;
    if (result == Commands::Result::nothingYet) continue;
    const Stage stage = line == "verify 1" ? Stage::programmed : Stage::changed;
    Json tables = Json::array();
    Json wrong = Json::array();
    for (const auto& check : checks) {
      Complaints complaints;
      tables.push_back(check->verify(stage, complaints));
      complaints.appendTo(wrong);
    }
    answer(Json{{"tables", tables}, {"wrong", wrong}}.dump());
  }
}

}  // namespace Demo
