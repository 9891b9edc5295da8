// A table whose file is cut short while shoalctl reads it: one message and the status for corrupt
// tables, and never a signal.
#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <thread>

#include "tests/e2e/ShoalctlTables.h"

namespace E2e {
namespace {

class CutShort : public FewRows {
 protected:
  const std::string table_ = "p4runtime/outputTables/routing/ipv4FallbackTable";
  const std::string message_ =
      "shoalctl: shared table \"" + table_ + "\": its file was cut short while it was attached\n";

  // More rows than a pipe holds, so that whoever prints them has to wait for its reader.
  void loadMany() {
    std::string input;
    for (int i = 0; i < 4000; ++i) {
      input += R"({"table":"VaneIpv4Fallback","row":{"destinationPrefix":"10.)" +
               std::to_string(i / 250) + "." + std::to_string(i % 250) + ".0/24\"}}\n";
    }
    load(input);
  }
  std::vector<std::string> command(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {program("shoalctl"), "--root", scratch_.root()});
    return arguments;
  }
};

TEST_F(CutShort, EndsAWatchWithAMessageAndStatus6) {
  Child watching(command({"watch", "VaneIpv4Fallback", "--json"}));
  watching.readLine();  // who writes the table
  std::filesystem::resize_file(file(table_), 0);
  const auto ended = watching.wait();
  EXPECT_EQ(ended.status, 6);
  EXPECT_EQ(ended.err, message_);
}

TEST_F(CutShort, EndsShowAndDumpInTheMiddleOfTheirOutput) {
  for (const auto& arguments : {std::vector<std::string>{"show", "VaneIpv4Fallback", "--json"},
                                std::vector<std::string>{"dump", "VaneIpv4Fallback"}}) {
    std::filesystem::remove(file(table_));
    loadMany();
    Child printing(command(arguments));
    printing.readLine();
    std::filesystem::resize_file(file(table_), 4096);
    const auto ended = printing.wait();
    EXPECT_EQ(ended.status, 6) << arguments[0];
    EXPECT_EQ(ended.err, message_) << arguments[0];
  }
}

// Cut and restored all the time, at no certain moment of the reading: whatever comes of it has one
// of the tool's own statuses.
TEST_F(CutShort, IsNeverTheEndOfAReaderByASignal) {
  loadMany();
  const auto whole = std::filesystem::file_size(file(table_));
  std::set<int> statuses;
  std::atomic<bool> done{false};
  std::thread cutter([&] {
    while (!done) {
      std::filesystem::resize_file(file(table_), 4096);
      std::this_thread::sleep_for(std::chrono::microseconds(200));
      std::filesystem::resize_file(file(table_), whole);
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  });
  for (int round = 0; round < 20; ++round) {
    for (const char* what : {"check", "summary", "tables"}) statuses.insert(ctl({what}).status);
    statuses.insert(ctl({"get", "VaneIpv4Fallback", "10.3.3.0/24"}).status);
  }
  done = true;
  cutter.join();
  // Also done, absent and orphans: bytes that were cut off are zeros when they are there again.
  for (const int status : statuses)
    EXPECT_TRUE((std::set{0, 1, 3, 5, 6}).contains(status)) << status;
}

}  // namespace
}  // namespace E2e
