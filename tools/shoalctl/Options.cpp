#include "tools/shoalctl/Options.h"

#include <CLI/CLI.hpp>

#include "platform/Shoal/SharedTable.h"
#include "tools/shoalctl/Failure.h"

namespace ShoalCtl {

ParsedOptions parseOptions(int argc, char** argv) {
  ParsedOptions parsed;
  Options& options = parsed.options;
  options.root = Shoal::defaultRoot();

  CLI::App app(
      "Shows the switch's routing tables, straight from shared memory; the agent need not run.\n\n"
      "  shoalctl tables\n"
      "  shoalctl show VaneIpv4Override\n"
      "  shoalctl show VaneIpv4Override 10.0.0.0/8\n"
      "  shoalctl --json show ipv4VrfPrefixTable 5,10.0.0.0/8");
  app.name("shoalctl");
  app.require_subcommand(1);
  app.fallthrough();
  app.add_option("--root", options.root, "Directory of the shared tables")->capture_default_str();
  app.add_flag("--json", options.json, "One JSON object a line");
  app.add_subcommand("tables", "What each table is and holds");
  CLI::App* show = app.add_subcommand("show", "The entries of a table, or the one of a key");
  show->add_option("TABLE", options.table, "Name in the row database, or path")->required();
  show->add_option("KEY", options.key,
                   "A prefix; VRF,PREFIX; or the number of a member, group or encap");

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    parsed.exitStatus = app.exit(error) == 0 ? 0 : static_cast<int>(ExitStatus::usage);
    return parsed;
  }
  options.command = *show ? Options::Command::show : Options::Command::tables;
  return parsed;
}

}  // namespace ShoalCtl
