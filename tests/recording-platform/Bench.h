// A plug-in on the recording platform: what it is given, how it is started, and what is expected of
// each of its ten tables.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "P4RuntimePlugin/RoutingP4RuntimePlugin.h"
#include "P4RuntimePlugin/RoutingP4RuntimePluginLoader.h"
#include "tests/recording-platform/Platform.h"
#include "tests/recording-platform/Recorder.h"

namespace Recording {

using Lines = std::vector<std::string>;

struct ExpectedTable {
  std::string published;
  std::string path;
  std::string rowType;
  std::string adapter;
  std::string attribute;  // its id
};

// In order of registration.
inline const std::vector<ExpectedTable>& expectedTables() {
  static const std::string routing = "p4runtime/outputTables/routing/";
  static const std::string encap = "routing/l2nexthopgroup/";
  static const std::vector<ExpectedTable> tables = {
      {"VaneEcmpMember", routing + "ecmpMemberTable", "P4RuntimeRouting::NexthopInfoRow",
       "NexthopInfoVaneWrapper", "516"},
      {"VaneEcmpGroup", routing + "ecmpGroupTable", "P4RuntimeRouting::EcmpMemberListRow",
       "EcmpMemberListVaneWrapper", "517"},
      {"VaneIpv4Override", routing + "ipv4OverrideTable", "P4RuntimeRouting::IpDestinationRow",
       "IpDestinationVaneWrapper", "518"},
      {"VaneIpv4Fallback", routing + "ipv4FallbackTable", "P4RuntimeRouting::IpDestinationRow",
       "IpDestinationVaneWrapper", "519"},
      {"VaneIpv4VrfPrefix", routing + "ipv4VrfPrefixTable",
       "P4RuntimeRouting::VrfPrefixDestinationRow", "VrfPrefixDestinationVaneWrapper", "520"},
      {"VaneIpv6Override", routing + "ipv6OverrideTable", "P4RuntimeRouting::IpDestinationRow",
       "IpDestinationVaneWrapper", "521"},
      {"VaneIpv6Fallback", routing + "ipv6FallbackTable", "P4RuntimeRouting::IpDestinationRow",
       "IpDestinationVaneWrapper", "522"},
      {"VaneIpv6VrfPrefix", routing + "ipv6VrfPrefixTable",
       "P4RuntimeRouting::VrfPrefixDestinationRow", "VrfPrefixDestinationVaneWrapper", "523"},
      {"VaneIpv4Encap", encap + "ipv4EncapTable", "NexthopGroup::L2NexthopGroupEncapRow",
       "L2NexthopGroupEncapVaneWrapper", "524"},
      {"VaneIpv6Encap", encap + "ipv6EncapTable", "NexthopGroup::L2NexthopGroupEncapRow",
       "L2NexthopGroupEncapVaneWrapper", "525"},
  };
  return tables;
}

// The names that are published first to last, up to `count` of them.
inline Lines publishedNames(size_t count) {
  Lines names;
  for (size_t i = 0; i < count; ++i) names.push_back(expectedTables()[i].published);
  return names;
}

inline Lines operator+(Lines a, const Lines& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

inline Lines before(const Lines& lines, size_t end) {
  return Lines(lines.begin(), lines.begin() + static_cast<ptrdiff_t>(end));
}

// The lines that contain `part`.
inline Lines linesWith(const Lines& lines, const std::string& part) {
  Lines found;
  for (const auto& line : lines) {
    if (line.find(part) != std::string::npos) found.push_back(line);
  }
  return found;
}

// What unwinding adds when the call that is the last of `lines` fails: a mount that is still there
// goes.
inline Lines unwinding(const Lines& lines) {
  const auto made = linesWith(lines, ": mount").size();
  const auto gone = linesWith(lines, ": mount gone").size();
  // A mount that failed to be made has nothing to go.
  if (lines.back() == "stored: mount" || made - gone == gone) return {};
  return {"stored: mount gone"};
}

class Bench {
 public:
  using Plugin = P4RuntimeRouting::P4RuntimeRoutingVanePlugin;

  Bench() {
    for (size_t i = 0; i < expectedTables().size(); ++i) tableIs(i, Shoal::Mode::writer);
    Recorder::instance().reset();
  }
  ~Bench() {
    Recorder::instance().reset();
    // The plug-in holds its context, the context the directory, the directory the plug-in.
    pluginDir->entityDel("RoutingVane");
    P4Runtime::DefaultPluginLoader().initCallers().pop_back();
  }

  // Puts a fresh table at the place of the table number i.
  void tableIs(size_t i, Shoal::Mode mode);
  void entityIs(size_t i, Kit::Ptr<Kit::Entity> entity) {
    (*tree)[expectedTables()[i].path] = std::move(entity);
  }

  // As the agent does it: through the init-caller. Keeps the started plug-in.
  void start() {
    auto& agent = P4Runtime::DefaultPluginLoader();
    Recorder::instance().reset();
    agent.contextIs(context.get());
    plugin = Kit::dynamicCast<Plugin>((*agent.initCallers().back())());
  }

  const Lines& lines() const { return Recorder::instance().lines(); }

  std::shared_ptr<Tree> tree = std::make_shared<Tree>();
  Kit::Ptr<Manager> manager{new Manager("stored", tree)};
  std::shared_ptr<Database> database = std::make_shared<Database>("stored");
  Kit::Ptr<Kit::Dir> pluginDir{new Kit::Dir("plugins")};
  Kit::Ptr<P4Runtime::PluginContext> context{
      new P4Runtime::PluginContext("context", manager, database, pluginDir)};
  // One of its own beside the library's, so that each test starts with an empty one.
  std::unique_ptr<P4RuntimeRouting::RoutingP4RuntimePluginLoader> loader =
      std::make_unique<P4RuntimeRouting::RoutingP4RuntimePluginLoader>();
  Kit::Ptr<Plugin> plugin;
};

// An unattached table entity of the type that the table number i has.
Kit::Ptr<Shoal::TableEntityBase> makeEntity(size_t i);

}  // namespace Recording
