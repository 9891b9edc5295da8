#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <exception>

#include "platform/Shoal/CutShort.h"
#include "tools/routing-demo/Demo.h"
#include "tools/routing-demo/Process.h"
#include "tools/routing-demo/Reader.h"

namespace {

constexpr int failed = 1;
constexpr int usageError = 2;
constexpr int interruptedStatus = 130;

void addModelOptions(CLI::App& app, Demo::ModelSettings& model) {
  const auto number = [&](const char* name, uint32_t& value, uint32_t least, uint32_t most,
                          const char* help) {
    app.add_option(name, value, help)->check(CLI::Range(least, most))->capture_default_str();
  };
  app.add_option("--seed", model.seed, "Seed of the generated table")->capture_default_str();
  number("--ipv4", model.ipv4, 0, 4000000, "IPv4 prefixes to generate");
  number("--ipv6", model.ipv6, 0, 4000000, "IPv6 prefixes to generate");
  number("--members", model.members, 1, 1000000, "ECMP members");
  number("--groups", model.groups, 0, 100000,
         "ECMP groups; the first has every member, up to 1024");
  number("--encaps", model.encaps, 0, 65535, "Encapsulations per family");
  app.add_option("--prefixes", model.prefixFiles,
                 "A file of prefixes, one a line, plain or gzip, instead of generated ones; may be "
                 "repeated")
      ->allow_extra_args(false)
      ->check(CLI::ExistingFile);
}

int run(int argc, char** argv) {
  Demo::DemoOptions options;
  options.agent = Demo::siblingProgram("p4rt-agent");
  CLI::App app(
      "Starts an agent, programs a routing table through it, reads it back in a second process,\n"
      "follows every change, updates and deletes a part, checks again, and cleans up.");
  app.name("routing-demo");
  addModelOptions(app, options.model);
  app.add_flag("--once", options.once, "End when everything has been checked");
  app.add_flag("--rows-only", options.rowsOnly, "Leave out the part that goes through P4Runtime");
  app.add_flag("--quiet", options.quiet, "Print the verdict only");
  app.add_option(
      "--root", options.root,
      "Directory of the shared tables (default: a fresh one that is removed at the end)");
  app.add_option("--agent", options.agent, "The agent's program")->capture_default_str();
  app.add_option("--plugin", options.plugin, "The plug-in (default: the agent's)");
  app.add_option("--on-exit", options.onExit, "How the agent cleans up: detach or empty")
      ->check(CLI::IsMember({"detach", "empty"}))
      ->capture_default_str();

  // The second process: this program again, started by the first.
  CLI::App* verify = app.add_subcommand("verify", "")->group("");
  Demo::ModelSettings readerModel;
  std::string readerRoot;
  addModelOptions(*verify, readerModel);
  verify->add_option("--root", readerRoot)->required();

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : usageError;
  }
  if (*verify) {
    Shoal::endWhenCutShort("routing-demo", failed);
    return Demo::runReader(Demo::Model(readerModel), readerRoot);
  }
  return Demo::runDemo(options);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const Demo::Interrupted&) {
    fmt::print(stderr, "\nrouting-demo: interrupted\n");
    return interruptedStatus;
  } catch (const std::exception& failure) {
    fmt::print(stderr, "routing-demo: {}\n", failure.what());
    return failed;
  }
}
