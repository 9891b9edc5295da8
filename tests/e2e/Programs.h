// Runs the programs as processes and talks to them as their users do.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace E2e {

using Json = nlohmann::json;

std::string program(const std::string& name);

// A process with pipes to its standard streams. Every wait ends after a minute with an exception.
class Child {
 public:
  explicit Child(const std::vector<std::string>& arguments);
  ~Child();  // kills what still runs
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  pid_t pid() const { return pid_; }
  // Whether it was taken: a child that has gone takes nothing.
  bool write(const std::string& text);
  void closeInput();
  void signal(int number);

  // Reads until the stream holds `text`; all that has been read of it so far.
  const std::string& waitForOut(const std::string& text) { return waitFor(0, text); }
  const std::string& waitForErr(const std::string& text) { return waitFor(1, text); }
  // The next line of standard output.
  std::string readLine();

  struct Result {
    int status;  // exit status; 1000 + the signal's number when killed
    std::string out;
    std::string err;
  };
  // Closes its input, reads to the end of its streams, and waits.
  Result wait();

 private:
  // Waits for bytes and takes them; false when both streams have ended.
  bool take();
  const std::string& waitFor(int stream, const std::string& text);

  pid_t pid_ = -1;
  int input_ = -1;
  int streams_[2] = {-1, -1};
  std::string read_[2];
  size_t linesRead_ = 0;  // bytes of standard output given out as lines
  std::chrono::steady_clock::time_point deadline_;
};

Child::Result run(const std::vector<std::string>& arguments, const std::string& input = {});

// A fresh directory on the memory file system, gone with the test.
class Scratch {
 public:
  Scratch();
  ~Scratch();
  const std::filesystem::path& path() const { return path_; }
  std::string root() const { return (path_ / "root").string(); }
  // Writes a file and gives its path.
  std::string file(const std::string& name, const std::string& content) const;
  std::string gzipFile(const std::string& name, const std::string& content) const;

 private:
  std::filesystem::path path_;
};

// The arguments of an agent on this root with the plug-in.
std::vector<std::string> agentOn(const std::string& root,
                                 const std::vector<std::string>& more = {});
// The arguments of a demo of small size.
std::vector<std::string> demo(const std::vector<std::string>& more);

Child::Result shoalctl(const std::string& root, const std::vector<std::string>& arguments);
// The rows that `shoalctl --json show` prints.
std::vector<Json> shownRows(const std::string& root, const std::string& table);
// Entries by table, as `shoalctl --json tables` says.
std::map<std::string, uint64_t> entries(const std::string& root);

std::vector<std::string> lines(const std::string& text);
// The events of a log by their keys: time, level, event and others; throws for a line that is none.
std::vector<std::map<std::string, std::string>> logged(const std::string& log);
// The text of each.
std::vector<std::string> loggedTexts(const std::string& log);

}  // namespace E2e
