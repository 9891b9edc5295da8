// Following a table's changes without scanning it.
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <thread>

#include "platform/Shoal/Store.h"
#include "tests/Shoal/TableTest.h"

namespace ShoalTest {
namespace {

using namespace std::chrono_literals;
using Follower = Shoal::ChangeFollower;
using Result = Follower::Result;

class Following : public ::testing::Test {
 protected:
  Following() : map_(writer<Tiny>(root_, 3000)), watching_(reader<Tiny>(root_)) {}

  static uint32_t numberOf(const Follower::Change& change) {
    uint32_t number = 0;
    for (size_t i = 0; i < 4; ++i) number |= std::to_integer<uint32_t>(change.key[i]) << 8 * i;
    return number;
  }

  TempRoot root_;
  MapOf<Tiny> map_;
  std::shared_ptr<Shoal::TableStore> watching_;
  Follower::Changes changes_;
};

TEST_F(Following, StartsAfterTheLatestChange) {
  map_.put(Tiny::make(1, 1));
  const auto follower = Shoal::follow(watching_);
  EXPECT_EQ(follower->position(), 1u);
  EXPECT_EQ(follower->take(changes_, 10), Result::none);
  map_.put(Tiny::make(2, 1));
  EXPECT_EQ(follower->take(changes_, 10), Result::changes);
  ASSERT_EQ(changes_.size(), 1u);
  EXPECT_EQ(changes_[0].number, 2u);
  EXPECT_EQ(numberOf(changes_[0]), 2u);
  EXPECT_FALSE(changes_[0].removed);
  EXPECT_EQ(follower->position(), 2u);
}

TEST_F(Following, TellsOfInsertReplaceAndRemovalInOrder) {
  const auto follower = Shoal::follow(watching_, 0);
  map_.put(Tiny::make(1, 1));
  map_.put(Tiny::make(1, 1));  // also of an equal entry
  map_.erase(Tiny::keyOf(5));  // not there: no change
  map_.erase(Tiny::keyOf(1));
  EXPECT_EQ(follower->take(changes_, 2), Result::changes);
  EXPECT_EQ(changes_.size(), 2u) << "no more than asked for";
  EXPECT_EQ(follower->take(changes_, 10), Result::changes);
  ASSERT_EQ(changes_.size(), 3u);
  for (uint64_t i = 0; i < 3; ++i) {
    EXPECT_EQ(changes_[i].number, i + 1);
    EXPECT_EQ(changes_[i].removed, i == 2);
  }
  EXPECT_EQ(follower->take(changes_, 10), Result::none);
}

TEST_F(Following, TellsOfEachEntryThatClearRemoves) {
  for (uint32_t number = 0; number < 100; ++number) map_.put(Tiny::make(number, 1));
  const auto follower = Shoal::follow(watching_);
  map_.clear();
  EXPECT_EQ(follower->take(changes_, 1000), Result::changes);
  std::map<uint32_t, bool> removed;
  for (const auto& change : changes_) removed[numberOf(change)] = change.removed;
  EXPECT_EQ(changes_.size(), 100u);
  EXPECT_EQ(removed.size(), 100u);
  EXPECT_TRUE(removed[0] && removed[99]);
}

TEST_F(Following, GoesThroughTheWholeRing) {
  const auto follower = Shoal::follow(watching_, 0);
  uint64_t expected = 0;
  for (uint32_t number = 0; number < 10000; ++number) {
    map_.put(Tiny::make(number % 3000, number));
    if (number % 4000 != 3999) continue;
    changes_.clear();
    ASSERT_EQ(follower->take(changes_, 5000), Result::changes);
    ASSERT_EQ(changes_.size(), 4000u);
    for (const auto& change : changes_) {
      ASSERT_EQ(change.number, ++expected);
      ASSERT_EQ(numberOf(change), (expected - 1) % 3000);
    }
  }
}

TEST_F(Following, ThatHasFallenTooFarBehindIsToldSoAndGoesOnFromNow) {
  const auto follower = Shoal::follow(watching_, 0);
  for (uint32_t number = 0; number < 4096; ++number) map_.put(Tiny::make(1, number));
  EXPECT_EQ(follower->take(changes_, 1), Result::changes) << "the ring holds 4096";
  map_.put(Tiny::make(1, 1));
  EXPECT_EQ(follower->take(changes_, 1), Result::changes);
  for (uint32_t number = 0; number < 10; ++number) map_.put(Tiny::make(1, number));
  changes_.clear();
  EXPECT_EQ(follower->take(changes_, 10), Result::missed);
  EXPECT_TRUE(changes_.empty());
  EXPECT_EQ(follower->position(), 4107u);
  EXPECT_EQ(follower->take(changes_, 10), Result::none);
  map_.put(Tiny::make(2, 1));
  EXPECT_EQ(follower->take(changes_, 10), Result::changes);
}

TEST_F(Following, FromAChangeThatHasNotHappenedIsTreatedAsMissed) {
  const auto follower = Shoal::follow(watching_, 99);
  EXPECT_EQ(follower->take(changes_, 10), Result::missed);
  EXPECT_EQ(follower->position(), 0u);
}

TEST_F(Following, WaitsUntilThereIsAChangeOrNoLonger) {
  const auto follower = Shoal::follow(watching_);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(follower->wait(50ms));
  EXPECT_GE(std::chrono::steady_clock::now() - start, 50ms);
  map_.put(Tiny::make(1, 1));
  EXPECT_TRUE(follower->wait(0ms));
}

// A sleeper that only a wake-up call could wake would sleep for a day, or until the alarm.
TEST_F(Following, SleepsThroughNoChangeThoughNobodyCallsIt) {
  const Shared<std::atomic<bool>> isAbout;
  const auto follower = Shoal::follow(watching_);
  const pid_t child = startChild([&] {
    ::alarm(200);
    isAbout->store(true);
    return follower->wait(24h) ? 0 : 1;
  });
  while (!*isAbout) std::this_thread::yield();
  std::this_thread::sleep_for(50ms);  // for it to fall asleep
  map_.put(Tiny::make(1, 1));
  const int status = endOfChild(child);
  EXPECT_TRUE(WIFEXITED(status)) << "killed by signal " << WTERMSIG(status);
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

// The word in the header on which followers sleep.
uint32_t& wakesOf(const std::shared_ptr<Shoal::TableStore>& store) {
  return std::dynamic_pointer_cast<Shoal::Store>(store)->view().header().wakes;
}
// The kernel's own form of a time span, whatever the C library's is.
struct KernelSpan {
  long seconds, nanoseconds;
};
long futex(uint32_t& word, int operation, uint32_t value, const KernelSpan* limit = nullptr) {
  return ::syscall(SYS_futex, &word, operation, value, limit, nullptr, 0);
}

TEST_F(Following, SleepsOnTheWordThatTheWriterRaises) {
  const pid_t child = startChild([&] {
    const auto follower = Shoal::follow(watching_);
    return follower->wait(10s) ? 0 : 1;
  });
  while (futex(wakesOf(map_.store()), FUTEX_WAKE, 1) == 0) std::this_thread::yield();
  map_.put(Tiny::make(1, 1));
  map_.store()->wakeFollowers();
  EXPECT_EQ(endOfChild(child), 0);
}

// Whoever comes to sleep after the word was raised is told so at once, and tries again.
TEST_F(Following, SleepersAreWokenByTheWriter) {
  constexpr int woken = 0, sleptOn = 1, cameLate = 2;
  int ended = cameLate;
  for (auto pause = 1ms; ended == cameLate; pause *= 2) {
    const uint32_t before = wakesOf(map_.store());
    const pid_t child = startChild([&] {
      const KernelSpan limit{10, 0};
      if (futex(wakesOf(watching_), FUTEX_WAIT, before, &limit) == 0) return woken;
      return errno == EAGAIN ? cameLate : sleptOn;
    });
    std::this_thread::sleep_for(pause);
    map_.store()->wakeFollowers();
    const int status = endOfChild(child);
    ASSERT_TRUE(WIFEXITED(status)) << "killed by signal " << WTERMSIG(status);
    ended = WEXITSTATUS(status);
  }
  EXPECT_EQ(ended, woken);
}

TEST_F(Following, ByAProcessBesideTheWriterMissesNothing) {
  constexpr uint32_t last = 50000;
  const pid_t child = startChild([&] {
    const auto follower = Shoal::follow(watching_, 0);
    uint64_t expected = 0;
    Follower::Changes changes;
    while (expected < last) {
      if (!follower->wait(10s)) return 1;
      changes.clear();
      const Result result = follower->take(changes, 100);
      if (result == Result::missed) {
        if (follower->position() <= expected) return 2;
        expected = follower->position();
      }
      for (const auto& change : changes) {
        if (change.number != ++expected || numberOf(change) != change.number % 3000) return 3;
      }
    }
    return 0;
  });
  for (uint32_t number = 1; number <= last; ++number) map_.put(Tiny::make(number % 3000, number));
  map_.store()->wakeFollowers();
  const int status = endOfChild(child);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

}  // namespace
}  // namespace ShoalTest
