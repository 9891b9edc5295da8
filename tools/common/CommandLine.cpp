#include "tools/common/CommandLine.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <string_view>
#include <utility>

#include "tools/common/Exit.h"
#include "tools/common/Nearest.h"

namespace Tools {
namespace {

// In the order of the enumerations.
const std::vector<std::string> formatNames{"table", "json", "csv", "plain"};
const std::vector<std::string> colorNames{"auto", "always", "never"};

// An option whose value is one of the names, each of which stands for a value of the enumeration.
template <class Enumeration, class Target>
CLI::Option* addChoice(CLI::App& app, const std::string& option,
                       const std::vector<std::string>& names, Target& to, const std::string& says) {
  const auto store = [&names, &to](const std::string& name) {
    to = static_cast<Enumeration>(std::ranges::find(names, name) - names.begin());
  };
  return app.add_option_function<std::string>(option, store, says)->check(CLI::IsMember(names));
}

// Help begins with what the command is for and how one uses it.
class ExamplesFirst final : public CLI::Formatter {
 public:
  explicit ExamplesFirst(const CommandLine& line) : line_(line) {}

  std::string make_description(const CLI::App* app) const override {
    std::string text = CLI::Formatter::make_description(app) + "\n";
    for (const auto& [command, says] : line_.examplesOf(*app)) {
      text += fmt::format("  {:<50}  {}\n", command, says);
    }
    return text + "\n";
  }

  std::string make_footer(const CLI::App* app) const override {
    if (app->get_parent() == nullptr) return CLI::Formatter::make_footer(app);
    return fmt::format("\nOptions of all commands: {} --help\n", line_.about().name);
  }

 private:
  const CommandLine& line_;
};

}  // namespace

CommandLine::CommandLine(About about) : about_(std::move(about)), app_(about_.says, about_.name) {
  app_.formatter(std::make_shared<ExamplesFirst>(*this));
  app_.fallthrough();
  app_.require_subcommand(1);
  examples_[&app_] = about_.examples;
  addCommonOptions();
  addHiddenCommands();
}

void CommandLine::addCommonOptions() {
  app_.set_help_flag("-h,--help", "Print this help");
  app_.set_version_flag("--version", fmt::format("{} {}", about_.name, TOOLS_VERSION),
                        "Print the version");
  CLI::Option* format = addChoice<Format>(
      app_, "--format", formatNames, output_.format,
      "How records are written; by default table on a terminal and plain elsewhere");
  format->type_name("FORMAT");
  app_.add_flag_callback(
          "--json", [this] { output_.format = Format::json; },
          "The same as --format json: one object a line")
      ->excludes(format);
  // One word, so that it does not swallow the argument behind it.
  app_.add_option_function<std::string>(
          "--columns",
          [this](const std::string& names) { output_.columns = CLI::detail::split(names, ','); },
          "Only these columns, in this order: a,b,c")
      ->type_name("NAMES");
  app_.add_flag_callback(
      "--no-headings", [this] { output_.headings = false; }, "No line of column names");
  addChoice<Color>(app_, "--color", colorNames, output_.color,
                   "Whether tables are coloured; auto: on a terminal, unless NO_COLOR is set")
      ->type_name("WHEN");
  app_.add_option_function<double>(
          "--timeout", [this](double seconds) { endAfter(seconds, about_.name.c_str()); },
          "End with status 7 when so many seconds have passed")
      ->check(CLI::Range(0.001, 1e9).description(""))
      ->type_name("SECONDS");
}

void CommandLine::addHiddenCommands() {
  completion_ = &command("completion", "Write a completion script for a shell");
  completion_->group("");
  completion_->add_option("SHELL", shell_, "bash or zsh")
      ->check(CLI::IsMember(std::vector<std::string>{"bash", "zsh"}))
      ->required();
  manual_ = &command("manual", "Write the manual page");
  manual_->group("");
}

CLI::App& CommandLine::command(const std::string& name, const std::string& says,
                               std::vector<Example> examples) {
  CLI::App* made = app_.add_subcommand(name, says);
  examples_[made] = std::move(examples);
  return *made;
}

bool CommandLine::parse(int argc, const char* const* argv) {
  Output out;
  try {
    app_.parse(argc, argv);
    if (!*completion_ && !*manual_) return true;
  } catch (const CLI::CallForHelp&) {
    out.write(app_.help());
  } catch (const CLI::CallForVersion& version) {
    out.write(std::string(version.what()) + "\n");
  } catch (const CLI::ParseError& error) {
    refuse(error);
  }
  if (*completion_) out.write(shell_ == "zsh" ? zshCompletion(*this) : bashCompletion(*this));
  if (*manual_) out.write(manualPage(*this));
  out.flush();
  return false;
}

// The first word that nobody took says more than that a command is missing.
void CommandLine::refuse(const CLI::ParseError& error) const {
  const auto left = app_.remaining(true);
  if (left.empty()) throw Failure(ExitCode::usage, error.what());
  const std::string word = left.front().substr(0, left.front().find('='));
  std::vector<std::string> names;
  if (word.starts_with('-')) {
    const auto chosen = app_.get_subcommands();
    for (const CLI::App* app : {&app_, chosen.empty() ? &app_ : chosen.front()}) {
      for (const CLI::Option* option : optionsOf(*app)) {
        for (const auto& name : option->get_lnames()) names.push_back("--" + name);
      }
    }
    throw Failure(ExitCode::usage, unknownName("option", word, names));
  }
  if (!app_.get_subcommands().empty()) {
    throw Failure(ExitCode::usage, fmt::format("argument \"{}\" is one too many", word));
  }
  for (const CLI::App* known : commandsOf(app_)) names.push_back(known->get_name());
  throw Failure(ExitCode::usage, unknownName("command", word, names));
}

// --- The tree -----------------------------------------------------------------------------------

std::vector<const CLI::App*> CommandLine::commandsOf(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App* known) { return !known->get_group().empty(); });
}

// A command's own --help is not told again.
std::vector<const CLI::Option*> CommandLine::optionsOf(const CLI::App& app) {
  const bool isCommand = app.get_parent() != nullptr;
  return app.get_options([&](const CLI::Option* option) {
    return option->nonpositional() && !(isCommand && option == app.get_help_ptr());
  });
}

std::vector<const CLI::Option*> CommandLine::positionalsOf(const CLI::App& app) {
  return app.get_options([](const CLI::Option* option) { return option->get_positional(); });
}

// CLI11 tells a set of choices by the type's name only: "FORMAT:{table,json}".
std::vector<std::string> CommandLine::choicesOf(const CLI::Option& option) {
  const std::string type = option.get_type_name();
  const size_t from = type.find('{');
  const size_t to = type.find('}');
  if (from == std::string::npos || to == std::string::npos) return {};
  return CLI::detail::split(type.substr(from + 1, to - from - 1), ',');
}

const std::vector<Example>& CommandLine::examplesOf(const CLI::App& app) const {
  static const std::vector<Example> none;
  const auto found = examples_.find(&app);
  return found == examples_.end() ? none : found->second;
}

const Words* CommandLine::wordsOf(const CLI::Option& option) const {
  const auto found = words_.find(&option);
  return found == words_.end() ? nullptr : &found->second;
}

}  // namespace Tools
