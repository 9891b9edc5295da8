#include "agent/Log.h"

#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <array>
#include <memory>

namespace Agent {
namespace {

struct Level {
  LogLevel level;
  std::string_view name;
  spdlog::level::level_enum library;
};
constexpr std::array<Level, 4> levels{{
    {LogLevel::error, "error", spdlog::level::err},
    {LogLevel::warning, "warning", spdlog::level::warn},
    {LogLevel::info, "info", spdlog::level::info},
    {LogLevel::debug, "debug", spdlog::level::debug},
}};

constexpr const Level& infoOf(LogLevel level) { return levels[static_cast<size_t>(level)]; }

// Whether a line could be written makes no difference: failing to log must not end the agent.
spdlog::logger& logger() {
  static spdlog::logger& made = []() -> spdlog::logger& {
    // Never destroyed: threads of the library that serves calls may log to the end.
    auto& logger =
        *new spdlog::logger("p4rt-agent", std::make_shared<spdlog::sinks::stderr_sink_mt>());
    logger.set_pattern("%Y-%m-%dT%H:%M:%S.%eZ level=%l %v", spdlog::pattern_time_type::utc);
    logger.set_level(spdlog::level::info);
    logger.set_error_handler([](const std::string&) {});
    return logger;
  }();
  return made;
}

void appendValue(std::string& line, std::string_view value) {
  const bool isPlain = !value.empty() && std::ranges::all_of(value, [](char c) {
    return static_cast<unsigned char>(c) > ' ' && c != '"' && c != '\\' && c != '=' && c != 0x7F;
  });
  if (isPlain) {
    line += value;
    return;
  }
  line += '"';
  for (const char c : value) {
    if (c == '\n') {
      line += "\\n";
    } else if (static_cast<unsigned char>(c) < ' ' || c == 0x7F) {
      line += '?';
    } else {
      if (c == '"' || c == '\\') line += '\\';
      line += c;
    }
  }
  line += '"';
}

}  // namespace

LogLevel Log::level() {
  const auto now = logger().level();
  return std::ranges::find(levels, now, &Level::library)->level;
}

void Log::levelIs(LogLevel level) { logger().set_level(infoOf(level).library); }

std::string_view Log::nameOf(LogLevel level) { return infoOf(level).name; }

std::optional<LogLevel> Log::levelOf(std::string_view name) {
  const auto found = std::ranges::find(levels, name, &Level::name);
  return found == levels.end() ? std::nullopt : std::optional(found->level);
}

void Log::writeLine(LogLevel at, std::string_view event, Fields fields, const std::string& text) {
  std::string line = fmt::format("event={}", event);
  for (const Field& field : fields) {
    line += fmt::format(" {}=", field.key);
    appendValue(line, field.value);
  }
  line += " text=";
  appendValue(line, text);
  logger().log(infoOf(at).library, line);
}

}  // namespace Agent
