// The plug-in links the C++ runtime, the C library and the platform's own library, and nothing
// else.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <memory>
#include <regex>
#include <set>
#include <string>

namespace {

std::set<std::string> neededBy(const std::string& library) {
  const std::string command = "LC_ALL=C readelf -d '" + library + "'";
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
  static const std::regex form(R"(\(NEEDED\).*\[(.+)\])");
  std::set<std::string> needed;
  std::array<char, 512> line;
  std::cmatch match;
  while (pipe && fgets(line.data(), line.size(), pipe.get())) {
    if (std::regex_search(line.data(), match, form)) needed.insert(match[1]);
  }
  return needed;
}

TEST(LinkedLibraries, OfThePlugInAreTheRuntimeAndThePlatform) {
  const auto needed = neededBy(ROUTING_PLUGIN_FILE);
  static const std::regex permitted(
      R"(^(libstdc\+\+|libgcc_s|libc|libm|ld-linux.*|libP4RuntimeRoutingPlatform|libasan|libubsan|libtsan)\.so)");
  EXPECT_TRUE(needed.contains("libP4RuntimeRoutingPlatform.so.0"));
  for (const auto& library : needed) EXPECT_TRUE(std::regex_search(library, permitted)) << library;
}

TEST(LinkedLibraries, OfThePlatformAreTheRuntime) {
  const auto needed = neededBy(ROUTING_PLATFORM_FILE);
  static const std::regex permitted(
      R"(^(libstdc\+\+|libgcc_s|libc|libm|ld-linux.*|libasan|libubsan|libtsan)\.so)");
  EXPECT_FALSE(needed.empty());
  for (const auto& library : needed) EXPECT_TRUE(std::regex_search(library, permitted)) << library;
}

// It shows the tables when nothing else works, and starts at once.
TEST(LinkedLibraries, OfTheViewWithoutTheAgentHaveNoRemoteProtocol) {
  const auto needed = neededBy(ROUTING_SHOALCTL_FILE);
  static const std::regex permitted(
      R"(^(libstdc\+\+|libgcc_s|libc|libm|ld-linux.*|libP4RuntimeRoutingPlatform|libP4RuntimeRoutingVane|libasan|libubsan|libtsan)\.so)");
  EXPECT_TRUE(needed.contains("libP4RuntimeRoutingPlatform.so.0"));
  for (const auto& library : needed) EXPECT_TRUE(std::regex_search(library, permitted)) << library;
}

}  // namespace
