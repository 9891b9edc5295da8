#include "agent/Options.h"

#include <fmt/format.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <charconv>
#include <cstdlib>

#include "agent/ConfigFile.h"
#include "agent/Tables.h"

namespace Agent {
namespace {

namespace fs = std::filesystem;

constexpr const char* defaultPlugin = "libP4RuntimeRoutingVane.so";
constexpr const char* defaultListen = "127.0.0.1:9559";
constexpr int usageError = 2;

// Beside the program as it is built, or as it is installed.
fs::path defaultPluginFile() {
  const fs::path prefix = fs::read_symlink("/proc/self/exe").parent_path().parent_path();
  const fs::path built = prefix / "lib" / defaultPlugin;
  if (fs::exists(built)) return built;
  const fs::path installed = prefix / AGENT_PLUGIN_DIR / defaultPlugin;
  return fs::exists(installed) ? installed : built;
}

// The same as everyone's who attaches to the tables.
fs::path defaultRoot() {
  if (const char* root = std::getenv("SHOAL_ROOT"); root != nullptr && *root != '\0') return root;
  return fmt::format("/dev/shm/shoal-{}", ::getuid());
}

// The agent's own files, beside the tables of its root.
fs::path defaultRunDir(const fs::path& shoalRoot) {
  if (const char* dir = std::getenv("P4RT_RUN_DIR"); dir != nullptr && *dir != '\0') return dir;
  fs::path named = shoalRoot.has_filename() ? shoalRoot : shoalRoot.parent_path();
  return named += ".run";
}

// "TABLE=N"; the table by name or path.
std::pair<std::string, uint32_t> parseCapacity(const std::string& text) {
  const size_t equals = text.find('=');
  const TableInfo* table = tableInfo(std::string_view(text).substr(0, equals));
  uint32_t entries = 0;
  if (equals != std::string::npos) {
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data() + equals + 1, end, entries);
    if (error != std::errc() || stop != end) entries = 0;
  }
  if (table == nullptr || entries == 0) {
    std::string names;
    for (const TableInfo& known : routingTables()) {
      names += fmt::format("{}{}", names.empty() ? "" : ", ", known.name);
    }
    throw CLI::ValidationError(
        "--capacity",
        fmt::format("expected TABLE=ENTRIES with 1 to 4294967295 entries and one of {}; "
                    "found \"{}\"",
                    names, text));
  }
  return {std::string(table->path), entries};
}

void addRemoteOptions(CLI::App& app, RemoteOptions& remote) {
  app.add_option(
         "--listen", remote.listen,
         std::string("Address for P4Runtime clients: ADDRESS:PORT, [ADDRESS]:PORT, unix:PATH, "
                     "or none; port 0 is any; may be repeated (default: ") +
             defaultListen + "; with --once: none)")
      ->allow_extra_args(false);
  app.add_option("--device-id", remote.deviceId, "The device's number for P4Runtime clients")
      ->check(CLI::Range(uint64_t{1}, UINT64_MAX))
      ->capture_default_str();
  app.add_option("--pipeline", remote.ownPipeline,
                 "The pipeline until a client sets one: own or none (default: own)")
      ->transform(CLI::Transformer(std::map<std::string, bool>{{"own", true}, {"none", false}}));
  app.add_option("--tls-cert", remote.tlsCertificate, "The agent's certificate, PEM");
  app.add_option("--tls-key", remote.tlsKey, "The key of the certificate, PEM");
  app.add_option("--tls-ca", remote.tlsAuthority,
                 "The authority that signs the clients' certificates, PEM");
  app.add_flag("--allow-plaintext-remote", remote.allowPlaintextRemote,
               "Listen without TLS on addresses that other machines reach");
  app.add_option("--run-dir", remote.runDir,
                 "Directory for the agent's sockets and addresses (default: $P4RT_RUN_DIR, else "
                 "the root of the tables with .run)");
  app.add_option("--rowdb-socket", remote.rowSocket,
                 "Unix socket for vanectl, or none (default: rowdb.sock in --run-dir; with --once: "
                 "none)");
  const auto limit = [&](const char* name, uint32_t& value, uint32_t most, const char* help) {
    app.add_option(name, value, help)->check(CLI::Range(uint32_t{1}, most))->capture_default_str();
  };
  limit("--max-message", remote.messageMiB, 2047, "MiB that a request may have");
  limit("--max-streams", remote.streamsPerRole, 10000, "Streams that a role may have");
  limit("--max-connections", remote.connections, 10000, "Clients with a call under way");
  limit("--max-calls", remote.calls, 10000, "Calls under way");
  limit("--max-updates", remote.updates, 100'000'000, "Updates that a write may have");
  limit("--max-waiting", remote.waiting, 10000, "Calls that wait for the tables");
  limit("--max-call-time", remote.callSeconds, 86400, "Seconds that a call may take");
  limit("--max-watches", remote.watches, 10000, "Watches of the row database under way");
  limit("--keep-alive", remote.keepAliveSeconds, 86400,
        "Seconds after which a silent client is asked whether it lives");
}

// What one option alone cannot tell.
void finishRemoteOptions(Options& options) {
  RemoteOptions& remote = options.remote;
  remote.isListenGiven = !remote.listen.empty();
  const bool isNone = std::erase(remote.listen, "none") != 0;
  if (isNone && !remote.listen.empty()) {
    throw CLI::ValidationError("--listen", "expected addresses, or none alone");
  }
  if (!remote.isListenGiven && !options.once) remote.listen.push_back(defaultListen);
  const bool some =
      !remote.tlsCertificate.empty() || !remote.tlsKey.empty() || !remote.tlsAuthority.empty();
  const bool all =
      !remote.tlsCertificate.empty() && !remote.tlsKey.empty() && !remote.tlsAuthority.empty();
  if (some && !all) {
    throw CLI::ValidationError("--tls-cert, --tls-key, --tls-ca", "expected all three or none");
  }
  if (remote.runDir.empty()) remote.runDir = defaultRunDir(options.shoalRoot);
  remote.isRowSocketGiven = !remote.rowSocket.empty();
  if (remote.rowSocket == "none") {
    remote.rowSocket.clear();
  } else if (!remote.isRowSocketGiven && !options.once) {
    remote.rowSocket = remote.runDir / "rowdb.sock";
  }
}

}  // namespace

ParsedOptions parseOptions(int argc, char** argv) {
  ParsedOptions parsed;
  Options& options = parsed.options;
  options.shoalRoot = defaultRoot();
  std::vector<std::string> capacities;
  bool quiet = false;

  CLI::App app(
      "Serves the switch's routing tables: loads plug-ins, publishes their tables and takes rows.\n"
      "Ends on SIGINT or SIGTERM.");
  app.name("p4rt-agent");
  app.add_option("--plugin", options.plugins,
                 std::string("Plug-in library to load; may be repeated (default: ") +
                     defaultPlugin + " beside the program)")
      ->allow_extra_args(false);
  app.add_option("--shoal-root", options.shoalRoot, "Directory of the shared tables")
      ->capture_default_str();
  app.add_option("--capacity", capacities,
                 "TABLE=ENTRIES: room for that many entries; may be repeated")
      ->allow_extra_args(false);
  app.add_option("--default-capacity", options.defaultCapacity,
                 "Room of every table that --capacity does not name")
      ->check(CLI::Range(uint32_t{1}, uint32_t{4294967295}));
  app.add_option("--on-exit", options.onExit,
                 "What becomes of the tables at the end: keep, empty or detach (default: keep)")
      ->transform(CLI::Transformer(std::map<std::string, OnExit>{
          {"keep", OnExit::keep}, {"empty", OnExit::empty}, {"detach", OnExit::detach}}));
  app.add_option("--load", options.load,
                 "Rows to load: a file of JSON lines, or - for standard input");
  app.add_option("--prefixes", options.prefixes,
                 "A file of prefixes, one a line, plain or gzip; may be repeated")
      ->allow_extra_args(false);
  app.add_flag("--strict", options.strict, "End at the first line that cannot be used");
  app.add_flag("--once", options.once, "End when the inputs have ended");
  app.add_flag("--follow", options.follow,
               "Follow every table as a reader and account for the changes in the reports");
  app.add_flag("--status", options.status,
               "Report the tables on standard output, as JSON, when the inputs have ended");
  app.add_flag("--print-p4info", options.printP4Info,
               "Print the P4Info that controllers are offered, and end");
  fs::path config;
  bool checkConfig = false;
  auto* configOption =
      app.add_option("--config", config, "A TOML file with options as keys; the command line wins");
  app.add_flag("--check-config", checkConfig, "Read the configuration, say what is wrong, and end")
      ->needs(configOption);
  addRemoteOptions(app, options.remote);
  auto* level = app.add_option("--log-level", options.logLevel,
                               "error, warning, info or debug (default: info)")
                    ->transform(CLI::Transformer(
                        std::map<std::string, LogLevel>{{"error", LogLevel::error},
                                                        {"warning", LogLevel::warning},
                                                        {"info", LogLevel::info},
                                                        {"debug", LogLevel::debug}}));
  app.add_flag("--quiet", quiet, "The same as --log-level error")->excludes(level);

  try {
    app.parse(argc, argv);
    if (!config.empty()) applyConfigFile(config, app);
    for (const std::string& text : capacities) options.capacities.insert(parseCapacity(text));
    finishRemoteOptions(options);
  } catch (const CLI::ParseError& error) {
    parsed.exitStatus = app.exit(error) == 0 ? 0 : usageError;
    return parsed;
  }
  if (checkConfig) {
    fmt::print("{}: nothing is wrong\n", config.string());
    parsed.exitStatus = 0;
    return parsed;
  }
  if (quiet) options.logLevel = LogLevel::error;
  if (options.plugins.empty()) options.plugins.push_back(defaultPluginFile());
  return parsed;
}

}  // namespace Agent
