// shoalctl lookup: the road of a packet through the tables.
//
// The override table is asked first, then, if a routing instance is given, the VRF prefix table,
// then the fallback table; the first that has a prefix around the address decides, with its
// longest. A route leads to a member (destination type 1) or a group (type 2), a group to members.
// A member names no encapsulation but a type of encapsulation: it leads to those of its type.
#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <memory>
#include <set>

#include "platform/State/EcmpTypes.h"
#include "platform/State/RoutingTypes.h"
#include "tools/common/Exit.h"
#include "tools/shoalctl/Commands.h"
#include "tools/shoalctl/Names.h"
#include "tools/shoalctl/Table.h"

namespace ShoalCtl {
namespace {

using Tools::absent;
using Tools::ExitCode;
using Tools::Failure;
using Wire::AddressFamily;

Wire::IpGenPrefix prefixAround(const Wire::IpGenAddr& address, unsigned length) {
  const auto bits = static_cast<uint8_t>(length);
  return address.family == AddressFamily::ipv4
             ? Wire::IpGenPrefix::ipv4(address.ip4HostOrder(), bits)
             : Wire::IpGenPrefix::ipv6(address.ip6(), bits);
}

template <class Value>
KeyBytes bytesOf(const Value& value) {
  const auto bytes = std::as_bytes(std::span<const Value, 1>(&value, 1));
  return {bytes.begin(), bytes.end()};
}

template <class Entry>
Entry entryOf(Shoal::Bytes bytes) {
  Entry entry;
  std::memcpy(static_cast<void*>(&entry), bytes.data(), sizeof entry);
  return entry;
}

// The tables of a root by their names in the row database, attached when they are needed.
class Tables {
 public:
  explicit Tables(const std::filesystem::path& root) : root_(root) {
    for (const std::string& path : tablePaths(root)) paths_[rowDatabaseName(path)] = path;
  }
  // Null if there is no such table.
  const Table* find(const std::string& name) {
    const auto path = paths_.find(name);
    if (path == paths_.end()) return nullptr;
    auto& table = open_[name];
    if (!table) table = std::make_unique<Table>(root_, path->second);
    return table.get();
  }

 private:
  const std::filesystem::path& root_;
  std::map<std::string, std::string> paths_;
  std::map<std::string, std::unique_ptr<Table>> open_;
};

class Road {
 public:
  Road(const Options& options, Tools::Output& out)
      : options_(options),
        tables_(options.root),
        records_(out, options.output,
                 {Tools::text("step", 6), Tools::text("table", 18), Tools::text("key", 18),
                  Tools::truth("found"), Tools::object("row")}) {}

  void follow() {
    const auto address = Wire::IpGenAddr::parse(options_.address);
    if (!address) {
      throw Failure(ExitCode::usage, fmt::format("address: expected one such as 192.0.2.1 or "
                                                 "2001:db8::1, found \"{}\"",
                                                 options_.address));
    }
    leadTo(findRoute(*address));
    records_.finish();
    if (!missing_.empty()) throw Failure(ExitCode::absent, missing_);
  }

 private:
  // Writes the route and says where it leads.
  Reference findRoute(const Wire::IpGenAddr& address) {
    const std::string family = address.family == AddressFamily::ipv4 ? "VaneIpv4" : "VaneIpv6";
    const auto vrf = options_.filter.vrf;
    for (const char* role : {"Override", "VrfPrefix", "Fallback"}) {
      const bool perVrf = std::string_view(role) == "VrfPrefix";
      if (perVrf && !vrf) continue;
      const Table* table = tables_.find(family + role);
      if (table == nullptr) continue;
      for (unsigned length = address.family == AddressFamily::ipv4 ? 33 : 129; length-- != 0;) {
        const Wire::IpGenPrefix prefix = prefixAround(address, length);
        const KeyBytes key =
            perVrf ? bytesOf(P4RuntimeRouting::IpVrfPrefixKey{*vrf, prefix}) : bytesOf(prefix);
        if (const auto entry = table->find(key)) {
          write("route", *table, key, entry);
          return table->kind().route(*entry).to;
        }
      }
    }
    throw Failure(ExitCode::absent, fmt::format("no route to {}{}", options_.address,
                                                vrf ? fmt::format(" in VRF {}", *vrf) : ""));
  }

  void leadTo(Reference to) {
    if (to.type == Reference::member) return member(to.id);
    if (to.type != Reference::group) return;
    const auto entry = step("group", "VaneEcmpGroup", to.id);
    if (!entry) return;
    for (const Reference& next : tables_.find("VaneEcmpGroup")->kind().references(*entry)) {
      member(next.id);
    }
  }

  // A member that stands in the group twice is told twice; encapsulations are told once.
  void member(uint32_t id) {
    const auto entry = step("member", "VaneEcmpMember", id);
    if (!entry) return;
    const int32_t type = entryOf<P4RuntimeRouting::NexthopInfo>(*entry).encapType;
    if (type != 0 && encapsTold_.insert(type).second) encaps(type);
  }

  void encaps(int32_t type) {
    for (const char* name : {"VaneIpv4Encap", "VaneIpv6Encap"}) {
      const Table* table = tables_.find(name);
      if (table == nullptr) continue;
      table->walk([&](Shoal::Bytes entry) {
        table->needEntry(entry);
        if (entryOf<NexthopGroup::L2NexthopGroupEncap>(entry).encapType == type) {
          const auto key = table->keyOf(entry);
          write("encap", *table, {key.begin(), key.end()},
                std::optional(KeyBytes(entry.begin(), entry.end())));
        }
        return true;
      });
    }
  }

  // The entry that a number leads to, written down also if it is not there.
  std::optional<KeyBytes> step(const char* what, const std::string& name, uint32_t id) {
    const Table* table = tables_.find(name);
    if (table == nullptr) throw Failure(ExitCode::absent, fmt::format("there is no {}", name));
    const KeyBytes key = bytesOf(id);
    auto entry = table->find(key);
    write(what, *table, key, entry);
    if (!entry && missing_.empty()) missing_ = fmt::format("{} {} is not there", what, id);
    return entry;
  }

  void write(const char* what, const Table& table, const KeyBytes& key,
             const std::optional<KeyBytes>& entry) {
    records_ << what << table.name() << table.kind().keyText(key) << entry.has_value();
    if (!entry) records_ << Tools::Style::bad;
    entry ? records_ << table.kind().json(*entry) : records_ << absent;
    records_.endRecord();
  }

  const Options& options_;
  Tables tables_;
  Tools::RecordWriter records_;
  std::set<int32_t> encapsTold_;
  std::string missing_;
};

}  // namespace

void lookUp(const Options& options, Tools::Output& out) { Road(options, out).follow(); }

}  // namespace ShoalCtl
