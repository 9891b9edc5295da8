// vanectl as a process, on an agent as a process.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <map>
#include <memory>
#include <set>

#include "tests/e2e/Programs.h"

namespace {

using namespace E2e;

const std::string routes = "VaneIpv4Override";

std::string setLine(const std::string& table, const std::string& row) {
  return R"({"table":")" + table + R"(","row":)" + row + "}\n";
}

class Vanectl : public testing::Test {
 protected:
  void SetUp() override { startAgent(); }

  void startAgent() {
    agent = std::make_unique<Child>(agentOn(scratch.root(), {"--rowdb-socket", socket()}));
    agent->waitForErr("row database on");
  }
  void stopAgent(int signal = SIGTERM) {
    agent->signal(signal);
    agent->wait();
  }

  std::string socket() const { return (scratch.path() / "rowdb.sock").string(); }
  std::vector<std::string> command(const std::vector<std::string>& words) const {
    std::vector<std::string> arguments{program("vanectl"), "--socket", socket()};
    arguments.insert(arguments.end(), words.begin(), words.end());
    return arguments;
  }
  Child::Result vanectl(const std::vector<std::string>& words,
                        const std::string& input = {}) const {
    return run(command(words), input);
  }
  std::string outOf(const std::vector<std::string>& words) const {
    const auto ended = vanectl(words);
    EXPECT_EQ(ended.status, 0) << ended.err;
    EXPECT_EQ(ended.err, "");
    return ended.out;
  }
  void setRoute(const std::string& prefix, int destination) const {
    outOf({"set", routes, "destinationPrefix=" + prefix,
           "destinationId=" + std::to_string(destination)});
  }
  // A row for each of the ten tables, with every kind of column in use.
  void fillTables() const {
    const std::string rows =
        setLine("VaneEcmpMember", R"({"id":1,"genId":18446744073709551615,"valid":true})") +
        setLine("VaneEcmpGroup", R"({"id":7,"members":[1,2,3],"watchPorts":[4294967295]})") +
        setLine("VaneEcmpGroup", R"({"id":8})") +
        setLine("VaneIpv4Override", R"({"destinationPrefix":"0.0.0.0/0","destinationId":7})") +
        setLine("VaneIpv4Override", R"({"destinationPrefix":"10.0.0.0/8","destinationType":-1})") +
        setLine("VaneIpv4Fallback", R"({"destinationPrefix":"10.0.0.1/32","destinationId":7})") +
        setLine("VaneIpv4VrfPrefix", R"({"vrfId":5,"prefix":"10.0.0.0/8","destinationId":9})") +
        setLine("VaneIpv6Override", R"({"destinationPrefix":"2001:db8::/32","destinationId":7})") +
        setLine("VaneIpv6Fallback", R"({"destinationPrefix":"::/0","destinationId":7})") +
        setLine("VaneIpv6VrfPrefix",
                R"({"vrfId":6,"prefix":"2001:db8::1/128","destinationId":9})") +
        setLine("VaneIpv4Encap",
                R"({"encapId":3,"encapType":1,"srcAddr":"192.0.2.1","dstAddr":"192.0.2.2"})") +
        setLine(
            "VaneIpv6Encap",
            R"({"encapId":65535,"encapType":2,"srcAddr":"2001:db8::1","dstAddr":"2001:db8::2"})");
    const auto loaded = vanectl({"load"}, rows);
    ASSERT_EQ(loaded.status, 0) << loaded.err;
  }

  Scratch scratch;
  std::unique_ptr<Child> agent;
};

TEST_F(Vanectl, TheSocketIsForItsOwnerAndGroup) {
  struct stat status;
  ASSERT_EQ(::stat(socket().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0660u);
  stopAgent();
  EXPECT_NE(::stat(socket().c_str(), &status), 0) << "it goes with the agent";
}

TEST_F(Vanectl, TheSocketIsInTheRunDirectoryByDefault) {
  const Scratch other;
  Child second(agentOn(other.root()));
  second.waitForErr("row database on " + other.root() + ".run/rowdb.sock");
  const auto listed = run({"/usr/bin/env", "-u", "P4RT_RUN_DIR", "SHOAL_ROOT=" + other.root(),
                           program("vanectl"), "tables"});
  EXPECT_EQ(listed.status, 0) << listed.err;
  EXPECT_EQ(lines(listed.out).size(), 11u);
  const auto byRunDir =
      run({"/usr/bin/env", "P4RT_RUN_DIR=" + other.root() + ".run", program("vanectl"), "tables"});
  EXPECT_EQ(byRunDir.out, listed.out);
}

TEST_F(Vanectl, TablesAreListedInEveryFormat) {
  setRoute("10.0.0.0/8", 5);
  const auto json = lines(outOf({"tables", "--json"}));
  ASSERT_EQ(json.size(), 10u);
  uint64_t rows = 0;
  for (const auto& line : json) {
    const Json table = Json::parse(line);
    rows += table.at("rows").get<uint64_t>();
    EXPECT_GE(table.at("capacity"), 1024);
  }
  EXPECT_EQ(rows, 1u);
  EXPECT_EQ(outOf({"tables", "--format", "csv", "--columns", "name,rows", "--no-headings"})
                .substr(0, std::strlen("VaneEcmpMember,0\r\n")),
            "VaneEcmpMember,0\r\n");
  const auto plain = lines(outOf({"--columns", "name,rows", "tables"}));
  ASSERT_EQ(plain.size(), 11u);
  EXPECT_EQ(plain[0], "name\trows");
  EXPECT_EQ(plain[3], routes + "\t1");
  const auto table = lines(outOf({"tables", "--format", "table", "--columns", "name,rows"}));
  ASSERT_EQ(table.size(), 11u);
  EXPECT_EQ(table[3].substr(0, routes.size() + 1), routes + " ");
}

TEST_F(Vanectl, ATableIsDescribedByItsColumns) {
  const auto described = lines(outOf({"describe", "ipv4VrfPrefixTable", "--json"}));
  std::vector<std::string> keys;
  for (const auto& line : described) {
    const Json column = Json::parse(line);
    if (column.at("key") == true) keys.push_back(column.at("column"));
  }
  EXPECT_EQ(keys, (std::vector<std::string>{"vrfId", "prefix"}));
}

TEST_F(Vanectl, ARowIsSetReadAndRemoved) {
  setRoute("10.0.0.0/8", 5);
  const Json row = Json::parse(outOf({"get", routes, "10.0.0.0/8", "--json"}));
  EXPECT_EQ(row, Json::parse(R"({"genId":0, "entryHandle":0, "valid":false, "entryId":0,
      "destinationPrefix":"10.0.0.0/8", "destinationType":0, "destinationId":5})"));
  // Also in shared memory.
  EXPECT_EQ(shownRows(scratch.root(), routes), std::vector<Json>{row});
  outOf({"del", routes, "10.0.0.0/8"});
  outOf({"del", routes, "10.0.0.0/8"});
  EXPECT_EQ(vanectl({"get", routes, "10.0.0.0/8"}).status, 3);
}

TEST_F(Vanectl, AKeyOfSeveralColumnsAndOneInJsonAreTaken) {
  outOf({"set", "VaneIpv4VrfPrefix", R"({"vrfId":5,"prefix":"10.0.0.0/8","destinationId":9})"});
  for (const char* key : {"5,10.0.0.0/8", R"({"vrfId":5,"prefix":"10.0.0.0/8"})"}) {
    const Json row = Json::parse(outOf({"get", "VaneIpv4VrfPrefix", key, "--json"}));
    EXPECT_EQ(row.at("destinationId"), 9);
  }
}

TEST_F(Vanectl, AListIsSetAndReadInEveryFormat) {
  outOf({"set", "VaneEcmpGroup", "id=7", "members=1,2,3", "watchPorts="});
  EXPECT_EQ(Json::parse(outOf({"get", "VaneEcmpGroup", "7", "--json"})).at("members"),
            Json::parse("[1,2,3]"));
  const std::string csv = outOf(
      {"get", "VaneEcmpGroup", "7", "--format", "csv", "--columns", "members", "--no-headings"});
  EXPECT_EQ(csv, "1 2 3\r\n");
}

TEST_F(Vanectl, AScanIsLimitedAndGoesOnBehindAKey) {
  for (int i = 0; i < 5; ++i) setRoute("10." + std::to_string(i) + ".0.0/16", i);
  const auto all = lines(outOf({"scan", routes, "--json"}));
  ASSERT_EQ(all.size(), 5u);
  EXPECT_EQ(lines(outOf({"scan", routes, "--json", "--limit", "2"})),
            std::vector<std::string>(all.begin(), all.begin() + 2));
  const std::string second = Json::parse(all[1]).at("destinationPrefix");
  EXPECT_EQ(lines(outOf({"scan", routes, "--json", "--after", second})),
            std::vector<std::string>(all.begin() + 2, all.end()));
  EXPECT_EQ(outOf({"scan", routes, "--json", "--limit", "0"}), "");
}

TEST_F(Vanectl, ClearSaysHowManyRowsItRemoved) {
  setRoute("10.0.0.0/8", 5);
  setRoute("11.0.0.0/8", 5);
  EXPECT_EQ(Json::parse(outOf({"clear", routes, "--json"})),
            Json::parse(R"({"table":"VaneIpv4Override","removed":2})"));
  EXPECT_EQ(outOf({"scan", routes, "--json"}), "");
}

TEST_F(Vanectl, WhatIsDumpedAndLoadedIsDumpedAgainByteForByte) {
  fillTables();
  const std::string first = outOf({"dump"});
  ASSERT_EQ(lines(first).size(), 12u);
  std::set<std::string> tables;
  for (const auto& line : lines(first)) tables.insert(Json::parse(line).at("table"));
  EXPECT_EQ(tables.size(), 10u);
  for (const auto& table : tables) outOf({"clear", table});
  EXPECT_EQ(outOf({"dump"}), "");

  const auto loaded = vanectl({"load", scratch.file("rows.jsonl", first)});
  EXPECT_EQ(loaded.status, 0) << loaded.err;
  EXPECT_EQ(loaded.err, "") << "no progress where nobody looks at it";
  auto before = lines(first);
  auto after = lines(outOf({"dump"}));
  // The order within a table is the table's own.
  std::sort(before.begin(), before.end());
  std::sort(after.begin(), after.end());
  EXPECT_EQ(after, before);
  EXPECT_EQ(lines(outOf({"dump", "VaneEcmpGroup"})).size(), 2u);

  // Into an agent whose tables have held nothing yet: the same bytes in the same order.
  const Scratch other;
  const std::string otherSocket = (other.path() / "rowdb.sock").string();
  Child second(agentOn(other.root(), {"--rowdb-socket", otherSocket}));
  second.waitForErr("row database on");
  EXPECT_EQ(run({program("vanectl"), "--socket", otherSocket, "load"}, first).status, 0);
  const auto copy = run({program("vanectl"), "--socket", otherSocket, "dump"});
  EXPECT_EQ(copy.out, first);
}

// The tool makes the text of what it dumps; what it watches comes with the agent's.
TEST_F(Vanectl, ARowIsDumpedInTheWordsThatTheAgentHasForIt) {
  fillTables();
  const auto rowOf = [](const std::string& line) { return line.substr(line.find("\"row\":")); };
  std::multiset<std::string> dumped;
  for (const auto& line : lines(outOf({"dump"}))) dumped.insert(rowOf(line));

  std::multiset<std::string> told;
  Child watch(command({"watch", "--snapshot", "--json"}));
  while (told.size() < 12) {
    const std::string line = watch.readLine();
    if (Json::parse(line).at("kind") == "entry") told.insert(rowOf(line));
  }
  EXPECT_EQ(dumped, told);
}

TEST_F(Vanectl, BadLinesAreToldByNumberAndTheOthersApplied) {
  const std::string input =
      setLine(routes, R"({"destinationPrefix":"10.0.0.0/8"})") + "nonsense\n\n" +
      setLine(routes, R"({"destinationPrefix":"10.0.0.1/8"})") + setLine("VaneNothing", "{}") +
      R"({"table":"VaneIpv4Override","op":"sing","row":{}})"
      "\n"
      R"({"table":"VaneIpv4Override"})"
      "\n" +
      setLine(routes, R"({"destinationPrefix":"11.0.0.0/8"})");
  const auto loaded = vanectl({"load"}, input);
  EXPECT_EQ(loaded.status, 1);
  for (const char* expected :
       {"standard input: line 2: ", "standard input: line 4: ", "standard input: line 5: no table",
        "standard input: line 6: op: expected set, del or clear",
        "standard input: line 7: ", "5 of 7 rows were refused"}) {
    EXPECT_NE(loaded.err.find(expected), std::string::npos) << expected << "\n" << loaded.err;
  }
  ASSERT_EQ(lines(loaded.err).size(), 6u) << loaded.err;
  EXPECT_NE(lines(loaded.err)[1].find("line 4: "), std::string::npos) << "in the lines' order";
  EXPECT_EQ(lines(outOf({"scan", routes, "--json"})).size(), 2u);
}

TEST_F(Vanectl, AStrictLoadStopsAtTheFirstBadLine) {
  const std::string input = setLine(routes, R"({"destinationPrefix":"10.0.0.0/8"})") +
                            setLine(routes, R"({"destinationPrefix":"10.0.0.1/8"})") +
                            setLine(routes, R"({"destinationPrefix":"11.0.0.0/8"})");
  const auto loaded = vanectl({"load", "--strict"}, input);
  EXPECT_EQ(loaded.status, 1);
  EXPECT_EQ(lines(loaded.err).size(), 1u);
  EXPECT_NE(loaded.err.find("line 2: "), std::string::npos) << loaded.err;
  EXPECT_EQ(lines(outOf({"scan", routes, "--json"})).size(), 1u);
}

TEST_F(Vanectl, LoadTakesDeletionsAndClears) {
  fillTables();
  const auto loaded =
      vanectl({"load"}, R"({"table":"VaneEcmpGroup","op":"del","row":{"id":8}})"
                        "\n"
                        R"({"table":"VaneIpv4Override","op":"clear"})"
                        "\n" +
                            setLine(routes, R"({"destinationPrefix":"12.0.0.0/8"})"));
  EXPECT_EQ(loaded.status, 0) << loaded.err;
  EXPECT_EQ(lines(outOf({"scan", "VaneEcmpGroup", "--json"})).size(), 1u);
  EXPECT_EQ(lines(outOf({"scan", routes, "--json"})).size(), 1u);
}

TEST_F(Vanectl, TheStatusIsOneObjectOrRecordsOrTables) {
  setRoute("10.0.0.0/8", 5);
  EXPECT_EQ(vanectl({"get", routes, "11.0.0.0/8"}).status, 3);
  const Json status = Json::parse(outOf({"status", "--json"}));
  EXPECT_EQ(status.at("agent").at("pid"), agent->pid());
  EXPECT_EQ(status.at("agent").at("shoalRoot"), scratch.root());
  EXPECT_EQ(status.at("errors").at("rows NOT_FOUND"), 1);
  ASSERT_EQ(status.at("tables").size(), 10u);
  EXPECT_EQ(status.at("tables")[2],
            Json::parse(R"({"name":"VaneIpv4Override","entries":1,"capacity":4096,"writes":1,
                            "deletes":0,"errors":0,"oldestChange":1,"latestChange":2})"));
  const auto plain = lines(outOf({"status"}));
  EXPECT_EQ(plain[0], "part\tname\twhat\tvalue");
  EXPECT_NE(std::find(plain.begin(), plain.end(), "table\tVaneIpv4Override\tentries\t1"),
            plain.end());
  EXPECT_NE(outOf({"status", "--format", "table"}).find("VaneIpv4Override"), std::string::npos);
}

TEST_F(Vanectl, TheLogLevelChangesWhileTheAgentRuns) {
  EXPECT_EQ(Json::parse(outOf({"log-level", "--json"})).at("level"), "info");
  EXPECT_EQ(Json::parse(outOf({"log-level", "error", "--json"})),
            Json::parse(R"({"level":"error","previous":"info"})"));
  agent->signal(SIGTERM);
  const auto quiet = agent->wait();
  EXPECT_EQ(quiet.err.find("event=ending"), std::string::npos) << quiet.err;
  startAgent();
  outOf({"log-level", "debug"});
  agent->signal(SIGTERM);
  EXPECT_NE(agent->wait().err.find("event=ending"), std::string::npos);
}

TEST_F(Vanectl, WatchShowsEntriesThenChangesUntilItsLimit) {
  setRoute("10.0.0.0/8", 5);
  Child watch(command({"watch", routes, "--snapshot", "--json", "--limit", "2"}));
  EXPECT_EQ(Json::parse(watch.readLine()).at("kind"), "entry");
  EXPECT_EQ(Json::parse(watch.readLine()).at("kind"), "entries");
  setRoute("11.0.0.0/8", 6);
  const Json set = Json::parse(watch.readLine());
  EXPECT_EQ(set.at("kind"), "set");
  EXPECT_EQ(set.at("change"), 4);
  EXPECT_EQ(set.at("key"), "11.0.0.0/8");
  EXPECT_EQ(set.at("row").at("destinationId"), 6);
  outOf({"del", routes, "10.0.0.0/8"});
  const Json removed = Json::parse(watch.readLine());
  EXPECT_EQ(removed.at("kind"), "removed");
  EXPECT_EQ(removed.at("change"), 7);
  EXPECT_EQ(watch.wait().status, 0);
}

TEST_F(Vanectl, WatchGoesOnBehindAnIndexOrTellsThatItCannot) {
  for (int i = 0; i < 3; ++i) setRoute("10." + std::to_string(i) + ".0.0/16", i);
  const auto since = run(command({"watch", routes, "--since", "2", "--json", "--limit", "2"}));
  ASSERT_EQ(since.status, 0) << since.err;
  EXPECT_EQ(Json::parse(lines(since.out)[0]).at("change"), 4);
  EXPECT_EQ(Json::parse(lines(since.out)[1]).at("change"), 6);
  Child beyond(command({"watch", routes, "--since", "1000", "--json"}));
  EXPECT_EQ(Json::parse(beyond.readLine()).at("kind"), "resync");
}

TEST_F(Vanectl, AWatchEndsWithItsAgentAndSaysSo) {
  Child watch(command({"watch", "--snapshot", "--json"}));
  watch.waitForOut("entries");
  stopAgent();
  const auto ended = watch.wait();
  EXPECT_EQ(ended.status, 8);
  EXPECT_NE(ended.err.find("the agent has gone"), std::string::npos) << ended.err;
}

TEST_F(Vanectl, AWatchThatReconnectsAgreesWithTheTableOverRestarts) {
  Child watch(command({"watch", routes, "--snapshot", "--reconnect", "--json"}));
  std::map<std::string, int> model;
  std::map<std::string, int> expected;
  int resyncs = 0;
  const auto takeUntil = [&](const std::string& key) {
    for (;;) {
      const Json record = Json::parse(watch.readLine());
      const std::string kind = record.at("kind");
      if (kind == "resync") {
        model.clear();
        ++resyncs;
      } else if (kind == "removed") {
        model.erase(record.at("key"));
      } else if (kind == "set" || kind == "entry") {
        model[record.at("key")] = record.at("row").at("destinationId");
        if (record.at("key") == key) return;
      }
    }
  };
  watch.waitForOut("entries");
  for (int round = 0; round < 3; ++round) {
    for (int i = 0; i < 6; ++i) {
      const std::string prefix = "10." + std::to_string((round * 4 + i) % 10) + ".0.0/16";
      setRoute(prefix, round * 10 + i);
      expected[prefix] = round * 10 + i;
    }
    outOf({"del", routes, "10." + std::to_string(round) + ".0.0/16"});
    expected.erase("10." + std::to_string(round) + ".0.0/16");
    const std::string mark = "20." + std::to_string(round) + ".0.0/16";
    setRoute(mark, 1);
    expected[mark] = 1;
    takeUntil(mark);
    EXPECT_EQ(model, expected) << "round " << round;
    // Once killed, and once asked to end.
    stopAgent(round == 0 ? SIGKILL : SIGTERM);
    startAgent();
  }
  EXPECT_EQ(resyncs, 2);
  watch.signal(SIGINT);
  EXPECT_EQ(watch.wait().status, 1000 + SIGINT);
}

TEST_F(Vanectl, CtrlCEndsAWatchWithoutAWord) {
  Child watch(command({"watch", "--snapshot", "--json"}));
  watch.waitForOut("entries");
  watch.signal(SIGINT);
  const auto ended = watch.wait();
  EXPECT_EQ(ended.status, 1000 + SIGINT);
  EXPECT_EQ(ended.err, "");
}

TEST_F(Vanectl, AReaderThatHasSeenEnoughEndsItWithoutAWord) {
  std::string input;
  for (int i = 0; i < 3000; ++i) {
    input += setLine(routes, R"({"destinationPrefix":"10.)" + std::to_string(i / 256) + "." +
                                 std::to_string(i % 256) + R"(.0/24"})");
  }
  ASSERT_EQ(vanectl({"load"}, input).status, 0);
  const auto ended = run({"/bin/bash", "-c",
                          "set -o pipefail; '" + program("vanectl") + "' --socket '" + socket() +
                              "' dump | head -n 1 > /dev/null; echo ${PIPESTATUS[0]}"});
  EXPECT_EQ(ended.out, "141\n");
  EXPECT_EQ(ended.err, "");
}

TEST_F(Vanectl, ExitStatusesSayWhatWasWrong) {
  const std::vector<std::pair<std::vector<std::string>, int>> cases = {
      {{"get", routes}, 2},
      {{"fetch"}, 2},
      {{"get", routes, "10.0.0.1/8"}, 2},
      {{"get", routes, "5,10.0.0.0/8"}, 2},
      {{"set", routes, "destinationPrefix"}, 2},
      {{"set", routes, "destinationId=5"}, 2},
      {{"set", routes, "destinationPrefix=10.0.0.0/8", "destinationId=x"}, 2},
      {{"set", routes, "destinationPrefix=10.0.0.0/8", "destinationIt=5"}, 2},
      {{"log-level", "loud"}, 2},
      {{"scan", routes, "--columns", "nothing"}, 2},
      {{"get", routes, "10.0.0.0/8"}, 3},
      {{"scan", "VaneIpv4Overide"}, 3},
      {{"load", "/nonexistent"}, 3},
      {{"watch", "--timeout", "0.2"}, 7},
  };
  for (const auto& [words, status] : cases) {
    const auto ended = vanectl(words);
    EXPECT_EQ(ended.status, status) << words[0] << " " << words.back() << ": " << ended.err;
    EXPECT_EQ(lines(ended.err).size(), 1u) << ended.err;
  }
  EXPECT_NE(vanectl({"scan", "VaneIpv4Overide"}).err.find("VaneIpv4Override"), std::string::npos);
  EXPECT_NE(vanectl({"set", routes, "destinationIt=5"}).err.find("destinationId"),
            std::string::npos);
}

TEST_F(Vanectl, WithoutAnAgentTheStatusIsEight) {
  stopAgent(SIGKILL);  // which leaves its socket behind
  EXPECT_EQ(vanectl({"tables"}).status, 8);
  const auto nowhere = run({program("vanectl"), "--socket", "/nonexistent/sock", "tables"});
  EXPECT_EQ(nowhere.status, 8);
  EXPECT_NE(nowhere.err.find("/nonexistent/sock"), std::string::npos) << nowhere.err;
}

TEST_F(Vanectl, ASocketThatIsNotOursToUseIsSaidToBe) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can become somebody else";
  const auto ended = run({"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
                          program("vanectl"), "--socket", socket(), "tables"});
  EXPECT_EQ(ended.status, 4) << ended.err;
}

TEST_F(Vanectl, HelpBeginsWithExamplesAndThePagesAreMade) {
  const auto help = vanectl({"--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_LT(help.out.find("vanectl watch --json"), help.out.find("--socket"));
  EXPECT_NE(vanectl({"manual"}).out.find(".TH"), std::string::npos);
  EXPECT_NE(vanectl({"completion", "bash"}).out.find("log-level"), std::string::npos);
  EXPECT_NE(vanectl({"completion", "zsh"}).out.find("log-level"), std::string::npos);
}

}  // namespace
