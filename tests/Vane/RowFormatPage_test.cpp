// The examples of docs/row-format.md, byte for byte.
#include <gtest/gtest.h>

#include <cctype>
#include <filesystem>
#include <fstream>

#include "tests/Vane/Rows.h"

namespace Vane::Test {
namespace {

constexpr len_t numberCol = 4;
constexpr len_t flagCol = 8;
constexpr len_t prefixCol = 9;
constexpr len_t arrayCol = 13;
constexpr len_t fixedLength = 17;

class ExampleRow final : public BaseRow {
 public:
  explicit ExampleRow(BaseRow&& row) : BaseRow(std::move(row)) {}
  const vcdType& vcd() const override {
    static const vcdType columns{prefixCol, arrayCol};
    return columns;
  }
  len_t baseRowLength() override { return fixedLength; }
  bool isFullyDefined() const override { return true; }
};

// The hex blocks of the page: pairs of digits up to the first gap of two blanks in each line.
std::vector<std::string> blocksOfPage() {
  const auto root = std::filesystem::path(ROUTING_SOURCE_DIR);
  std::ifstream page(root / "docs" / "row-format.md");
  EXPECT_TRUE(page.is_open());
  std::vector<std::string> blocks;
  bool inside = false;
  for (std::string line; std::getline(page, line);) {
    if (line == "```hex") {
      blocks.emplace_back();
      inside = true;
    } else if (line == "```") {
      inside = false;
    } else if (inside) {
      if (!blocks.back().empty()) blocks.back() += ' ';
      blocks.back() += line.substr(0, line.find("  "));
    }
  }
  return blocks;
}

BaseRow exampleRow() {
  BaseRow row(fixedLength);
  row.rowTypeIs(258);
  row.setColumn<uint32_t>(numberCol, 7, fixedLength);
  row.setColumn<bool>(flagCol, true, fixedLength);
  row.setColumn<IpGenPrefix>(prefixCol, IpGenPrefix::parse("10.0.0.0/8").value(), fixedLength);
  row.setColumn<uint32_t>(arrayCol, std::vector<uint32_t>{1, 2, 3}, fixedLength);
  return row;
}

TEST(RowFormatPage, ShowsTheBytesThatAreWritten) {
  const auto blocks = blocksOfPage();
  ASSERT_EQ(blocks.size(), 3u);
  const std::vector<uint32_t> longer{5, 6, 7, 8, 9};

  EXPECT_EQ(hex(exampleRow()), blocks[0]);

  BaseRow generic = exampleRow();
  generic.setColumn<uint32_t>(arrayCol, longer, fixedLength);
  EXPECT_EQ(hex(generic), blocks[1]);

  ExampleRow typed(exampleRow());
  typed.setColumn<uint32_t>(arrayCol, longer, fixedLength);
  EXPECT_EQ(hex(typed), blocks[2]);
}

}  // namespace
}  // namespace Vane::Test
