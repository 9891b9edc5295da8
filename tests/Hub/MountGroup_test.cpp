#include <sstream>
#include <vector>

#include "tests/Hub/HubTest.h"

namespace {

using HubTest::memberType;
using HubTest::tableOf;

struct Report {
  Hub::MountStatus status;
  Kit::Ptr<Hub::EntityManager> manager;
};

class Owner final : public Hub::Mounter {
 public:
  Owner(std::vector<Report>& reports, bool* gone = nullptr)
      : Mounter("owner"), reports_(reports), gone_(gone) {}
  ~Owner() override {
    if (gone_) *gone_ = true;
  }
  void handleMountStatus(Hub::MountStatus status,
                         const Kit::Ptr<Hub::EntityManager>& entityManager) override {
    reports_.push_back({status, entityManager});
  }

 private:
  std::vector<Report>& reports_;
  bool* gone_;
};

class MountGroupTest : public HubTest::Fixture {
 protected:
  void failOneMount() {
    EXPECT_THROW(mount.doMount("a", "No::Such", tableOf(1)), Hub::MountException);
  }
  std::vector<Report> reports;
  Kit::Ptr<Hub::Mounter> owner{new Owner(reports)};
};

TEST_F(MountGroupTest, IsReportedFromTheLoopWithTheManagerItCameFrom) {
  const auto group = manager->getMountGroup(owner);
  mount.doMount("members", memberType, tableOf(1));
  group->doClose(false, "", 0.0);
  EXPECT_TRUE(reports.empty()) << "not from within the call";
  loop.run();
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0].status, Hub::MountStatus::succeeded);
  EXPECT_TRUE(reports[0].manager == manager);
}

TEST_F(MountGroupTest, WithAFailedMountIsReportedAsFailed) {
  const auto group = manager->getMountGroup(owner);
  failOneMount();
  group->doClose(false, "", 0.0);
  loop.run();
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0].status, Hub::MountStatus::failed);
}

TEST_F(MountGroupTest, ThatMayBePartialIsReportedAsSucceeded) {
  const auto group = manager->getMountGroup(owner);
  failOneMount();
  group->doClose(true, "as many as there are", 1.5);
  loop.run();
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0].status, Hub::MountStatus::succeeded);
}

TEST_F(MountGroupTest, CountsFailuresBetweenItsOpeningAndItsClosingOnly) {
  failOneMount();
  const auto group = manager->getMountGroup(owner);
  group->doClose(false, "", 0.0);
  failOneMount();
  loop.run();
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0].status, Hub::MountStatus::succeeded);
}

TEST_F(MountGroupTest, ClosedTwiceIsReportedOnce) {
  const auto group = manager->getMountGroup(owner);
  group->doClose(false, "", 0.0);
  group->doClose(false, "", 0.0);
  loop.run();
  group->doClose(false, "", 0.0);
  loop.run();
  EXPECT_EQ(reports.size(), 1u);
}

TEST_F(MountGroupTest, DroppedUnclosedIsNeverReported) {
  manager->getMountGroup(owner);
  loop.run();
  EXPECT_TRUE(reports.empty());
  EXPECT_EQ(owner->references(), 1u);
}

TEST_F(MountGroupTest, RefusesATimeoutThatIsNone) {
  const auto group = manager->getMountGroup(owner);
  EXPECT_THROW(group->doClose(false, "", -1.0), Guard::RangeException);
  EXPECT_THROW(group->doClose(false, "", std::stod("nan")), Guard::RangeException);
  EXPECT_EQ(loop.posted(), 0u);
  group->doClose(false, "", 30.0);
  loop.run();
  EXPECT_EQ(reports.size(), 1u) << "the refused closings did not count";
}

TEST_F(MountGroupTest, ReportKeepsMounterAndManagerAliveAndLetsThemGoWhenDone) {
  bool gone = false;
  owner = Kit::Ptr<Hub::Mounter>(new Owner(reports, &gone));
  manager->getMountGroup(owner)->doClose(false, "", 0.0);
  owner = nullptr;
  const uint32_t handles = manager->references();
  EXPECT_FALSE(gone);
  loop.run();
  EXPECT_EQ(reports.size(), 1u);
  EXPECT_TRUE(gone);
  EXPECT_EQ(reports[0].manager->references(), handles) << "the report's own against the loop's";
}

TEST_F(MountGroupTest, LoopThatNeverRunsTheReportLetsTheMounterGo) {
  bool gone = false;
  {
    HubTest::Loop unrun;
    auto own = options();
    own.post = unrun.post();
    const auto other = Hub::makeEntityManager(std::move(own));
    other->getMountGroup(Kit::Ptr<Hub::Mounter>(new Owner(reports, &gone)))
        ->doClose(false, "", 0.0);
    EXPECT_FALSE(gone);
  }
  EXPECT_TRUE(gone);
  EXPECT_TRUE(reports.empty());
}

TEST(MountStatus, HasATextForm) {
  const auto text = [](Hub::MountStatus status) {
    std::ostringstream out;
    out << status;
    return out.str();
  };
  EXPECT_EQ(text(Hub::MountStatus::succeeded), "succeeded");
  EXPECT_EQ(text(Hub::MountStatus::failed), "failed");
  EXPECT_EQ(text(Hub::MountStatus::timedOut), "timedOut");
  EXPECT_EQ(text(static_cast<Hub::MountStatus>(9)), "MountStatus(9)");
}

}  // namespace
