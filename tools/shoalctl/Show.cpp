#include "tools/shoalctl/Show.h"

#include <fmt/format.h>

#include <charconv>
#include <concepts>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "platform/Shoal/SharedTable.h"
#include "platform/Shoal/ShoalMap.h"
#include "platform/Vane/VaneDB.h"
#include "src-includes/P4RuntimeVane/P4RuntimeRoutingEcmpTypesVaneWrappers.h"
#include "src-includes/P4RuntimeVane/P4RuntimeRoutingTypesVaneWrappers.h"
#include "tools/shoalctl/Failure.h"
#include "tools/shoalctl/Names.h"

namespace ShoalCtl {
namespace {

// A key as people write it.
template <std::unsigned_integral T>
std::optional<T> parseKey(const std::string& text, std::type_identity<T>) {
  T value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || stop != end) return std::nullopt;
  return value;
}

std::optional<Wire::IpGenPrefix> parseKey(const std::string& text,
                                          std::type_identity<Wire::IpGenPrefix>) {
  return Wire::IpGenPrefix::parse(text);
}

std::optional<P4RuntimeRouting::IpVrfPrefixKey> parseKey(
    const std::string& text, std::type_identity<P4RuntimeRouting::IpVrfPrefixKey>) {
  const size_t comma = text.find(',');
  if (comma == std::string::npos) return std::nullopt;
  const auto vrf = parseKey(text.substr(0, comma), std::type_identity<uint32_t>{});
  const auto prefix = Wire::IpGenPrefix::parse(text.substr(comma + 1));
  if (!vrf || !prefix) return std::nullopt;
  return P4RuntimeRouting::IpVrfPrefixKey{*vrf, *prefix};
}

template <class Key>
constexpr const char* keyForm = "a number";
template <>
constexpr const char* keyForm<Wire::IpGenPrefix> = "a prefix such as 10.0.0.0/8";
template <>
constexpr const char* keyForm<P4RuntimeRouting::IpVrfPrefixKey> = "VRF,PREFIX such as 5,10.0.0.0/8";

// Shows a table whose entries an adapter's traits describe; `State` names the entries' type.
template <class Adapter, class State>
class Shower {
 public:
  using Entry = typename Adapter::Entry;
  using Key = typename Adapter::Key;

  static bool serves(const Shoal::EntryLayout& layout) {
    return layout.typeName == State::typeName && layout.entrySize == sizeof(Entry) &&
           layout.keySize == sizeof(Key);
  }

  static void show(const Options& options, std::shared_ptr<Shoal::TableStore> store) {
    Shoal::ShoalMap<Key, Entry> map;
    map.storeIs(std::move(store));
    if (options.key) return showOne(options, map);
    Shoal::IterHint hint;
    Entry entry;
    for (bool more = map.first(hint, entry); more;
         more = map.next(entry.*Adapter::key, hint, entry)) {
      print(options, entry);
    }
  }

 private:
  static void showOne(const Options& options, const Shoal::ShoalMap<Key, Entry>& map) {
    const auto key = parseKey(*options.key, std::type_identity<Key>{});
    if (!key) {
      throw Failure(ExitStatus::usage,
                    fmt::format("key: expected {}, found \"{}\"", keyForm<Key>, *options.key));
    }
    bool found = false;
    const Entry entry = map.safeLookup(*key, found);
    if (!found) {
      throw Failure(ExitStatus::absent,
                    fmt::format("table {} has no key {}", options.table, *options.key));
    }
    print(options, entry);
  }

  static void print(const Options& options, const Entry& entry) {
    typename Adapter::Row row;
    Adapter::toRow(entry, row);
    const std::string line = (options.json ? row.toJson() : row.toString()) + "\n";
    std::fwrite(line.data(), 1, line.size(), stdout);
  }
};

// Shows the table with the first of the kinds that serves its layout; false if none does.
template <class... Kinds>
bool showAs(const Options& options, const std::shared_ptr<Shoal::TableStore>& store) {
  const auto showIf = [&]<class Kind>(std::type_identity<Kind>) {
    if (!Kind::serves(store->layout())) return false;
    Kind::show(options, store);
    return true;
  };
  return (showIf(std::type_identity<Kinds>{}) || ...);
}

using namespace P4RuntimeRouting;

bool showKnown(const Options& options, const std::shared_ptr<Shoal::TableStore>& store) {
  return showAs<
      Shower<IpDestinationTableVaneWrappers::IpDestinationTraits, IpDestinationTableTraits>,
      Shower<IpVrfPrefixTableVaneWrappers::VrfPrefixDestinationTraits, IpVrfPrefixTableTraits>,
      Shower<EcmpMemberVaneWrappers::NexthopInfoTraits, EcmpMemberTraits>,
      Shower<EcmpGroupVaneWrappers::EcmpMemberListTraits, EcmpGroupTraits>,
      Shower<NexthopGroup::L2NexthopGroupEncapTableVaneWrappers::L2NexthopGroupEncapTraits,
             NexthopGroup::L2NexthopGroupEncapTableTraits>>(options, store);
}

}  // namespace

void showEntries(const Options& options) {
  // Rows carry the id that a row database gives their type; this one is the tool's own.
  Vane::VaneDB::currentIs(Vane::makeVaneDB());
  const std::string path = findTable(options.root, options.table);
  const auto store = attach(options.root, path);
  if (!showKnown(options, store)) {
    throw Failure(ExitStatus::refused,
                  fmt::format("table {}: entries of type {} with {} bytes are not known here", path,
                              store->layout().typeName, store->layout().entrySize));
  }
}

}  // namespace ShoalCtl
