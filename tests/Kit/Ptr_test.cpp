#include "platform/Kit/Ptr.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>
#include <vector>

#include "tests/Kit/Entities.h"

namespace {

using Kit::Ptr;
using KitTest::Listener;
using KitTest::Probe;

TEST(Handle, LastOneToGoDestroysTheEntity) {
  bool gone = false;
  Ptr<Probe> a(new Probe("a", &gone));
  Ptr<Probe> b = a;
  EXPECT_EQ(a->references(), 2u);
  a = nullptr;
  EXPECT_FALSE(gone);
  b = nullptr;
  EXPECT_TRUE(gone);
}

TEST(Handle, MovingTakesNoReferenceAndLeavesTheSourceEmpty) {
  Ptr<Probe> a(new Probe("a"));
  const Ptr<Probe> b = std::move(a);
  EXPECT_FALSE(a);  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(b->references(), 1u);
}

TEST(Handle, AssignedToItselfStays) {
  bool gone = false;
  Ptr<Probe> a(new Probe("a", &gone));
  const Ptr<Probe>& same = a;
  a = same;
  EXPECT_FALSE(gone);
  EXPECT_EQ(a->references(), 1u);
}

TEST(Handle, EqualityIsIdentity) {
  const Ptr<Probe> a(new Probe("same")), b(new Probe("same"));
  const Ptr<const Kit::Entity> alsoA = a;
  EXPECT_TRUE(a == alsoA);
  EXPECT_FALSE(a == b);
  EXPECT_TRUE(Ptr<Probe>() == nullptr);
}

TEST(Handle, CastToAnotherTypeIsEmpty) {
  const Ptr<Kit::Entity> a(new Probe("a"));
  EXPECT_TRUE(Kit::dynamicCast<Probe>(a) == a);
  EXPECT_FALSE(Kit::dynamicCast<Kit::Dir>(a));
  EXPECT_FALSE(Kit::dynamicCast<Probe>(Ptr<Kit::Entity>()));
}

TEST(HandleDeathTest, UseOfAnEmptyOneIsAStandardAssertion) {
  const Ptr<Probe> empty;
  EXPECT_DEATH(static_cast<void>(empty->references()), "Assertion `handle holds an entity' failed");
  EXPECT_DEATH(static_cast<void>((*empty).references()),
               "Assertion `handle holds an entity' failed");
}

// Under the thread sanitizer this also shows that handles in thread-safe mode do not race.
TEST(Handle, CountIsExactWithManyThreadsInThreadSafeMode) {
  Kit::ptrModeIs(Kit::PtrMode::threadSafe);
  bool gone = false;
  Ptr<Probe> shared(new Probe("shared", &gone));
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([shared] {
      for (int i = 0; i < 20000; ++i) {
        Ptr<const Probe> copy = shared;
        const Ptr<const Probe> moved = std::move(copy);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  threads.clear();
  EXPECT_EQ(shared->references(), 1u);
  shared = nullptr;
  EXPECT_TRUE(gone);
  Kit::ptrModeIs(Kit::PtrMode::plain);
}

TEST(Handle, LastOneInAnotherThreadDestroysTheEntityInThreadSafeMode) {
  Kit::ptrModeIs(Kit::PtrMode::threadSafe);
  for (int i = 0; i < 200; ++i) {
    bool gone = false;
    Ptr<Probe> here(new Probe("shared", &gone));
    std::thread other([there = here]() mutable { there = nullptr; });
    here = nullptr;
    other.join();
    ASSERT_TRUE(gone);
  }
  Kit::ptrModeIs(Kit::PtrMode::plain);
}

TEST(Notification, ReachesEveryNotifieeInOrderOfJoining) {
  const Ptr<Probe> probe(new Probe("probe"));
  std::vector<std::pair<int, uint32_t>> heard;
  const int key = 7;
  const void* seenKey = nullptr;
  Listener first(probe, [&](uint32_t attr, const void* k) {
    heard.emplace_back(1, attr);
    seenKey = k;
  });
  Listener second(probe, [&](uint32_t attr, const void*) { heard.emplace_back(2, attr); });
  EXPECT_EQ(probe->notifiees(), 2u);
  probe->change(258, &key);
  EXPECT_EQ(heard, (std::vector<std::pair<int, uint32_t>>{{1, 258}, {2, 258}}));
  EXPECT_EQ(seenKey, &key);
}

TEST(Notification, NotifieeKeepsItsNotifierAlive) {
  bool gone = false;
  auto listener =
      std::make_unique<Listener>(Ptr<Probe>(new Probe("p", &gone)), [](uint32_t, const void*) {});
  EXPECT_FALSE(gone);
  listener.reset();
  EXPECT_TRUE(gone);
}

TEST(Notification, NotifieeThatLeftHearsNothingMore) {
  const Ptr<Probe> probe(new Probe("probe"));
  int heard = 0;
  {
    Listener listener(probe, [&](uint32_t, const void*) { ++heard; });
    probe->change(1);
  }
  probe->change(1);
  EXPECT_EQ(heard, 1);
  EXPECT_EQ(probe->notifiees(), 0u);
}

TEST(Notification, NotifieeMayLeaveDuringItsOwnCall) {
  const Ptr<Probe> probe(new Probe("probe"));
  int heard = 0, after = 0;
  std::unique_ptr<Listener> leaving;
  leaving = std::make_unique<Listener>(probe, [&](uint32_t, const void*) {
    ++heard;
    auto self = std::move(leaving);  // goes when the call's last statement is done
  });
  Listener behind(probe, [&](uint32_t, const void*) { ++after; });
  probe->change(1);
  probe->change(1);
  EXPECT_EQ(heard, 1);
  EXPECT_EQ(after, 2);
}

TEST(Notification, OneThatLeavesBeforeItsTurnIsPassedOver) {
  const Ptr<Probe> probe(new Probe("probe"));
  int heard = 0, last = 0;
  std::unique_ptr<Listener> second;
  Listener first(probe, [&](uint32_t, const void*) { second.reset(); });
  second = std::make_unique<Listener>(probe, [&](uint32_t, const void*) { ++heard; });
  Listener third(probe, [&](uint32_t, const void*) {
    ++last;
    EXPECT_EQ(probe->notifiees(), 2u) << "the empty place is not counted";
  });
  probe->change(1);
  EXPECT_EQ(heard, 0);
  EXPECT_EQ(last, 1);
  EXPECT_EQ(probe->notifiees(), 2u);
}

TEST(Notification, OneThatJoinsHearsFromTheNextChangeOn) {
  const Ptr<Probe> probe(new Probe("probe"));
  int heard = 0;
  std::vector<std::unique_ptr<Listener>> joined;
  Listener first(probe, [&](uint32_t, const void*) {
    // Enough of them that the list has to grow.
    for (int i = 0; i < 20; ++i) {
      joined.push_back(std::make_unique<Listener>(probe, [&](uint32_t, const void*) { ++heard; }));
    }
  });
  probe->change(1);
  EXPECT_EQ(heard, 0);
  probe->change(1);
  EXPECT_EQ(heard, 20);
}

TEST(Notification, NestedChangeSweepsOnlyWhenTheOutermostEnds) {
  const Ptr<Probe> probe(new Probe("probe"));
  std::vector<uint32_t> heardByLast;
  std::unique_ptr<Listener> second;
  Listener first(probe, [&](uint32_t attr, const void*) {
    if (attr != 1) return;
    second.reset();
    probe->change(2);
  });
  second = std::make_unique<Listener>(probe, [](uint32_t, const void*) { FAIL(); });
  Listener last(probe, [&](uint32_t attr, const void*) { heardByLast.push_back(attr); });
  probe->change(1);
  EXPECT_EQ(heardByLast, (std::vector<uint32_t>{2, 1}));
}

TEST(Notification, NotifierOutlivesTheRoundInWhichItsLastHandleGoes) {
  bool gone = false;
  Ptr<Probe> probe(new Probe("probe", &gone));
  std::unique_ptr<Listener> only;
  bool goneDuring = true;
  only = std::make_unique<Listener>(probe, [&](uint32_t, const void*) {
    bool &nowGone = gone, &seen = goneDuring;  // the listener takes this closure along
    probe = nullptr;
    std::exchange(only, nullptr).reset();
    seen = nowGone;
  });
  const Probe* raw = probe.get();
  raw->change(1);
  EXPECT_FALSE(goneDuring);
  EXPECT_TRUE(gone);
}

TEST(Notification, ExceptionPassesOnWhenAllHaveHeard) {
  const Ptr<Probe> probe(new Probe("probe"));
  int heard = 0;
  std::unique_ptr<Listener> leaving =
      std::make_unique<Listener>(probe, [](uint32_t, const void*) {});
  Listener thrower(probe, [&](uint32_t attr, const void*) {
    leaving.reset();
    if (attr == 1) throw std::runtime_error("thrown");
  });
  Listener behind(probe, [&](uint32_t, const void*) { ++heard; });
  EXPECT_THROW(probe->change(1), std::runtime_error);
  EXPECT_EQ(heard, 1);
  EXPECT_EQ(probe->notifiees(), 2u);
  probe->change(2);
  EXPECT_EQ(heard, 2);
}

TEST(Notification, BaseNotifieeIgnoresEveryChange) {
  class Plain final : public Kit::PtrInterface::NotifieeConst {
   public:
    explicit Plain(Ptr<const Kit::PtrInterface> n) : NotifieeConst(std::move(n)) {}
  };
  const Ptr<Probe> probe(new Probe("probe"));
  const Plain plain(probe);
  probe->change(1);
  EXPECT_TRUE(plain.notifier() == probe);
}

TEST(NotificationDeathTest, NotifieeOfNothingIsAStandardAssertion) {
  EXPECT_DEATH(Listener(Ptr<Probe>(), [](uint32_t, const void*) {}), "Assertion `notifier' failed");
}

}  // namespace
