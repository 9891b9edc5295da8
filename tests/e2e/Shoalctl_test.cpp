// The view without the agent.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <set>

#include "tests/e2e/Programs.h"

namespace E2e {
namespace {

class Shoalctl : public testing::Test {
 protected:
  void SetUp() override {
    std::string input;
    for (int i = 0; i < 200; ++i) {
      input += R"({"table":"VaneIpv4Override","row":{"destinationPrefix":"10.0.)" +
               std::to_string(i) + R"(.0/24","destinationId":)" + std::to_string(i) + "}}\n";
    }
    input +=
        R"({"table":"VaneIpv6VrfPrefix","row":{"vrfId":5,"prefix":"2001:db8::/32","destinationId":7}})"
        "\n"
        R"({"table":"VaneEcmpGroup","row":{"id":3,"members":[1,2]}})"
        "\n"
        R"({"table":"VaneIpv4Encap","row":{"encapId":9,"srcAddr":"192.0.2.1","dstAddr":"192.0.2.2"}})"
        "\n";
    const auto loaded = run(agentOn(scratch_.root(), {"--load", "-", "--once", "--quiet"}), input);
    ASSERT_EQ(loaded.status, 0) << loaded.err;
  }

  Child::Result ctl(const std::vector<std::string>& arguments) {
    return shoalctl(scratch_.root(), arguments);
  }

  Scratch scratch_;
};

TEST_F(Shoalctl, TablesSaysWhatEachTableIsAndHolds) {
  const auto shown = ctl({"--json", "tables"});
  EXPECT_EQ(shown.status, 0);
  const auto all = lines(shown.out);
  ASSERT_EQ(all.size(), 10u);
  const auto line = std::find_if(all.begin(), all.end(), [](const std::string& text) {
    return Json::parse(text).at("name") == "VaneIpv4Override";
  });
  ASSERT_NE(line, all.end());
  Json table = Json::parse(*line);
  EXPECT_GT(table.at("bytes").get<uint64_t>(), 200u * 56);
  table.erase("bytes");
  EXPECT_EQ(table, Json::parse(R"({"name":"VaneIpv4Override",
      "path":"p4runtime/outputTables/routing/ipv4OverrideTable",
      "type":"P4RuntimeRouting::IpDestinationTable", "entries":200, "capacity":4096,
      "generation":1, "changes":200, "writer":null})"));
}

TEST_F(Shoalctl, TablesForPeopleHasAHeadingAndALineForEachTable) {
  const auto shown = ctl({"tables", "--format", "table"});
  EXPECT_EQ(shown.status, 0);
  const auto all = lines(shown.out);
  ASSERT_EQ(all.size(), 11u);
  EXPECT_TRUE(all[0].starts_with("name ")) << all[0];
  EXPECT_TRUE(std::any_of(all.begin(), all.end(), [](const std::string& line) {
    return line.starts_with("VaneIpv4Override ") && line.find(" 200 ") != std::string::npos &&
           line.find(" - ") != std::string::npos;
  })) << shown.out;
}

TEST_F(Shoalctl, ShowPrintsEveryRowOnce) {
  std::set<std::string> prefixes;
  for (const Json& row : shownRows(scratch_.root(), "VaneIpv4Override")) {
    prefixes.insert(row.at("destinationPrefix"));
  }
  EXPECT_EQ(prefixes.size(), 200u);
  EXPECT_TRUE(prefixes.contains("10.0.199.0/24"));
  EXPECT_EQ(lines(ctl({"show", "VaneIpv4Override", "--no-headings"}).out).size(), 200u);
}

TEST_F(Shoalctl, ShowOfAKeyPrintsThatRowInTheRowsOwnForm) {
  EXPECT_EQ(
      ctl({"show", "VaneIpv4Override", "10.0.7.0/24"}).out,
      "genId\tentryHandle\tvalid\tentryId\tdestinationPrefix\tdestinationType\tdestinationId\n"
      "0\t0\tfalse\t0\t10.0.7.0/24\t0\t7\n");
  EXPECT_EQ(ctl({"--json", "show", "VaneIpv6VrfPrefix", "5,2001:db8::/32"}).out,
            "{\"genId\":0, \"entryHandle\":0, \"valid\":false, \"entryId\":0, \"vrfId\":5, "
            "\"prefix\":\"2001:db8::/32\", \"destinationType\":0, \"destinationId\":7}\n");
  EXPECT_EQ(Json::parse(ctl({"show", "--json", "VaneEcmpGroup", "3"}).out).at("members"),
            Json::parse("[1, 2]"));
  EXPECT_EQ(Json::parse(ctl({"show", "--json", "ipv4EncapTable", "9"}).out).at("dstAddr"),
            "192.0.2.2");
}

TEST_F(Shoalctl, ATableIsKnownByNamePathAndLastPartOfThePath) {
  const std::string rows = ctl({"show", "VaneIpv4Override"}).out;
  EXPECT_EQ(ctl({"show", "ipv4OverrideTable"}).out, rows);
  EXPECT_EQ(ctl({"show", "p4runtime/outputTables/routing/ipv4OverrideTable"}).out, rows);
}

TEST_F(Shoalctl, AnAbsentKeyTableOrRootIsStatus3) {
  auto shown = ctl({"show", "VaneIpv4Override", "10.1.0.0/16"});
  EXPECT_EQ(shown.status, 3);
  EXPECT_EQ(shown.err, "shoalctl: table VaneIpv4Override has no key 10.1.0.0/16\n");
  shown = ctl({"show", "VaneIpv4Overide"});
  EXPECT_EQ(shown.status, 3);
  EXPECT_EQ(shown.err,
            "shoalctl: no table \"VaneIpv4Overide\"; the nearest name is VaneIpv4Override\n");
  shown = shoalctl(scratch_.root() + "/absent", {"tables"});
  EXPECT_EQ(shown.status, 3);
  EXPECT_EQ(shown.err, "shoalctl: " + scratch_.root() + "/absent: no such directory\n");
  EXPECT_EQ(shown.out, "");
}

TEST_F(Shoalctl, WrongUsageIsStatus2) {
  const std::vector<std::vector<std::string>> wrong{{},
                                                    {"shew"},
                                                    {"show"},
                                                    {"show", "VaneIpv4Override", "nonsense"},
                                                    {"show", "VaneIpv4Override", "10.0.7.1/24"},
                                                    {"show", "VaneIpv6VrfPrefix", "2001:db8::/32"},
                                                    {"show", "VaneEcmpGroup", "-1"},
                                                    {"show", "VaneIpv4Encap", "65536"},
                                                    {"tables", "VaneEcmpGroup"},
                                                    {"--nonsense", "tables"}};
  for (const auto& arguments : wrong) {
    const auto shown = ctl(arguments);
    EXPECT_EQ(shown.status, 2) << (arguments.empty() ? "" : arguments.back());
    EXPECT_EQ(shown.out, "");
    EXPECT_NE(shown.err, "");
  }
}

TEST_F(Shoalctl, AFileThatIsNoTableIsStatus5AndTheOthersAreShown) {
  const auto file = std::filesystem::path(scratch_.root()) /
                    "p4runtime/outputTables/routing/ecmpGroupTable.shoal";
  std::filesystem::resize_file(file, 100);
  const auto shown = ctl({"tables"});
  EXPECT_EQ(shown.status, 5);
  EXPECT_EQ(lines(shown.out).size(), 10u) << shown.out;  // with the heading
  EXPECT_NE(shown.err.find("ecmpGroupTable"), std::string::npos) << shown.err;
  EXPECT_EQ(ctl({"show", "VaneEcmpGroup"}).status, 5);
  EXPECT_EQ(ctl({"show", "VaneIpv4Encap"}).status, 0);
}

TEST_F(Shoalctl, TablesOfAnotherUserAreStatus4) {
  namespace fs = std::filesystem;
  fs::permissions(scratch_.path(), fs::perms::owner_all | fs::perms::others_exec);
  fs::permissions(scratch_.root(), fs::perms::none);
  std::vector<std::string> command{program("shoalctl"), "--root", scratch_.root(), "tables"};
  if (::geteuid() == 0) {  // who may read anything
    command.insert(command.begin(), {"/usr/bin/setpriv", "--reuid=65534", "--clear-groups"});
  }
  const auto shown = run(command);
  fs::permissions(scratch_.root(), fs::perms::owner_all);
  if (shown.status >= 126) GTEST_SKIP() << "another user cannot run the programs here";
  EXPECT_EQ(shown.status, 4) << shown.err;
  EXPECT_EQ(shown.err, "shoalctl: " + scratch_.root() + ": not ours to read\n");
}

TEST_F(Shoalctl, AReaderThatHasSeenEnoughEndsItWithoutAWord) {
  std::string input;
  const std::string command =
      program("shoalctl") + " --root " + scratch_.root() + " show VaneIpv4Override | head -n 1";
  const auto shown = run({"/bin/sh", "-c", command});
  EXPECT_EQ(shown.status, 0);
  EXPECT_EQ(lines(shown.out).size(), 1u);
  EXPECT_EQ(shown.err, "");
}

TEST_F(Shoalctl, ItNamesTheWriterWhileThereIsOneAndSeesItsChanges) {
  Child agent(agentOn(scratch_.root(), {"--load", "-", "--quiet"}));
  agent.write(R"({"table":"VaneEcmpMember","row":{"id":12,"egressPort":4}})"
              "\n"
              R"({"op":"sync","id":1})"
              "\n");
  agent.readLine();
  EXPECT_EQ(Json::parse(ctl({"--json", "show", "VaneEcmpMember", "12"}).out).at("egressPort"), 4);
  for (const std::string& line : lines(ctl({"--json", "tables"}).out)) {
    EXPECT_EQ(Json::parse(line).at("writer"), agent.pid());
    EXPECT_EQ(Json::parse(line).at("generation"), 2);
  }
  agent.signal(SIGTERM);
  EXPECT_EQ(agent.wait().status, 0);
}

}  // namespace
}  // namespace E2e
