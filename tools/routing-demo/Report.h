// What the demo tells people: progress on a terminal, then a short table of what happened.
#pragma once

#include <array>
#include <chrono>
#include <filesystem>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "tools/routing-demo/Model.h"

namespace Demo {

class Stopwatch {
 public:
  double seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begun_).count();
  }

 private:
  std::chrono::steady_clock::time_point begun_ = std::chrono::steady_clock::now();
};

class Report {
 public:
  explicit Report(bool quiet);

  // Shown on a terminal only, until the next line.
  void progress(const std::string& text);
  void begin(const Model& model, const std::filesystem::path& root);
  // One line: what was done to how many rows in how long.
  void step(const std::string& what, uint64_t rows, double seconds);
  void wrong(const std::string& what);
  void agentFollowed(Table table, uint64_t changes);
  // The second process's answer for one table.
  void readBack(const nlohmann::json& table);
  void tables(const Model& model);
  void invitation(const std::filesystem::path& root, const std::string& shoalctl, int agentPid);
  void p4Invitation(const std::string& address, const std::string& client);
  void verdict();

  bool right() const { return wrong_ == 0; }

 private:
  struct Row {
    uint64_t agentFollowed = 0;
    uint64_t readerFollowed = 0;
    uint64_t readerMissed = 0;
    uint64_t compared = 0;
  };
  void clearProgress();
  void line(const std::string& text);

  bool quiet_;
  bool terminal_;
  bool progressShown_ = false;
  uint64_t wrong_ = 0;
  std::array<Row, tableCount> rows_{};
};

}  // namespace Demo
