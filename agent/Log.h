// What the agent tells people: one line per event on standard error, by level. Standard output is
// for machines.
#pragma once

#include <fmt/format.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>

namespace Agent {

enum class LogLevel : uint8_t { error, info, debug };

class Log {
 public:
  static void levelIs(LogLevel level) { level_ = level; }

  template <class... Args>
  static void error(fmt::format_string<Args...> format, Args&&... args) {
    write(LogLevel::error, fmt::format(format, std::forward<Args>(args)...));
  }
  template <class... Args>
  static void info(fmt::format_string<Args...> format, Args&&... args) {
    write(LogLevel::info, fmt::format(format, std::forward<Args>(args)...));
  }
  template <class... Args>
  static void debug(fmt::format_string<Args...> format, Args&&... args) {
    write(LogLevel::debug, fmt::format(format, std::forward<Args>(args)...));
  }

 private:
  static void write(LogLevel level, const std::string& text) {
    if (level > level_) return;
    // Whether it could be written makes no difference: failing to log must not end the agent.
    const std::string line = "p4rt-agent: " + text + "\n";
    std::fwrite(line.data(), 1, line.size(), stderr);
  }

  static inline LogLevel level_ = LogLevel::info;
};

}  // namespace Agent
