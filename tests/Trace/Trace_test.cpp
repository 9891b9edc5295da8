#include "platform/Trace/Trace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>
#include <sstream>
#include <streambuf>
#include <thread>
#include <vector>

namespace {

const std::string moment = "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{6}";

// The trace output, caught for one test.
class TraceOutput : public testing::Test {
 protected:
  void SetUp() override { Trace::outputIs(&out); }
  void TearDown() override { Trace::outputIs(nullptr); }
  std::ostringstream out;
};

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

std::vector<std::string> ringLines() {
  std::ostringstream dumped;
  RingLog::dump(dumped);
  return linesOf(dumped.str());
}

TEST(TraceHandle, IsOnePerName) {
  EXPECT_EQ(&Trace::handle("one"), &Trace::handle("one"));
  EXPECT_NE(&Trace::handle("one"), &Trace::handle("two"));
  EXPECT_EQ(Trace::handle("one").name(), "one");
}

TEST(TraceHandle, LevelsAreSwitchedOneByOne) {
  Trace::Handle handle("h");
  EXPECT_FALSE(handle.enabled(4));
  handle.levelIs(4, true);
  handle.levelIs(31, true);
  handle.levelIs(32, true);  // beyond the last: not a level
  EXPECT_TRUE(handle.enabled(4));
  EXPECT_TRUE(handle.enabled(31));
  EXPECT_FALSE(handle.enabled(9));
  EXPECT_FALSE(handle.enabled(32));
  handle.levelIs(4, false);
  EXPECT_FALSE(handle.enabled(4));
}

std::string levelsOf(const std::string& name, const char* trace) {
  setenv("TRACE", trace, 1);
  const Trace::Handle& handle = Trace::handle(name);
  unsetenv("TRACE");
  std::string levels;
  for (uint8_t level = 0; level < 32; ++level) levels += handle.enabled(level) ? '1' : '0';
  return levels;
}

TEST(TraceHandle, LevelsStartAsTheEnvironmentSays) {
  const std::string none(32, '0');
  EXPECT_EQ(levelsOf("env1", "env1/49"), "00001000010000000000000000000000");
  EXPECT_EQ(levelsOf("env2", "other/1,env2/0,third/*"), "1" + none.substr(1));
  EXPECT_EQ(levelsOf("env3", "env3/*"), std::string(32, '1'));
  EXPECT_EQ(levelsOf("env4", "env4/1,env4/2"), "011" + none.substr(3));
  EXPECT_EQ(levelsOf("env5", "env/1,env55/1,env5"), none);
  EXPECT_EQ(levelsOf("env6", ",,/3,env6/x1,"), "01" + none.substr(2));
  EXPECT_EQ(levelsOf("env7", ""), none);
}

TEST(TraceHandle, MadeBeforeTheEnvironmentChangedKeepsItsLevels) {
  Trace::handle("kept");
  EXPECT_EQ(levelsOf("kept", "kept/*"), std::string(32, '0'));
}

TEST_F(TraceOutput, ShowsTimeHandleLevelPlaceAndMessage) {
  Trace::Handle handle("P4RuntimeRoutingVane");
  handle.levelIs(9, true);
  Trace::trace(handle, 9, {"P4RuntimePlugin/RoutingP4RuntimePlugin", 87}, "hello");
  EXPECT_THAT(out.str(),
              testing::MatchesRegex(moment + " P4RuntimeRoutingVane/9 "
                                             "P4RuntimePlugin/RoutingP4RuntimePlugin:87 hello\n"));
}

TEST_F(TraceOutput, HasNothingOfALevelThatIsOff) {
  Trace::Handle handle("h");
  handle.levelIs(8, true);
  Trace::trace(handle, 9, {"p", 1}, "hello");
  EXPECT_EQ(out.str(), "");
}

TEST_F(TraceOutput, OfTheDualLogIsWrittenAndKept) {
  Trace::Handle handle("h");  // no level is on: the caller has tested it
  DualLog::trace(handle, 4, {"P4RuntimePlugin/RoutingP4RuntimePlugin", 53}, "kept 100%s");
  EXPECT_NE(out.str().find(" h/4 P4RuntimePlugin/RoutingP4RuntimePlugin:53 kept 100%s\n"),
            std::string::npos);
  EXPECT_TRUE(
      ringLines().back().ends_with(" P4RuntimePlugin/RoutingP4RuntimePlugin:53 kept 100%s"));
}

class Broken final : public std::streambuf {
 protected:
  int_type overflow(int_type) override { throw std::runtime_error("broken"); }
  std::streamsize xsputn(const char*, std::streamsize) override {
    throw std::runtime_error("broken");
  }
};

TEST_F(TraceOutput, ThatFailsStopsNobody) {
  Broken buffer;
  std::ostream broken(&buffer);
  broken.exceptions(std::ios::badbit);
  Trace::outputIs(&broken);
  Trace::Handle handle("h");
  handle.levelIs(1, true);
  EXPECT_NO_THROW(Trace::trace(handle, 1, {"p", 1}, "lost"));
  Trace::outputIs(&out);
  Trace::trace(handle, 1, {"p", 1}, "found");
  EXPECT_NE(out.str().find("found"), std::string::npos);
}

TEST_F(TraceOutput, OfManyThreadsIsWholeLines) {
  Trace::Handle& handle = Trace::handle("threads");
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&handle, t] {
      for (int i = 0; i < 500; ++i) {
        handle.levelIs(3, true);
        Trace::trace(Trace::handle("threads"), 3, {"thread", t}, "a whole line");
        RingLog::log({"thread", t}, "message %s", "i", i);
      }
    });
  }
  std::ostringstream dumped;
  for (int i = 0; i < 5; ++i) RingLog::dump(dumped);
  for (auto& thread : threads) thread.join();
  const auto lines = linesOf(out.str());
  EXPECT_EQ(lines.size(), 2000u);
  for (const auto& line : lines) EXPECT_TRUE(line.ends_with(" a whole line")) << line;
}

TEST(RingLog, ShowsTimePlaceAndTextWithItsArgument) {
  RingLog::log({"P4RuntimePlugin/RoutingP4RuntimePlugin", 53}, "doCleanup reason %s", "i", 1);
  EXPECT_THAT(ringLines().back(),
              testing::MatchesRegex(moment + " P4RuntimePlugin/RoutingP4RuntimePlugin:53 "
                                             "doCleanup reason 1"));
}

TEST(RingLog, HoldsTheWholeRangeOfAnArgument) {
  RingLog::log({"p", 1}, "%s", "i", std::numeric_limits<int64_t>::min());
  EXPECT_TRUE(ringLines().back().ends_with(" p:1 -9223372036854775808"));
}

TEST(RingLog, PutsTheArgumentInItsFirstPlaceAndNoneWhereThereIsNone) {
  RingLog::log({"p", 1}, "%s of %s", "i", 7);
  EXPECT_TRUE(ringLines().back().ends_with(" p:1 7 of %s"));
  RingLog::log({"p", 2}, "no place", "i", 7);
  EXPECT_TRUE(ringLines().back().ends_with(" p:2 no place"));
}

TEST(RingLog, KeepsTheLatestOldestFirst) {
  const int64_t more = static_cast<int64_t>(RingLog::capacity) + 10;
  for (int64_t i = 0; i < more; ++i) RingLog::log({"p", 1}, "number %s", "i", i);
  const auto lines = ringLines();
  ASSERT_EQ(lines.size(), 4096u);
  EXPECT_TRUE(lines.front().ends_with(" number 10"));
  EXPECT_TRUE(lines[1].ends_with(" number 11"));
  EXPECT_TRUE(lines.back().ends_with(" number 4105"));
}

TEST(RingLog, CutsOffWhatDoesNotFit) {
  const std::string path(500, 'p'), text(500, 't');
  RingLog::log({path.c_str(), 1}, text, "", 0);
  EXPECT_TRUE(ringLines().back().ends_with(" " + path.substr(0, RingLog::pathCapacity) + ":1 " +
                                           text.substr(0, RingLog::formatCapacity)));
}

TEST(RingLog, KeepsTextsWhoseOwnerHasGone) {
  {
    const std::string path = "short/lived", text = "a text that goes";
    RingLog::log({path.c_str(), 5}, text, "", 0);
  }
  EXPECT_TRUE(ringLines().back().ends_with(" short/lived:5 a text that goes"));
}

}  // namespace
