// Which row table stands for what in P4Runtime.
//
// A role is a row table with its P4 name and id; what its columns are follows from the row type's
// signature. Key columns are the key of the P4 entity, a prefix as LPM and anything else as EXACT.
// The columns that row types share are the agent's own. Where an entry points (destinationType,
// destinationId), and the members of a group, have their own form in P4Runtime. All other columns
// are parameters of the table's one action.
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Vane/RowLayout.h"
#include "platform/Vane/VaneDB.h"

namespace Agent::P4 {

inline constexpr uint32_t setNexthopId = 0x01000001;
inline constexpr uint32_t setEncap4Id = 0x01000002;
inline constexpr uint32_t setEncap6Id = 0x01000003;
inline constexpr uint32_t noActionId = 0x01000004;
inline constexpr uint32_t ecmpProfileId = 0x11000001;
inline constexpr std::string_view ecmpProfileName = "routing.ecmp";

// Members and groups with this bit in their id are the agent's: they hold one-shot action sets.
inline constexpr uint32_t reservedIdBit = 0x80000000;
constexpr bool isReservedId(uint32_t id) { return (id & reservedIdBit) != 0; }

// Slots of a group: a member of weight w takes w of them.
inline constexpr uint32_t maxGroupSlots = 1024;

// What destinationType says of destinationId. The numbers are stored.
enum class DestinationType : int32_t { none = 0, member = 1, group = 2 };

enum class Kind : uint8_t { member, group, route, encap };

// A column that clients set: a match field or a parameter.
struct Field {
  uint32_t id = 0;   // in its table or action, from 1
  std::string name;  // the column's name, in lower case with '_'
  size_t index = 0;  // of the column
  Vane::len_t offset = 0;
  Vane::ColumnType type{};
  int width = 0;  // bits
  bool isPrefix() const { return type == Vane::ColumnType::prefix; }
};

// The place of a column of known type; offset 0: the row type has no such column.
template <class T>
struct Place {
  size_t index = 0;
  Vane::len_t offset = 0;
  explicit operator bool() const { return offset != 0; }
};

struct Role {
  size_t index;  // among the roles
  Kind kind;
  std::string rowTable;
  std::string name;   // of the P4 table, or of the profile
  uint32_t id;        // of the P4 table, or of the profile
  uint32_t actionId;  // whose parameters the columns are; 0: none
  std::string actionName;
  Wire::AddressFamily family;
  uint64_t capacity;
  Vane::RowLayout layout;
  Vane::len_t rowTypeId = 0;   // of the database that was given
  Vane::len_t longestRow = 0;  // bytes, with as many elements in its lists as there are slots
  std::vector<Field> keys{};
  std::vector<Field> params{};
  Place<uint64_t> genId{}, entryHandle{};
  Place<bool> valid{};
  Place<uint32_t> entryId{}, destinationId{};
  Place<int32_t> destinationType{};
  Place<std::vector<uint32_t>> members{}, watchPorts{};

  bool isTable() const { return kind == Kind::route || kind == Kind::encap; }

  template <class T>
  T get(const Vane::BaseRow& row, Place<T> place) const {
    if constexpr (std::is_same_v<T, std::vector<uint32_t>>) {
      T elements;
      row.getFixElemArray<uint32_t>(place.offset, elements);
      return elements;
    } else {
      return place ? row.getScalar<T>(place.offset) : T{};
    }
  }
  template <class T>
  void set(Vane::BaseRow& row, Place<T> place, const T& value) const {
    if (place) row.setColumn<T>(place.offset, value, layout.fixedLength());
  }
  Vane::ColumnValue value(const Vane::BaseRow& row, const Field& field) const {
    return layout.value(row, layout.columns()[field.index]);
  }
};

// The key of an entity, of whatever role. Fields that the role's key does not have are zero.
struct EntityKey {
  uint32_t role = 0;
  uint32_t id = 0;
  Wire::IpGenPrefix prefix;

  friend bool operator==(const EntityKey&, const EntityKey&) = default;
};
struct EntityKeyHash {
  size_t operator()(const EntityKey& key) const;
};
EntityKey keyOf(const Role& role, const Vane::BaseRow& row);
inline uint32_t idOf(const Role& role, const Vane::BaseRow& row) { return keyOf(role, row).id; }

struct Destination {
  DestinationType type = DestinationType::none;
  uint32_t id = 0;
  bool isOneShot() const { return type == DestinationType::group && isReservedId(id); }
  friend bool operator==(const Destination&, const Destination&) = default;
};
Destination destinationOf(const Role& route, const Vane::BaseRow& row);

class Roles {
 public:
  // Needs the row types' descriptions, and so a plug-in that is loaded. `capacities`, by row table,
  // comes before what agent/Tables.h says. Rows can be made when a database with the tables is
  // given. Throws VaUnknownName for a row type or table that is not there.
  explicit Roles(const std::map<std::string, uint64_t>& capacities = {},
                 const Vane::VaneDB* database = nullptr);
  Roles(const Roles&) = delete;
  Roles& operator=(const Roles&) = delete;

  std::span<const Role> all() const { return roles_; }
  const Role& member() const { return roles_[0]; }
  const Role& group() const { return roles_[1]; }
  // The P4 tables.
  std::span<const Role> tables() const { return std::span(roles_).subspan(2); }
  // Null for an id that no P4 table has.
  const Role* table(uint32_t id) const;
  // Members of all groups that can be there at once.
  uint64_t profileSize() const { return group().capacity * maxGroupSlots; }

 private:
  std::vector<Role> roles_;
};

}  // namespace Agent::P4
