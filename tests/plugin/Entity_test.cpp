// The plug-in entity by itself: attributes, generic access, type and factory.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "P4RuntimePlugin/RoutingP4RuntimePlugin.h"
#include "P4RuntimePlugin/RoutingTables.h"
#include "platform/Guard/Exception.h"
#include "tests/Kit/Entities.h"

namespace {

using Kit::AttributeId;
using Kit::AttributeOp;
using Kit::AttributeValue;
using KitTest::Listener;
using P4RuntimeRouting::forEachTable;
using P4RuntimeRouting::forEachText;
using Plugin = P4RuntimeRouting::P4RuntimeRoutingVanePlugin;
using testing::ElementsAre;

Kit::Ptr<Plugin> makePlugin() {
  return Kit::dynamicCast<Plugin>(
      P4RuntimeRouting::p4RuntimeRoutingVanePluginFactory("RoutingVane"));
}

// The ids in the order in which the plug-in tells of them.
struct Heard {
  explicit Heard(const Kit::Ptr<Plugin>& plugin)
      : listener(plugin, [this](uint32_t attr, const void* key) {
          EXPECT_EQ(key, nullptr);
          attributes.push_back(attr);
        }) {}
  std::vector<uint32_t> attributes;
  Listener listener;
};

TEST(PluginEntity, IsMadeWithEveryAttributeEmpty) {
  const auto plugin = makePlugin();
  int attributes = 0;
  forEachText([&](const auto& text) {
    ++attributes;
    EXPECT_TRUE(((*plugin).*text.get)().empty()) << text.name;
  });
  forEachTable([&](const auto& table) {
    ++attributes;
    EXPECT_FALSE(((*plugin).*table.get)()) << table.name;
  });
  EXPECT_EQ(attributes, 12);
  EXPECT_EQ(plugin->name(), Kit::Name("RoutingVane"));
}

TEST(PluginEntity, NumbersItsAttributesFrom514InOrderOfDeclaration) {
  const auto plugin = makePlugin();
  Heard heard(plugin);
  plugin->shoalPathDirNameIs("a/");
  plugin->shoalEncapPathDirNameIs("b/");
  plugin->ecmpMemberTableIs(new P4RuntimeRouting::EcmpMember("t"));
  plugin->ecmpGroupTableIs(new P4RuntimeRouting::EcmpGroup("t"));
  plugin->ipv4OverrideTableIs(new P4RuntimeRouting::IpDestinationTable("t"));
  plugin->ipv4FallbackTableIs(new P4RuntimeRouting::IpDestinationTable("t"));
  plugin->ipv4VrfPrefixTableIs(new P4RuntimeRouting::IpVrfPrefixTable("t"));
  plugin->ipv6OverrideTableIs(new P4RuntimeRouting::IpDestinationTable("t"));
  plugin->ipv6FallbackTableIs(new P4RuntimeRouting::IpDestinationTable("t"));
  plugin->ipv6VrfPrefixTableIs(new P4RuntimeRouting::IpVrfPrefixTable("t"));
  plugin->ipv4EncapTableIs(new NexthopGroup::L2NexthopGroupEncapTable("t"));
  plugin->ipv6EncapTableIs(new NexthopGroup::L2NexthopGroupEncapTable("t"));
  EXPECT_THAT(heard.attributes,
              ElementsAre(514, 515, 516, 517, 518, 519, 520, 521, 522, 523, 524, 525));
}

TEST(PluginEntity, TextSetterIsSilentWhenTheTextIsTheSame) {
  const auto plugin = makePlugin();
  Heard heard(plugin);
  plugin->shoalPathDirNameIs("");
  EXPECT_TRUE(heard.attributes.empty()) << "empty in place of empty";
  plugin->shoalPathDirNameIs("routing/");
  plugin->shoalPathDirNameIs(std::string("routing") + "/");
  EXPECT_THAT(heard.attributes, ElementsAre(514));
  EXPECT_EQ(plugin->shoalPathDirName(), "routing/");
}

TEST(PluginEntity, EverySetterOfATableIsSilentForTheSameEntityAndNotForAnEqualOne) {
  const auto plugin = makePlugin();
  Heard heard(plugin);
  forEachTable([&]<class A>(const A& table) {
    heard.attributes.clear();
    const Kit::Ptr<typename A::Table> one(new typename A::Table("same"));
    const Kit::Ptr<typename A::Table> two(new typename A::Table("same"));
    ((*plugin).*table.set)(nullptr);
    EXPECT_TRUE(heard.attributes.empty()) << table.name;
    ((*plugin).*table.set)(one);
    ((*plugin).*table.set)(one);
    ((*plugin).*table.set)(two);
    EXPECT_THAT(heard.attributes, ElementsAre(uint32_t(table.id), uint32_t(table.id)))
        << table.name;
    EXPECT_TRUE(((*plugin).*table.get)() == two);
    EXPECT_EQ(one->references(), 1u) << "released";
  });
}

TEST(PluginEntity, SetterHasStoredTheNewAndReleasedTheOldWhenItTells) {
  const auto plugin = makePlugin();
  const Kit::Ptr<P4RuntimeRouting::EcmpMember> before(new P4RuntimeRouting::EcmpMember("before"));
  const Kit::Ptr<P4RuntimeRouting::EcmpMember> after(new P4RuntimeRouting::EcmpMember("after"));
  plugin->ecmpMemberTableIs(before);
  EXPECT_EQ(before->references(), 2u);
  int told = 0;
  Listener listener(plugin, [&](uint32_t, const void*) {
    ++told;
    EXPECT_TRUE(plugin->ecmpMemberTable() == after);
    EXPECT_EQ(before->references(), 1u);
    EXPECT_EQ(after->references(), 2u);
  });
  plugin->ecmpMemberTableIs(after);
  EXPECT_EQ(told, 1);
}

TEST(PluginEntity, SetterGivenTheHandleThatItHoldsDoesNothing) {
  const auto plugin = makePlugin();
  plugin->ecmpGroupTableIs(new P4RuntimeRouting::EcmpGroup("t"));
  Heard heard(plugin);
  plugin->ecmpGroupTableIs(plugin->ecmpGroupTable());
  EXPECT_TRUE(heard.attributes.empty());
  EXPECT_EQ(plugin->ecmpGroupTable()->references(), 1u);
}

TEST(PluginEntity, SetterKeepsTheNewValueWhenANotifieeThrows) {
  const auto plugin = makePlugin();
  Listener listener(plugin, [](uint32_t, const void*) { throw std::runtime_error("no"); });
  EXPECT_THROW(plugin->shoalPathDirNameIs("x/"), std::runtime_error);
  EXPECT_EQ(plugin->shoalPathDirName(), "x/");
}

const Kit::TypeNode& type() {
  return *Kit::typeNode("P4RuntimeRouting::P4RuntimeRoutingVanePlugin");
}

TEST(PluginType, IsRegisteredWhenTheLibraryIsLoaded) {
  ASSERT_TRUE(Kit::typeNode("P4RuntimeRouting::P4RuntimeRoutingVanePlugin"));
  EXPECT_EQ(makePlugin()->fwkType(), &type());
}

TEST(PluginType, ListsTheAttributesOfTheBaseAndThenItsTwelve) {
  const std::vector<Kit::String> expected = {"name",
                                             "fullName",
                                             "parent",
                                             "parentAttrName",
                                             "entity",
                                             "hubOnly",
                                             "doHubMountsComplete",
                                             "handleMountStatus",
                                             "pluginName",
                                             "cliConfig",
                                             "cliStatus",
                                             "pluginContext",
                                             "pluginConfigDir",
                                             "pluginStatusDir",
                                             "pluginDataDir",
                                             "allPluginConfig",
                                             "pluginStatus",
                                             "pluginCleanupSm",
                                             "init",
                                             "initComplete",
                                             "pluginCleanupHelper",
                                             "defaultPluginCleanupHelper",
                                             "doMountsComplete",
                                             "pluginInit",
                                             "doCleanup",
                                             "shoalPathDirName",
                                             "shoalEncapPathDirName",
                                             "ecmpMemberTable",
                                             "ecmpGroupTable",
                                             "ipv4OverrideTable",
                                             "ipv4FallbackTable",
                                             "ipv4VrfPrefixTable",
                                             "ipv6OverrideTable",
                                             "ipv6FallbackTable",
                                             "ipv6VrfPrefixTable",
                                             "ipv4EncapTable",
                                             "ipv6EncapTable"};
  EXPECT_EQ(type().attributeNames, expected);
}

TEST(PluginType, NamesTheArgumentsOfItsHooks) {
  std::vector<std::string> arguments;
  for (const auto& argument : type().arguments) {
    arguments.push_back(argument.operation.str() + "(" + argument.typeName.str() + " " +
                        argument.name.str() + ")");
  }
  EXPECT_THAT(arguments, ElementsAre("doCleanup(P4Runtime::PluginCleanupReason reason)",
                                     "pluginInit(P4Runtime::PluginContext context)",
                                     "doMountsComplete(Hub::MountStatus mountStatus)",
                                     "doMountsComplete(Hub::EntityManager mountGroup)"));
}

TEST(PluginType, FactoryTracksTheAllocationUntilTheEntityGoes) {
  const Kit::AllocationTracker& tracker = *type().allocations;
  const size_t live = tracker.live(), bytes = tracker.bytes(), total = tracker.total();
  auto plugin = type().factory("one");
  EXPECT_EQ(tracker.live(), live + 1);
  EXPECT_EQ(tracker.bytes(), bytes + sizeof(Plugin));
  EXPECT_EQ(plugin->references(), 1u);
  plugin = nullptr;
  EXPECT_EQ(tracker.live(), live);
  EXPECT_EQ(tracker.bytes(), bytes);
  EXPECT_EQ(tracker.total(), total + 1);
}

int op(const Kit::Ptr<Plugin>& plugin, AttributeValue& value, uint32_t attribute, AttributeOp op) {
  return type().genericIfAttributeOp(*plugin, value, AttributeId{attribute}, op);
}

TEST(GenericAccess, ReadsAndWritesTexts) {
  const auto plugin = makePlugin();
  Heard heard(plugin);
  for (const uint32_t id : {514u, 515u}) {
    AttributeValue value = Kit::String("dir/");
    EXPECT_EQ(op(plugin, value, id, AttributeOp::write), 0);
    value = {};
    EXPECT_EQ(op(plugin, value, id, AttributeOp::read), 0);
    EXPECT_EQ(std::get<Kit::String>(value), "dir/");
  }
  EXPECT_THAT(heard.attributes, ElementsAre(514, 515)) << "through the setters";
  EXPECT_EQ(plugin->shoalEncapPathDirName(), "dir/");
}

TEST(GenericAccess, ReadsAndWritesEveryTableByItsNumber) {
  const auto plugin = makePlugin();
  uint32_t id = 516;
  forEachTable([&]<class A>(const A& table) {
    const Kit::Ptr<Kit::Entity> entity(new typename A::Table("t"));
    AttributeValue value;
    EXPECT_EQ(op(plugin, value, id, AttributeOp::read), 0);
    EXPECT_FALSE(std::get<Kit::Ptr<Kit::Entity>>(value)) << "none, but an entity attribute";
    value = entity;
    EXPECT_EQ(op(plugin, value, id, AttributeOp::write), 0);
    EXPECT_TRUE(((*plugin).*table.get)() == entity) << table.name;
    value = {};
    EXPECT_EQ(op(plugin, value, id, AttributeOp::read), 0);
    EXPECT_TRUE(std::get<Kit::Ptr<Kit::Entity>>(value) == entity) << table.name;
    value = Kit::Ptr<Kit::Entity>();
    EXPECT_EQ(op(plugin, value, id, AttributeOp::write), 0);
    EXPECT_FALSE(((*plugin).*table.get)()) << table.name;
    ++id;
  });
}

TEST(GenericAccess, AnswersOneForAnOperationThatIsNeitherReadNorWrite) {
  const auto plugin = makePlugin();
  AttributeValue value = Kit::String("untouched");
  for (uint32_t id = 514; id <= 525; ++id) {
    for (const int other : {2, 3, 255}) {
      EXPECT_EQ(op(plugin, value, id, static_cast<AttributeOp>(other)), 1) << id;
    }
  }
  EXPECT_EQ(std::get<Kit::String>(value), "untouched");
  EXPECT_TRUE(plugin->shoalPathDirName().empty());
}

TEST(GenericAccess, AnswersTwoForAnAttributeThatTheTypeDoesNotHaveWhateverTheOperation) {
  const auto plugin = makePlugin();
  AttributeValue value = Kit::String("untouched");
  for (const uint32_t id : {0u, 258u, 513u, 526u, 0xFFFFFFFFu}) {
    for (const int any : {0, 1, 2, 255}) {
      EXPECT_EQ(op(plugin, value, id, static_cast<AttributeOp>(any)), 2) << id;
    }
  }
  EXPECT_EQ(std::get<Kit::String>(value), "untouched");
}

std::string refusal(const Kit::Ptr<Plugin>& plugin, AttributeValue value, uint32_t id) {
  try {
    op(plugin, value, id, AttributeOp::write);
  } catch (const Guard::RangeException& e) {
    return e.message();
  }
  return "no refusal";
}

TEST(GenericAccess, RefusesAValueOfTheWrongKindAndLeavesTheEntityAsItWas) {
  const auto plugin = makePlugin();
  const Kit::Ptr<P4RuntimeRouting::EcmpMember> held(new P4RuntimeRouting::EcmpMember("held"));
  plugin->shoalPathDirNameIs("kept/");
  plugin->ecmpMemberTableIs(held);
  Heard heard(plugin);
  const Kit::Ptr<Kit::Entity> other(new P4RuntimeRouting::EcmpGroup("other"));
  EXPECT_EQ(refusal(plugin, other, 514),
            "writing attribute \"shoalPathDirName\" of \"RoutingVane\": expected a text");
  EXPECT_EQ(refusal(plugin, {}, 514),
            "writing attribute \"shoalPathDirName\" of \"RoutingVane\": expected a text");
  EXPECT_EQ(refusal(plugin, Kit::String("text"), 516),
            "writing attribute \"ecmpMemberTable\" of \"RoutingVane\": expected an entity");
  EXPECT_EQ(refusal(plugin, other, 516),
            "writing attribute \"ecmpMemberTable\" of "
            "\"RoutingVane\": expected an entity of the table's type");
  EXPECT_EQ(plugin->shoalPathDirName(), "kept/");
  EXPECT_TRUE(plugin->ecmpMemberTable() == held);
  EXPECT_TRUE(heard.attributes.empty());
}

}  // namespace
