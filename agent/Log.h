// What the agent tells people: one event a line on standard error. Standard output is for machines.
//
//   2026-03-01T12:00:00.000Z level=info event=serving tables=10 text="serving 10 tables below ..."
//
// Each event has a name, values by key, and at the end a text for people. A value with a blank, a
// quote or a backslash in it stands in quotes, with backslashes before those two; a line break in
// it is written \n.
#pragma once

#include <fmt/format.h>

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace Agent {

enum class LogLevel : uint8_t { error, warning, info, debug };

class Log {
 public:
  struct Field {
    template <class Value>
    Field(std::string_view name, const Value& held) : key(name), value(fmt::format("{}", held)) {}
    std::string_view key;
    std::string value;
  };
  using Fields = std::initializer_list<Field>;

  // From any thread.
  static LogLevel level();
  static void levelIs(LogLevel level);
  static std::string_view nameOf(LogLevel level);
  // Nothing for a word that is no level's name.
  static std::optional<LogLevel> levelOf(std::string_view name);

  template <class... Args>
  static void error(std::string_view event, Fields fields, fmt::format_string<Args...> text,
                    Args&&... args) {
    write(LogLevel::error, event, fields, text, std::forward<Args>(args)...);
  }
  template <class... Args>
  static void warning(std::string_view event, Fields fields, fmt::format_string<Args...> text,
                      Args&&... args) {
    write(LogLevel::warning, event, fields, text, std::forward<Args>(args)...);
  }
  template <class... Args>
  static void info(std::string_view event, Fields fields, fmt::format_string<Args...> text,
                   Args&&... args) {
    write(LogLevel::info, event, fields, text, std::forward<Args>(args)...);
  }
  template <class... Args>
  static void debug(std::string_view event, Fields fields, fmt::format_string<Args...> text,
                    Args&&... args) {
    write(LogLevel::debug, event, fields, text, std::forward<Args>(args)...);
  }

 private:
  template <class... Args>
  static void write(LogLevel at, std::string_view event, Fields fields,
                    fmt::format_string<Args...> text, Args&&... args) {
    if (at <= level()) writeLine(at, event, fields, fmt::format(text, std::forward<Args>(args)...));
  }
  static void writeLine(LogLevel at, std::string_view event, Fields fields,
                        const std::string& text);
};

}  // namespace Agent
