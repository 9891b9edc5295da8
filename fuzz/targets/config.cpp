// The agent's command line and configuration file: options within their ranges, or an exit status
// with a message that names the option, or the file, its line and what is wrong with it.
//
//   arguments, one a line; then a line that is empty; then the configuration file
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "agent/Options.h"
#include "agent/Tables.h"
#include "fuzz/Fuzz.h"

namespace {

using Agent::Options;
using Fuzz::need;

class ConfigFile {
 public:
  ConfigFile() : fd_(::memfd_create("config", MFD_CLOEXEC)) {}
  std::string holding(std::string_view text) const {
    need(::ftruncate(fd_, 0) == 0 &&
             ::pwrite(fd_, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()),
         "the configuration can be written");
    return "/proc/self/fd/" + std::to_string(fd_);
  }

 private:
  int fd_;
};

// What the parser says to people while this lives.
class Said {
 public:
  Said() : before_{std::cout.rdbuf(out_.rdbuf()), std::cerr.rdbuf(err_.rdbuf())} {}
  Said(const Said&) = delete;
  Said& operator=(const Said&) = delete;
  ~Said() {
    std::cout.rdbuf(before_[0]);
    std::cerr.rdbuf(before_[1]);
  }
  std::string out() const { return out_.str(); }
  std::string err() const { return err_.str(); }

 private:
  std::ostringstream out_;
  std::ostringstream err_;
  std::streambuf* before_[2];
};

struct Outcome {
  Agent::ParsedOptions parsed;
  std::string out;
  std::string err;
};

Outcome parse(std::vector<std::string> arguments) {
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  const Said said;
  Outcome outcome{Agent::parseOptions(static_cast<int>(arguments.size()), argv.data()), {}, {}};
  outcome.out = said.out();
  outcome.err = said.err();
  return outcome;
}

void checkRemote(const Agent::RemoteOptions& remote, bool once) {
  const auto isIn = [](uint32_t value, uint32_t most) { return value >= 1 && value <= most; };
  need(remote.deviceId >= 1, "a device has a number");
  need(isIn(remote.messageMiB, 2047) && isIn(remote.streamsPerRole, 10000) &&
           isIn(remote.connections, 10000) && isIn(remote.calls, 10000) &&
           isIn(remote.updates, 100'000'000) && isIn(remote.waiting, 10000) &&
           isIn(remote.callSeconds, 86400) && isIn(remote.watches, 10000) &&
           isIn(remote.keepAliveSeconds, 86400),
       "limits are in their ranges");
  need(std::ranges::find(remote.listen, "none") == remote.listen.end(), "none is no address");
  need(once || remote.isListenGiven || !remote.listen.empty(),
       "an agent listens unless told not to");
  need(remote.tlsCertificate.empty() == remote.tlsKey.empty() &&
           remote.tlsKey.empty() == remote.tlsAuthority.empty(),
       "all files of TLS, or none");
  need(!remote.runDir.empty(), "there is a place for sockets");
  need(remote.rowSocket != "none", "none is no socket");
}

void check(const Options& options) {
  need(!options.plugins.empty(), "there is a plug-in");
  for (const auto& [path, entries] : options.capacities) {
    const Agent::TableInfo* table = Agent::tableInfo(path);
    need(table != nullptr && table->path == path, "a capacity is of a table, by its path");
    need(entries >= 1, "a capacity is of an entry at least");
  }
  need(options.defaultCapacity.value_or(1) >= 1, "a capacity is of an entry at least");
  need(options.onExit <= Agent::OnExit::detach, "an end that there is");
  need(options.logLevel <= Agent::LogLevel::debug, "a level that there is");
  checkRemote(options.remote, options.once);
}

// "--option: ..." or "<file>: line <n>: ...", with a line that the file has.
void checkRefusal(const Outcome& outcome, const std::string& file, size_t lines) {
  need(!outcome.err.empty(), "who is refused is told why");
  need(outcome.err.size() < 100'000, "in few words");
  const std::string place = file + ": line ";
  if (!outcome.err.starts_with(place)) return;
  const size_t line = std::stoul(outcome.err.substr(place.size(), 12));
  need(line >= 1 && line <= lines + 1, "a line of the file is named");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const ConfigFile configFile;
  std::string_view left(reinterpret_cast<const char*>(data), size);
  std::vector<std::string> arguments{"p4rt-agent"};
  while (!left.empty()) {
    const size_t end = left.find('\n');
    std::string argument(left.substr(0, end));
    left.remove_prefix(end == std::string_view::npos ? left.size() : end + 1);
    if (argument.empty()) break;
    // The file is given below; one of the fuzzer's choice may be a device that has no end.
    if (argument.starts_with("--conf") || argument == "--check-config") continue;
    arguments.emplace_back(argument.c_str());
  }
  const std::string file = configFile.holding(left);
  if (!left.empty()) arguments.push_back("--config=" + file);
  const auto lines = static_cast<size_t>(std::ranges::count(left, '\n'));

  const Outcome outcome = parse(arguments);
  const auto status = outcome.parsed.exitStatus;
  if (!status) {
    check(outcome.parsed.options);
  } else if (*status == 0) {
    need(!outcome.out.empty(), "help is given");
  } else {
    need(*status == 2, "wrong usage has its status");
    checkRefusal(outcome, file, lines);
  }
  return 0;
}
