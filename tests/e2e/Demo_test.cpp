// The main job, small: the demo finds everything right when it is, and says so when it is not.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>

#include "tests/e2e/Programs.h"

namespace E2e {
namespace {

const std::vector<std::string> small{"--ipv4", "300",      "--ipv6", "60",       "--members",
                                     "40",     "--groups", "8",      "--encaps", "30"};

std::vector<std::string> smallDemo(std::vector<std::string> more = {}) {
  more.insert(more.end(), small.begin(), small.end());
  return demo(more);
}

// Whether a directory of this demo is there still: they are named after their process.
bool leftItsRoot(pid_t demo) {
  const std::string name = "routing-demo-" + std::to_string(demo) + "-";
  for (const auto& entry : std::filesystem::directory_iterator("/dev/shm")) {
    if (entry.path().filename().string().starts_with(name)) return true;
  }
  return false;
}

// The text between two others.
std::string between(const std::string& text, const std::string& before, const std::string& after) {
  const size_t begin = text.find(before) + before.size();
  return text.substr(begin, text.find(after, begin) - begin);
}

TEST(Demo, OnceDoesTheWholeJobAndEndsWithStatus0) {
  const auto ended = run(smallDemo({"--once"}));
  EXPECT_EQ(ended.status, 0) << ended.err;
  EXPECT_EQ(ended.err, "");
  EXPECT_NE(ended.out.find("everything is as programmed"), std::string::npos) << ended.out;
  const std::string root = between(ended.out, "tables below ", "\n");
  EXPECT_TRUE(root.starts_with("/dev/shm/routing-demo-")) << ended.out;
  EXPECT_FALSE(std::filesystem::exists(root));
}

TEST(Demo, EmptyIsTheOtherWayToCleanUp) {
  const Scratch scratch;
  const auto ended = run(smallDemo({"--once", "--on-exit", "empty", "--root", scratch.root()}));
  EXPECT_EQ(ended.status, 0) << ended.err;
  const auto left = entries(scratch.root());
  EXPECT_EQ(left.size(), 10u);
  for (const auto& [table, count] : left) EXPECT_EQ(count, 0u) << table;
}

TEST(Demo, PrefixesComeFromFilesWhenTheyAreGiven) {
  const Scratch scratch;
  std::string ipv4;
  for (int i = 0; i < 250; ++i) ipv4 += "10.1." + std::to_string(i) + ".0/24\n";
  ipv4 += "10.1.7.0/24\n";  // again
  const auto ended = run(smallDemo({"--once", "--prefixes", scratch.gzipFile("v4.gz", ipv4),
                                    "--prefixes", scratch.file("v6", "2001:db8::/32\n::/0\n")}));
  EXPECT_EQ(ended.status, 0) << ended.err;
  // 252 prefixes, 40 members, 8 groups, 60 encaps.
  EXPECT_NE(ended.out.find("360 entries in 10 tables"), std::string::npos) << ended.out;
  EXPECT_NE(ended.out.find("1 repeated prefixes"), std::string::npos) << ended.out;
}

TEST(Demo, TheSameSeedMakesTheSameTableAndAnotherOneDoesNot) {
  const Scratch first;
  const Scratch second;
  const auto dump = [](const Scratch& scratch, const std::string& seed) {
    Child demo(smallDemo({"--seed", seed, "--root", scratch.root()}));
    demo.waitForOut("Ctrl-C ends it");
    std::string rows;
    for (const auto& [table, count] : entries(scratch.root())) {
      rows += shoalctl(scratch.root(), {"show", table}).out;
    }
    demo.signal(SIGINT);
    EXPECT_EQ(demo.wait().status, 0);
    return rows;
  };
  const std::string rows = dump(first, "1");
  EXPECT_GT(lines(rows).size(), 400u);
  EXPECT_EQ(dump(first, "1"), rows);
  EXPECT_NE(dump(second, "2"), rows);
}

TEST(Demo, TheReaderFindsWhatDiffers) {
  const Scratch scratch;
  Child demo(smallDemo({"--rows-only", "--root", scratch.root()}));
  demo.waitForOut("Ctrl-C ends it");
  const auto verify = [&](const std::string& seed, const std::string& stage) {
    std::vector<std::string> arguments{program("routing-demo"), "verify", "--root",
                                       scratch.root(),          "--seed", seed};
    arguments.insert(arguments.end(), small.begin(), small.end());
    const auto ended = run(arguments, "verify " + stage + "\n");
    EXPECT_EQ(ended.status, 0) << ended.err;
    return Json::parse(lines(ended.out).at(1)).at("wrong");
  };
  EXPECT_EQ(verify("1", "2"), Json::array());
  EXPECT_GT(verify("2", "2").size(), 0u) << "other routes";
  const Json early = verify("1", "1");
  ASSERT_GT(early.size(), 0u) << "updates and deletes have been made since";
  EXPECT_NE(early.dump().find("is missing"), std::string::npos) << early.dump();
  EXPECT_NE(early.dump().find("differs"), std::string::npos) << early.dump();
  demo.signal(SIGTERM);
  EXPECT_EQ(demo.wait().status, 0);
}

TEST(Demo, StaysUpUntilCtrlCAndThenCleansUp) {
  Child demo(smallDemo());
  const std::string out = demo.waitForOut("Ctrl-C ends it");
  const std::string root = between(out, "tables below ", "\n");
  EXPECT_EQ(shoalctl(root, {"show", "VaneEcmpMember", "1"}).status, 0);
  demo.signal(SIGINT);
  const auto ended = demo.wait();
  EXPECT_EQ(ended.status, 0) << ended.err;
  EXPECT_FALSE(std::filesystem::exists(root));
}

TEST(Demo, AKilledAgentIsNoticedAndNothingIsLeftBehind) {
  Child demo(smallDemo());
  const std::string out = demo.waitForOut("Ctrl-C ends it");
  const std::string root = between(out, "tables below ", "\n");
  ::kill(static_cast<pid_t>(std::stol(between(out, "(process ", ")"))), SIGKILL);
  const auto ended = demo.wait();
  EXPECT_EQ(ended.status, 1);
  EXPECT_EQ(ended.err, "routing-demo: p4rt-agent has ended: killed by signal 9 (KILL)\n");
  EXPECT_FALSE(std::filesystem::exists(root));
}

TEST(Demo, AnAgentThatCannotStartIsReported) {
  Child demo({program("routing-demo"), "--once", "--plugin", "/nonexistent.so"});
  const pid_t pid = demo.pid();
  const auto ended = demo.wait();
  EXPECT_EQ(ended.status, 1);
  EXPECT_NE(ended.err.find("/nonexistent.so"), std::string::npos) << ended.err;
  EXPECT_NE(ended.err.find("p4rt-agent has ended: exit status 1"), std::string::npos) << ended.err;
  EXPECT_FALSE(leftItsRoot(pid));
}

TEST(Demo, CtrlCInTheMiddleLeavesNothingBehind) {
  Child demo(E2e::demo({"--ipv4", "100000"}));
  const pid_t pid = demo.pid();
  demo.waitForOut("tables below");
  EXPECT_TRUE(leftItsRoot(pid));
  demo.signal(SIGINT);
  EXPECT_EQ(demo.wait().status, 130);
  EXPECT_FALSE(leftItsRoot(pid));
}

TEST(Demo, ARootThatHoldsTablesIsRefused) {
  const Scratch scratch;
  ASSERT_EQ(run(agentOn(scratch.root(), {"--once"})).status, 0);
  const auto ended = run(smallDemo({"--once", "--root", scratch.root()}));
  EXPECT_EQ(ended.status, 1);
  EXPECT_NE(ended.err.find("without tables"), std::string::npos) << ended.err;
}

TEST(Demo, WrongArgumentsAreAUsageError) {
  EXPECT_EQ(run(demo({"--ipv4", "-1"})).status, 2);
  EXPECT_EQ(run(demo({"--prefixes", "/nonexistent"})).status, 2);
  EXPECT_EQ(run(demo({"--on-exit", "keep"})).status, 2);
  EXPECT_EQ(run(demo({"operand"})).status, 2);
}

}  // namespace
}  // namespace E2e
