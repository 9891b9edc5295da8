// How shoalctl ends, what check finds, and how it behaves towards shells, pipes and terminals.
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>

#include "tests/e2e/ShoalctlTables.h"

namespace E2e {
namespace {

// A shell command, with the tool on the path and the root in the environment.
class ShoalctlEnds : public FewRows {
 protected:
  Child::Result shell(const std::string& command) {
    return run({"/bin/bash", "-c",
                "export PATH=" + std::string(ROUTING_BIN_DIR) +
                    ":$PATH SHOAL_ROOT=" + scratch_.root() + " TERM=xterm; " + command});
  }
  // Writes bytes into a table's file as a careless program might.
  void damage(const std::string& path, std::streamoff at, const std::string& bytes) {
    std::fstream out(file(path), std::ios::in | std::ios::out | std::ios::binary);
    out.seekp(at).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    ASSERT_TRUE(out.good());
  }
  std::vector<Json> verdicts(const std::string& table) { return json({"check", table}); }

  const std::string override_ = "p4runtime/outputTables/routing/ipv4OverrideTable";
  const std::string group_ = "p4runtime/outputTables/routing/ecmpGroupTable";
};

// Places of the file format: the header's fields, and slots at a multiple of 4096.
constexpr std::streamoff liveAt = 384;
constexpr std::streamoff operationKindAt = 416;
constexpr std::streamoff routeSlotsAt = 4096;
constexpr std::streamoff groupSlotsAt = 20480;  // behind two journal records of 8,256 bytes

TEST_F(ShoalctlEnds, CheckOfSoundTablesIsStatus0) {
  const auto ended = ctl({"check"});
  EXPECT_EQ(ended.status, 0) << ended.err;
  const auto records = json({"check"});
  ASSERT_EQ(records.size(), 10u);
  for (const Json& record : records) EXPECT_EQ(record.at("verdict"), "sound") << record;
  EXPECT_EQ(verdicts("VaneIpv4Override").at(0).at("what"),
            "4 entries, 0 free slots, 4 index words, 4 changes");
}

TEST_F(ShoalctlEnds, CheckFindsEntriesThatLeadToNothingAndEndsWithStatus1) {
  load(R"({"table":"VaneEcmpMember","op":"del","row":{"id":2}})"
       "\n");
  const auto ended = ctl({"check"});
  EXPECT_EQ(ended.status, 1);
  EXPECT_EQ(ended.err, "shoalctl: entries lead to what is not there\n");
  const auto records = verdicts("VaneEcmpGroup");
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0], Json::parse(R"({"table":"VaneEcmpGroup", "verdict":"orphan", "key":"7",
                                        "what":"leads to member 2, which is not there"})"));
  EXPECT_EQ(verdicts("VaneIpv4Override").at(0).at("key"), "10.0.0.0/8");
}

TEST_F(ShoalctlEnds, CheckOfCorruptTablesIsStatus6) {
  damage(override_, liveAt, std::string("\x03\0\0\0", 4));  // of four
  auto ended = ctl({"check", "VaneIpv4Override"});
  EXPECT_EQ(ended.status, 6);
  EXPECT_NE(ended.out.find("4 live slots, but 3 entries"), std::string::npos) << ended.out;
  // A prefix of 33 bits: its length is the second byte of the prefix, 32 bytes into the entry.
  damage(override_, liveAt, std::string("\x04\0\0\0", 4));
  damage(override_, routeSlotsAt + 8 + 24 + 1, "\x21");
  ended = ctl({"check", "VaneIpv4Override"});
  EXPECT_EQ(ended.status, 6);
  EXPECT_NE(ended.out.find("its prefix has 33 bits"), std::string::npos) << ended.out;
  EXPECT_NE(ended.out.find("the index does not lead to its key"), std::string::npos) << ended.out;
}

TEST_F(ShoalctlEnds, ShowOfAnEntryThatIsNoneIsStatus6) {
  // 2049 members: the count stands 28 bytes into the group.
  damage(group_, groupSlotsAt + 8 + 28, std::string("\x01\x08\0\0", 4));
  for (const char* command : {"show", "dump", "summary"}) {
    std::vector<std::string> arguments{command};
    if (arguments[0] == "show") arguments.push_back("VaneEcmpGroup");
    const auto ended = ctl(arguments);
    EXPECT_EQ(ended.status, 6) << command;
    EXPECT_NE(ended.err.find("key 7: 2049 members, expected at most 1024"), std::string::npos)
        << ended.err;
  }
  EXPECT_EQ(ctl({"get", "VaneEcmpGroup", "7"}).status, 6);
  EXPECT_EQ(ctl({"check"}).status, 6);
}

TEST_F(ShoalctlEnds, CheckOfAnOperationThatAKilledWriterLeftIsStatus8) {
  damage(override_, operationKindAt, std::string("\x01\0\0\0", 4));  // an insert
  const auto ended = ctl({"check"});
  EXPECT_EQ(ended.status, 8) << ended.err;
  EXPECT_EQ(verdicts("VaneIpv4Override").at(0).at("verdict"), "unfinished");
  load("");  // the next writer repairs it
  EXPECT_EQ(ctl({"check"}).status, 0);
}

TEST_F(ShoalctlEnds, CheckOfAFileThatIsNoTableIsStatus5AndTheOthersAreChecked) {
  std::filesystem::resize_file(file(group_), 100);
  const auto ended = ctl({"check", "--no-headings"});
  EXPECT_EQ(ended.status, 5);
  EXPECT_GE(lines(ended.out).size(), 10u);
  EXPECT_NE(ended.out.find("VaneEcmpGroup\trefused"), std::string::npos) << ended.out;
}

TEST_F(ShoalctlEnds, AnotherVersionIsStatus5) {
  damage(override_, 8, "\x09");
  const auto ended = ctl({"show", "VaneIpv4Override"});
  EXPECT_EQ(ended.status, 5);
  EXPECT_NE(ended.err.find("format version 9, expected 1"), std::string::npos) << ended.err;
}

TEST_F(ShoalctlEnds, OutputThatCannotBeWrittenIsStatus1) {
  const auto ended = shell("shoalctl tables > /dev/full");
  EXPECT_EQ(ended.status, 1);
  EXPECT_EQ(ended.err, "shoalctl: standard output: No space left on device\n");
}

TEST_F(ShoalctlEnds, AReaderThatDoesNotReadIsATimeOutIfOneIsGiven) {
  std::string input;
  for (int i = 0; i < 4000; ++i) {
    input += R"({"table":"VaneIpv6Fallback","row":{"destinationPrefix":"2001:db8::)" +
             std::to_string(i) + "/128\"}}\n";
  }
  load(input);
  // More than a pipe holds.
  const auto ended = shell(
      "shoalctl --timeout 0.3 --json show VaneIpv6Fallback | { sleep 2; cat >/dev/null; }; "
      "exit ${PIPESTATUS[0]}");
  EXPECT_EQ(ended.status, 7);
  EXPECT_EQ(ended.err, "shoalctl: timed out\n");
}

TEST_F(ShoalctlEnds, AClosedPipeAndCtrlCEndItWithoutAWord) {
  auto ended = shell("shoalctl watch --snapshot | head -n 1; exit ${PIPESTATUS[1]}");
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.err, "");
  EXPECT_EQ(lines(ended.out).size(), 1u);
  Child watching({program("shoalctl"), "--root", scratch_.root(), "watch"});
  watching.readLine();
  watching.signal(SIGINT);
  ended = watching.wait();
  EXPECT_EQ(ended.status, 1000 + SIGINT);
  EXPECT_EQ(ended.err, "");
}

TEST_F(ShoalctlEnds, OnATerminalRecordsAreAnAlignedTableWithColors) {
  const auto onTerminal = [&](const std::string& command) {
    return shell("script -qec '" + command + "' /dev/null < /dev/null").out;
  };
  const std::string colored = onTerminal("shoalctl summary");
  EXPECT_NE(colored.find("\033[1mname"), std::string::npos) << colored;
  EXPECT_EQ(colored.find('\t'), std::string::npos);
  const std::string bare = onTerminal("NO_COLOR=1 shoalctl summary");
  EXPECT_EQ(bare.find('\033'), std::string::npos) << bare;
  EXPECT_NE(bare.find("name   "), std::string::npos) << bare;
  EXPECT_EQ(onTerminal("shoalctl --color never summary").find('\033'), std::string::npos);
  EXPECT_NE(onTerminal("NO_COLOR=1 shoalctl --color always summary").find('\033'),
            std::string::npos);
  EXPECT_EQ(shell("shoalctl summary").out.find('\033'), std::string::npos) << "in a pipe";
}

TEST_F(ShoalctlEnds, UnknownNamesAreAnsweredWithTheNearest) {
  EXPECT_EQ(ctl({"lokup", "10.0.0.1"}).err,
            "shoalctl: no command \"lokup\"; the nearest name is lookup\n");
  EXPECT_EQ(ctl({"tables", "--jsn"}).err,
            "shoalctl: no option \"--jsn\"; the nearest name is --json\n");
  EXPECT_EQ(ctl({"check", "VaneEcmpGruop"}).err,
            "shoalctl: no table \"VaneEcmpGruop\"; the nearest name is VaneEcmpGroup\n");
}

TEST_F(ShoalctlEnds, HelpBeginsWithExamplesAndTheVersionIsTold) {
  const auto help = ctl({"--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_LT(help.out.find("shoalctl lookup 192.0.2.1"), help.out.find("Usage:"));
  EXPECT_EQ(ctl({"watch", "--help"}).status, 0);
  const auto version = ctl({"--version"});
  EXPECT_EQ(version.status, 0);
  EXPECT_TRUE(version.out.starts_with("shoalctl ")) << version.out;
}

TEST_F(ShoalctlEnds, BashCompletesCommandsOptionsValuesAndTables) {
  const auto completed = [&](const std::string& words) {
    const auto ended =
        shell("source <(shoalctl completion bash); COMP_WORDS=(shoalctl " + words +
              "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _shoalctl; echo \"${COMPREPLY[*]}\"");
    EXPECT_EQ(ended.err, "") << words;
    return ended.out;
  };
  EXPECT_EQ(completed("s"), "summary show\n");
  EXPECT_EQ(completed("--root /x su"), "summary\n");
  EXPECT_EQ(completed("show --lo"), "--longer\n");
  EXPECT_EQ(completed("show --format t"), "table\n");
  EXPECT_EQ(completed("--col"), "--columns --color\n");
  EXPECT_EQ(completed("show VaneEcmp"), "VaneEcmpGroup VaneEcmpMember\n");
  EXPECT_EQ(completed("watch VaneEcmpGroup VaneEcmpM"), "VaneEcmpMember\n") << "any number";
  EXPECT_EQ(completed("tables x"), "\n");
}

TEST_F(ShoalctlEnds, ZshAndTheManualFormatterTakeWhatItWrites) {
  const auto zsh = shell(
      "command -v zsh > /dev/null || exit 0; "
      "shoalctl completion zsh > $SHOAL_ROOT/_shoalctl && "
      "zsh -n $SHOAL_ROOT/_shoalctl");
  EXPECT_EQ(zsh.status, 0) << zsh.err;
  EXPECT_TRUE(ctl({"completion", "zsh"}).out.starts_with("#compdef shoalctl\n"));
  const auto manual = shell("shoalctl manual");
  for (const char* part : {".SH \"EXIT STATUS\"", ".SS \\fBlookup\\fR", "\\-\\-needs\\-writer"}) {
    EXPECT_NE(manual.out.find(part), std::string::npos) << part;
  }
  const auto formatted =
      shell("command -v groff > /dev/null || exit 0; shoalctl manual | groff -man -ww -z -Tascii");
  EXPECT_EQ(formatted.status, 0);
  EXPECT_EQ(formatted.err, "");
}

TEST_F(ShoalctlEnds, ItNeedsNothingThatTalksOverSockets) {
  const auto needed = shell("ldd " + program("shoalctl"));
  ASSERT_NE(needed.out.find("libP4RuntimeRoutingPlatform"), std::string::npos) << needed.out;
  EXPECT_EQ(needed.out.find("grpc"), std::string::npos) << needed.out;
  EXPECT_EQ(needed.out.find("proto"), std::string::npos) << needed.out;
}

}  // namespace
}  // namespace E2e
