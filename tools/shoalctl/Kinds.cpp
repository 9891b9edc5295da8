#include "tools/shoalctl/Kinds.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <concepts>
#include <cstring>
#include <type_traits>

#include "platform/Vane/VaneDB.h"
#include "src-includes/P4RuntimeVane/P4RuntimeRoutingEcmpTypesVaneWrappers.h"
#include "src-includes/P4RuntimeVane/P4RuntimeRoutingTypesVaneWrappers.h"
#include "tools/common/Exit.h"

namespace ShoalCtl {
namespace {

using namespace P4RuntimeRouting;
using NexthopGroup::L2NexthopGroupEncap;
using Shoal::Bytes;
using Tools::ExitCode;
using Tools::Failure;
using Wire::AddressFamily;

template <class T>
T valueOf(Bytes bytes) {
  T value;
  std::memcpy(static_cast<void*>(&value), bytes.data(), sizeof value);
  return value;
}

// --- Keys as people write them ------------------------------------------------------------------

template <std::unsigned_integral T>
std::optional<T> parse(const std::string& text, std::type_identity<T>) {
  T value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || stop != end) return std::nullopt;
  return value;
}

std::optional<Wire::IpGenPrefix> parse(const std::string& text,
                                       std::type_identity<Wire::IpGenPrefix>) {
  return Wire::IpGenPrefix::parse(text);
}

std::optional<IpVrfPrefixKey> parse(const std::string& text, std::type_identity<IpVrfPrefixKey>) {
  const size_t comma = text.find(',');
  if (comma == std::string::npos) return std::nullopt;
  const auto vrf = parse(text.substr(0, comma), std::type_identity<uint32_t>{});
  const auto prefix = Wire::IpGenPrefix::parse(text.substr(comma + 1));
  if (!vrf || !prefix) return std::nullopt;
  return IpVrfPrefixKey{*vrf, *prefix};
}

template <class Key>
constexpr const char* keyForm = "a number";
template <>
constexpr const char* keyForm<Wire::IpGenPrefix> = "a prefix such as 10.0.0.0/8";
template <>
constexpr const char* keyForm<IpVrfPrefixKey> = "VRF,PREFIX such as 5,10.0.0.0/8";

std::string textOf(std::unsigned_integral auto number) { return std::to_string(number); }
std::string textOf(const Wire::IpGenPrefix& prefix) { return prefix.text(); }
std::string textOf(const IpVrfPrefixKey& key) {
  return fmt::format("{},{}", key.vrfId, key.prefix.text());
}

// --- Columns ------------------------------------------------------------------------------------

template <class T>
Tools::Column columnOf(std::string name, AddressFamily family) {
  const bool ipv6 = family == AddressFamily::ipv6;
  if constexpr (std::same_as<T, bool>) {
    return Tools::truth(std::move(name));
  } else if constexpr (std::integral<T>) {
    return Tools::number(std::move(name), sizeof(T) > 2 ? 10 : 5);
  } else if constexpr (std::same_as<T, Wire::IpGenPrefix>) {
    return Tools::text(std::move(name), ipv6 ? 43 : 18);
  } else if constexpr (std::same_as<T, Wire::IpGenAddr>) {
    return Tools::text(std::move(name), ipv6 ? 39 : 15);
  } else if constexpr (std::same_as<T, Wire::EthAddr>) {
    return Tools::text(std::move(name), 17);
  } else {
    return Tools::list(std::move(name));
  }
}

// --- Faults -------------------------------------------------------------------------------------

// A bool may be looked at as a byte only, until it is known to be one.
template <class Entry>
std::string truthFault(Bytes entry, bool Entry::*field, const char* name) {
  const Entry probe{};
  const auto at =
      reinterpret_cast<const char*>(&(probe.*field)) - reinterpret_cast<const char*>(&probe);
  const auto byte = std::to_integer<unsigned>(entry[static_cast<size_t>(at)]);
  return byte <= 1 ? "" : fmt::format("{} is {}, expected 0 or 1", name, byte);
}

std::string addressFault(const Wire::IpGenAddr& address, const char* name) {
  if (address.family > AddressFamily::ipv6) {
    return fmt::format("{} is of family {}", name, static_cast<unsigned>(address.family));
  }
  const size_t length = Wire::addressLength(address.family);
  const bool clean = std::all_of(address.bytes.begin() + static_cast<ptrdiff_t>(length),
                                 address.bytes.end(), [](uint8_t byte) { return byte == 0; });
  return clean ? "" : fmt::format("{} has bytes behind its address", name);
}

std::string prefixFault(const Wire::IpGenPrefix& prefix) {
  if (prefix.family != AddressFamily::ipv4 && prefix.family != AddressFamily::ipv6) {
    return fmt::format("its prefix is of family {}", static_cast<unsigned>(prefix.family));
  }
  if (prefix.length > 8 * Wire::addressLength(prefix.family)) {
    return fmt::format("its prefix has {} bits", prefix.length);
  }
  const auto masked = prefix.family == AddressFamily::ipv4
                          ? Wire::IpGenPrefix::ipv4(prefix.ip4HostOrder(), prefix.length)
                          : Wire::IpGenPrefix::ipv6(prefix.ip6(), prefix.length);
  return masked == prefix ? "" : "its prefix has bits behind its length";
}

std::string countFault(uint32_t count, const char* what) {
  if (count <= EcmpMemberList::slots) return {};
  return fmt::format("{} {}, expected at most {}", count, what, EcmpMemberList::slots);
}

std::string firstOf(std::initializer_list<std::string> faults) {
  const auto found = std::ranges::find_if_not(faults, &std::string::empty);
  return found == faults.end() ? std::string() : *found;
}

// Only the fields that any bytes are a value of are read out of an entry before this is empty.
template <class Entry>
const Entry& viewed(Bytes entry) {
  return *reinterpret_cast<const Entry*>(entry.data());
}

std::string faultOf(Bytes bytes, std::type_identity<IpDestination>) {
  return firstOf({truthFault(bytes, &IpDestination::valid, "valid"),
                  prefixFault(viewed<IpDestination>(bytes).destinationPrefix)});
}
std::string faultOf(Bytes bytes, std::type_identity<VrfPrefixDestination>) {
  return firstOf({truthFault(bytes, &VrfPrefixDestination::valid, "valid"),
                  prefixFault(viewed<VrfPrefixDestination>(bytes).key.prefix)});
}
std::string faultOf(Bytes bytes, std::type_identity<NexthopInfo>) {
  return firstOf({truthFault(bytes, &NexthopInfo::valid, "valid"),
                  truthFault(bytes, &NexthopInfo::vlanTagged, "vlanTagged")});
}
std::string faultOf(Bytes bytes, std::type_identity<EcmpMemberList>) {
  return firstOf({truthFault(bytes, &EcmpMemberList::valid, "valid"),
                  countFault(viewed<EcmpMemberList>(bytes).memberCount, "members"),
                  countFault(viewed<EcmpMemberList>(bytes).watchCount, "watch ports")});
}
std::string faultOf(Bytes bytes, std::type_identity<L2NexthopGroupEncap>) {
  return firstOf({addressFault(viewed<L2NexthopGroupEncap>(bytes).srcAddr, "srcAddr"),
                  addressFault(viewed<L2NexthopGroupEncap>(bytes).dstAddr, "dstAddr")});
}

// --- Routes and references ----------------------------------------------------------------------

Route routeOf(const IpDestination& entry) {
  return {entry.destinationPrefix, std::nullopt, {entry.destinationType, entry.destinationId}};
}
Route routeOf(const VrfPrefixDestination& entry) {
  return {entry.key.prefix, entry.key.vrfId, {entry.destinationType, entry.destinationId}};
}

template <class Entry>
concept IsRoute = requires(const Entry& entry) {
  routeOf(entry);
};

// --- Kinds --------------------------------------------------------------------------------------

// `Adapter` pairs the entry's fields with its row's columns; `State` names the entries' type.
template <class Adapter, class State>
class KindOf final : public Kind {
 public:
  using Entry = typename Adapter::Entry;
  using Key = typename Adapter::Key;
  using Row = typename Adapter::Row;

  static bool serves(const Shoal::EntryLayout& layout) {
    return layout.typeName == State::typeName && layout.entrySize == sizeof(Entry) &&
           layout.keySize == sizeof(Key);
  }

  std::vector<Tools::Column> columns(AddressFamily family) const override {
    std::vector<Tools::Column> all;
    Row::Columns::All::forEach([&](auto column) {
      all.push_back(columnOf<typename decltype(column)::Type>(std::string(column.name), family));
    });
    return all;
  }

  void write(Bytes entry, Tools::RecordWriter& records) const override {
    const Row row = P4RuntimeVane::rowOf<Adapter>(valueOf<Entry>(entry));
    Row::Columns::All::forEach([&](auto column) {
      records << Vane::columnValue<typename decltype(column)::Type>(row, column.offset);
    });
  }

  std::string json(Bytes entry) const override {
    return P4RuntimeVane::rowOf<Adapter>(valueOf<Entry>(entry)).toJson();
  }

  std::vector<std::byte> parseKey(const std::string& text) const override {
    const auto key = parse(text, std::type_identity<Key>{});
    if (!key) {
      throw Failure(ExitCode::usage,
                    fmt::format("key: expected {}, found \"{}\"", keyForm<Key>, text));
    }
    const auto bytes = std::as_bytes(std::span<const Key, 1>(&*key, 1));
    return {bytes.begin(), bytes.end()};
  }

  std::string keyText(Bytes key) const override { return textOf(valueOf<Key>(key)); }

  std::string fault(Bytes entry) const override {
    return faultOf(entry, std::type_identity<Entry>{});
  }

  bool isRoute() const override { return IsRoute<Entry>; }
  bool hasVrf() const override { return std::same_as<Key, IpVrfPrefixKey>; }

  Route route([[maybe_unused]] Bytes entry) const override {
    if constexpr (IsRoute<Entry>) {
      return routeOf(valueOf<Entry>(entry));
    } else {
      throw std::logic_error("only routes lead somewhere by a prefix");
    }
  }

  std::vector<Reference> references([[maybe_unused]] Bytes entry) const override {
    std::vector<Reference> all;
    if constexpr (IsRoute<Entry>) {
      all.push_back(routeOf(valueOf<Entry>(entry)).to);
    } else if constexpr (std::same_as<Entry, EcmpMemberList>) {
      const auto& group = viewed<EcmpMemberList>(entry);
      for (uint32_t i = 0; i < group.memberCount; ++i) {
        all.push_back({Reference::member, group.members[i]});
      }
    }
    return all;
  }
};

// The first of the kinds that serves the layout.
template <class... Kinds>
const Kind* firstServing(const Shoal::EntryLayout& layout) {
  const Kind* found = nullptr;
  const auto take = [&]<class K>(std::type_identity<K>) {
    static const K kind;
    if (K::serves(layout)) found = &kind;
    return found != nullptr;
  };
  (take(std::type_identity<Kinds>{}) || ...);
  return found;
}

}  // namespace

const Kind* kindOf(const Shoal::EntryLayout& layout) {
  // Rows carry the id that a row database gives their type; this one is the tool's own.
  if (!Vane::VaneDB::current()) Vane::VaneDB::currentIs(Vane::makeVaneDB());
  return firstServing<
      KindOf<IpDestinationTableVaneWrappers::IpDestinationTraits, IpDestinationTableTraits>,
      KindOf<IpVrfPrefixTableVaneWrappers::VrfPrefixDestinationTraits, IpVrfPrefixTableTraits>,
      KindOf<EcmpMemberVaneWrappers::NexthopInfoTraits, EcmpMemberTraits>,
      KindOf<EcmpGroupVaneWrappers::EcmpMemberListTraits, EcmpGroupTraits>,
      KindOf<NexthopGroup::L2NexthopGroupEncapTableVaneWrappers::L2NexthopGroupEncapTraits,
             NexthopGroup::L2NexthopGroupEncapTableTraits>>(layout);
}

}  // namespace ShoalCtl
