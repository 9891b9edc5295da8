#include "tools/routing-demo/Model.h"

#include <algorithm>
#include <utility>

#include "tools/routing-demo/Prefixes.h"

namespace Demo {
namespace {

using Wire::IpGenAddr;
using Wire::IpGenPrefix;

constexpr uint32_t vrfs = 16;

// A well-mixed 64-bit value of another one (the finishing steps of SplitMix64).
constexpr uint64_t mixed(uint64_t x) {
  x += 0x9E3779B97F4A7C15;
  x = (x ^ x >> 30) * 0xBF58476D1CE4E5B9;
  x = (x ^ x >> 27) * 0x94D049BB133111EB;
  return x ^ x >> 31;
}

// A locally administered MAC: 02, then the low 40 bits of `value`.
Wire::EthAddr mac(uint64_t value) {
  Wire::EthAddr made;
  made.bytes[0] = 0x02;
  for (size_t i = 1; i < made.bytes.size(); ++i)
    made.bytes[i] = static_cast<uint8_t>(value >> 8 * (5 - i));
  return made;
}

// An address out of 10.0.0.0/8 or 2001:db8::/32.
IpGenAddr tunnelAddress(bool ipv6, uint64_t value) {
  if (!ipv6) return IpGenAddr::ipv4(0x0A000000 | (value & 0x00FFFFFF));
  Wire::Ip6Addr address{{0x20, 0x01, 0x0D, 0xB8}};
  for (size_t i = 0; i < 8; ++i) address.bytes[8 + i] = static_cast<uint8_t>(value >> 8 * (7 - i));
  return IpGenAddr::ipv6(address);
}

bool isEcmp(Table table) { return table == Table::ecmpMember || table == Table::ecmpGroup; }

}  // namespace

const TableName& nameOf(Table table) {
  static constexpr std::array<TableName, tableCount> names{{
      {"VaneEcmpMember", "p4runtime/outputTables/routing/ecmpMemberTable"},
      {"VaneEcmpGroup", "p4runtime/outputTables/routing/ecmpGroupTable"},
      {"VaneIpv4Override", "p4runtime/outputTables/routing/ipv4OverrideTable"},
      {"VaneIpv4Fallback", "p4runtime/outputTables/routing/ipv4FallbackTable"},
      {"VaneIpv4VrfPrefix", "p4runtime/outputTables/routing/ipv4VrfPrefixTable"},
      {"VaneIpv6Override", "p4runtime/outputTables/routing/ipv6OverrideTable"},
      {"VaneIpv6Fallback", "p4runtime/outputTables/routing/ipv6FallbackTable"},
      {"VaneIpv6VrfPrefix", "p4runtime/outputTables/routing/ipv6VrfPrefixTable"},
      {"VaneIpv4Encap", "routing/l2nexthopgroup/ipv4EncapTable"},
      {"VaneIpv6Encap", "routing/l2nexthopgroup/ipv6EncapTable"},
  }};
  return names[static_cast<size_t>(table)];
}

Model::Model(ModelSettings settings) : settings_(std::move(settings)) {
  PrefixLists lists = settings_.prefixFiles.empty()
                          ? generatedPrefixes(settings_.seed, settings_.ipv4, settings_.ipv6)
                          : readPrefixes(settings_.prefixFiles);
  duplicates_ = lists.duplicates;
  spread(lists.ipv4, Table::ipv4Override);
  spread(lists.ipv6, Table::ipv6Override);
}

// Five of ten to the override table, three to the fallback table, two to the VRF table.
void Model::spread(const std::vector<IpGenPrefix>& prefixes, Table first) {
  for (size_t i = 0; i < prefixes.size(); ++i) {
    const size_t digit = i % 10;
    const size_t kind = digit < 5 ? 0 : digit < 8 ? 1 : 2;
    prefixes_[static_cast<size_t>(first) + kind].push_back(prefixes[i]);
  }
}

uint32_t Model::count(Table table) const {
  switch (table) {
    case Table::ecmpMember:
      return settings_.members;
    case Table::ecmpGroup:
      return settings_.groups;
    case Table::ipv4Encap:
    case Table::ipv6Encap:
      return settings_.encaps;
    default:
      return static_cast<uint32_t>(prefixes_[static_cast<size_t>(table)].size());
  }
}

// Members and groups stay: routes refer to them.
bool Model::isDeleted(Table table, uint32_t i, Stage stage) const {
  return stage == Stage::changed && !isEcmp(table) && i % 20 == 7;
}

Model::Work Model::work(Table table, Stage stage) const {
  Work work;
  for (uint32_t i = 0; i < count(table); ++i) {
    work.sets += stage == Stage::programmed || isUpdated(i, stage);
    work.deletes += isDeleted(table, i, stage);
  }
  return work;
}

Model::Work Model::workUpTo(Table table, Stage last) const {
  Work total;
  for (const Stage stage : stages) {
    if (stage > last) break;
    const Work some = work(table, stage);
    total.sets += some.sets;
    total.deletes += some.deletes;
  }
  return total;
}

uint64_t Model::liveEntries(Table table, Stage after) const {
  return count(table) - work(table, after).deletes;
}

uint64_t Model::random(Table table, uint32_t i, uint32_t version, uint32_t use) const {
  const uint64_t what = uint64_t{i} << 16 | uint64_t{version} << 8 | use;
  return mixed(mixed(settings_.seed * tableCount + static_cast<uint64_t>(table)) ^ what);
}

template <class Entry>
void Model::makeCommon(Table table, uint32_t i, uint32_t version, Entry& entry) const {
  entry = Entry{};
  entry.genId = version;
  entry.entryHandle = (static_cast<uint64_t>(table) + 1) << 32 | (i + 1);
  entry.valid = true;
  entry.entryId = 0x02000000 + static_cast<uint32_t>(table);
}

// A member (1) for one in four routes, a group (2) for the others.
template <class Entry>
void Model::makeDestination(Table table, uint32_t i, uint32_t version, Entry& entry) const {
  const uint64_t choice = random(table, i, version, 1);
  const bool member = settings_.groups == 0 || choice % 4 == 0;
  entry.destinationType = member ? 1 : 2;
  const uint32_t choices = std::max(1u, member ? settings_.members : settings_.groups);
  entry.destinationId = 1 + static_cast<uint32_t>((choice >> 8) % choices);
}

void Model::make(Table table, uint32_t i, uint32_t version,
                 P4RuntimeRouting::IpDestination& entry) const {
  makeCommon(table, i, version, entry);
  makeDestination(table, i, version, entry);
  entry.destinationPrefix = prefixes_[static_cast<size_t>(table)][i];
}

void Model::make(Table table, uint32_t i, uint32_t version,
                 P4RuntimeRouting::VrfPrefixDestination& entry) const {
  makeCommon(table, i, version, entry);
  makeDestination(table, i, version, entry);
  entry.key.vrfId = 1 + i % vrfs;
  entry.key.prefix = prefixes_[static_cast<size_t>(table)][i];
}

void Model::make(Table table, uint32_t i, uint32_t version,
                 P4RuntimeRouting::NexthopInfo& entry) const {
  makeCommon(table, i, version, entry);
  const uint64_t choice = random(table, i, version, 1);
  entry.id = i + 1;
  entry.egressPort = 1 + static_cast<uint32_t>(choice % 64);
  entry.srcMac = mac(entry.egressPort);
  entry.dstMac = mac(random(table, i, version, 2));
  entry.vlanTagged = (choice >> 8) % 2 != 0;
  entry.encapType = static_cast<int32_t>((choice >> 16) % 3);
  entry.vlanId = entry.vlanTagged ? static_cast<uint16_t>(1 + (choice >> 24) % 4094) : 0;
}

void Model::make(Table table, uint32_t i, uint32_t version,
                 P4RuntimeRouting::EcmpMemberList& entry) const {
  makeCommon(table, i, version, entry);
  const uint64_t choice = random(table, i, version, 1);
  const uint32_t most = std::min(settings_.members, P4RuntimeRouting::EcmpMemberList::slots);
  const uint32_t size = i == 0 ? most : std::min<uint32_t>(most, 2 + choice % 63);
  entry.id = i + 1;
  for (uint32_t place = 0; place < size; ++place) {
    const uint32_t member = 1 + static_cast<uint32_t>(((choice >> 8) + place) % settings_.members);
    entry.memberIs(P4RuntimeRouting::MemberIndex(place), member);
    entry.watchIs(P4RuntimeRouting::MemberIndex(place),
                  P4Runtime::P4PortId{static_cast<uint32_t>(1 + mixed(member) % 64)});
  }
}

void Model::make(Table table, uint32_t i, uint32_t version,
                 NexthopGroup::L2NexthopGroupEncap& entry) const {
  const bool ipv6 = table == Table::ipv6Encap;
  entry = {};
  entry.entryHandle = (static_cast<uint64_t>(table) + 1) << 32 | (i + 1);
  entry.encapId = static_cast<NexthopGroup::EncapId>(i + 1);
  entry.encapType = static_cast<int32_t>(version);
  entry.srcAddr = tunnelAddress(ipv6, i);
  entry.dstAddr = tunnelAddress(ipv6, random(table, i, version, 1));
}

}  // namespace Demo
