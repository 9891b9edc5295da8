// shoalctl show with its filters, get, lookup, summary and dump; and each format read back.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <sstream>

#include "tests/e2e/ShoalctlTables.h"
#include "tests/tools/Csv.h"

namespace E2e {
namespace {

using Set = std::set<std::string>;

class ShoalctlRows : public FewRows {
 protected:
  Set shown(std::vector<std::string> filter, const std::string& table = "VaneIpv4Override",
            const std::string& name = "destinationPrefix") {
    filter.insert(filter.begin(), {"show", table});
    const auto values = column(filter, name);
    return Set(values.begin(), values.end());
  }
  // "step key" of each record, "!" behind those that are not there.
  std::vector<std::string> road(const std::vector<std::string>& arguments) {
    std::vector<std::string> steps;
    for (const Json& record : json(arguments)) {
      steps.push_back(record.at("step").get<std::string>() + " " +
                      record.at("key").get<std::string>() +
                      (record.at("found").get<bool>() ? "" : "!"));
    }
    return steps;
  }
};

using Road = std::vector<std::string>;

TEST_F(ShoalctlRows, ShowsOnePrefixOrAllInsideIt) {
  EXPECT_EQ(shown({"--prefix", "10.1.0.0/16"}), Set{"10.1.0.0/16"});
  EXPECT_EQ(shown({"--prefix", "10.1.0.0/16", "--longer"}), (Set{"10.1.0.0/16", "10.1.2.0/24"}));
  EXPECT_EQ(shown({"--prefix", "10.0.0.0/7", "--longer"}).size(), 4u);
  EXPECT_EQ(shown({"--prefix", "11.128.0.0/9", "--longer"}), Set{});
  EXPECT_EQ(shown({"--prefix", "2001:db8::/31", "--longer"}, "VaneIpv6Override").size(), 2u);
  EXPECT_EQ(shown({"--prefix", "::/0", "--longer"}), Set{}) << "the other family";
}

TEST_F(ShoalctlRows, ShowsOneVrfAndOneTypeOfDestination) {
  EXPECT_EQ(shown({"--vrf", "6"}, "VaneIpv4VrfPrefix", "prefix"),
            (Set{"12.0.0.0/8", "12.5.0.0/16"}));
  EXPECT_EQ(shown({"--vrf", "6", "--type", "2"}, "VaneIpv4VrfPrefix", "prefix"),
            Set{"12.5.0.0/16"});
  EXPECT_EQ(shown({"--type", "5"}), Set{"11.0.0.0/9"});
  EXPECT_EQ(shown({"--vrf", "7"}, "VaneIpv4VrfPrefix", "prefix"), Set{});
}

TEST_F(ShoalctlRows, ShowsSoManyAndGoesOnBehindAKey) {
  const auto all = column({"show", "VaneIpv4Override"}, "destinationPrefix");
  ASSERT_EQ(all.size(), 4u);
  const auto two = column({"show", "VaneIpv4Override", "--limit", "2"}, "destinationPrefix");
  EXPECT_EQ(two, (std::vector<std::string>{all[0], all[1]}));
  EXPECT_EQ(column({"show", "VaneIpv4Override", "--after", all[1]}, "destinationPrefix"),
            (std::vector<std::string>{all[2], all[3]}));
  EXPECT_EQ(shown({"--limit", "0"}), Set{});
  EXPECT_EQ(shown({"--limit", "1", "--type", "2"}), Set{"10.1.0.0/16"}) << "filtered, then counted";
}

TEST_F(ShoalctlRows, AFilterThatTheTableCannotHaveIsWrongUsage) {
  for (const std::vector<std::string>& filter :
       {std::vector<std::string>{"VaneEcmpGroup", "--prefix", "10.0.0.0/8"},
        {"VaneEcmpMember", "--type", "1"},
        {"VaneIpv4Override", "--vrf", "5"},
        {"VaneIpv4Override", "--longer"},
        {"VaneIpv4Override", "--prefix", "10.0.0.1/8"},
        {"VaneIpv4Override", "--after", "nonsense"},
        {"VaneIpv4Override", "--limit", "-1"}}) {
    std::vector<std::string> arguments{"show"};
    arguments.insert(arguments.end(), filter.begin(), filter.end());
    const auto ended = ctl(arguments);
    EXPECT_EQ(ended.status, 2) << filter.back() << ended.err;
    EXPECT_EQ(ended.out, "");
    EXPECT_EQ(lines(ended.err).size(), 1u) << ended.err;
  }
}

TEST_F(ShoalctlRows, GetIsTheEntryOfAKey) {
  const auto rows = json({"get", "VaneIpv4VrfPrefix", "6,12.5.0.0/16"});
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0].at("destinationId"), 7);
  EXPECT_EQ(ctl({"get", "VaneEcmpGroup", "8"}).status, 3);
  EXPECT_EQ(ctl({"get", "VaneEcmpGroup"}).status, 2);
}

TEST_F(ShoalctlRows, LookupFollowsTheLongestPrefixToGroupMembersAndEncaps) {
  EXPECT_EQ(road({"lookup", "10.1.3.4"}),
            (Road{"route 10.1.0.0/16", "group 7", "member 1", "encap 9", "member 2"}));
  EXPECT_EQ(road({"lookup", "10.1.2.3"}), (Road{"route 10.1.2.0/24", "member 1", "encap 9"}));
  EXPECT_EQ(road({"lookup", "10.200.0.1"}), (Road{"route 10.0.0.0/8", "member 2"}));
  EXPECT_EQ(road({"lookup", "11.0.0.1"}), Road{"route 11.0.0.0/9"}) << "type 5 leads nowhere";
  EXPECT_EQ(road({"lookup", "2001:db8::1"}), (Road{"route 2001:db8::1/128", "member 2"}));
  EXPECT_EQ(road({"lookup", "2001:db8::2"}), (Road{"route 2001:db8::/32", "member 1", "encap 9"}));
}

TEST_F(ShoalctlRows, LookupAsksOverrideThenVrfThenFallback) {
  EXPECT_EQ(road({"lookup", "12.1.0.1"}), (Road{"route 12.1.0.0/16", "member 1", "encap 9"}));
  EXPECT_EQ(road({"lookup", "12.1.0.1", "--vrf", "6"}), (Road{"route 6,12.0.0.0/8", "member 2"}));
  EXPECT_EQ(road({"lookup", "12.1.0.1", "--vrf", "7"}),
            (Road{"route 12.1.0.0/16", "member 1", "encap 9"}));
  EXPECT_EQ(road({"lookup", "10.1.2.3", "--vrf", "6"}).front(), "route 10.1.2.0/24");
  EXPECT_EQ(road({"lookup", "99.0.0.1"}), (Road{"route 0.0.0.0/0", "member 2"}));
}

TEST_F(ShoalctlRows, LookupSaysWhatIsNotThere) {
  auto ended = ctl({"lookup", "2001:db9::"});
  EXPECT_EQ(ended.status, 3);
  EXPECT_EQ(ended.err, "shoalctl: no route to 2001:db9::\n");
  EXPECT_EQ(ctl({"lookup", "10.1.2.3/32"}).status, 2);
  load(R"({"table":"VaneEcmpMember","op":"del","row":{"id":2}})"
       "\n");
  EXPECT_EQ(road({"lookup", "10.1.3.4"}),
            (Road{"route 10.1.0.0/16", "group 7", "member 1", "encap 9", "member 2!"}));
  ended = ctl({"lookup", "10.1.3.4"});
  EXPECT_EQ(ended.status, 3);
  EXPECT_EQ(ended.err, "shoalctl: member 2 is not there\n");
}

TEST_F(ShoalctlRows, SummaryCountsWhatIsInATable) {
  std::map<std::string, Json> tables;
  for (const Json& record : json({"summary"})) tables[record.at("name")] = record;
  ASSERT_EQ(tables.size(), 10u);
  EXPECT_EQ(tables["VaneIpv4Override"],
            Json::parse(R"({"name":"VaneIpv4Override","entries":4,"used":"0.1%","toMember":2,
                            "toGroup":1,"toOther":1,"shortest":8,"longest":24,"vrfs":null})"));
  EXPECT_EQ(tables["VaneIpv4VrfPrefix"].at("vrfs"), 2);
  EXPECT_EQ(tables["VaneEcmpMember"].at("entries"), 2);
  EXPECT_EQ(tables["VaneEcmpMember"].at("toMember"), nullptr);
  EXPECT_EQ(tables["VaneIpv6Fallback"].at("shortest"), nullptr);
}

// --- Formats ------------------------------------------------------------------------------------

using Cells = std::vector<std::vector<std::string>>;

Cells tabSeparated(const std::string& text) {
  Cells records;
  for (const std::string& line : lines(text)) {
    auto& record = records.emplace_back();
    std::istringstream in(line + "\t");
    for (std::string value; std::getline(in, value, '\t');) record.push_back(value);
  }
  return records;
}

TEST_F(ShoalctlRows, EveryFormatOfEveryCommandSaysTheSame) {
  for (const std::vector<std::string>& command :
       {std::vector<std::string>{"tables"},
        {"summary"},
        {"show", "VaneEcmpGroup"},
        {"show", "VaneIpv4Override"},
        {"get", "VaneEcmpMember", "1"},
        {"lookup", "10.1.3.4"},
        {"check"},
        {"dump"},
        {"watch", "--since", "0", "--limit", "16", "--columns", "kind,row"}}) {
    const auto as = [&](const char* format) {
      std::vector<std::string> arguments = command;
      arguments.insert(arguments.end(), {"--format", format});
      return ctl(arguments).out;
    };
    const Cells csv = ToolsTest::parseCsv(as("csv"));
    const Cells plain = tabSeparated(as("plain"));
    EXPECT_EQ(csv, plain) << command[0];
    ASSERT_GT(csv.size(), 1u) << command[0];
    const auto objects = lines(as("json"));
    ASSERT_EQ(objects.size() + 1, csv.size()) << command[0];
    for (size_t i = 0; i < objects.size(); ++i) {
      const Json object = Json::parse(objects[i]);
      ASSERT_EQ(object.size(), csv[0].size());
      for (size_t c = 0; c < csv[0].size(); ++c) {
        const Json& value = object.at(csv[0][c]);
        const std::string& cell = csv[i + 1][c];
        if (value.is_string()) {
          EXPECT_EQ(cell, value.get<std::string>());
        } else if (value.is_array()) {
          std::string list;
          for (const Json& element : value) list += (list.empty() ? "" : " ") + element.dump();
          EXPECT_EQ(cell, list);
        } else if (value.is_null()) {
          EXPECT_EQ(cell, "");
        } else {
          EXPECT_EQ(Json::parse(cell), value);
        }
      }
    }
    EXPECT_EQ(lines(as("table")).size(), csv.size()) << command[0];
  }
}

TEST_F(ShoalctlRows, ColumnsAreChosenAndAnUnknownOneIsAnsweredWithTheNearest) {
  EXPECT_EQ(ctl({"get", "VaneIpv4Override", "10.1.0.0/16", "--columns",
                 "destinationId,destinationPrefix"})
                .out,
            "destinationId\tdestinationPrefix\n7\t10.1.0.0/16\n");
  const auto ended = ctl({"show", "VaneIpv4Override", "--columns", "destinationIdd"});
  EXPECT_EQ(ended.status, 2);
  EXPECT_EQ(ended.err,
            "shoalctl: no column \"destinationIdd\"; the nearest name is destinationId\n");
}

TEST_F(ShoalctlRows, DumpedRowsLoadAgainByteForByte) {
  const auto dumped = ctl({"dump"});
  EXPECT_EQ(dumped.status, 0);
  EXPECT_EQ(lines(dumped.out).size(), 16u);
  const Scratch copy;
  const auto loaded = run(agentOn(copy.root(), {"--load", "-", "--once"}), dumped.out);
  EXPECT_EQ(loaded.status, 0) << loaded.err;
  const auto again = shoalctl(copy.root(), {"dump"});
  EXPECT_EQ(again.out, dumped.out);
  EXPECT_EQ(lines(ctl({"dump", "VaneEcmpGroup", "ecmpMemberTable"}).out).size(), 3u);
}

}  // namespace
}  // namespace E2e
