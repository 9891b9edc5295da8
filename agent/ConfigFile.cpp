#include "agent/ConfigFile.h"

// The parser takes some bad texts, "[:" for one, for impossible: it ends the process where
// assertions are on, and assumes that they do not come where they are off. Left to go on it refuses
// them.
#undef NDEBUG
#define TOML_ASSERT(condition) static_assert(true)

#include <fmt/format.h>
#include <toml++/toml.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "tools/common/Nearest.h"

namespace Agent {
namespace {

// What only a command line is asked for.
constexpr std::array<std::string_view, 3> notKeys{"help", "config", "check-config"};

class ConfigFile {
 public:
  ConfigFile(const std::filesystem::path& file, CLI::App& app) : file_(file), app_(app) {}

  void apply() const {
    for (const auto& [key, value] : parsed()) applyKey(std::string(key.str()), key, value);
  }

 private:
  [[noreturn]] void fail(const toml::source_region& at, const std::string& text) const {
    throw CLI::ValidationError(file_.string(), fmt::format("line {}: {}", at.begin.line, text));
  }

  toml::table parsed() const {
    std::ifstream in(file_);
    // A directory opens, and fails when it is read.
    if (!in || in.peek() == std::ifstream::traits_type::eof()) {
      if (!in.eof()) throw CLI::ValidationError(file_.string(), std::strerror(errno));
    }
    in.clear();
    try {
      return toml::parse(in, file_.string());
    } catch (const toml::parse_error& error) {
      fail(error.source(), std::string(error.description()));
    }
  }

  void applyKey(const std::string& name, const toml::key& key, const toml::node& value) const {
    CLI::Option* option = optionOf(name);
    if (option == nullptr) {
      fail(key.source(), Tools::unknownName("option", name, keys()));
    }
    std::vector<std::string> texts;
    collect(name, value, texts);
    if (option->count() != 0 || texts.empty()) return;  // the command line wins
    try {
      for (const std::string& text : texts) option->add_result(text);
      option->run_callback();
    } catch (const CLI::Error& error) {
      fail(value.source(), fmt::format("{}: {}", name, error.what()));
    }
  }

  CLI::Option* optionOf(const std::string& name) const {
    if (std::ranges::find(notKeys, name) != notKeys.end()) return nullptr;
    return app_.get_option_no_throw("--" + name);
  }

  std::vector<std::string> keys() const {
    std::vector<std::string> names;
    for (const CLI::Option* option : std::as_const(app_).get_options()) {
      for (const std::string& name : option->get_lnames()) {
        if (std::ranges::find(notKeys, name) == notKeys.end()) names.push_back(name);
      }
    }
    return names;
  }

  // The value as one would write it on a command line; several for a list.
  void collect(const std::string& name, const toml::node& value,
               std::vector<std::string>& texts) const {
    const bool isFlag = optionOf(name)->get_items_expected_max() == 0;
    if (const auto* text = value.as_string(); text && !isFlag) {
      texts.push_back(text->get());
    } else if (const auto* number = value.as_integer(); number && !isFlag) {
      texts.push_back(std::to_string(number->get()));
    } else if (const auto* truth = value.as_boolean(); truth && isFlag) {
      texts.push_back(truth->get() ? "true" : "false");
    } else if (const auto* list = value.as_array(); list && !isFlag) {
      for (const toml::node& element : *list) collect(name, element, texts);
    } else if (const auto* table = value.as_table(); table && name == "capacity") {
      for (const auto& [key, entries] : *table) {
        if (!entries.is_integer()) fail(entries.source(), "expected a number of entries");
        texts.push_back(fmt::format("{}={}", key.str(), entries.as_integer()->get()));
      }
    } else {
      fail(value.source(), fmt::format("{}: expected {}", name,
                                       isFlag ? "true or false" : "a text, a number, or a list"));
    }
  }

  const std::filesystem::path& file_;
  CLI::App& app_;
};

}  // namespace

void applyConfigFile(const std::filesystem::path& file, CLI::App& app) {
  ConfigFile(file, app).apply();
}

}  // namespace Agent
