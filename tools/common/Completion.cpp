// Completion scripts for bash and zsh.
#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "tools/common/CommandLine.h"

namespace Tools {
namespace {

using Apps = std::vector<const CLI::App*>;

// A function's name: letters, digits and underlines.
std::string identifier(std::string_view name) {
  std::string to(name);
  std::ranges::replace_if(
      to, [](unsigned char c) { return !std::isalnum(c); }, '_');
  return to;
}

std::vector<std::string> spellingsOf(const CLI::Option& option) {
  std::vector<std::string> names;
  for (const auto& name : option.get_lnames()) names.push_back("--" + name);
  for (const auto& name : option.get_snames()) names.push_back("-" + name);
  return names;
}

std::vector<std::string> optionNames(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::Option* option : CommandLine::optionsOf(app)) {
    std::ranges::move(spellingsOf(*option), std::back_inserter(names));
  }
  return names;
}

// The tool and its commands: each may have options.
Apps appsOf(const CommandLine& line) {
  Apps apps{&line.app()};
  std::ranges::copy(CommandLine::commandsOf(line.app()), std::back_inserter(apps));
  return apps;
}

std::vector<std::string> commandNames(const CommandLine& line) {
  std::vector<std::string> names;
  for (const CLI::App* app : CommandLine::commandsOf(line.app())) names.push_back(app->get_name());
  return names;
}

// --- bash ---------------------------------------------------------------------------------------

// What fills COMPREPLY for one value.
std::string bashWords(const CommandLine& line, const CLI::Option& value) {
  if (const auto choices = CommandLine::choicesOf(value); !choices.empty()) {
    return fmt::format("COMPREPLY=($(compgen -W '{}' -- \"$word\"))", fmt::join(choices, " "));
  }
  const Words* words = line.wordsOf(value);
  if (words == nullptr) return "COMPREPLY=()";
  switch (words->kind) {
    case Words::Kind::files:
      return "compopt -o filenames; COMPREPLY=($(compgen -f -- \"$word\"))";
    case Words::Kind::directories:
      return "compopt -o filenames; COMPREPLY=($(compgen -d -- \"$word\"))";
    case Words::Kind::printed:
      break;
  }
  return fmt::format("COMPREPLY=($(compgen -W \"$({} 2>/dev/null)\" -- \"$word\"))",
                     words->command);
}

// The values of options, by the word before; and the patterns of all options that have one.
std::string bashValueCases(const CommandLine& line, std::vector<std::string>& valued) {
  std::string cases;
  for (const CLI::App* app : appsOf(line)) {
    for (const CLI::Option* option : CommandLine::optionsOf(*app)) {
      if (!CommandLine::takesValue(*option)) continue;
      const auto names = spellingsOf(*option);
      std::ranges::copy(names, std::back_inserter(valued));
      fmt::format_to(std::back_inserter(cases), "    {}) {}; return ;;\n", fmt::join(names, "|"),
                     bashWords(line, *option));
    }
  }
  return cases;
}

std::string bashCommandCases(const CommandLine& line) {
  std::string cases;
  for (const CLI::App* app : CommandLine::commandsOf(line.app())) {
    const auto values = CommandLine::positionalsOf(*app);
    fmt::format_to(std::back_inserter(cases), "    {}) options='{}'", app->get_name(),
                   fmt::join(optionNames(*app), " "));
    if (!values.empty()) {
      fmt::format_to(std::back_inserter(cases), "\n      [[ $word == -* ]] || {{ case $place in\n");
      for (size_t i = 0; i < values.size(); ++i) {
        const bool many = values[i]->get_items_expected_max() > 1;
        fmt::format_to(std::back_inserter(cases), "        {}) {} ;;\n",
                       many ? std::string("*") : std::to_string(i), bashWords(line, *values[i]));
      }
      cases += "      esac; return; }\n     ";
    }
    cases += " ;;\n";
  }
  return cases;
}

// --- zsh ----------------------------------------------------------------------------------------

// Text inside single quotes of an argument of _arguments.
std::string zshQuoted(std::string_view text) {
  std::string to;
  for (const char c : text) {
    if (c == '\'') {
      to += "'\\''";
    } else {
      if (c == '[' || c == ']' || c == ':' || c == '\\') to += '\\';
      to += c;
    }
  }
  return to;
}

// ":message:action" of a value.
std::string zshValue(const CommandLine& line, const CLI::Option& value) {
  const std::string name =
      value.get_positional() ? value.get_name(true) : value.get_lnames().front();
  std::string action = " ";
  if (const auto choices = CommandLine::choicesOf(value); !choices.empty()) {
    action = fmt::format("({})", fmt::join(choices, " "));
  } else if (const Words* words = line.wordsOf(value)) {
    action = words->kind == Words::Kind::files ? "_files"
             : words->kind == Words::Kind::directories
                 ? "_files -/"
                 : fmt::format("(${{(f)\"$({} 2>/dev/null)\"}})", words->command);
  }
  return fmt::format(":{}:{}", zshQuoted(name), action);
}

std::string zshOptions(const CommandLine& line, const CLI::App& app) {
  std::string arguments;
  for (const CLI::Option* option : CommandLine::optionsOf(app)) {
    const bool valued = CommandLine::takesValue(*option);
    for (const std::string& name : spellingsOf(*option)) {
      fmt::format_to(std::back_inserter(arguments), " \\\n    '{}[{}]{}'", name,
                     zshQuoted(option->get_description()), valued ? zshValue(line, *option) : "");
    }
  }
  return arguments;
}

std::string zshPositionals(const CommandLine& line, const CLI::App& app) {
  std::string arguments;
  for (const CLI::Option* value : CommandLine::positionalsOf(app)) {
    const bool many = value->get_items_expected_max() > 1;
    fmt::format_to(std::back_inserter(arguments), " \\\n    '{}{}'", many ? "*" : "",
                   zshValue(line, *value));
  }
  return arguments;
}

}  // namespace

// The script finds the command among the words, skipping options and their values, and the number
// of plain words behind it.
std::string bashCompletion(const CommandLine& line) {
  std::vector<std::string> valued;
  const std::string values = bashValueCases(line, valued);
  return fmt::format(
      R"sh(# bash completion for {tool}
_{function}() {{
  local word=${{COMP_WORDS[COMP_CWORD]}} before=${{COMP_WORDS[COMP_CWORD-1]}}
  local command= place=0 skip= options= i
  for ((i = 1; i < COMP_CWORD; ++i)); do
    if [[ $skip ]]; then skip=; continue; fi
    case ${{COMP_WORDS[i]}} in
      {valued}) skip=1 ;;
      -*) ;;
      *) if [[ $command ]]; then ((++place)); else command=${{COMP_WORDS[i]}}; fi ;;
    esac
  done
  case $before in
{values}  esac
  case $command in
    '') [[ $word == -* ]] || {{ COMPREPLY=($(compgen -W '{commands}' -- "$word")); return; }} ;;
{cases}  esac
  COMPREPLY=($(compgen -W "$options {options}" -- "$word"))
}}
complete -F _{function} {tool}
)sh",
      fmt::arg("tool", line.about().name), fmt::arg("function", identifier(line.about().name)),
      fmt::arg("valued", fmt::join(valued, "|")), fmt::arg("values", values),
      fmt::arg("commands", fmt::join(commandNames(line), " ")),
      fmt::arg("cases", bashCommandCases(line)),
      fmt::arg("options", fmt::join(optionNames(line.app()), " ")));
}

std::string zshCompletion(const CommandLine& line) {
  std::string described;
  std::string cases;
  for (const CLI::App* app : CommandLine::commandsOf(line.app())) {
    fmt::format_to(std::back_inserter(described), "\n    '{}:{}'", app->get_name(),
                   zshQuoted(app->get_description()));
    fmt::format_to(std::back_inserter(cases), "    {}) _arguments \"$common[@]\"{}{} ;;\n",
                   app->get_name(), zshOptions(line, *app), zshPositionals(line, *app));
  }
  return fmt::format(
      R"sh(#compdef {tool}
_{function}() {{
  local curcontext=$curcontext state line
  local -a common commands
  common=({common})
  commands=({described})
  _arguments -C "$common[@]" '1:command:->command' '*::argument:->argument'
  case $state in
    command) _describe command commands ;;
    argument) case $words[1] in
{cases}    esac ;;
  esac
}}
_{function} "$@"
)sh",
      fmt::arg("tool", line.about().name), fmt::arg("function", identifier(line.about().name)),
      fmt::arg("common", zshOptions(line, line.app())), fmt::arg("described", described),
      fmt::arg("cases", cases));
}

}  // namespace Tools
