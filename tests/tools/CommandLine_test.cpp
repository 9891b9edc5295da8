// The options that all tools have, wrong usage, and what is made from the tree of commands.
#include "tools/common/CommandLine.h"

#include <gtest/gtest.h>

#include "tools/common/Exit.h"
#include "tools/common/Nearest.h"

namespace Tools {
namespace {

// A tool with two commands.
class Sample {
 public:
  Sample()
      : line({.name = "sample",
              .says = "Shows samples",
              .examples = {{"sample show T", "all of T"}},
              .chapters = {{"tables", {".begins like a command"}}},
              .seeAlso = {"other(1)"}}) {
    CLI::App& show = line.command("show", "The entries of a table", {{"sample show X", "one"}});
    show.add_option("TABLE", table, "Its name")->required();
    show.add_option("--limit", limit, "At most so many")->type_name("N");
    line.command("tables", "All tables");
  }

  bool parse(std::vector<const char*> words) {
    words.insert(words.begin(), "sample");
    return line.parse(static_cast<int>(words.size()), words.data());
  }
  std::string refusal(std::vector<const char*> words) {
    try {
      parse(std::move(words));
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.code(), ExitCode::usage);
      return failure.what();
    }
    return "taken";
  }

  CommandLine line;
  std::string table;
  int limit = 0;
};

TEST(CommandLine, CommonOptionsStandBeforeAndBehindTheCommand) {
  Sample before;
  ASSERT_TRUE(before.parse(
      {"--format", "csv", "--columns", "a,b", "--no-headings", "--color", "never", "show", "T"}));
  EXPECT_EQ(before.line.output().format, Format::csv);
  EXPECT_EQ(before.line.output().columns, (std::vector<std::string>{"a", "b"}));
  EXPECT_FALSE(before.line.output().headings);
  EXPECT_EQ(before.line.output().color, Color::never);
  EXPECT_EQ(before.table, "T");
  Sample behind;
  ASSERT_TRUE(behind.parse({"show", "T", "--columns", "a", "--json", "--limit", "3"}));
  EXPECT_EQ(behind.line.output().format, Format::json);
  EXPECT_EQ(behind.line.output().columns, (std::vector<std::string>{"a"}));
  EXPECT_EQ(behind.limit, 3);
}

TEST(CommandLine, ColumnsDoNotSwallowTheArgumentBehindThem) {
  Sample sample;
  ASSERT_TRUE(sample.parse({"show", "--columns", "a,b", "T"}));
  EXPECT_EQ(sample.table, "T");
  EXPECT_EQ(sample.line.output().columns.size(), 2u);
}

TEST(CommandLine, WithoutOptionsTheFormatFollowsTheOutput) {
  Sample sample;
  ASSERT_TRUE(sample.parse({"tables"}));
  EXPECT_FALSE(sample.line.output().format.has_value());
  EXPECT_TRUE(sample.line.output().headings);
}

TEST(CommandLine, AnUnknownCommandOrOptionIsAnsweredWithTheNearest) {
  EXPECT_EQ(Sample().refusal({"shwo", "T"}), "no command \"shwo\"; the nearest name is show");
  EXPECT_EQ(Sample().refusal({"--formt=csv", "tables"}),
            "no option \"--formt\"; the nearest name is --format");
  EXPECT_EQ(Sample().refusal({"show", "T", "--limt", "3"}),
            "no option \"--limt\"; the nearest name is --limit");
}

TEST(CommandLine, WrongUsageIsToldInOneLine) {
  EXPECT_EQ(Sample().refusal({"tables", "T"}), "argument \"T\" is one too many");
  for (const std::vector<const char*>& words : {std::vector<const char*>{},
                                                {"show"},
                                                {"--format", "xml", "tables"},
                                                {"--json", "--format", "csv", "tables"},
                                                {"--timeout", "0", "tables"},
                                                {"--timeout", "inf", "tables"},
                                                {"completion", "fish"},
                                                {"show", "T", "--limit", "x"}}) {
    EXPECT_NE(Sample().refusal(words), "taken") << (words.empty() ? "" : words.back());
  }
}

TEST(CommandLine, HelpBeginsWithTheExamples) {
  Sample sample;
  const std::string help = sample.line.app().help();
  EXPECT_TRUE(help.starts_with("Shows samples\n")) << help;
  EXPECT_LT(help.find("sample show T"), help.find("Usage:")) << help;
  EXPECT_EQ(help.find("completion"), std::string::npos) << "hidden";
}

TEST(Manual, TellsCommandsOptionsChaptersAndExitStatus) {
  Sample sample;
  const std::string page = manualPage(sample.line);
  for (const char* part :
       {".TH SAMPLE 1", "sample \\- Shows samples\n", ".SS \\fBshow\\fR \\fITABLE\\fR",
        "\\fB\\-\\-limit\\fR \\fIN\\fR", "(table, json, csv, plain)", "\\&.begins like a command",
        ".SH \"EXIT STATUS\"", ".B 8\n", "other(1)"}) {
    EXPECT_NE(page.find(part), std::string::npos) << part << "\n" << page;
  }
}

TEST(Nearest, IsTheNameWithTheFewestChanges) {
  const std::vector<std::string> names{"tables", "show", "dump"};
  EXPECT_EQ(nearest("SHWO", names), "show");
  EXPECT_EQ(nearest("tabels", names), "tables");
  EXPECT_EQ(nearest("", {}), "");
}

}  // namespace
}  // namespace Tools
