#include "platform/Hub/Mount.h"

#include <gmock/gmock.h>

#include "tests/Hub/HubTest.h"
#include "tests/Kit/Entities.h"

namespace {

using HubTest::memberType;
using HubTest::tableOf;
using P4RuntimeRouting::EcmpMember;
using testing::HasSubstr;

class MountTest : public HubTest::Fixture {
 protected:
  Kit::Ptr<EcmpMember> mountMembers(const std::string& path, uint32_t size = 16) {
    return Kit::dynamicCast<EcmpMember>(mount.doMount(path, memberType, tableOf(size)));
  }
  static P4RuntimeRouting::NexthopInfo member(uint32_t id) {
    P4RuntimeRouting::NexthopInfo info;
    info.id = id;
    return info;
  }
  template <class F>
  static std::string refusal(F f) {
    try {
      f();
    } catch (const Hub::MountException& e) {
      return e.message();
    }
    return "no refusal";
  }
};

TEST_F(MountTest, AttachesTheTableAsItsWriterAndPutsItsEntityInTheTree) {
  const auto table = mountMembers("routing/members");
  ASSERT_TRUE(table);
  EXPECT_EQ(table->fullName(), "hub/routing/members");
  EXPECT_EQ(table->nexthopInfo().mode(), Shoal::Mode::writer);
  EXPECT_TRUE(mount.getEntity("routing/members") == table);
  EXPECT_TRUE(mount.getEntity<EcmpMember>("routing/members") == table);
  EXPECT_TRUE(fileThere("routing/members"));
  table->nexthopInfoIs(member(5));
  const auto reader = Shoal::attachReader(root.path, "routing/members", table->layout());
  EXPECT_EQ(reader->size(), 1u);
}

TEST_F(MountTest, LookUpAttachesNothingAndIsEmptyWhereNothingIs) {
  mountMembers("routing/members");
  EXPECT_FALSE(mount.getEntity("routing/other"));
  EXPECT_FALSE(mount.getEntity("routing/members/below"));
  EXPECT_FALSE(mount.getEntity(""));
  EXPECT_FALSE(mount.getEntity("/routing/members"));
  EXPECT_FALSE(mount.getEntity("routing//members"));
  EXPECT_FALSE(mount.getEntity<P4RuntimeRouting::EcmpGroup>("routing/members")) << "another type";
  EXPECT_TRUE(Kit::dynamicCast<Kit::Dir>(mount.getEntity("routing")));
  EXPECT_FALSE(fileThere("routing/other"));
}

TEST_F(MountTest, OfWhatIsMountedGivesTheSameEntity) {
  const auto table = mountMembers("routing/members");
  EXPECT_TRUE(mountMembers("routing/members", 99999) == table) << "left as it is";
  KitShoal::Mount another(manager);
  EXPECT_TRUE(another.doMount("routing/members", memberType, tableOf(1)) == table);
}

TEST_F(MountTest, HasTheRoomThatIsConfiguredElseAskedForElseUsual) {
  EXPECT_GE(mountMembers("routing/asked", 100)->nexthopInfo().capacity(), 100u);
  EXPECT_LT(mountMembers("routing/asked", 100)->nexthopInfo().capacity(), 5000u);
  EXPECT_GE(mountMembers("routing/big", 16)->nexthopInfo().capacity(), 5000u);
  EXPECT_GE(mountMembers("routing/usual", 0)->nexthopInfo().capacity(), 64u);
}

TEST_F(MountTest, RefusesWhatCannotBeATable) {
  EXPECT_EQ(refusal([&] { mount.doMount("a", "No::Such", tableOf(1)); }),
            "mounting \"a\": unknown type \"No::Such\"");
  Kit::TypeNode node;
  node.name = "HubTest::Probe";
  node.factory = [](Kit::Name name) {
    return Kit::Ptr<Kit::Entity>(new KitTest::Probe(std::move(name)));
  };
  Kit::typeNodeIs(std::move(node));
  EXPECT_EQ(refusal([&] { mount.doMount("a", "HubTest::Probe", tableOf(1)); }),
            "mounting \"a\": \"HubTest::Probe\" is not the type of a table");
  const KitShoal::MountInfo other(static_cast<KitShoal::KitShoalType>(3));
  EXPECT_EQ(refusal([&] { mount.doMount("a", memberType, other); }),
            "mounting \"a\": expected a hash table, type 0, not type 3");
  EXPECT_FALSE(mount.getEntity("a"));
  EXPECT_FALSE(fileThere("a"));
}

TEST_F(MountTest, RefusesAPathThatIsNoneOrIsTaken) {
  for (const char* path : {"", "/a", "a/", "a//b"}) {
    EXPECT_EQ(refusal([&] { mount.doMount(path, memberType, tableOf(1)); }),
              "mounting \"" + std::string(path) + "\": expected names with '/' between them");
  }
  mountMembers("routing/members");
  EXPECT_EQ(refusal([&] { mountMembers("routing"); }), "mounting \"routing\": the place is taken");
  EXPECT_EQ(refusal([&] { mountMembers("routing/members/below"); }),
            "mounting \"routing/members/below\": \"members\" is not a directory");
  EXPECT_EQ(
      refusal([&] { mount.doMount("routing/members", "P4RuntimeRouting::EcmpGroup", tableOf(1)); }),
      "mounting \"routing/members\": it is mounted as \"P4RuntimeRouting::EcmpMember\", not "
      "as \"P4RuntimeRouting::EcmpGroup\"");
}

TEST_F(MountTest, PassesOnWhatAttachingThrowsAndLeavesTheTreeAsItWas) {
  const auto elsewhere =
      Shoal::attachWriter(root.path, "routing/members", EcmpMember("m").layout(), 16);
  EXPECT_THROW(mountMembers("routing/members"), Shoal::WriterPresentException);
  EXPECT_FALSE(mount.getEntity("routing"));
}

TEST_F(MountTest, CleanupEmptiesTheTableTellsOfEachKeyAndLetsTheFileGoAtUnmount) {
  const auto table = mountMembers("routing/members");
  for (uint32_t id : {7u, 8u, 9u}) table->nexthopInfoIs(member(id));
  std::vector<uint32_t> removed;
  {
    KitTest::Listener listener(table, [&](uint32_t attr, const void* key) {
      EXPECT_EQ(attr, 258u);
      EXPECT_EQ(table->nexthopInfo().size(), 0u) << "told when all have gone";
      removed.push_back(*static_cast<const uint32_t*>(key));
    });
    mount.cleanup("routing/members");
  }
  EXPECT_THAT(removed, testing::UnorderedElementsAre(7u, 8u, 9u));
  EXPECT_TRUE(fileThere("routing/members"));
  mount.doUnmount("routing/members");
  EXPECT_FALSE(fileThere("routing/members"));
  EXPECT_FALSE(mount.getEntity("routing/members"));
}

TEST_F(MountTest, UnmountWithoutCleanupKeepsTheTableForTheNextWriter) {
  mountMembers("routing/members")->nexthopInfoIs(member(5));
  mount.doUnmount("routing/members");
  EXPECT_TRUE(fileThere("routing/members"));
  EXPECT_EQ(mountMembers("routing/members")->nexthopInfo().size(), 1u);
}

TEST_F(MountTest, UnmountDetachesWhatLiesBelowAndNothingElse) {
  mountMembers("routing/a/one");
  mountMembers("routing/a/two");
  const auto other = mountMembers("routing/ab");
  mount.doUnmount("routing/a");
  EXPECT_FALSE(mount.getEntity("routing/a/one"));
  EXPECT_FALSE(mount.getEntity("routing/a/two"));
  EXPECT_TRUE(mount.getEntity("routing/ab") == other);
}

TEST_F(MountTest, CleanupAndUnmountOfWhatIsNotMountedDoNothing) {
  const auto table = mountMembers("routing/members");
  mount.cleanup("routing/status");
  mount.doUnmount("routing/vrf/status");
  mount.doUnmount("routing/status");
  mount.doUnmount("");
  EXPECT_TRUE(mount.getEntity("routing/members") == table);
}

TEST_F(MountTest, EntityThatOutlivesItsMountIsAnEmptyTableThatRefusesWrites) {
  const auto table = mountMembers("routing/members");
  table->nexthopInfoIs(member(5));
  mount.doUnmount("routing/members");
  EXPECT_EQ(table->nexthopInfo().size(), 0u);
  bool found = true;
  table->nexthopInfo().safeLookup(5, found);
  EXPECT_FALSE(found);
  EXPECT_NO_THROW(table->nexthopInfoDel(5));
  EXPECT_NO_THROW(table->nexthopInfoDelAll());
  EXPECT_EQ(refusal([&] { table->nexthopInfoIs(member(6)); }),
            "writing table \"routing/members\": it has been unmounted");
  // The writer's place is free although the entity is still held.
  EXPECT_TRUE(Shoal::attachWriter(root.path, "routing/members", table->layout(), 16));
}

TEST_F(MountTest, FlushWakesTheFollowersOfEveryMountedTable) {
  const auto table = mountMembers("routing/members");
  const auto other = mountMembers("routing/others");
  std::vector<std::unique_ptr<Shoal::ChangeFollower>> followers;
  for (const char* path : {"routing/members", "routing/others"}) {
    followers.push_back(Shoal::follow(Shoal::attachReader(root.path, path, table->layout())));
  }
  table->nexthopInfoIs(member(1));
  other->nexthopInfoIs(member(2));
  Hub::flushMounts(manager);
  for (const auto& follower : followers) {
    EXPECT_TRUE(follower->wait(std::chrono::seconds(10)));
    Shoal::ChangeFollower::Changes changes;
    EXPECT_EQ(follower->take(changes, 10), Shoal::ChangeFollower::Result::changes);
    EXPECT_EQ(changes.size(), 1u);
  }
}

TEST_F(MountTest, ManagerThatGoesLeavesHeldTablesAttached) {
  const auto table = mountMembers("routing/members");
  table->nexthopInfoIs(member(5));
  {
    KitShoal::Mount last = std::move(mount);
    mount = KitShoal::Mount(makeManager());
  }
  manager = nullptr;
  EXPECT_EQ(table->nexthopInfo().size(), 1u);
  EXPECT_EQ(table->parent(), nullptr);
}

TEST_F(MountTest, RootDirectoryIsThatOfTheTree) {
  const auto table = mountMembers("members");
  EXPECT_TRUE(Hub::rootDir(manager)->entity("members") == table);
}

}  // namespace
