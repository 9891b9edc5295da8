// shoalctl watch: what it tells is what happens, through restarts of the writer and of the table.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <map>
#include <random>
#include <thread>

#include "tests/e2e/ShoalctlTables.h"

namespace E2e {
namespace {

const std::string table = "VaneIpv4Override";

std::string prefix(unsigned number) { return "10.0." + std::to_string(number) + ".0/24"; }
std::string setLine(unsigned number, uint32_t id) {
  return R"({"table":")" + table + R"(","row":{"destinationPrefix":")" + prefix(number) +
         R"(","destinationId":)" + std::to_string(id) + "}}\n";
}
std::string delLine(unsigned number) {
  return R"({"table":")" + table + R"(","op":"del","row":{"destinationPrefix":")" + prefix(number) +
         "\"}}\n";
}
const std::string syncLine = "{\"op\":\"sync\",\"id\":1}\n";

// What somebody knows of a table who only reads the records.
class Known {
 public:
  void take(const Json& record) {
    const std::string kind = record.at("kind");
    ++kinds_[kind];
    if (kind == "resync" || kind == "gone") {
      rows_.clear();
      last_ = record.at("change").is_null() ? 0 : record.at("change").get<uint64_t>();
    } else if (kind == "entry") {
      rows_[record.at("key")] = record.at("row");
    } else if (kind == "set" || kind == "removed") {
      const uint64_t change = record.at("change");
      EXPECT_EQ(change, last_.value_or(change - 1) + 1) << "a silent gap";
      last_ = change;
      rows_.erase(record.at("key").get<std::string>());
      if (!record.at("row").is_null()) rows_[record.at("key")] = record.at("row");
    }
  }
  const std::map<std::string, Json>& rows() const { return rows_; }
  int count(const std::string& kind) { return kinds_[kind]; }

 private:
  std::map<std::string, Json> rows_;
  std::optional<uint64_t> last_;
  std::map<std::string, int> kinds_;
};

class ShoalctlWatch : public FewRows {
 protected:
  void SetUp() override { load(setLine(1, 1) + setLine(2, 2)); }

  std::vector<std::string> watch(const std::vector<std::string>& more) {
    std::vector<std::string> arguments{
        program("shoalctl"), "--root", scratch_.root(), "--json", "watch", table};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
  }
  // Reads records until this change.
  void readUntil(Child& watching, Known& known, unsigned number, uint32_t id) {
    for (;;) {
      const Json record = Json::parse(watching.readLine());
      known.take(record);
      if (record.at("kind") == "set" && record.at("key") == prefix(number) &&
          !record.at("row").is_null() && record.at("row").at("destinationId") == id) {
        return;
      }
    }
  }
  void expectShown(const Known& known) {
    std::map<std::string, Json> shown;
    for (const Json& row : shownRows(scratch_.root(), table)) {
      shown[row.at("destinationPrefix")] = row;
    }
    EXPECT_EQ(known.rows(), shown);
  }
};

TEST_F(ShoalctlWatch, TellsWhatAModelOfTheTableHoldsThroughRestartsOfWriterAndTable) {
  constexpr unsigned mark = 250;  // set at the end of each round
  std::mt19937 random(11);
  Child watching(watch({"--snapshot"}));
  Known known;
  // It is watching before the first change: no writer, and two entries.
  for (int i = 0; i < 3; ++i) known.take(Json::parse(watching.readLine()));
  for (uint32_t round = 1; round <= 8; ++round) {
    std::string input;
    for (int i = 0; i < 300; ++i) {
      const unsigned number = random() % 100;
      input += random() % 3 == 0 ? delLine(number) : setLine(number, random() % 1000);
    }
    input += setLine(mark, 1000 + round) + syncLine;
    Child agent(agentOn(scratch_.root(),
                        {"--load", "-", "--quiet", "--on-exit", round == 4 ? "detach" : "keep"}));
    ASSERT_TRUE(agent.write(input));
    agent.readLine();
    readUntil(watching, known, mark, 1000 + round);
    expectShown(known);
    agent.signal(round % 2 == 1 ? SIGKILL : SIGTERM);
    agent.wait();
  }
  EXPECT_GE(known.count("set"), 1000);
  EXPECT_EQ(known.count("gone"), 1) << "the table was detached once";
  EXPECT_EQ(known.count("resync"), 1) << "and another took its place";
  EXPECT_GE(known.count("writer"), 1);
  EXPECT_GE(known.count("entry"), 2);
  watching.signal(SIGINT);
  const auto ended = watching.wait();
  EXPECT_EQ(ended.status, 1000 + SIGINT);
  EXPECT_EQ(ended.err, "");
}

TEST_F(ShoalctlWatch, StatesThatTheWriterWentAwayAndThatANewOneCame) {
  Child watching(watch({}));
  Json record = Json::parse(watching.readLine());
  EXPECT_EQ(record.at("kind"), "noWriter");
  EXPECT_EQ(record.at("note"), "generation 1 has ended");
  Child agent(agentOn(scratch_.root(), {"--load", "-", "--quiet"}));
  record = Json::parse(watching.readLine());
  EXPECT_EQ(record.at("kind"), "writer");
  EXPECT_EQ(record.at("note"), "process " + std::to_string(agent.pid()) + ", generation 2");
  ASSERT_TRUE(agent.write(delLine(2) + syncLine));
  agent.readLine();
  record = Json::parse(watching.readLine());
  EXPECT_EQ(record, Json::parse(R"({"table":"VaneIpv4Override", "change":3, "kind":"removed",
                                    "key":"10.0.2.0/24", "note":null, "row":null})"));
  agent.signal(SIGKILL);
  agent.wait();
  EXPECT_EQ(Json::parse(watching.readLine()).at("kind"), "noWriter");
}

TEST_F(ShoalctlWatch, DoesNotTakeWhoeverHoldsTheLockForTheWriterThatHasDied) {
  Child agent(agentOn(scratch_.root(), {"--load", "-", "--quiet"}));
  ASSERT_TRUE(agent.write(setLine(3, 3) + syncLine));
  agent.readLine();
  agent.signal(SIGKILL);
  agent.wait();
  Child watching(watch({}));
  EXPECT_EQ(Json::parse(watching.readLine()).at("note"), "generation 2 has ended");
  // As a process does that is about to attach, until it has written its number into the table.
  auto lockFile = file("p4runtime/outputTables/routing/ipv4OverrideTable");
  const int lock = ::open(lockFile.replace_extension(".lock").c_str(), O_RDWR | O_CLOEXEC);
  struct flock whole {};
  whole.l_type = F_WRLCK;
  ASSERT_EQ(::fcntl(lock, F_OFD_SETLK, &whole), 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(300));  // for three looks
  ::close(lock);
  Child next(agentOn(scratch_.root(), {"--load", "-", "--quiet"}));
  const Json record = Json::parse(watching.readLine());
  EXPECT_EQ(record.at("kind"), "writer");
  EXPECT_EQ(record.at("note"), "process " + std::to_string(next.pid()) + ", generation 3");
}

TEST_F(ShoalctlWatch, BeginsBehindAChangeAndEndsAfterSoMany) {
  load(setLine(3, 3) + delLine(3));
  const auto ended = run(watch({"--since", "1", "--limit", "3", "--no-headings"}));
  EXPECT_EQ(ended.status, 0);
  const auto all = lines(ended.out);
  ASSERT_EQ(all.size(), 4u);  // and the state of the writer
  const std::vector<std::string> kinds{"set", "set", "removed"};
  for (size_t i = 0; i < kinds.size(); ++i) {
    const Json record = Json::parse(all[i + 1]);
    EXPECT_EQ(record.at("change"), 2 + i);
    EXPECT_EQ(record.at("kind"), kinds[i]);
  }
  EXPECT_EQ(Json::parse(all[1]).at("row").at("destinationId"), 2);
  EXPECT_EQ(Json::parse(all[2]).at("row"), nullptr) << "the entry has gone since";
}

TEST_F(ShoalctlWatch, SaysThatChangesAreMissedInsteadOfLeavingAGap) {
  std::string input;
  for (uint32_t i = 0; i < 5000; ++i) input += setLine(7, i);
  load(input);  // the ring of this table holds 4096
  Child watching(watch({"--since", "1", "--snapshot"}));
  Known known;
  std::vector<Json> records;
  for (int i = 0; i < 8; ++i) records.push_back(Json::parse(watching.readLine()));
  EXPECT_EQ(records[1].at("kind"), "entry");
  EXPECT_EQ(records[4].at("kind"), "resync");
  EXPECT_EQ(records[4].at("note"), "changes 2 to 5002 are missed");
  EXPECT_EQ(records[4].at("change"), 5002);
  for (int i = 5; i < 8; ++i) known.take(records[i]);
  expectShown(known);
}

TEST_F(ShoalctlWatch, WatchesAllTablesAtOnce) {
  Child watching({program("shoalctl"), "--root", scratch_.root(), "--json", "watch"});
  for (int i = 0; i < 10; ++i) EXPECT_EQ(Json::parse(watching.readLine()).at("kind"), "noWriter");
  load(setLine(3, 3) + R"({"table":"VaneEcmpGroup","row":{"id":3,"members":[1]}})"
                       "\n");
  std::set<std::string> changed;
  while (changed.size() < 2) {
    const Json record = Json::parse(watching.readLine());
    if (record.at("kind") == "set") changed.insert(record.at("table"));
  }
  EXPECT_EQ(changed, (std::set<std::string>{"VaneEcmpGroup", "VaneIpv4Override"}));
}

TEST_F(ShoalctlWatch, EndsWithStatus8WithoutAWriterIfThatIsAskedFor) {
  const auto ended = run(watch({"--needs-writer"}));
  EXPECT_EQ(ended.status, 8);
  EXPECT_EQ(ended.err, "shoalctl: table VaneIpv4Override has no writer\n");
  Child agent(agentOn(scratch_.root(), {"--load", "-", "--quiet"}));
  ASSERT_TRUE(agent.write(syncLine));
  agent.readLine();
  Child watching(watch({"--needs-writer"}));
  EXPECT_EQ(Json::parse(watching.readLine()).at("kind"), "writer");
  agent.signal(SIGKILL);
  agent.wait();
  EXPECT_EQ(watching.wait().status, 8);
}

TEST_F(ShoalctlWatch, EndsWithStatus7WhenItsTimeIsUp) {
  const auto ended = run(watch({"--timeout", "0.2"}));
  EXPECT_EQ(ended.status, 7);
  EXPECT_EQ(ended.err, "shoalctl: timed out\n");
  EXPECT_EQ(lines(ended.out).size(), 1u) << "what there was to tell has been told";
}

}  // namespace
}  // namespace E2e
