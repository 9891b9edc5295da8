// What the demo programs: ten tables of a routing system of realistic shape, made from a seed or
// from lists of prefixes.
//
// Every entry follows from the model's settings, its table, its number and its version, so that a
// second process that knows the settings knows every entry without being told.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

#include "platform/State/EcmpTypes.h"
#include "platform/State/RoutingTypes.h"

namespace Demo {

// In the order in which the row database publishes them.
enum class Table : uint8_t {
  ecmpMember,
  ecmpGroup,
  ipv4Override,
  ipv4Fallback,
  ipv4VrfPrefix,
  ipv6Override,
  ipv6Fallback,
  ipv6VrfPrefix,
  ipv4Encap,
  ipv6Encap,
};
inline constexpr size_t tableCount = 10;

struct TableName {
  const char* row;   // in the row database
  const char* path;  // below the root of the shared tables
};
const TableName& nameOf(Table table);

template <class Visit>
void forEachTable(Visit visit) {
  for (size_t i = 0; i < tableCount; ++i) visit(static_cast<Table>(i));
}

// Calls `visit` with the entity traits of the table's entries, as std::type_identity.
template <class Visit>
decltype(auto) withTraits(Table table, Visit visit) {
  using namespace P4RuntimeRouting;
  switch (table) {
    case Table::ecmpMember:
      return visit(std::type_identity<EcmpMemberTraits>{});
    case Table::ecmpGroup:
      return visit(std::type_identity<EcmpGroupTraits>{});
    case Table::ipv4VrfPrefix:
    case Table::ipv6VrfPrefix:
      return visit(std::type_identity<IpVrfPrefixTableTraits>{});
    case Table::ipv4Encap:
    case Table::ipv6Encap:
      return visit(std::type_identity<NexthopGroup::L2NexthopGroupEncapTableTraits>{});
    default:
      return visit(std::type_identity<IpDestinationTableTraits>{});
  }
}

struct ModelSettings {
  uint64_t seed = 1;
  uint32_t ipv4 = 100000;  // prefixes
  uint32_t ipv6 = 20000;
  uint32_t members = 1024;
  uint32_t groups = 256;                 // the first of which has every member, up to 1024
  uint32_t encaps = 1000;                // per family
  std::vector<std::string> prefixFiles;  // the prefixes, instead of generated ones
};

// What has been done to the tables so far.
enum class Stage : uint8_t {
  programmed = 1,  // every entry was set once
  changed = 2,     // then a tenth was set anew, and a twentieth of the routes and encaps deleted
};
inline constexpr Stage stages[] = {Stage::programmed, Stage::changed};

class Model {
 public:
  // Reads the prefix files; throws std::runtime_error for one that cannot be used.
  explicit Model(ModelSettings settings);

  const ModelSettings& settings() const { return settings_; }
  // Entries that were ever set.
  uint32_t count(Table table) const;

  // What a stage does to entry `i`.
  bool isUpdated(uint32_t i, Stage stage) const { return stage == Stage::changed && i % 10 == 3; }
  bool isDeleted(Table table, uint32_t i, Stage stage) const;
  // After a stage: whether the entry is there, and in which version.
  bool isLive(Table table, uint32_t i, Stage after) const { return !isDeleted(table, i, after); }
  uint32_t version(uint32_t i, Stage after) const { return isUpdated(i, after) ? 2 : 1; }

  struct Work {
    uint64_t sets = 0;
    uint64_t deletes = 0;
  };
  // What a stage has to do in a table, and what has been done up to and including it.
  Work work(Table table, Stage stage) const;
  Work workUpTo(Table table, Stage stage) const;
  uint64_t liveEntries(Table table, Stage after) const;

  // Entry `i` of a table. The low half of entryHandle is i + 1.
  void make(Table table, uint32_t i, uint32_t version,
            P4RuntimeRouting::IpDestination& entry) const;
  void make(Table table, uint32_t i, uint32_t version,
            P4RuntimeRouting::VrfPrefixDestination& entry) const;
  void make(Table table, uint32_t i, uint32_t version, P4RuntimeRouting::NexthopInfo& entry) const;
  void make(Table table, uint32_t i, uint32_t version,
            P4RuntimeRouting::EcmpMemberList& entry) const;
  void make(Table table, uint32_t i, uint32_t version,
            NexthopGroup::L2NexthopGroupEncap& entry) const;

  uint64_t duplicatePrefixes() const { return duplicates_; }

 private:
  void spread(const std::vector<Wire::IpGenPrefix>& prefixes, Table first);
  uint64_t random(Table table, uint32_t i, uint32_t version, uint32_t use) const;
  template <class Entry>
  void makeCommon(Table table, uint32_t i, uint32_t version, Entry& entry) const;
  template <class Entry>
  void makeDestination(Table table, uint32_t i, uint32_t version, Entry& entry) const;

  ModelSettings settings_;
  std::array<std::vector<Wire::IpGenPrefix>, tableCount> prefixes_;
  uint64_t duplicates_ = 0;
};

}  // namespace Demo
