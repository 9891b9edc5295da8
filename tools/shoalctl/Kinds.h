// The kinds of entries that are known here: how they are shown, what their keys look like, and what
// else can be said of them without knowing which table they are in.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/Shoal/TableStore.h"
#include "platform/Wire/Address.h"
#include "tools/common/Output.h"

namespace ShoalCtl {

// Where a route or group leads: the number of a member or of a group.
struct Reference {
  static constexpr int32_t member = 1;
  static constexpr int32_t group = 2;

  int32_t type = 0;
  uint32_t id = 0;
};

// What a route entry says, with or without a routing instance.
struct Route {
  Wire::IpGenPrefix prefix;
  std::optional<uint32_t> vrf;
  Reference to;
};

class Kind {
 public:
  virtual ~Kind() = default;

  // The columns of its rows; `family` is that of the table's addresses, for their width.
  virtual std::vector<Tools::Column> columns(Wire::AddressFamily family) const = 0;
  // Writes a value for each column.
  virtual void write(Shoal::Bytes entry, Tools::RecordWriter& records) const = 0;
  // The row's own JSON form.
  virtual std::string json(Shoal::Bytes entry) const = 0;

  // The key that a person wrote: a prefix, VRF,PREFIX or a number. Throws Failure (usage).
  virtual std::vector<std::byte> parseKey(const std::string& text) const = 0;
  virtual std::string keyText(Shoal::Bytes key) const = 0;

  // What keeps the bytes from being an entry: empty if nothing does. The other functions require
  // that it is. Entries of hostile tables can hold anything.
  virtual std::string fault(Shoal::Bytes entry) const = 0;

  virtual bool isRoute() const = 0;
  virtual bool hasVrf() const = 0;
  // requires: isRoute().
  virtual Route route(Shoal::Bytes entry) const = 0;
  // What the entry leads to, key by key: a route to its member or group, a group to its members.
  virtual std::vector<Reference> references(Shoal::Bytes entry) const = 0;
};

// The kind of a table with entries of this layout; null for one that is not known.
const Kind* kindOf(const Shoal::EntryLayout& layout);

}  // namespace ShoalCtl
