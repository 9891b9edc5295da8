// A root with a few rows of every kind, and what the tests of shoalctl ask of it.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/e2e/Programs.h"

namespace E2e {

// Routes that overlap, in all three roles and both families; a group, of whose three members one is
// not there; an encapsulation that member 1 leads to.
inline const std::string fewRows =
    R"({"table":"VaneEcmpMember","row":{"id":1,"egressPort":4,"encapType":2}}
{"table":"VaneEcmpMember","row":{"id":2,"egressPort":5}}
{"table":"VaneEcmpGroup","row":{"id":7,"members":[1,2],"watchPorts":[4,5]}}
{"table":"VaneIpv4Encap","row":{"encapId":9,"encapType":2,"srcAddr":"192.0.2.1","dstAddr":"192.0.2.2"}}
{"table":"VaneIpv4Encap","row":{"encapId":10,"encapType":3,"srcAddr":"192.0.2.1","dstAddr":"192.0.2.3"}}
{"table":"VaneIpv4Override","row":{"destinationPrefix":"10.0.0.0/8","destinationType":1,"destinationId":2}}
{"table":"VaneIpv4Override","row":{"destinationPrefix":"10.1.0.0/16","destinationType":2,"destinationId":7}}
{"table":"VaneIpv4Override","row":{"destinationPrefix":"10.1.2.0/24","destinationType":1,"destinationId":1}}
{"table":"VaneIpv4Override","row":{"destinationPrefix":"11.0.0.0/9","destinationType":5,"destinationId":1}}
{"table":"VaneIpv4Fallback","row":{"destinationPrefix":"0.0.0.0/0","destinationType":1,"destinationId":2}}
{"table":"VaneIpv4Fallback","row":{"destinationPrefix":"12.1.0.0/16","destinationType":1,"destinationId":1}}
{"table":"VaneIpv4VrfPrefix","row":{"vrfId":5,"prefix":"12.0.0.0/8","destinationType":1,"destinationId":1}}
{"table":"VaneIpv4VrfPrefix","row":{"vrfId":6,"prefix":"12.0.0.0/8","destinationType":1,"destinationId":2}}
{"table":"VaneIpv4VrfPrefix","row":{"vrfId":6,"prefix":"12.5.0.0/16","destinationType":2,"destinationId":7}}
{"table":"VaneIpv6Override","row":{"destinationPrefix":"2001:db8::/32","destinationType":1,"destinationId":1}}
{"table":"VaneIpv6Override","row":{"destinationPrefix":"2001:db8::1/128","destinationType":1,"destinationId":2}}
)";

class FewRows : public testing::Test {
 protected:
  void SetUp() override { load(fewRows); }

  void load(const std::string& input) {
    const auto loaded = run(agentOn(scratch_.root(), {"--load", "-", "--once", "--quiet"}), input);
    ASSERT_EQ(loaded.status, 0) << loaded.err;
  }
  Child::Result ctl(const std::vector<std::string>& arguments) {
    return shoalctl(scratch_.root(), arguments);
  }
  // The values of one column, line by line.
  std::vector<std::string> column(std::vector<std::string> arguments, const std::string& name) {
    arguments.insert(arguments.end(), {"--columns", name, "--no-headings", "--format", "plain"});
    const auto shown = ctl(arguments);
    EXPECT_EQ(shown.err, "");
    return lines(shown.out);
  }
  std::vector<Json> json(std::vector<std::string> arguments) {
    arguments.push_back("--json");
    std::vector<Json> records;
    for (const std::string& line : lines(ctl(arguments).out)) records.push_back(Json::parse(line));
    return records;
  }
  std::filesystem::path file(const std::string& path) const {
    return std::filesystem::path(scratch_.root()) / (path + ".shoal");
  }

  Scratch scratch_;
};

}  // namespace E2e
