// The page for integrators names every function that the plug-in takes from its platform.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>
#include <string>

namespace {

// The row encoding goes with the plug-in's sources.
bool isRowEncoding(const std::string& name) {
  return name.starts_with("Vane::BaseRow::") || name.starts_with("Vane::RowWriter::") ||
         name.starts_with("Vane::VaRowBuf::");
}

bool isPlatforms(const std::string& name) {
  for (const char* room :
       {"Guard::", "Kit::", "KitShoal::", "Shoal::", "Hub::", "P4Runtime::", "P4RuntimeRouting::",
        "NexthopGroup::", "Wire::", "Trace::", "DualLog::", "RingLog::", "Vane::"}) {
    if (name.starts_with(room)) return !isRowEncoding(name);
  }
  return false;
}

// The functions that the plug-in's library leaves undefined, without their arguments.
std::set<std::string> needed() {
  const std::string command = "LC_ALL=C nm -C -D -u '" ROUTING_PLUGIN_FILE "'";
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
  std::set<std::string> names;
  std::array<char, 4096> line;
  while (pipe && fgets(line.data(), line.size(), pipe.get())) {
    const std::string text = line.data();
    const size_t at = text.find("U ");
    if (at == text.npos || text.find('(') == text.npos) continue;
    std::string name = text.substr(at + 2, text.find('(') - at - 2);
    name = name.substr(0, name.find('['));  // ABI tags
    if (isPlatforms(name)) names.insert(name);
  }
  return names;
}

TEST(PageForIntegrators, NamesEveryFunctionThatThePlugInNeeds) {
  std::ifstream in(ROUTING_SOURCE_DIR "/docs/writing-a-platform.md");
  const std::string page((std::istreambuf_iterator<char>(in)), {});
  const auto names = needed();
  EXPECT_GT(names.size(), 30u) << "the list of undefined symbols was not read";
  for (const auto& name : names) {
    EXPECT_NE(page.find("`" + name + "`"), page.npos) << name;
  }
}

}  // namespace
