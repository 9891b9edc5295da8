#include "tools/routing-demo/Demo.h"

#include <fmt/format.h>
#include <unistd.h>

#include <sys/wait.h>
#include <csignal>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <nlohmann/json.hpp>
#include <system_error>

#include "platform/Shoal/SharedTable.h"
#include "tools/routing-demo/Lines.h"
#include "tools/routing-demo/P4Stage.h"
#include "tools/routing-demo/Process.h"
#include "tools/routing-demo/Report.h"

namespace Demo {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

// Each prefix of the name is the model settings' own option, so that the reader builds the same
// model.
std::vector<std::string> modelArguments(const ModelSettings& model) {
  std::vector<std::string> arguments;
  const auto add = [&](const char* option, uint64_t value) {
    arguments.push_back(option);
    arguments.push_back(std::to_string(value));
  };
  add("--seed", model.seed);
  add("--ipv4", model.ipv4);
  add("--ipv6", model.ipv6);
  add("--members", model.members);
  add("--groups", model.groups);
  add("--encaps", model.encaps);
  for (const std::string& file : model.prefixFiles) {
    arguments.push_back("--prefixes");
    arguments.push_back(file);
  }
  return arguments;
}

// The directory of the shared tables; a fresh one is removed with all that is in it.
class Root {
 public:
  explicit Root(const fs::path& given) : path_(given), fresh_(given.empty()) {
    if (!fresh_) {
      needEmpty();
      return;
    }
    std::string name = fmt::format("/dev/shm/routing-demo-{}-XXXXXX", ::getpid());
    if (::mkdtemp(name.data()) == nullptr) {
      throw std::system_error(errno, std::generic_category(), name);
    }
    path_ = name;
  }
  ~Root() {
    std::error_code ignored;
    if (fresh_) fs::remove_all(path_, ignored);
    fs::remove_all(runDirectory(), ignored);
  }
  Root(const Root&) = delete;
  Root& operator=(const Root&) = delete;
  const fs::path& path() const { return path_; }
  // Of the agent: its socket, and where it listens.
  fs::path runDirectory() const { return path_.string() + ".run"; }

 private:
  // The books start at nothing.
  void needEmpty() const {
    if (!fs::exists(path_) || Shoal::tablesBelow(path_).empty()) return;
    throw std::runtime_error(path_.string() + ": expected a directory without tables, found some");
  }

  fs::path path_;
  bool fresh_;
};

class Demo {
 public:
  explicit Demo(const DemoOptions& options)
      : options_(options),
        report_(options.quiet),
        model_((report_.progress("making the routing table"), options.model)),
        root_(options.root),
        agent_("p4rt-agent", agentArguments()) {}

  int run() {
    sync();
    reader_ = std::make_unique<Process>("the reader", readerArguments());
    if (const std::string first = reader_->readLine(); first != "ready") {
      throw std::runtime_error("the reader: " + first);
    }
    report_.begin(model_, root_.path());
    for (const Stage stage : stages) {
      program(stage);
      verify(stage);
    }
    reader_->closeInput();
    reader_->end(SIGTERM);
    speakP4Runtime();
    report_.tables(model_);
    if (!options_.once && report_.right()) stayUp();
    end();
    report_.verdict();
    return report_.right() ? 0 : 1;
  }

 private:
  std::vector<std::string> agentArguments() const {
    std::vector<std::string> arguments{options_.agent,
                                       "--shoal-root",
                                       root_.path().string(),
                                       "--run-dir",
                                       root_.runDirectory().string(),
                                       "--listen",
                                       hasP4Runtime() ? "127.0.0.1:0" : "none",
                                       "--load",
                                       "-",
                                       "--follow",
                                       "--quiet",
                                       "--on-exit",
                                       options_.onExit};
    if (options_.plugin) {
      arguments.push_back("--plugin");
      arguments.push_back(*options_.plugin);
    }
    forEachTable([&](Table table) {
      // A tenth more than is set, and never so few that the table is a special case.
      const uint64_t entries = 1024 + uint64_t{model_.count(table)} * 11 / 10;
      arguments.push_back("--capacity");
      arguments.push_back(fmt::format("{}={}", nameOf(table).row, entries));
    });
    return arguments;
  }

  std::vector<std::string> readerArguments() const {
    std::vector<std::string> arguments{siblingProgram("routing-demo"), "verify", "--root",
                                       root_.path().string()};
    for (auto& argument : modelArguments(options_.model)) arguments.push_back(std::move(argument));
    return arguments;
  }

  // Waits until the agent has applied everything sent so far; its report.
  Json sync() {
    LineBuffer line;
    appendSync(line, ++syncs_);
    agent_.write({line.data(), line.size()});
    Json answer = Json::parse(agent_.readLine());
    if (answer.at("sync") != syncs_) {
      throw std::runtime_error(fmt::format("p4rt-agent: expected the answer to sync {}, found {}",
                                           syncs_, answer.dump()));
    }
    return answer;
  }

  void program(Stage stage) {
    const Stopwatch watch;
    uint64_t rows = 0;
    forEachTable([&](Table table) {
      withTraits(table, [&]<class Traits>(std::type_identity<Traits>) {
        rows += send<typename Traits::Entry>(table, stage, rows);
      });
    });
    flush();
    const Json answer = sync();
    report_.step(stage == Stage::programmed ? "programmed through the row database"
                                            : "updated and deleted a part",
                 rows, watch.seconds());
    checkAgent(answer, stage);
  }

  template <class Entry>
  uint64_t send(Table table, Stage stage, uint64_t before) {
    uint64_t rows = 0;
    Entry entry;
    const auto wanted = [&](uint32_t i) {
      return stage == Stage::programmed || model_.isUpdated(i, stage);
    };
    for (uint32_t i = 0; i < model_.count(table); ++i) {
      const bool deleted = model_.isDeleted(table, i, stage);
      if (!deleted && !wanted(i)) continue;
      model_.make(table, i, model_.version(i, stage), entry);
      if (deleted) {
        appendDelete(buffer_, table, entry);
      } else {
        appendSet(buffer_, table, entry);
      }
      ++rows;
      if (buffer_.size() >= pieceLength) {
        flush();
        report_.progress(fmt::format("{} rows sent", before + rows));
      }
    }
    return rows;
  }

  void flush() {
    agent_.write({buffer_.data(), buffer_.size()});
    buffer_.clear();
  }

  // The agent's own account, by table: nothing refused, every change seen once and in turn.
  void checkAgent(const Json& answer, Stage stage) {
    if (answer.at("failed") != 0) {
      report_.wrong(fmt::format("the agent refused {} rows", answer.at("failed").dump()));
    }
    forEachTable([&](Table table) {
      const Model::Work work = model_.workUpTo(table, stage);
      const Json& found = answer.at("tables").at(nameOf(table).row);
      const Json& follower = found.at("follower");
      const Json& observed = follower.at("observed");
      const auto expect = [&](const Json& value, const Json& expected, const char* what) {
        if (value == expected) return;
        report_.wrong(fmt::format("{}: {}: expected {}, found {}", nameOf(table).row, what,
                                  expected.dump(), value.dump()));
      };
      expect(found.at("entries"), model_.liveEntries(table, stage), "entries");
      expect(follower.at("exists"), work.sets, "changes of kind 1 read by index");
      expect(follower.at("removed"), work.deletes, "changes of kind 2 read by index");
      expect(follower.at("rising"), true, "indices that rise");
      expect(follower.at("wrongKinds"), 0, "kinds that differ from their index");
      expect(follower.at("reached"), found.at("latestChangeIdx"), "index reached");
      expect(observed.at("changes"), work.sets + work.deletes, "changes observed");
      expect(observed.at("gaps"), 0, "gaps between changes observed");
      expect(observed.at("wrongKinds"), 0, "observed kinds that differ from their index");
      expect(observed.at("latest"), found.at("latestChangeIdx"), "index observed");
      report_.agentFollowed(table, work.sets + work.deletes);
    });
  }

  void verify(Stage stage) {
    report_.progress("reading back in a second process");
    const Stopwatch watch;
    reader_->write(stage == Stage::programmed ? "verify 1\n" : "verify 2\n");
    const Json answer = Json::parse(reader_->readLine());
    uint64_t compared = 0;
    for (const Json& table : answer.at("tables")) {
      compared += table.at("compared").get<uint64_t>();
      report_.readBack(table);
    }
    report_.step("read back and compared by a second process", compared, watch.seconds());
    for (const Json& wrong : answer.at("wrong")) report_.wrong(wrong.get<std::string>());
  }

  // A build for 32 bits has neither the service nor the client.
  bool hasP4Runtime() const {
    return !options_.rowsOnly && fs::exists(siblingProgram("p4rt-client"));
  }

  void speakP4Runtime() {
    if (!hasP4Runtime()) return;
    P4Stage stage(model_, root_.path(), root_.runDirectory(), report_);
    stage.run();
    address_ = stage.address();
  }

  void stayUp() {
    report_.invitation(root_.path(), siblingProgram("shoalctl"), agent_.pid());
    if (!address_.empty()) report_.p4Invitation(address_, siblingProgram("p4rt-client"));
    if (agent_.waitUntilEndOrInterrupt()) {
      throw ChildEnded("p4rt-agent has ended: " + Process::described(agent_.end(SIGTERM)));
    }
  }

  void end() {
    report_.progress("cleaning up");
    const Stopwatch watch;
    const int status = agent_.end(SIGTERM);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
      report_.wrong("p4rt-agent: " + Process::described(status));
    }
    uint64_t left = 0;
    const auto tables = Shoal::tablesBelow(root_.path());
    for (const std::string& table : tables) {
      left += Shoal::tableStatus(root_.path(), table).entries;
    }
    report_.step(
        options_.onExit == "detach" ? "cleaned up: emptied and detached" : "cleaned up: emptied", 0,
        watch.seconds());
    if (left != 0) report_.wrong(fmt::format("{} entries are left after clean-up", left));
    if (options_.onExit == "detach" && !tables.empty()) {
      report_.wrong(fmt::format("{} tables are left after they were detached", tables.size()));
    }
    if (options_.onExit == "empty" && tables.size() != tableCount) {
      report_.wrong(fmt::format("{} tables are left, expected {}", tables.size(), tableCount));
    }
  }

  static constexpr size_t pieceLength = 64 * 1024;

  const DemoOptions& options_;
  Report report_;
  Model model_;
  Root root_;
  Process agent_;
  std::unique_ptr<Process> reader_;
  LineBuffer buffer_;
  uint64_t syncs_ = 0;
  std::string address_;  // where the agent serves P4Runtime; empty: it does not
};

}  // namespace

int runDemo(const DemoOptions& options) {
  catchInterrupts();
  return Demo(options).run();
}

}  // namespace Demo
