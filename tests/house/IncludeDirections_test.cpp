// The house keeps its arrows: each room includes only the rooms below it, and the plug-in and the
// platform include nothing but the standard library and the kernel besides.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

// Room to the rooms or headers it may include, itself apart. A longer entry is a narrower
// permission.
const std::map<std::string, std::set<std::string>> arrows = {
    {"Vane", {"platform/Guard", "platform/Vane/VaExceptions.h", "platform/Vane/Values.h"}},
    {"routing-types", {"Vane", "platform/Vane", "platform/Guard"}},
    {"src-includes",
     {"routing-types", "Vane", "platform/Vane", "platform/State", "platform/Shoal", "platform/Kit",
      "platform/Wire", "platform/Guard"}},
    {"P4RuntimePlugin",
     {"src-includes", "routing-types", "platform/P4Runtime", "platform/Hub", "platform/State",
      "platform/Vane", "platform/Kit", "platform/Trace", "platform/Guard"}},
    {"platform/Guard", {}},
    {"platform/Wire", {}},
    {"platform/Kit", {"platform/Wire/Hash.h", "platform/Guard"}},
    {"platform/Trace", {"platform/Guard"}},
    {"platform/Vane", {"Vane", "platform/Wire", "platform/Guard"}},
    {"platform/Shoal", {"platform/Kit", "platform/Trace", "platform/Guard"}},
    {"platform/State", {"platform/Shoal", "platform/Kit", "platform/Wire", "platform/Guard"}},
    {"platform/Hub", {"platform/Shoal", "platform/Kit", "platform/Trace", "platform/Guard"}},
    {"platform/P4Runtime",
     {"platform/Hub", "platform/Vane", "platform/Kit", "platform/Trace", "platform/Guard"}},
    // The agent knows tables by the row database only. The protocols' generated headers lie in p4,
    // vane and google.
    {"agent",
     {"Vane", "p4", "vane", "google", "tools/common/Nearest.h", "platform/P4Runtime",
      "platform/Hub", "platform/Vane", "platform/Kit", "platform/Trace", "platform/Guard",
      "platform/Wire"}},
    {"tools",
     {"P4RuntimePlugin", "src-includes", "routing-types", "Vane", "platform", "p4", "vane",
      "google"}},
};

// The rooms that an integrator compiles on a platform of their own.
const std::set<std::string> standardOnly = {"Vane", "routing-types", "src-includes",
                                            "P4RuntimePlugin", "platform"};

struct Include {
  fs::path file;
  int line;
  std::string target;
  bool quoted;
};

std::vector<Include> includesOf(const fs::path& file) {
  static const std::regex form(R"(^\s*#\s*include\s*([<"])([^>"]+)[>"])");
  std::vector<Include> found;
  std::ifstream in(file);
  std::string text;
  for (int line = 1; std::getline(in, text); ++line) {
    std::smatch match;
    if (std::regex_search(text, match, form))
      found.push_back({file, line, match[2], match[1] == "\""});
  }
  return found;
}

const fs::path root = ROUTING_SOURCE_DIR;

std::vector<Include> includesBelow(const std::string& room) {
  std::vector<Include> found;
  for (const auto& entry : fs::recursive_directory_iterator(root / room)) {
    const auto extension = entry.path().extension();
    if (extension != ".h" && extension != ".cpp") continue;
    for (auto& include : includesOf(entry.path())) found.push_back(std::move(include));
  }
  return found;
}

bool liesIn(const std::string& target, const std::string& room) {
  return target == room || target.starts_with(room + "/");
}

std::string place(const Include& include) {
  return fs::relative(include.file, root).string() + ":" + std::to_string(include.line) +
         " includes " + include.target;
}

TEST(IncludeDirections, RunDownwardsOnly) {
  size_t seen = 0;
  for (const auto& [room, allowed] : arrows) {
    for (const Include& include : includesBelow(room)) {
      if (!include.quoted) continue;
      ++seen;
      bool permitted = liesIn(include.target, room);
      for (const auto& below : allowed) permitted = permitted || liesIn(include.target, below);
      EXPECT_TRUE(permitted) << place(include) << ", which is not below " << room;
    }
  }
  EXPECT_GT(seen, 100u) << "the check reads no includes";
}

TEST(IncludeDirections, RemoteProtocolsAreKnownToTheServicesAndTheirClientsOnly) {
  static const std::set<std::string> speakers = {"agent/p4", "agent/rpc", "agent/rows",
                                                 "tools/vanectl", "tools/p4rt-client"};
  static const std::regex protocol(R"(^(p4|vane|google|grpc|grpcpp)/)");
  size_t seen = 0;
  for (const char* room : {"agent", "tools"}) {
    for (const Include& include : includesBelow(room)) {
      if (!std::regex_search(include.target, protocol)) continue;
      ++seen;
      const std::string file = fs::relative(include.file, root).string();
      bool speaks = false;
      for (const auto& speaker : speakers) speaks = speaks || liesIn(file, speaker);
      EXPECT_TRUE(speaks) << place(include);
    }
  }
  EXPECT_GT(seen, 3u) << "the check reads no includes";
}

TEST(IncludeDirections, EveryRoomOfThePlatformHasItsArrows) {
  for (const auto& entry : fs::directory_iterator(root / "platform")) {
    if (!entry.is_directory()) continue;
    EXPECT_TRUE(arrows.contains("platform/" + entry.path().filename().string())) << entry.path();
  }
}

TEST(IncludeDirections, PlugInAndPlatformUseTheStandardLibraryAndTheKernelOnly) {
  // A header in angle brackets of a third-party library lies in a folder of the library's, or is
  // one of those that the programs use.
  static const std::regex system(R"(^(sys|linux|asm)/)");
  static const std::set<std::string> thirdParty = {"zlib.h", "gtest", "benchmark"};
  for (const auto& room : standardOnly) {
    for (const Include& include : includesBelow(room)) {
      if (include.quoted) continue;
      const bool inFolder = include.target.find('/') != std::string::npos;
      EXPECT_TRUE(!inFolder || std::regex_search(include.target, system)) << place(include);
      EXPECT_FALSE(thirdParty.contains(include.target)) << place(include);
    }
  }
}

}  // namespace
