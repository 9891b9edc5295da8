// A tool's command line: a tree of commands with CLI11, and what all tools have in common.
//
//   CommandLine line({.name = "shoalctl", .says = "Shows the routing tables", ...});
//   CLI::App& show = line.command("show", "The entries of a table", {{"shoalctl show T", "all"}});
//   line.complete(show.add_option("TABLE", table, "A table"), Words::from("shoalctl tables ..."));
//   if (!line.parse(argc, argv)) return;     // help, version, a manual or completion was printed
//
// Every tool has --format, --json, --columns, --no-headings, --color, --timeout, --version and
// --help, before or behind the command, and the hidden commands `completion bash|zsh` and `manual`,
// which write a completion script and a manual page made from the tree.
#pragma once

#include <CLI/CLI.hpp>
#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/common/Output.h"

namespace Tools {

// A command as one would type it, and what it does.
struct Example {
  std::string command;
  std::string says;
};

// A chapter of a manual page: paragraphs of plain text.
struct Chapter {
  std::string title;
  std::vector<std::string> paragraphs;
};

struct About {
  std::string name;                  // of the program
  std::string says;                  // in a line, without a full stop
  std::vector<Example> examples;     // those that the help begins with
  std::vector<Chapter> chapters;     // of the manual, between the options and the exit status
  std::vector<std::string> seeAlso;  // other pages: "p4rt-agent(1)"
};

// What a shell offers for a value: the words that a command line prints, files, or directories.
struct Words {
  enum class Kind : uint8_t { printed, files, directories };
  Kind kind = Kind::printed;
  std::string command;

  static Words from(std::string command) { return {Kind::printed, std::move(command)}; }
  static Words files() { return {Kind::files, {}}; }
  static Words directories() { return {Kind::directories, {}}; }
};

class CommandLine {
 public:
  explicit CommandLine(About about);
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;

  // Options added to it stand before or behind the command.
  CLI::App& app() { return app_; }
  const CLI::App& app() const { return app_; }
  const About& about() const { return about_; }

  CLI::App& command(const std::string& name, const std::string& says,
                    std::vector<Example> examples = {});
  void complete(const CLI::Option* value, Words words) { words_[value] = std::move(words); }

  // Reads the command line. False: it asked for help, the version, a manual or a completion script,
  // which has been printed. Throws Failure (usage); an unknown command or option is answered with
  // the nearest one. The time-out runs from here on.
  bool parse(int argc, const char* const* argv);

  const OutputOptions& output() const { return output_; }

  // The commands and options that people see.
  static std::vector<const CLI::App*> commandsOf(const CLI::App& app);
  static std::vector<const CLI::Option*> optionsOf(const CLI::App& app);
  static std::vector<const CLI::Option*> positionalsOf(const CLI::App& app);
  // Whether the option is followed by a value.
  static bool takesValue(const CLI::Option& option) { return option.get_items_expected_max() > 0; }
  // The values that the option may have, if they are few.
  static std::vector<std::string> choicesOf(const CLI::Option& option);

  const std::vector<Example>& examplesOf(const CLI::App& app) const;
  const Words* wordsOf(const CLI::Option& option) const;

 private:
  void addCommonOptions();
  void addHiddenCommands();
  [[noreturn]] void refuse(const CLI::ParseError& error) const;

  About about_;
  CLI::App app_;
  OutputOptions output_;
  std::string shell_;
  CLI::App* completion_ = nullptr;
  CLI::App* manual_ = nullptr;
  std::map<const CLI::App*, std::vector<Example>> examples_;
  std::map<const CLI::Option*, Words> words_;
};

// Made from the tree: a manual page in man macros, and completion scripts.
std::string manualPage(const CommandLine& line);
std::string bashCompletion(const CommandLine& line);
std::string zshCompletion(const CommandLine& line);

}  // namespace Tools
