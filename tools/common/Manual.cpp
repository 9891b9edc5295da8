// The manual page, in man macros.
#include <fmt/format.h>

#include <algorithm>
#include <cctype>

#include "tools/common/CommandLine.h"
#include "tools/common/Exit.h"

namespace Tools {
namespace {

// Text as the formatter takes it: nothing in it is a command or an escape.
std::string plain(std::string_view text) {
  std::string to;
  for (const char c : text) {
    if (c == '\\') {
      to += "\\(rs";
    } else if (c == '-') {
      to += "\\-";
    } else {
      to += c;
    }
  }
  const bool looksLikeACommand = to.starts_with('.') || to.starts_with('\'');
  return looksLikeACommand ? "\\&" + to : to;
}

std::string upper(std::string_view text) {
  std::string to(text);
  std::ranges::transform(to, to.begin(), [](unsigned char c) { return std::toupper(c); });
  return to;
}

// A heading's text; quotes would end it.
std::string heading(std::string_view text) {
  std::string to = plain(upper(text));
  std::erase(to, '"');
  return to;
}

class Page {
 public:
  explicit Page(const CommandLine& line) : line_(line) {}

  std::string text() {
    const About& about = line_.about();
    add(".TH {} 1 \"\" \"{} {}\"\n", heading(about.name), plain(about.name), TOOLS_VERSION);
    section("name");
    add("{} \\- {}\n", plain(about.name), plain(about.says));
    section("synopsis");
    add(".B {}\n[\\fIoptions\\fR] \\fIcommand\\fR [\\fIarguments\\fR]\n", plain(about.name));
    section("examples");
    for (const Example& example : about.examples) addExample(example);
    section("commands");
    for (const CLI::App* command : CommandLine::commandsOf(line_.app())) addCommand(*command);
    section("options");
    add("They may stand before or behind the command.\n");
    addOptions(line_.app());
    for (const Chapter& chapter : about.chapters) addChapter(chapter);
    section("exit status");
    for (const auto& [code, meaning] : exitMeanings) {
      add(".TP\n.B {}\n{}\n", static_cast<int>(code), plain(meaning));
    }
    section("environment");
    add(".TP\n.B NO_COLOR\nIf set and not empty, tables are not coloured unless \\-\\-color always "
        "is given.\n");
    addSeeAlso();
    return std::move(text_);
  }

 private:
  template <class... Values>
  void add(fmt::format_string<Values...> form, Values&&... values) {
    fmt::format_to(std::back_inserter(text_), form, std::forward<Values>(values)...);
  }
  void section(std::string_view title) { add(".SH \"{}\"\n", heading(title)); }

  void addExample(const Example& example) {
    add(".TP\n.B {}\n{}\n", plain(example.command), plain(example.says));
  }

  void addCommand(const CLI::App& command) {
    std::string form = "\\fB" + plain(command.get_name()) + "\\fR";
    for (const CLI::Option* value : CommandLine::positionalsOf(command)) {
      const bool many = value->get_items_expected_max() > 1;
      const std::string name = "\\fI" + plain(value->get_name(true)) + "\\fR" + (many ? "..." : "");
      form += value->get_required() ? " " + name : " [" + name + "]";
    }
    add(".SS {}\n{}.\n", form, plain(command.get_description()));
    for (const CLI::Option* value : CommandLine::positionalsOf(command)) {
      add(".TP\n.I {}\n{}.\n", plain(value->get_name(true)), plain(value->get_description()));
    }
    addOptions(command);
    const auto& examples = line_.examplesOf(command);
    if (!examples.empty()) add(".P\nExamples:\n");
    for (const Example& example : examples) addExample(example);
  }

  void addOptions(const CLI::App& app) {
    for (const CLI::Option* option : CommandLine::optionsOf(app)) {
      add(".TP\n\\fB{}\\fR", plain(option->get_name(false, true)));
      const std::string type = option->get_type_name();
      if (CommandLine::takesValue(*option))
        add(" \\fI{}\\fR", plain(type.substr(0, type.find(':'))));
      add("\n{}", plain(option->get_description()));
      const auto choices = CommandLine::choicesOf(*option);
      if (!choices.empty()) add(" ({})", plain(fmt::format("{}", fmt::join(choices, ", "))));
      add(".\n");
    }
  }

  void addChapter(const Chapter& chapter) {
    section(chapter.title);
    for (const std::string& paragraph : chapter.paragraphs) add(".P\n{}\n", plain(paragraph));
  }

  void addSeeAlso() {
    if (line_.about().seeAlso.empty()) return;
    section("see also");
    add("{}\n", plain(fmt::format("{}", fmt::join(line_.about().seeAlso, ", "))));
  }

  const CommandLine& line_;
  std::string text_;
};

}  // namespace

std::string manualPage(const CommandLine& line) { return Page(line).text(); }

}  // namespace Tools
