// Rows from lines: what the agent is given is what another process reads.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>

#include "tests/e2e/Programs.h"

namespace E2e {
namespace {

// A row of each table, every column with a value of its own.
const std::map<std::string, std::string> rowOf{
    {"VaneEcmpMember",
     R"({"genId":18446744073709551615, "entryHandle":2, "valid":true, "entryId":3, "id":4, )"
     R"("egressPort":5, "srcMac":"02:00:00:00:00:06", "dstMac":"02:00:00:00:00:07", )"
     R"("vlanTagged":true, "encapType":-8, "vlanId":65535})"},
    {"VaneEcmpGroup",
     R"({"genId":1, "entryHandle":2, "valid":true, "entryId":3, "id":4, "members":[7, 6, 5], )"
     R"("watchPorts":[1, 4294967295]})"},
    {"VaneIpv4Override",
     R"({"genId":1, "entryHandle":2, "valid":true, "entryId":3, "destinationPrefix":"10.0.0.0/8", )"
     R"("destinationType":-2147483648, "destinationId":4294967295})"},
    {"VaneIpv4Fallback",
     R"({"genId":1, "entryHandle":2, "valid":true, "entryId":3, "destinationPrefix":"0.0.0.0/0", )"
     R"("destinationType":2147483647, "destinationId":5})"},
    {"VaneIpv4VrfPrefix",
     R"({"genId":1, "entryHandle":2, "valid":false, "entryId":3, "vrfId":16777215, )"
     R"("prefix":"192.0.2.1/32", "destinationType":1, "destinationId":5})"},
    {"VaneIpv6Override",
     R"({"genId":1, "entryHandle":2, "valid":true, "entryId":3, "destinationPrefix":"2001:db8::/32", )"
     R"("destinationType":1, "destinationId":5})"},
    {"VaneIpv6Fallback",
     R"({"genId":1, "entryHandle":2, "valid":true, "entryId":3, "destinationPrefix":"::/0", )"
     R"("destinationType":1, "destinationId":5})"},
    {"VaneIpv6VrfPrefix", R"({"genId":1, "entryHandle":2, "valid":true, "entryId":3, "vrfId":0, )"
                          R"("prefix":"2001:db8::1/128", "destinationType":1, "destinationId":5})"},
    {"VaneIpv4Encap", R"({"encapId":65535, "entryHandle":2, "encapType":3, "srcAddr":"192.0.2.1", )"
                      R"("dstAddr":"192.0.2.2"})"},
    {"VaneIpv6Encap",
     R"({"encapId":0, "entryHandle":2, "encapType":3, "srcAddr":"2001:db8::1", "dstAddr":""})"},
};

std::string setLine(const std::string& table, const std::string& row) {
  return R"({"table":")" + table + R"(", "row":)" + row + "}\n";
}

std::string route(int i) {
  return R"({"destinationPrefix":"10.)" + std::to_string(i / 256) + "." + std::to_string(i % 256) +
         R"(.0/24", "destinationId":)" + std::to_string(i) + "}";
}

Child::Result load(const std::string& root, const std::string& input,
                   std::vector<std::string> more = {}) {
  more.insert(more.end(), {"--load", "-", "--once"});
  return run(agentOn(root, more), input);
}

TEST(AgentLoad, ARowOfEveryTableIsReadByAnotherProcessAsItWasGiven) {
  const Scratch scratch;
  std::string input;
  for (const auto& [table, row] : rowOf) input += setLine(table, row);
  const auto loaded = load(scratch.root(), input);
  ASSERT_EQ(loaded.status, 0) << loaded.err;
  EXPECT_NE(loaded.err.find("10 rows applied, 0 failed"), std::string::npos) << loaded.err;
  for (const auto& [table, row] : rowOf) {
    const auto rows = shownRows(scratch.root(), table);
    ASSERT_EQ(rows.size(), 1u) << table;
    EXPECT_EQ(rows[0], Json::parse(row)) << table;
  }
}

TEST(AgentLoad, WhatShoalctlShowsLoadsAgain) {
  const Scratch first;
  const Scratch second;
  std::string input;
  for (const auto& [table, row] : rowOf) input += setLine(table, row);
  ASSERT_EQ(load(first.root(), input).status, 0);
  std::string dumped;
  for (const auto& [table, row] : rowOf) {
    dumped += setLine(table, shoalctl(first.root(), {"--json", "show", table}).out);
    dumped.erase(dumped.rfind("\n}"), 1);  // the line's end after the row
  }
  const auto loaded = load(second.root(), dumped);
  ASSERT_EQ(loaded.status, 0) << loaded.err;
  for (const auto& [table, row] : rowOf) {
    EXPECT_EQ(shoalctl(first.root(), {"show", table}).out,
              shoalctl(second.root(), {"show", table}).out);
  }
}

TEST(AgentLoad, MembersOfALineStandInAnyOrderAndColumnsMayBeLeftOut) {
  const Scratch scratch;
  const auto loaded = load(
      scratch.root(),
      R"({"row":{"destinationId":9,"destinationPrefix":"10.0.0.0/8"},"op":"set","table":"VaneIpv4Override"})");
  ASSERT_EQ(loaded.status, 0) << loaded.err;
  EXPECT_EQ(shownRows(scratch.root(), "VaneIpv4Override").at(0),
            Json::parse(R"({"genId":0, "entryHandle":0, "valid":false, "entryId":0,
                            "destinationPrefix":"10.0.0.0/8", "destinationType":0,
                            "destinationId":9})"));
}

TEST(AgentLoad, TablesAreKnownByPathTooAndLinesMayEndInCrLfOrNotAtAll) {
  const Scratch scratch;
  const auto loaded = load(
      scratch.root(),
      "\r\n\n"
      R"({"table":"ipv4OverrideTable","row":{"destinationPrefix":"10.0.0.0/8"}})"
      "\r\n"
      R"({"table":"p4runtime/outputTables/routing/ipv4OverrideTable","row":{"destinationPrefix":"11.0.0.0/8"}})");
  EXPECT_EQ(loaded.status, 0) << loaded.err;
  EXPECT_EQ(shownRows(scratch.root(), "VaneIpv4Override").size(), 2u);
}

TEST(AgentLoad, DelNeedsTheKeyColumnsOnlyAndClearEmptiesOneTable) {
  const Scratch scratch;
  std::string input;
  for (int i = 0; i < 10; ++i) input += setLine("VaneIpv4Override", route(i));
  for (int i = 0; i < 10; ++i) input += setLine("VaneIpv4Fallback", route(i));
  input += R"({"table":"VaneIpv4Override","op":"del","row":{"destinationPrefix":"10.0.3.0/24"}})"
           "\n"
           R"({"table":"VaneIpv4Fallback","op":"clear"})"
           "\n"
           R"({"table":"VaneIpv4Override","op":"del","row":{"destinationPrefix":"10.9.9.0/24"}})";
  const auto loaded = load(scratch.root(), input);
  EXPECT_EQ(loaded.status, 0) << loaded.err;
  const auto left = entries(scratch.root());
  EXPECT_EQ(left.at("VaneIpv4Override"), 9u);
  EXPECT_EQ(left.at("VaneIpv4Fallback"), 0u);
  EXPECT_EQ(shoalctl(scratch.root(), {"show", "VaneIpv4Override", "10.0.3.0/24"}).status, 3);
}

TEST(AgentLoad, ABadLineIsReportedByNumberWithWhatWasExpectedAndFoundAndTheRestGoesOn) {
  const auto ofRoute = [](const std::string& columns) {
    return R"({"table":"VaneIpv4Override","row":{)" + columns + "}}";
  };
  const auto ofMember = [](const std::string& columns) {
    return R"({"table":"VaneEcmpMember","row":{"id":1,)" + columns + "}}";
  };
  const auto ofGroup = [](const std::string& columns) {
    return R"({"table":"VaneEcmpGroup","row":{"id":1,)" + columns + "}}";
  };
  const std::string prefix = R"("destinationPrefix":"10.0.0.0/8",)";
  const std::string routeError = "table VaneIpv4Override: ";
  const std::string prefixExpected =
      routeError +
      R"(column "destinationPrefix": expected a prefix without host bits such as "10.0.0.0/8" or "2001:db8::/32", found )";
  std::string tooMany = "1";
  for (int i = 1; i < 4096; ++i) tooMany += ",1";
  const std::vector<std::pair<std::string, std::string>> cases{
      {"nonsense",
       "not a JSON object, at position 2: syntax error while parsing value - invalid "
       "literal; last read: 'no'"},
      {"[1]", "expected a JSON object, found an array"},
      {"7", "expected a JSON object, found 7"},
      {"{} x",
       "not a JSON object, at position 4: syntax error while parsing value - invalid "
       "literal; last read: '{} x'; expected end of input"},
      {R"({"tabel":"VaneIpv4Override"})",
       R"(expected the members table, op, id and row, found "tabel")"},
      {R"({"table":"VaneIpv4Override","table":"x"})", R"(member "table" stands twice)"},
      {R"({"table":5,"row":{}})", R"(member "table": expected a table name, found 5)"},
      {R"({"table":"VaneIpv4Override","op":"put","row":{}})",
       R"(member "op": expected set, del, clear or sync, found "put")"},
      {R"({"table":"VaneIpv4Override"})", R"(member "row": expected, not found)"},
      {R"({"row":{}})", R"(member "table": expected, not found)"},
      {R"({"table":"VaneIpv4Override","op":"clear","row":{}})",
       R"(member "row": not expected for this op)"},
      {R"({"op":"sync"})", R"(member "id": expected, not found)"},
      {R"({"table":"VaneIpv4Override","row":[]})",
       R"(member "row": expected an object of column names and values, found an array)"},
      {R"({"table":"Vane\u0007","row":{}})",
       "table \"Vane?\" is not known; expected one of VaneEcmpMember, VaneEcmpGroup, "
       "VaneIpv4Override, VaneIpv4Fallback, VaneIpv4VrfPrefix, VaneIpv6Override, VaneIpv6Fallback, "
       "VaneIpv6VrfPrefix, VaneIpv4Encap, VaneIpv6Encap"},
      {ofRoute(prefix + R"("metric":1)"),
       routeError +
           "row type P4RuntimeRouting::IpDestinationRow has no column \"metric\"; expected "
           "one of genId, entryHandle, valid, entryId, destinationPrefix, destinationType, "
           "destinationId"},
      {ofRoute(R"("genId":1)"),
       routeError + R"(key column "destinationPrefix": expected, not found)"},
      {ofRoute(prefix + R"("genId":1,"genId":1)"), routeError + R"(column "genId" stands twice)"},
      {ofRoute(prefix + R"("destinationId":1.5)"),
       routeError + R"(column "destinationId": expected uint32_t (0 to 4294967295), found 1.5)"},
      {ofRoute(prefix + R"("destinationId":-1)"),
       routeError + R"(column "destinationId": expected uint32_t (0 to 4294967295), found -1)"},
      {ofRoute(prefix + R"("destinationId":4294967296)"),
       routeError +
           R"(column "destinationId": expected uint32_t (0 to 4294967295), found 4294967296)"},
      {ofRoute(prefix + R"("genId":18446744073709551616)"),
       routeError + "column \"genId\": expected uint64_t (0 to 18446744073709551615), found "
                    "18446744073709551616"},
      {ofRoute(prefix + R"("destinationType":-2147483649)"),
       routeError + "column \"destinationType\": expected int32_t (-2147483648 to 2147483647), "
                    "found -2147483649"},
      {ofRoute(prefix + R"("destinationId":"5")"),
       routeError + R"(column "destinationId": expected uint32_t (0 to 4294967295), found "5")"},
      {ofRoute(prefix + R"("valid":1)"),
       routeError + R"(column "valid": expected true or false, found 1)"},
      {ofRoute(prefix + R"("valid":null)"),
       routeError + R"(column "valid": expected true or false, found null)"},
      {ofRoute(R"("destinationPrefix":"10.0.0.1/8")"), prefixExpected + R"("10.0.0.1/8")"},
      {ofRoute(R"("destinationPrefix":"10.0.0.0/33")"), prefixExpected + R"("10.0.0.0/33")"},
      {ofRoute(R"("destinationPrefix":"")"), prefixExpected + R"("")"},
      {ofRoute(R"("destinationPrefix":{"a":{"b":[1]}})"), prefixExpected + "an object"},
      {ofRoute(R"("destinationPrefix":"2001:db8::/32")"),
       routeError +
           R"(column "destinationPrefix": expected an IPv4 prefix, found "2001:db8::/32")"},
      {ofMember(R"("srcMac":"02:00:00:00:00")"),
       R"(table VaneEcmpMember: column "srcMac": expected a MAC address such as "02:00:00:00:00:01", found "02:00:00:00:00")"},
      {ofMember(R"("vlanId":65536)"),
       R"(table VaneEcmpMember: column "vlanId": expected uint16_t (0 to 65535), found 65536)"},
      {ofGroup(R"("members":7)"),
       R"(table VaneEcmpGroup: column "members": expected an array of at most 4095 numbers (0 to 4294967295), found 7)"},
      {ofGroup(R"("members":[1,"2",3])"),
       R"(table VaneEcmpGroup: column "members": expected an array of at most 4095 numbers (0 to 4294967295), found "2" at place 1)"},
      {ofGroup(R"("members":[[1]])"),
       R"(table VaneEcmpGroup: column "members": expected an array of at most 4095 numbers (0 to 4294967295), found an array at place 0)"},
      {ofGroup(R"("members":[)" + tooMany + "]"),
       R"(table VaneEcmpGroup: column "members": expected an array of at most 4095 numbers (0 to 4294967295), found an array of 4096)"},
      {ofGroup(R"("members":[)" + tooMany.substr(0, 2 * 1025 - 1) + "]"),
       "table VaneEcmpGroup: MemberIndex::value < MemberIndex::min or > MemberIndex::max not "
       "allowed"},
      {R"({"table":"VaneIpv4Encap","row":{"encapId":1,"srcAddr":"10.0.0.0/8"}})",
       R"(table VaneIpv4Encap: column "srcAddr": expected an address such as "192.0.2.1" or "2001:db8::1", found "10.0.0.0/8")"},
  };
  const Scratch scratch;
  std::string input;
  std::vector<std::string> expected;
  for (size_t i = 0; i < cases.size(); ++i) {
    input += cases[i].first + "\n" + setLine("VaneIpv4Fallback", route(static_cast<int>(i)));
    expected.push_back("standard input: line " + std::to_string(2 * i + 1) + ": " +
                       cases[i].second);
  }
  const auto loaded = load(scratch.root(), input, {"--quiet"});
  EXPECT_EQ(loaded.status, 1);
  const auto found = loggedTexts(loaded.err);
  ASSERT_EQ(found.size(), expected.size()) << loaded.err;
  for (size_t i = 0; i < expected.size(); ++i) EXPECT_EQ(found[i], expected[i]);
  const auto left = entries(scratch.root());
  EXPECT_EQ(left.at("VaneIpv4Fallback"), cases.size());
  EXPECT_EQ(left.at("VaneIpv4Override"), 0u);
  EXPECT_EQ(left.at("VaneEcmpGroup"), 0u);
}

TEST(AgentLoad, TheFinalReportCountsWhatFailed) {
  const Scratch scratch;
  const auto loaded =
      load(scratch.root(), setLine("VaneIpv4Override", route(1)) + "x\nx\n", {"--status"});
  EXPECT_EQ(loaded.status, 1);
  EXPECT_NE(loaded.err.find("1 rows applied, 2 failed"), std::string::npos) << loaded.err;
  const Json status = Json::parse(loaded.out);
  EXPECT_EQ(status.at("status"), "loaded");
  EXPECT_EQ(status.at("ok"), 1);
  EXPECT_EQ(status.at("failed"), 2);
  EXPECT_EQ(status.at("tables").at("VaneIpv4Override").at("entries"), 1);
}

TEST(AgentLoad, StrictEndsAtTheFirstBadLine) {
  const Scratch scratch;
  const auto loaded =
      load(scratch.root(),
           setLine("VaneIpv4Override", route(1)) + "x\n" + setLine("VaneIpv4Override", route(2)),
           {"--strict"});
  EXPECT_EQ(loaded.status, 1);
  EXPECT_NE(loaded.err.find("standard input: line 2: "), std::string::npos) << loaded.err;
  EXPECT_EQ(entries(scratch.root()).at("VaneIpv4Override"), 1u);
}

TEST(AgentLoad, ALineAboveOneMebibyteIsReportedWithItsLengthAndSkipped) {
  const Scratch scratch;
  const std::string longLine(1024 * 1024 + 1, ' ');
  const auto loaded = load(scratch.root(), setLine("VaneIpv4Override", route(1)) + longLine + "\n" +
                                               setLine("VaneIpv4Override", route(2)) +
                                               longLine.substr(1) + "\n" + longLine);
  EXPECT_EQ(loaded.status, 1);
  EXPECT_NE(loaded.err.find("line 2: expected at most 1048576 bytes, found 1048577"),
            std::string::npos)
      << loaded.err;
  EXPECT_EQ(loaded.err.find("line 4: "), std::string::npos) << "1048576 blanks are a blank line";
  EXPECT_NE(loaded.err.find("line 5: expected at most"), std::string::npos) << loaded.err;
  EXPECT_EQ(entries(scratch.root()).at("VaneIpv4Override"), 2u);
}

TEST(AgentLoad, AFullTableRefusesARowWithItsNumbersAndKeepsWhatItHas) {
  const Scratch scratch;
  std::string input;
  for (int i = 0; i < 17; ++i) input += setLine("VaneIpv4Override", route(i));
  const auto loaded = load(scratch.root(), input, {"--capacity", "VaneIpv4Override=16"});
  EXPECT_EQ(loaded.status, 1);
  EXPECT_NE(loaded.err.find("line 17: table VaneIpv4Override: "), std::string::npos) << loaded.err;
  EXPECT_NE(loaded.err.find("16"), std::string::npos) << loaded.err;
  EXPECT_EQ(shownRows(scratch.root(), "VaneIpv4Override").size(), 16u);
}

TEST(AgentLoad, AFileThatIsNotThereFailsTheRunInOneLine) {
  const Scratch scratch;
  const auto loaded =
      run(agentOn(scratch.root(), {"--load", "/nonexistent/rows", "--once", "--quiet"}));
  EXPECT_EQ(loaded.status, 1);
  EXPECT_EQ(loggedTexts(loaded.err),
            std::vector<std::string>{"/nonexistent/rows: No such file or directory"});
}

TEST(AgentLoad, AFileIsLoadedLikeStandardInputAlsoWhenItIsGzip) {
  const Scratch scratch;
  std::string input;
  for (int i = 0; i < 3000; ++i) input += setLine("VaneIpv4Override", route(i));
  for (const auto& file : {scratch.file("rows", input), scratch.gzipFile("rows.gz", input)}) {
    const auto loaded =
        run(agentOn(scratch.root(), {"--load", file, "--once", "--on-exit", "empty"}));
    EXPECT_EQ(loaded.status, 0);
    EXPECT_NE(loaded.err.find("3000 rows applied, 0 failed"), std::string::npos) << loaded.err;
  }
}

// Ten IPv4 and five IPv6 prefixes: 4, 3 and 3; 2, 2 and 1.
std::string prefixList() {
  std::string list = "# a comment\n\n";
  for (int i = 0; i < 10; ++i) list += "10." + std::to_string(i) + ".0.0/16\n";
  for (int i = 0; i < 5; ++i) list += " 2001:db8:" + std::to_string(i) + "::/48 \n";
  return list;
}

void expectSpread(const std::string& root) {
  const auto found = entries(root);
  EXPECT_EQ(found.at("VaneIpv4Override"), 4u);
  EXPECT_EQ(found.at("VaneIpv4Fallback"), 3u);
  EXPECT_EQ(found.at("VaneIpv4VrfPrefix"), 3u);
  EXPECT_EQ(found.at("VaneIpv6Override"), 2u);
  EXPECT_EQ(found.at("VaneIpv6Fallback"), 2u);
  EXPECT_EQ(found.at("VaneIpv6VrfPrefix"), 1u);
}

TEST(AgentPrefixes, APlainListIsSpreadOverTheTablesOfItsFamilies) {
  const Scratch scratch;
  const auto loaded = run(agentOn(
      scratch.root(), {"--prefixes", scratch.file("list", prefixList()), "--once", "--status"}));
  ASSERT_EQ(loaded.status, 0) << loaded.err;
  EXPECT_EQ(Json::parse(loaded.out).at("ok"), 15);
  expectSpread(scratch.root());
  // Every third IPv4 prefix goes to the VRF table; the sixth of the list is the second there.
  const Json row = Json::parse(
      shoalctl(scratch.root(), {"--json", "show", "VaneIpv4VrfPrefix", "2,10.5.0.0/16"}).out);
  EXPECT_EQ(row, Json::parse(R"({"genId":1, "entryHandle":6, "valid":true, "entryId":0, "vrfId":2,
                                 "prefix":"10.5.0.0/16", "destinationType":1,
                                 "destinationId":6})"));
}

TEST(AgentPrefixes, AGzipListIsTheSame) {
  const Scratch scratch;
  const auto loaded = run(
      agentOn(scratch.root(), {"--prefixes", scratch.gzipFile("list.gz", prefixList()), "--once"}));
  ASSERT_EQ(loaded.status, 0) << loaded.err;
  expectSpread(scratch.root());
}

TEST(AgentPrefixes, SeveralListsAreOne) {
  const Scratch scratch;
  const std::string list = prefixList();
  const size_t half = list.find("10.4.");
  const auto loaded = run(
      agentOn(scratch.root(), {"--prefixes", scratch.file("a", list.substr(0, half)), "--prefixes",
                               scratch.gzipFile("b", list.substr(half)), "--once"}));
  ASSERT_EQ(loaded.status, 0) << loaded.err;
  expectSpread(scratch.root());
}

TEST(AgentPrefixes, ALineThatIsNoPrefixIsReportedByNumber) {
  const Scratch scratch;
  const std::string list = scratch.file("list", "10.0.0.0/8\n10.0.0.0\n11.0.0.0/8\n");
  const auto loaded = run(agentOn(scratch.root(), {"--prefixes", list, "--once", "--quiet"}));
  EXPECT_EQ(loaded.status, 1);
  EXPECT_EQ(loggedTexts(loaded.err),
            std::vector<std::string>{
                list + ": line 2: expected a prefix without host bits such as 10.0.0.0/8 or "
                       "2001:db8::/32, found \"10.0.0.0\""});
  EXPECT_EQ(entries(scratch.root()).at("VaneIpv4Override"), 1u);
  EXPECT_EQ(entries(scratch.root()).at("VaneIpv4Fallback"), 1u);
}

TEST(AgentPrefixes, AGzipListThatIsCutShortFailsTheRun) {
  const Scratch scratch;
  const std::string whole = scratch.gzipFile("list.gz", prefixList());
  std::filesystem::resize_file(whole, std::filesystem::file_size(whole) - 9);
  const auto loaded = run(agentOn(scratch.root(), {"--prefixes", whole, "--once", "--quiet"}));
  EXPECT_EQ(loaded.status, 1);
  EXPECT_EQ(loggedTexts(loaded.err),
            std::vector<std::string>{whole + ": ends in the middle of its gzip data"});
}

TEST(AgentFollow, EveryChangeIsAccountedForByIndex) {
  const Scratch scratch;
  Child agent(agentOn(scratch.root(), {"--load", "-", "--follow", "--quiet"}));
  for (int i = 0; i < 100; ++i) agent.write(setLine("VaneIpv4Override", route(i)));
  agent.write(R"({"op":"sync","id":1})"
              "\n");
  const Json first = Json::parse(agent.readLine());
  for (int i = 0; i < 30; ++i) {
    agent.write(R"({"table":"VaneIpv4Override","op":"del","row":)" + route(i) + "}\n");
  }
  for (int i = 50; i < 70; ++i) agent.write(setLine("VaneIpv4Override", route(i)));
  agent.write(R"({"op":"sync","id":2})"
              "\n");
  const Json second = Json::parse(agent.readLine());
  agent.signal(SIGTERM);
  EXPECT_EQ(agent.wait().status, 0);

  EXPECT_EQ(first.at("sync"), 1);
  // A hundred changes of existing keys: 2, 4, ... 200.
  EXPECT_EQ(first.at("tables").at("VaneIpv4Override"),
            Json::parse(R"({"entries":100, "oldestChangeIdx":200, "latestChangeIdx":200,
                            "follower":{"exists":100, "removed":0, "rising":true, "wrongKinds":0,
                                        "afresh":1, "rowsRead":0, "reached":200,
                                        "observed":{"changes":100, "gaps":0, "wrongKinds":0,
                                                    "latest":200}}})"));
  EXPECT_EQ(second.at("sync"), 2);
  const Json& follower = second.at("tables").at("VaneIpv4Override").at("follower");
  EXPECT_EQ(follower.at("exists"), 120);
  EXPECT_EQ(follower.at("removed"), 30);
  EXPECT_EQ(follower.at("rising"), true);
  EXPECT_EQ(follower.at("observed").at("changes"), 150);
  EXPECT_EQ(follower.at("observed").at("gaps"), 0);
  EXPECT_EQ(second.at("tables").at("VaneIpv6Override").at("follower").at("exists"), 0);
}

TEST(AgentFollow, RowsOfAnEarlierRunAreReadAfresh) {
  const Scratch scratch;
  std::string input;
  for (int i = 0; i < 7; ++i) input += setLine("VaneIpv4Override", route(i));
  ASSERT_EQ(load(scratch.root(), input).status, 0);
  const auto again = load(scratch.root(), "", {"--follow", "--status", "--quiet"});
  const Json follower = Json::parse(again.out).at("tables").at("VaneIpv4Override").at("follower");
  EXPECT_EQ(follower.at("afresh"), 1);
  EXPECT_EQ(follower.at("rowsRead"), 7);
  EXPECT_EQ(follower.at("exists"), 0);
}

}  // namespace
}  // namespace E2e
