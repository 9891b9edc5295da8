// The agent's life: starting, ending, dying, coming back.
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <sstream>
#include <thread>

#include "tests/e2e/Programs.h"

namespace E2e {
namespace {

const std::string threeRoutes =
    R"({"table":"VaneIpv4Override","row":{"destinationPrefix":"10.0.0.0/8","destinationId":1}})"
    "\n"
    R"({"table":"VaneIpv4Override","row":{"destinationPrefix":"10.1.0.0/16","destinationId":2}})"
    "\n"
    R"({"table":"VaneIpv6VrfPrefix","row":{"vrfId":1,"prefix":"2001:db8::/32","destinationId":3}})"
    "\n"
    R"({"op":"sync","id":1})"
    "\n";

// An agent that holds three routes and waits for more.
struct Serving {
  explicit Serving(const std::string& root, const std::vector<std::string>& more = {})
      : agent(agentOn(root, [&] {
          std::vector<std::string> arguments{"--load", "-"};
          arguments.insert(arguments.end(), more.begin(), more.end());
          return arguments;
        }())) {
    agent.write(threeRoutes);
    agent.readLine();
  }
  Child agent;
};

uint64_t total(const std::map<std::string, uint64_t>& entries) {
  uint64_t sum = 0;
  for (const auto& [table, count] : entries) sum += count;
  return sum;
}

TEST(AgentStart, APlugInThatIsMissingIsOneClearLine) {
  const Scratch scratch;
  const auto ended = run({program("p4rt-agent"), "--plugin", "/nonexistent/plugin.so",
                          "--shoal-root", scratch.root()});
  EXPECT_EQ(ended.status, 1);
  EXPECT_EQ(lines(ended.err).size(), 1u) << ended.err;
  EXPECT_NE(ended.err.find("/nonexistent/plugin.so"), std::string::npos) << ended.err;
  EXPECT_NE(ended.err.find("No such file"), std::string::npos) << ended.err;
  EXPECT_FALSE(std::filesystem::exists(scratch.root())) << "no table is made for nobody";
}

TEST(AgentStart, AFileThatIsNoLibraryIsOneClearLine) {
  const Scratch scratch;
  const std::string file = scratch.file("plugin.so", "this is a text\n");
  const auto ended = run({program("p4rt-agent"), "--plugin", file, "--shoal-root", scratch.root()});
  EXPECT_EQ(ended.status, 1);
  EXPECT_EQ(lines(ended.err).size(), 1u) << ended.err;
  EXPECT_NE(ended.err.find(file), std::string::npos) << ended.err;
}

TEST(AgentStart, ALibraryWithoutAPlugInIsOneClearLine) {
  const Scratch scratch;
  const auto ended = run(
      {program("p4rt-agent"), "--plugin", ROUTING_PLATFORM_FILE, "--shoal-root", scratch.root()});
  EXPECT_EQ(ended.status, 1);
  EXPECT_EQ(lines(ended.err).size(), 1u) << ended.err;
  EXPECT_NE(ended.err.find("no plug-in"), std::string::npos) << ended.err;
}

TEST(AgentStart, ThePlugInBesideTheProgramIsTheDefault) {
  const Scratch scratch;
  const auto ended = run({program("p4rt-agent"), "--shoal-root", scratch.root(),
                          "--default-capacity", "16", "--once"});
  EXPECT_EQ(ended.status, 0) << ended.err;
  EXPECT_NE(ended.err.find("serving 10 tables below " + scratch.root()), std::string::npos);
}

// Processor time that a process has used, in the kernel's ticks of 10 ms.
uint64_t ticksOf(pid_t pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
  std::string stat;
  std::getline(in, stat);
  std::istringstream fields(stat.substr(stat.rfind(')') + 2));
  std::string skipped;
  for (int field = 3; field < 14; ++field) fields >> skipped;
  uint64_t user = 0, system = 0;
  fields >> user >> system;
  EXPECT_TRUE(fields) << stat;
  return user + system;
}

TEST(AgentStart, APlugInThatNeverReportsItsMountsIsNamedAndCostsNoTime) {
  const Scratch scratch;
  Child agent({program("p4rt-agent"), "--plugin", STALLED_PLUGIN_FILE, "--shoal-root",
               scratch.root(), "--default-capacity", "16", "--listen", "none"});
  agent.waitForErr("plug-in stalled: its mounts are not complete");
  const uint64_t before = ticksOf(agent.pid());
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  EXPECT_LE(ticksOf(agent.pid()) - before, 5u);
  agent.signal(SIGTERM);
  const auto ended = agent.wait();
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.err.find("serving"), ended.err.rfind("serving")) << "it is named once";
  EXPECT_EQ(ended.err.find("tables below"), std::string::npos) << ended.err;
}

TEST(AgentStart, WrongArgumentsAreAUsageError) {
  const std::vector<std::vector<std::string>> wrong{
      {"--nonsense"},
      {"--on-exit", "burn"},
      {"--capacity", "VaneIpv4Override"},
      {"--capacity", "VaneIpv4Override=0"},
      {"--capacity", "VaneIpv4Override=4294967296"},
      {"--capacity", "VaneIpv5Override=10"},
      {"--default-capacity", "0"},
      {"--log-level", "loud"},
      {"--quiet", "--log-level", "debug"},
      {"operand"},
  };
  for (const auto& arguments : wrong) {
    const Scratch scratch;
    const auto ended = run(agentOn(scratch.root(), arguments));
    EXPECT_EQ(ended.status, 2) << arguments[0];
    EXPECT_FALSE(ended.err.empty());
    EXPECT_FALSE(std::filesystem::exists(scratch.root()));
  }
}

TEST(AgentStart, HelpGoesToStandardOutput) {
  const auto help = run({program("p4rt-agent"), "--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_NE(help.out.find("--on-exit"), std::string::npos);
  EXPECT_EQ(help.err, "");
}

TEST(AgentStart, CapacitiesAreTakenByNameOrPathAndTheRestFromTheDefault) {
  const Scratch scratch;
  const auto ended = run({program("p4rt-agent"), "--shoal-root", scratch.root(),
                          "--default-capacity", "100", "--capacity", "VaneEcmpGroup=7",
                          "--capacity", "ipv4EncapTable=2000", "--once", "--quiet"});
  ASSERT_EQ(ended.status, 0) << ended.err;
  for (const std::string& line : lines(shoalctl(scratch.root(), {"--json", "tables"}).out)) {
    const Json table = Json::parse(line);
    const uint64_t asked = table.at("name") == "VaneEcmpGroup"   ? 7
                           : table.at("name") == "VaneIpv4Encap" ? 2000
                                                                 : 100;
    EXPECT_EQ(table.at("capacity"), asked) << line;
  }
}

TEST(AgentEnd, KeepLeavesEveryEntryForTheNextAgent) {
  for (const int signal : {SIGTERM, SIGINT}) {
    const Scratch scratch;
    Serving serving(scratch.root(), {"--on-exit", "keep"});
    serving.agent.signal(signal);
    EXPECT_EQ(serving.agent.wait().status, 0);
    EXPECT_EQ(total(entries(scratch.root())), 3u);
    Child next(agentOn(scratch.root(), {"--once", "--status"}));
    EXPECT_EQ(Json::parse(next.readLine()).at("tables").at("VaneIpv4Override").at("entries"), 2);
    EXPECT_EQ(next.wait().status, 0);
  }
}

TEST(AgentEnd, EmptyLeavesTenTablesWithoutEntries) {
  for (const int signal : {SIGTERM, SIGINT}) {
    const Scratch scratch;
    Serving serving(scratch.root(), {"--on-exit", "empty"});
    serving.agent.signal(signal);
    const auto ended = serving.agent.wait();
    EXPECT_EQ(ended.status, 0) << ended.err;
    const auto left = entries(scratch.root());
    EXPECT_EQ(left.size(), 10u);
    EXPECT_EQ(total(left), 0u);
  }
}

TEST(AgentEnd, DetachLeavesNoTable) {
  for (const int signal : {SIGTERM, SIGINT}) {
    const Scratch scratch;
    Serving serving(scratch.root(), {"--on-exit", "detach"});
    serving.agent.signal(signal);
    const auto ended = serving.agent.wait();
    EXPECT_EQ(ended.status, 0) << ended.err;
    EXPECT_EQ(shoalctl(scratch.root(), {"tables"}).status, 3);
  }
}

TEST(AgentEnd, CtrlCIsHeardInTheMiddleOfAnEndlessInput) {
  const Scratch scratch;
  std::string piece;
  for (int i = 0; i < 1000; ++i) {
    piece += R"({"table":"VaneIpv4Override","row":{"destinationPrefix":"10.0.0.0/8"}})"
             "\n";
  }
  Child agent(agentOn(scratch.root(), {"--load", "-", "--on-exit", "empty"}));
  for (int i = 0; i < 10; ++i) ASSERT_TRUE(agent.write(piece));
  agent.signal(SIGINT);
  while (agent.write(piece)) {
  }
  const auto ended = agent.wait();
  EXPECT_EQ(ended.status, 0) << ended.err;
  EXPECT_NE(ended.err.find("ending on INT"), std::string::npos) << ended.err;
  EXPECT_EQ(total(entries(scratch.root())), 0u);
}

TEST(AgentEnd, OnceEndsWhenTheInputEnds) {
  const Scratch scratch;
  const auto ended = run(agentOn(scratch.root(), {"--load", "-", "--once"}), threeRoutes);
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(total(entries(scratch.root())), 3u);
}

TEST(AgentEnd, WithoutOnceTheAgentServesOnAfterItsInput) {
  const Scratch scratch;
  Serving serving(scratch.root());
  serving.agent.closeInput();
  serving.agent.waitForErr("3 rows applied");
  const auto table = Json::parse(lines(shoalctl(scratch.root(), {"--json", "tables"}).out).at(0));
  EXPECT_EQ(table.at("writer"), serving.agent.pid());
  serving.agent.signal(SIGTERM);
  EXPECT_EQ(serving.agent.wait().status, 0);
}

TEST(AgentDeath, AKilledAgentsTablesAreReadWhileItIsDeadAndAdoptedByTheNext) {
  const Scratch scratch;
  {
    Serving serving(scratch.root());
    serving.agent.signal(SIGKILL);
    EXPECT_EQ(serving.agent.wait().status, 1000 + SIGKILL);
  }
  EXPECT_EQ(shownRows(scratch.root(), "VaneIpv4Override").size(), 2u);
  for (const std::string& line : lines(shoalctl(scratch.root(), {"--json", "tables"}).out)) {
    EXPECT_EQ(Json::parse(line).at("writer"), nullptr) << line;
    EXPECT_EQ(Json::parse(line).at("generation"), 1) << line;
  }

  Child next(agentOn(scratch.root(), {"--load", "-", "--once"}));
  next.write(
      R"({"table":"VaneIpv4Override","row":{"destinationPrefix":"10.2.0.0/16","destinationId":9}})"
      "\n"
      R"({"table":"VaneIpv4Override","op":"del","row":{"destinationPrefix":"10.0.0.0/8"}})"
      "\n");
  EXPECT_EQ(next.wait().status, 0);
  std::map<std::string, uint32_t> routes;
  for (const Json& row : shownRows(scratch.root(), "VaneIpv4Override")) {
    routes[row.at("destinationPrefix")] = row.at("destinationId");
  }
  EXPECT_EQ(routes, (std::map<std::string, uint32_t>{{"10.1.0.0/16", 2}, {"10.2.0.0/16", 9}}));
}

TEST(AgentDeath, ATableThatIsCutShortEndsTheAgentWithAMessage) {
  const Scratch scratch;
  Serving serving(scratch.root());
  const std::string table = "p4runtime/outputTables/routing/ipv4OverrideTable";
  std::filesystem::resize_file(scratch.root() + "/" + table + ".shoal", 0);
  serving.agent.write(R"({"table":"VaneIpv4Override","row":{"destinationPrefix":"10.2.0.0/16"}})"
                      "\n");
  const auto ended = serving.agent.wait();
  EXPECT_EQ(ended.status, 1);
  EXPECT_NE(ended.err.find("p4rt-agent: shared table \"" + table +
                           "\": its file was cut short while it was attached\n"),
            std::string::npos)
      << ended.err;
  EXPECT_EQ(shownRows(scratch.root(), "VaneIpv6VrfPrefix").size(), 1u) << "the others are whole";
}

TEST(AgentDeath, ASecondAgentOnTheSameTablesIsRefusedInOneLineThatNamesTheHolder) {
  const Scratch scratch;
  Serving serving(scratch.root());
  const auto second = run(agentOn(scratch.root(), {"--once"}));
  EXPECT_EQ(second.status, 1);
  EXPECT_EQ(lines(second.err).size(), 1u) << second.err;
  EXPECT_NE(second.err.find(std::to_string(serving.agent.pid())), std::string::npos) << second.err;
  EXPECT_EQ(total(entries(scratch.root())), 3u);
  serving.agent.signal(SIGTERM);
  EXPECT_EQ(serving.agent.wait().status, 0);
}

}  // namespace
}  // namespace E2e
