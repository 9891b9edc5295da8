// The agent's configuration file.
#include <gtest/gtest.h>

#include <csignal>

#include "tests/e2e/Programs.h"

namespace {

using namespace E2e;

Child::Result check(const Scratch& scratch, const std::string& config,
                    const std::vector<std::string>& more = {}) {
  std::vector<std::string> arguments{program("p4rt-agent"), "--config",
                                     scratch.file("agent.toml", config), "--check-config"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return run(arguments);
}

TEST(AgentConfig, EveryKindOfValueIsTaken) {
  const Scratch scratch;
  const auto checked = check(scratch, R"(
shoal-root = "/dev/shm/somewhere"
default-capacity = 5000
listen = ["127.0.0.1:9559", "[::1]:9559"]
strict = true
follow = false
log-level = "debug"
on-exit = "detach"

[capacity]
VaneIpv4Override = 2097152
ipv6OverrideTable = 10
)");
  EXPECT_EQ(checked.status, 0) << checked.err;
  EXPECT_EQ(checked.err, "");
}

TEST(AgentConfig, AnEmptyFileIsAConfiguration) {
  const Scratch scratch;
  EXPECT_EQ(check(scratch, "").status, 0);
}

// The parser took these for impossible: some builds ended, others assumed that they do not come.
TEST(AgentConfig, AKeyThatCannotBeginAsItDoesIsRefusedWithItsLine) {
  const Scratch scratch;
  for (const char* config :
       {"strict = true\n[:", "\n[[ : ]]\n", "\n\xC3\xA9 = 1\n", "\n\xCC\x96"}) {
    const auto checked = check(scratch, config);
    EXPECT_EQ(checked.status, 2) << config;
    EXPECT_NE(checked.err.find("line 2: "), std::string::npos) << checked.err;
  }
}

TEST(AgentConfig, WhatIsWrongIsToldWithItsLine) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"\nshoal-rot = \"/x\"\n", "line 2: no option \"shoal-rot\"; the nearest name is shoal-root"},
      {"strict = \"yes\"\n", "line 1: strict: expected true or false"},
      {"shoal-root = true\n", "line 1: shoal-root: expected a text, a number, or a list"},
      {"\n\nlog-level = \"loud\"\n", "line 3: log-level: "},
      {"default-capacity = 0\n", "line 1: default-capacity: "},
      {"on-exit = [\"keep\", \"empty\"]\n", "line 1: on-exit: "},
      {"[capacity]\nVaneIpv4Override = \"many\"\n", "line 2: expected a number of entries"},
      {"[capacity]\nVaneIpv4Overide = 5\n", "found \"VaneIpv4Overide=5\""},
      {"[listen]\nx = 1\n", "line 1: listen: expected"},
      {"config = \"other.toml\"\n", "line 1: no option \"config\""},
      {"strict = \n", "line 1: "},
  };
  const Scratch scratch;
  for (const auto& [config, expected] : cases) {
    const auto checked = check(scratch, config);
    EXPECT_EQ(checked.status, 2) << config;
    EXPECT_NE(checked.err.find(expected), std::string::npos) << config << checked.err;
    EXPECT_EQ(checked.out, "");
  }
}

TEST(AgentConfig, AFileThatCannotBeReadIsNamed) {
  const Scratch scratch;
  const auto missing = run({program("p4rt-agent"), "--config", "/nonexistent.toml"});
  EXPECT_EQ(missing.status, 2);
  EXPECT_NE(missing.err.find("/nonexistent.toml: No such file"), std::string::npos) << missing.err;
  const auto directory = run({program("p4rt-agent"), "--config", scratch.path().string()});
  EXPECT_EQ(directory.status, 2);
  EXPECT_NE(directory.err.find("Is a directory"), std::string::npos) << directory.err;
}

TEST(AgentConfig, TheCommandLineWins) {
  const Scratch scratch;
  const std::string file =
      scratch.file("agent.toml", "shoal-root = \"" + scratch.root() +
                                     "-file\"\nstatus = true\ndefault-capacity = 64\n");
  const std::string fromLine = scratch.root() + "-line";
  const auto ended = run({program("p4rt-agent"), "--plugin", ROUTING_PLUGIN_FILE, "--config", file,
                          "--shoal-root", fromLine, "--once"});
  ASSERT_EQ(ended.status, 0) << ended.err;
  EXPECT_NE(ended.err.find("root=" + fromLine), std::string::npos) << ended.err;
  // What the command line leaves open is the file's.
  EXPECT_EQ(Json::parse(ended.out).at("status"), "loaded");
}

TEST(AgentLog, EachLineIsAnEventWithTimeLevelAndValues) {
  const Scratch scratch;
  const auto ended = run(agentOn(scratch.root(), {"--once", "--load", "-", "--log-level", "debug"}),
                         "{\"table\":\"VaneNothing\",\"row\":{}}\n");
  EXPECT_EQ(ended.status, 1);
  std::map<std::string, std::map<std::string, std::string>> byEvent;
  for (const auto& event : logged(ended.err)) {
    EXPECT_EQ(event.at("time").size(), std::string("2026-01-01T00:00:00.000Z").size());
    EXPECT_TRUE(event.at("time").ends_with('Z'));
    EXPECT_FALSE(event.at("text").empty());
    byEvent[event.at("event")] = event;
  }
  EXPECT_EQ(byEvent.at("serving").at("level"), "info");
  EXPECT_EQ(byEvent.at("serving").at("tables"), "10");
  EXPECT_EQ(byEvent.at("mounted").at("level"), "debug");
  EXPECT_EQ(byEvent.at("lineRefused").at("level"), "error");
  EXPECT_EQ(byEvent.at("lineRefused").at("input"), "standard input");
  EXPECT_EQ(byEvent.at("lineRefused").at("line"), "1");
  EXPECT_EQ(byEvent.at("loaded").at("failed"), "1");
}

}  // namespace
