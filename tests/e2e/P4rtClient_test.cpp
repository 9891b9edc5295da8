// p4rt-client as a process, on an agent as a process.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <memory>

#include "tests/e2e/Programs.h"

namespace {

using namespace E2e;

const std::string routes = "VaneIpv4Override";

std::string prefixes(size_t count, size_t first = 0) {
  std::string list;
  for (size_t i = first; i < first + count; ++i) {
    list += "10." + std::to_string(i >> 16 & 255) + "." + std::to_string(i >> 8 & 255) + "." +
            std::to_string(i & 255) + "/32\n";
  }
  return list;
}

class P4rtClient : public testing::Test {
 protected:
  void SetUp() override {
    agent = std::make_unique<Child>(agentOn(
        scratch.root(),
        {"--listen", address(), "--max-updates", "5000", "--capacity", routes + "=100000"}));
    agent->waitForErr("P4Runtime on");
  }

  std::string address() const { return "unix:" + (scratch.path() / "p4.sock").string(); }
  std::vector<std::string> command(const std::vector<std::string>& words) const {
    std::vector<std::string> arguments{program("p4rt-client"), "--json", "--address", address()};
    arguments.insert(arguments.end(), words.begin(), words.end());
    return arguments;
  }
  Child::Result client(const std::vector<std::string>& words, const std::string& input = {}) const {
    return run(command(words), input);
  }
  Json outOf(const std::vector<std::string>& words, const std::string& input = {}) const {
    const auto ended = client(words, input);
    EXPECT_EQ(ended.status, 0) << ended.err;
    return ended.out.empty() ? Json() : Json::parse(ended.out);
  }
  static Json tally(uint64_t done, uint64_t failed) { return {{"done", done}, {"failed", failed}}; }

  Scratch scratch;
  std::unique_ptr<Child> agent;
};

TEST_F(P4rtClient, WhatIsProgrammedWithSeveralWritesUnderWayIsThereAndGoesAgain) {
  const std::string list = prefixes(5003);
  const std::vector<std::string> sending{"--batch", "100", "--in-flight", "8", "--prefixes", "-"};
  const auto with = [&](const std::string& verb) {
    std::vector<std::string> words{verb};
    words.insert(words.end(), sending.begin(), sending.end());
    return words;
  };
  EXPECT_EQ(outOf(with("program"), list), tally(5003 + 8, 0));
  EXPECT_EQ(entries(scratch.root())[routes], 5003u);
  EXPECT_EQ(outOf({"verify", "--prefixes", "-"}, list), tally(5003, 0));
  EXPECT_EQ(outOf(with("delete"), list), tally(5003 + 8, 0));
  EXPECT_EQ(entries(scratch.root())[routes], 0u);
}

TEST_F(P4rtClient, UpdatesThatFailAreCountedAndTheFirstIsTold) {
  outOf({"program", "--prefixes", "-"}, prefixes(10));
  const auto again =
      client({"program", "--batch", "4", "--in-flight", "2", "--prefixes", "-"}, prefixes(12));
  EXPECT_EQ(again.status, 1);
  EXPECT_EQ(Json::parse(again.out), tally(2, 18)) << "eight members and ten routes are there";
  EXPECT_NE(again.err.find("is there already"), std::string::npos) << again.err;
  EXPECT_EQ(entries(scratch.root())[routes], 12u);
}

TEST_F(P4rtClient, AWriteThatIsRefusedAsAWholeEndsItWithAMessage) {
  const auto refused = client({"program", "--batch", "1000000", "--prefixes", "-"}, prefixes(5001));
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.out, "");
  EXPECT_NE(refused.err.find("expected at most"), std::string::npos) << refused.err;
  EXPECT_EQ(lines(refused.err).size(), 1u);
}

TEST_F(P4rtClient, AnAgentThatIsKilledMeanwhileEndsItWithAMessage) {
  Child programming(command({"program", "--batch", "1", "--in-flight", "8", "--prefixes", "-"}));
  programming.write(prefixes(90000));
  programming.closeInput();
  while (entries(scratch.root())[routes] < 100) {
  }
  agent->signal(SIGKILL);
  const auto ended = programming.wait();
  EXPECT_EQ(ended.status, 8) << ended.err;
  EXPECT_EQ(ended.out, "");
  EXPECT_EQ(lines(ended.err).size(), 1u) << ended.err;
}

TEST_F(P4rtClient, WritesUnderWayAreFromOneToSixtyFour) {
  for (const char* number : {"0", "65", "-1", "many"}) {
    const auto refused = client({"bench", "--in-flight", number});
    EXPECT_EQ(refused.status, 2) << number;
    EXPECT_NE(refused.err.find("--in-flight"), std::string::npos) << refused.err;
  }
}

TEST_F(P4rtClient, BenchLeavesTheTableAsItFoundIt) {
  const Json rates = outOf({"bench", "--routes", "3000", "--batch", "100", "--clients", "2"});
  EXPECT_EQ(rates["in_flight"], 4);
  for (const char* rate : {"inserts_per_s", "deletes_per_s", "reads_per_s"}) {
    EXPECT_GT(rates[rate].get<uint64_t>(), 0u) << rate;
  }
  EXPECT_EQ(entries(scratch.root())[routes], 0u);
}

}  // namespace
