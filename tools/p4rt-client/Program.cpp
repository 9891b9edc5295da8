#include "tools/p4rt-client/Program.h"

#include <fmt/format.h>

#include <fstream>
#include <iostream>
#include <map>
#include <ranges>
#include <set>
#include <unordered_map>

#include "tools/common/Exit.h"

namespace P4Client {
namespace {

using Tools::ExitCode;
using Tools::Failure;

// A next hop that can be told from the others: its own port and MAC.
std::string valueOf(const std::string& param, uint32_t id) {
  constexpr uint64_t localMac = 0x020000000000;
  if (param == "egress_port") return byteString(1 + id % 64);
  if (param == "src_mac") return byteString(localMac + 1);
  if (param == "dst_mac") return byteString(localMac + 0x10000 + id);
  if (param == "vlan_tagged") return byteString(1);
  if (param == "vlan_id") return byteString(1 + id % 4094);
  return byteString(0);
}

auto memberIds(const RouteSettings& settings) {
  return std::views::iota(settings.firstMember, settings.firstMember + settings.members);
}

// Equal for entries of one key, however their match fields are ordered.
std::string keyOf(const p4::v1::TableEntry& entry) {
  std::map<uint32_t, std::string> fields;
  for (const auto& match : entry.match()) fields[match.field_id()] = match.SerializeAsString();
  std::string key = std::to_string(entry.table_id());
  for (const auto& [id, field] : fields) key += field;
  return key;
}

}  // namespace

Batches::Batches(Client& client, Sending sending)
    : client_(client),
      size_(sending.batch),
      writes_(client, sending.inFlight, [this](const auto& results, auto) {
        for (const p4::v1::Error& result : results) {
          if (result.canonical_code() == grpc::StatusCode::OK) {
            ++tally_.applied;
          } else {
            if (tally_.failed++ == 0) tally_.firstFailure = result.message();
          }
        }
      }) {}

p4::v1::Entity& Batches::next(p4::v1::Update::Type type) {
  if (request_ && static_cast<uint32_t>(request_->updates_size()) >= size_) send();
  if (!request_) {
    request_ = google::protobuf::Arena::CreateMessage<p4::v1::WriteRequest>(&arena_);
    client_.begin(*request_);
  }
  auto& update = *request_->add_updates();
  update.set_type(type);
  return *update.mutable_entity();
}

void Batches::send() {
  if (!request_) return;
  writes_.put(*request_);
  request_ = nullptr;
  arena_.Reset();
}

void Batches::flush() {
  send();
  writes_.finish();
}

void programMembers(const Catalog& catalog, const RouteSettings& settings, Batches& batches) {
  const auto& profile = catalog.profile("ecmp");
  const auto& action = catalog.action("set_nexthop");
  for (uint32_t id : memberIds(settings)) {
    auto& member = *batches.next(p4::v1::Update::INSERT).mutable_action_profile_member();
    member.set_action_profile_id(profile.preamble().id());
    member.set_member_id(id);
    for (const auto& param : action.params()) {
      Catalog::argument(action, param.name(), valueOf(param.name(), id), *member.mutable_action());
    }
  }
  batches.flush();
  if (settings.group == 0) return;
  auto& group = *batches.next(p4::v1::Update::INSERT).mutable_action_profile_group();
  group.set_action_profile_id(profile.preamble().id());
  group.set_group_id(settings.group);
  for (uint32_t id : memberIds(settings)) {
    auto& member = *group.add_members();
    member.set_member_id(id);
    member.set_weight(1);
  }
  batches.flush();
}

void deleteMembers(const Catalog& catalog, const RouteSettings& settings, Batches& batches) {
  const uint32_t profile = catalog.profile("ecmp").preamble().id();
  if (settings.group != 0) {
    auto& group = *batches.next(p4::v1::Update::DELETE).mutable_action_profile_group();
    group.set_action_profile_id(profile);
    group.set_group_id(settings.group);
    batches.flush();
  }
  for (uint32_t id : memberIds(settings)) {
    auto& member = *batches.next(p4::v1::Update::DELETE).mutable_action_profile_member();
    member.set_action_profile_id(profile);
    member.set_member_id(id);
  }
  batches.flush();
}

void putRoute(const Catalog& catalog, const RouteSettings& settings,
              const Wire::IpGenPrefix& prefix, uint64_t number, p4::v1::TableEntry& entry) {
  const bool vrf = settings.kind == "vrf";
  const auto& table = catalog.table(
      fmt::format("{}.{}", prefix.family == Wire::AddressFamily::ipv4 ? "ipv4" : "ipv6",
                  vrf ? "vrf_prefix" : settings.kind));
  entry.set_table_id(table.preamble().id());
  if (vrf) Catalog::match(table, "vrf_id", settings.vrf, entry);
  Catalog::match(table, vrf ? "prefix" : "destination_prefix", prefix, entry);
  if (settings.group != 0) {
    entry.mutable_action()->set_action_profile_group_id(settings.group);
  } else {
    entry.mutable_action()->set_action_profile_member_id(settings.firstMember +
                                                         number % settings.members);
  }
}

Tally verifyRoutes(Client& client, const Catalog& catalog, const RouteSettings& settings,
                   const std::vector<Wire::IpGenPrefix>& prefixes) {
  std::unordered_map<std::string, std::string> expected;  // key to action
  std::set<uint32_t> tables;
  for (size_t i = 0; i < prefixes.size(); ++i) {
    p4::v1::TableEntry entry;
    putRoute(catalog, settings, prefixes[i], i, entry);
    tables.insert(entry.table_id());
    expected[keyOf(entry)] = entry.action().SerializeAsString();
  }
  auto query = client.newRead();
  for (const uint32_t table : tables) {
    query.add_entities()->mutable_table_entry()->set_table_id(table);
  }
  Tally tally;
  client.read(query, [&](const p4::v1::ReadResponse& answer) {
    for (const auto& entity : answer.entities()) {
      const auto found = expected.find(keyOf(entity.table_entry()));
      if (found == expected.end()) continue;
      if (found->second == entity.table_entry().action().SerializeAsString()) {
        ++tally.applied;
      } else if (tally.failed++ == 0) {
        tally.firstFailure = "found " + entity.ShortDebugString();
      }
      expected.erase(found);
    }
  });
  if (!expected.empty() && tally.failed == 0) tally.firstFailure = "routes are absent";
  tally.failed += expected.size();
  return tally;
}

std::vector<Wire::IpGenPrefix> readPrefixes(const std::string& file) {
  std::ifstream opened;
  if (file != "-") opened.open(file);
  std::istream& in = file == "-" ? std::cin : opened;
  if (!in) throw Failure(ExitCode::absent, file + ": cannot be read");
  std::vector<Wire::IpGenPrefix> prefixes;
  std::string line;
  for (uint64_t number = 1; std::getline(in, line); ++number) {
    if (line.empty() || line.front() == '#') continue;
    const auto prefix = Wire::IpGenPrefix::parse(line);
    if (!prefix) {
      throw Failure(ExitCode::usage, fmt::format("{}: line {}: expected a prefix such as "
                                                 "10.0.0.0/8, found \"{}\"",
                                                 file, number, line));
    }
    prefixes.push_back(*prefix);
  }
  return prefixes;
}

}  // namespace P4Client
