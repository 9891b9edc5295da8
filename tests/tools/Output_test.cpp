// Records in each format, read back or compared with lines written by hand.
#include "tools/common/Output.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <nlohmann/json.hpp>

#include "tests/tools/Csv.h"
#include "tools/common/Exit.h"

namespace Tools {
namespace {

// What a writer writes into a pipe. The records are small enough for it.
class Written {
 public:
  Written() {
    if (::pipe(ends_) != 0) throw std::runtime_error("pipe");
  }
  ~Written() { ::close(ends_[0]); }
  int in() const { return ends_[1]; }
  std::string text() {
    ::close(ends_[1]);
    std::string all;
    char piece[4096];
    for (ssize_t size; (size = ::read(ends_[0], piece, sizeof piece)) > 0;) {
      all.append(piece, static_cast<size_t>(size));
    }
    return all;
  }

 private:
  int ends_[2];
};

OutputOptions as(Format format) {
  OutputOptions options;
  options.format = format;
  return options;
}

std::string write(const OutputOptions& options, const std::function<void(RecordWriter&)>& records) {
  Written written;
  Output out(written.in());
  RecordWriter writer(
      out, options,
      {number("id", 4), text("name", 6), truth("up"), list("members"), object("row")});
  records(writer);
  writer.finish();
  return written.text();
}

void twoRecords(RecordWriter& records) {
  records << 7u << "a\tb" << true << std::vector<uint32_t>{1, 2} << R"({"x":1})";
  records.endRecord();
  records << -12 << absent << false << std::vector<uint32_t>{} << absent;
  records.endRecord();
}

TEST(Records, InATableStandInColumnsOfDeclaredWidth) {
  EXPECT_EQ(write(as(Format::table), twoRecords),
            "  id  name    up     members           row\n"
            "   7  a\\tb    true   1 2               {\"x\":1}\n"
            " -12  -       false                    -\n");
}

TEST(Records, InATableAValueWiderThanItsColumnTakesItsRoom) {
  const std::string text = write(as(Format::table), [](RecordWriter& records) {
    records << 1234567 << "much too long" << true << std::vector<uint32_t>{} << "{}";
    records.endRecord();
  });
  EXPECT_NE(text.find("\n1234567  much too long  true "), std::string::npos) << text;
}

TEST(Records, InPlainFormHaveATabBetweenValuesAndNoneInside) {
  EXPECT_EQ(write(as(Format::plain), twoRecords),
            "id\tname\tup\tmembers\trow\n"
            "7\ta\\tb\ttrue\t1 2\t{\"x\":1}\n"
            "-12\t\tfalse\t\t\n");
}

TEST(Records, InJsonAreOneObjectALineWithTypedValues) {
  const std::string text = write(as(Format::json), twoRecords);
  EXPECT_EQ(text,
            "{\"id\":7, \"name\":\"a\\tb\", \"up\":true, \"members\":[1, 2], \"row\":{\"x\":1}}\n"
            "{\"id\":-12, \"name\":null, \"up\":false, \"members\":[], \"row\":null}\n");
}

TEST(Records, InCsvAreReadBackWhateverIsInThem) {
  const std::string hard = "say \"no\", twice\r\nand\tgo\\";
  const std::string text = write(as(Format::csv), [&](RecordWriter& records) {
    records << 1 << hard << true << std::vector<uint32_t>{4, 5} << R"({"a":"b"})";
    records.endRecord();
  });
  const auto records = ToolsTest::parseCsv(text);
  ASSERT_EQ(records.size(), 2u) << text;
  EXPECT_EQ(records[0], (std::vector<std::string>{"id", "name", "up", "members", "row"}));
  EXPECT_EQ(records[1], (std::vector<std::string>{"1", hard, "true", "4 5", R"({"a":"b"})"}));
}

TEST(Records, InJsonAreTextWhateverBytesAreInThem) {
  const std::string hostile("\"\\\x01\xFF\xC3\x28\x7F\n", 8);
  const std::string text = write(as(Format::json), [&](RecordWriter& records) {
    records << 1 << hostile << true << std::vector<uint32_t>{} << absent;
    records.endRecord();
  });
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1);
  const std::string name = nlohmann::json::parse(text).at("name");
  EXPECT_TRUE(name.starts_with("\"\\\x01\xEF\xBF\xBD")) << name;  // U+FFFD
}

TEST(Records, ShowTheColumnsAskedForInThatOrder) {
  OutputOptions options = as(Format::json);
  options.columns = {"members", "id"};
  EXPECT_EQ(write(options, twoRecords),
            "{\"members\":[1, 2], \"id\":7}\n{\"members\":[], \"id\":-12}\n");
}

TEST(Records, AnswerAnUnknownColumnWithTheNearestName) {
  OutputOptions options = as(Format::plain);
  options.columns = {"id", "membrs"};
  try {
    write(options, twoRecords);
    FAIL() << "taken";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.code(), ExitCode::usage);
    EXPECT_STREQ(failure.what(), "no column \"membrs\"; the nearest name is members");
  }
}

TEST(Records, HaveTheirHeadingAlsoWhenThereAreNone) {
  const auto none = [](RecordWriter&) {};
  EXPECT_EQ(write(as(Format::plain), none), "id\tname\tup\tmembers\trow\n");
  EXPECT_EQ(write(as(Format::json), none), "");
  OutputOptions bare = as(Format::plain);
  bare.headings = false;
  EXPECT_EQ(write(bare, none), "");
}

TEST(Records, ArePlainWhereTheOutputIsNoTerminal) {
  EXPECT_EQ(write({}, twoRecords), write(as(Format::plain), twoRecords));
}

TEST(Records, AreColoredOnlyInTablesAndOnlyWhenAskedForOrOnATerminal) {
  const auto colored = [](RecordWriter& records) {
    records << 1 << "removed" << Style::bad << true << std::vector<uint32_t>{} << absent;
    records.endRecord();
  };
  OutputOptions options = as(Format::table);
  EXPECT_EQ(write(options, colored).find('\033'), std::string::npos);
  options.color = Color::always;
  EXPECT_NE(write(options, colored).find("\033[31mremoved\033[0m"), std::string::npos);
  options.format = Format::csv;
  EXPECT_EQ(write(options, colored).find('\033'), std::string::npos);
}

TEST(Records, ThatCannotBeWrittenAreAFailure) {
  Output out(-1);
  out.write("x");
  EXPECT_THROW(out.flush(), Failure);
}

}  // namespace
}  // namespace Tools
