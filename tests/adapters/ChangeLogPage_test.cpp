// docs/change-log.md tells the log by an example; this replays it.
#include <filesystem>
#include <fstream>
#include <sstream>

#include "platform/Vane/ChangeReader.h"
#include "tests/adapters/Samples.h"

namespace adapter_tests {
namespace {

struct Step {
  std::string action;
  uint64_t oldest;
  uint64_t latest;
  std::string nodes;
};

// The rows of the worked example's table: | step | what happens | oldest | latest | nodes |
std::vector<Step> stepsOfThePage() {
  std::ifstream page(std::filesystem::path(ROUTING_SOURCE_DIR) / "docs/change-log.md");
  std::vector<Step> steps;
  std::string line;
  while (std::getline(page, line) && line != "## Worked example") {
  }
  while (std::getline(page, line)) {
    std::istringstream cells(line);
    std::vector<std::string> fields;
    for (std::string cell; std::getline(cells, cell, '|');) {
      cell.erase(0, cell.find_first_not_of(' '));
      cell.erase(cell.find_last_not_of(' ') + 1);
      fields.push_back(cell);
    }
    if (fields.size() != 6 || !std::isdigit(static_cast<unsigned char>(fields[1][0]))) continue;
    steps.push_back({fields[2], std::stoull(fields[3]), std::stoull(fields[4]), fields[5]});
  }
  return steps;
}

class ChangeLogPage : public AdapterTest<EcmpMemberListVaneWrapper> {
 protected:
  // Keys are named a, b, c for 1, 2, 3.
  static uint32_t number(char name) { return static_cast<uint32_t>(name - 'a' + 1); }
  std::string nodes() {
    std::string text;
    const auto end = adapter->endChange();
    for (const auto at = adapter->nextChange(0); *at != *end; ++*at) {
      const Vane::BasicVaTableChange change = **at;
      const char name = static_cast<char>('a' + EcmpMemberListRow(change.row()).id() - 1);
      text += (text.empty() ? "" : " ") + std::to_string(change.index()) + ":" + name;
    }
    return text;
  }
  const std::shared_ptr<EcmpMemberListVaneWrapper> adapter = makeAdapter();
};

TEST_F(ChangeLogPage, TellsItsExampleAsItHappens) {
  const auto steps = stepsOfThePage();
  ASSERT_EQ(steps.size(), 10u);
  std::unique_ptr<Vane::ChangeReader> reader;
  for (const Step& step : steps) {
    SCOPED_TRACE(step.action);
    const std::string what = step.action.substr(step.action.rfind(' ') + 1);
    if (step.action.starts_with("set ")) {
      set(number(what[0]));
    } else if (step.action.starts_with("remove ")) {
      del(number(what[0]));
    } else {
      ASSERT_TRUE(step.action.starts_with("read "));
      if (!reader) reader = std::make_unique<Vane::ChangeReader>(adapter, 1);
      std::vector<Vane::BasicVaTableChange> taken;
      reader->take(taken, std::stoul(what));
    }
    EXPECT_EQ(adapter->oldestChangeIdx(), step.oldest);
    EXPECT_EQ(adapter->latestChangeIdx(), step.latest);
    EXPECT_EQ(nodes(), step.nodes);
  }
}

}  // namespace
}  // namespace adapter_tests
