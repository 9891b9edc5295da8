// What the programs that show tables declare alike: commands that a function serves each, and the
// tables that one names to them.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "tools/common/CommandLine.h"

namespace Tools {

// `Options` has the members `table` and `tables`, into which the names go.
template <class Options>
class TableCommands {
 public:
  using Command = void (*)(const Options& options, Output& out);

  // The function of the command that was chosen; null for none.
  Command chosen() const {
    for (const auto& [app, command] : commands_) {
      if (*app) return command;
    }
    return nullptr;
  }

 protected:
  TableCommands(CommandLine& line, Options& options) : line_(line), options_(options) {}

  CLI::App& add(const char* name, const char* says, Command command,
                std::vector<Example> examples = {}) {
    CLI::App& app = line_.command(name, says, std::move(examples));
    commands_.emplace_back(&app, command);
    return app;
  }
  void addTable(CLI::App& app) {
    complete(app.add_option("TABLE", options_.table,
                            "A name as in the row database, a path, or the last part of one")
                 ->required());
  }
  void addTables(CLI::App& app) {
    complete(app.add_option("TABLE", options_.tables, "Tables; without any, all"));
  }

  CommandLine& line_;
  Options& options_;

 private:
  // The program itself says which tables there are.
  void complete(CLI::Option* name) {
    line_.complete(name, Words::from(line_.about().name +
                                     " tables --format plain --no-headings --columns name"));
  }

  std::vector<std::pair<CLI::App*, Command>> commands_;
};

}  // namespace Tools
