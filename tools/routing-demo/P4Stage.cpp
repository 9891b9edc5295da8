#include "tools/routing-demo/P4Stage.h"

#include <fmt/format.h>
#include <sys/wait.h>

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>

#include "platform/Shoal/SharedTable.h"
#include "tools/routing-demo/Process.h"

namespace Demo {
namespace {

using P4RuntimeRouting::IpVrfPrefixTableTraits;

constexpr uint32_t routesPerFamily = 1000;
// Out of the way of what the row database has been given.
constexpr uint32_t vrf = 4242;
constexpr uint32_t group = 1000001;
constexpr uint32_t firstMember = 1000001;
constexpr uint32_t members = 8;
constexpr int32_t groupDestination = 2;

std::string firstLine(const std::filesystem::path& file) {
  std::ifstream in(file);
  std::string line;
  if (!std::getline(in, line)) {
    throw std::runtime_error(file.string() + ": expected the address that the agent listens at");
  }
  return line;
}

class VrfTable {
 public:
  VrfTable(const std::filesystem::path& root, Table table) {
    const auto layout = P4RuntimeRouting::IpVrfPrefixTable("routes").layout();
    map_.storeIs(Shoal::attachReader(root, nameOf(table).path, layout));
  }
  bool leadsToTheGroup(const Wire::IpGenPrefix& prefix) const {
    bool found = false;
    const auto entry = map_.safeLookup({vrf, prefix}, found);
    return found && entry.valid && entry.destinationType == groupDestination &&
           entry.destinationId == group;
  }

 private:
  Shoal::ShoalMap<IpVrfPrefixTableTraits::Key, IpVrfPrefixTableTraits::Entry> map_;
};

}  // namespace

P4Stage::P4Stage(const Model& model, std::filesystem::path root,
                 const std::filesystem::path& runDirectory, Report& report)
    : root_(std::move(root)),
      address_(firstLine(runDirectory / "p4runtime.addr")),
      report_(report) {
  for (const Table table : {Table::ipv4Override, Table::ipv6Override}) {
    P4RuntimeRouting::IpDestination entry;
    for (uint32_t i = 0; i < std::min(model.count(table), routesPerFamily); ++i) {
      model.make(table, i, 1, entry);
      routes_.push_back(entry.destinationPrefix);
    }
  }
}

void P4Stage::run() {
  if (routes_.empty()) return;
  const uint64_t objects = members + 1;
  client("programmed through P4Runtime", "program", routes_.size() + objects);
  client("read back through P4Runtime", "verify", routes_.size());
  expectShared(true);
  client("deleted through P4Runtime", "delete", routes_.size() + objects);
  expectShared(false);
}

void P4Stage::client(const std::string& what, const char* command, uint64_t expected) {
  report_.progress(what);
  const Stopwatch watch;
  Process client(
      "p4rt-client",
      {siblingProgram("p4rt-client"), "--json", "--address", address_, command, "--prefixes", "-",
       "--table", "vrf", "--vrf", std::to_string(vrf), "--group", std::to_string(group),
       "--first-member", std::to_string(firstMember), "--members", std::to_string(members)});
  std::string list;
  for (const auto& prefix : routes_) list += prefix.text() + "\n";
  client.write(list);
  client.closeInput();
  const auto answer = nlohmann::json::parse(client.readLine());
  report_.step(what, expected, watch.seconds());
  if (answer.at("done") != expected || answer.at("failed") != 0) {
    report_.wrong(fmt::format("p4rt-client {}: expected {} done and none failed, found {}", command,
                              expected, answer.dump()));
  }
}

void P4Stage::expectShared(bool there) {
  const VrfTable ipv4(root_, Table::ipv4VrfPrefix);
  const VrfTable ipv6(root_, Table::ipv6VrfPrefix);
  const Stopwatch watch;
  uint64_t found = 0;
  for (const auto& prefix : routes_) {
    const VrfTable& table = prefix.family == Wire::AddressFamily::ipv4 ? ipv4 : ipv6;
    found += table.leadsToTheGroup(prefix);
  }
  if (there) report_.step("found in shared memory", found, watch.seconds());
  const uint64_t expected = there ? routes_.size() : 0;
  if (found != expected) {
    report_.wrong(fmt::format("routes through P4Runtime in shared memory: expected {}, found {}",
                              expected, found));
  }
}

}  // namespace Demo
