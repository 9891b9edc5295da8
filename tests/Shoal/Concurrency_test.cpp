// Readers beside a writer at full speed: whole entries, all of them.
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/ptrace.h>

#include <atomic>
#include <chrono>
#include <random>
#include <thread>

#include "platform/Shoal/TableFormat.h"
#include "platform/Shoal/Words.h"
#include "tests/Shoal/TableTest.h"

namespace ShoalTest {
namespace {

using namespace std::chrono_literals;

// Keys 0 to `lasting` - 1 stay and are rewritten; the others come and go.
template <class Entry>
struct Turmoil {
  static constexpr uint32_t lasting = 20, passing = 40;
  static constexpr uint64_t perRound = 2 * lasting + passing;  // reads, at least

  static void prepare(MapOf<Entry>& map) {
    for (uint32_t number = 0; number < lasting; ++number) map.put(Entry::make(number, 0));
  }
  static void write(MapOf<Entry>& map, const std::atomic<bool>& stop) {
    std::mt19937 random(4711);
    for (uint32_t version = 1; !stop; ++version) {
      const uint32_t number = random() % (lasting + passing);
      if (number < lasting || random() % 2 == 0) {
        map.put(Entry::make(number, version));
      } else {
        map.erase(Entry::keyOf(number));
      }
    }
  }
  // Returns what was wrong, or an empty text, and how many entries it has read.
  static std::string read(const MapOf<Entry>& map, const std::atomic<bool>& stop,
                          std::atomic<uint64_t>& entries) {
    std::map<uint32_t, uint32_t> newest;
    for (uint32_t round = 0; !stop || round < 3; ++round) {
      uint32_t lastingSeen = 0;
      for (const Entry& entry : map.walk()) {
        if (!entry.sound()) return "torn entry in a walk";
        if (entry.id[0] < lasting) ++lastingSeen;
        ++entries;
      }
      if (lastingSeen != lasting) return "a walk missed an entry or saw one twice";
      for (uint32_t number = 0; number < lasting + passing; ++number) {
        bool found = false;
        const Entry entry = map.safeLookup(Entry::keyOf(number), found);
        ++entries;
        if (!found && number < lasting) return "an entry was not found";
        if (!found && !(entry == Entry{})) return "bytes in an entry that was not found";
        if (found && (!entry.sound() || entry.id != Entry::keyOf(number))) return "torn entry";
        if (found && entry.version() < std::exchange(newest[number], entry.version())) {
          return "an older version after a newer one";
        }
      }
    }
    return {};
  }
};

template <class Entry>
class ReadersBesideAWriter : public ::testing::Test {};
using AllEntries = ::testing::Types<Tiny, Odd, Route, Group>;
TYPED_TEST_SUITE(ReadersBesideAWriter, AllEntries);

TYPED_TEST(ReadersBesideAWriter, InOtherProcessesSeeWholeEntries) {
  using Storm = Turmoil<TypeParam>;
  TempRoot root;
  MapOf<TypeParam> map(writer<TypeParam>(root, 60));
  Storm::prepare(map);
  struct State {
    std::atomic<bool> stop{false};
    std::atomic<uint64_t> entries{0};
  };
  const Shared<State> state;
  std::vector<pid_t> children;
  for (int i = 0; i < 2; ++i) {
    children.push_back(startChild([&] {
      const MapOf<TypeParam> watching(reader<TypeParam>(root));
      const std::string fault = Storm::read(watching, state->stop, state->entries);
      if (!fault.empty()) std::fprintf(stderr, "reader: %s\n", fault.c_str());
      return fault.empty() ? 0 : 1;
    }));
  }
  std::thread alarm([&] {
    std::this_thread::sleep_for(300ms);
    state->stop = true;
  });
  Storm::write(map, state->stop);
  alarm.join();
  for (const pid_t child : children) {
    const int status = endOfChild(child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }
  EXPECT_GE(state->entries.load(), 2 * 3 * Storm::perRound);
}

// Threads that share the writer's mapping: what the thread sanitizer can follow.
TYPED_TEST(ReadersBesideAWriter, InOtherThreadsSeeWholeEntries) {
  using Storm = Turmoil<TypeParam>;
  TempRoot root;
  MapOf<TypeParam> map(writer<TypeParam>(root, 60));
  Storm::prepare(map);
  std::atomic<bool> stop{false};
  std::atomic<uint64_t> entries{0};
  std::array<std::string, 2> faults;
  std::vector<std::thread> threads;
  for (std::string& fault : faults) {
    threads.emplace_back([&] { fault = Storm::read(map, stop, entries); });
  }
  threads.emplace_back([&] {
    const auto follower = Shoal::follow(map.store(), 0);
    Shoal::ChangeFollower::Changes changes;
    while (!stop) {
      follower->wait(1ms);
      changes.clear();
      follower->take(changes, 100);
    }
  });
  threads.emplace_back([&] {
    std::this_thread::sleep_for(300ms);
    stop = true;
  });
  Storm::write(map, stop);
  for (std::thread& thread : threads) thread.join();
  for (const std::string& fault : faults) EXPECT_EQ(fault, "");
  EXPECT_GE(entries.load(), 2 * 3 * Storm::perRound);
}

TEST(ReadersBesideAGrowingTable, FindEveryEntryThatIsThere) {
  TempRoot root;
  MapOf<Route> map(writer<Route>(root, 200000));
  std::atomic<uint32_t> written{0};
  std::atomic<bool> failed{false};
  std::thread reading([&] {
    std::mt19937 random(1);
    while (written < 60000) {
      const uint32_t count = written;
      if (count == 0) continue;
      if (!map.has(Route::keyOf(random() % count))) failed = true;
    }
  });
  for (uint32_t number = 0; number < 60000; ++number) {
    map.put(Route::make(number, number));
    written = number + 1;
  }
  reading.join();
  EXPECT_FALSE(failed);
}

// The reader goes on by one instruction at a time, and the entry changes with each of them: no look
// at it finds it standing still, until the bound ends them.
TEST(ReadersOfAnEntryThatNeverStandsStill, AreToldThatItIsBusy) {
  if (sanitized) GTEST_SKIP() << "stepping through the sanitizer's own code takes too long";
  TempRoot root;
  MapOf<Route> map(writer<Route>(root, 1));
  map.put(Route::make(0, 0));
  const pid_t child = startChild([&] {
    const MapOf<Route> reading(reader<Route>(root));
    if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) return 3;
    ::raise(SIGSTOP);
    try {
      reading.has(Route::keyOf(0));
    } catch (const Shoal::BusyException& busy) {
      return busy.message().find("reads within 10 ms each met the writer") != std::string::npos ? 0
                                                                                                : 2;
    }
    return 1;
  });
  const auto file = Shoal::tableFile(root, tableName);
  const int descriptor = ::open(file.c_str(), O_RDWR | O_CLOEXEC);
  const Shoal::Plan plan(Route::entrySize, map.store()->layout().keyOffset,
                         map.store()->layout().keySize, 1);
  void* mapped = ::mmap(nullptr, plan.fileSize, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
  ::close(descriptor);
  ASSERT_NE(mapped, MAP_FAILED);
  auto& slot =
      *reinterpret_cast<Shoal::SlotHead*>(static_cast<std::byte*>(mapped) + plan.slotsOffset);
  // More than three times 64 looks take. It is over after the second 64, or after the third where
  // steps are quick; the way out from there need not be stepped through.
  constexpr int mostSteps = 50000;
  int status = 0;
  ::waitpid(child, &status, 0);
  for (int steps = 0; WIFSTOPPED(status) && steps < mostSteps; ++steps) {
    Shoal::put(slot.sequence, slot.sequence + 2);
    if (::ptrace(PTRACE_SINGLESTEP, child, nullptr, nullptr) != 0) break;
    ::waitpid(child, &status, 0);
  }
  if (WIFSTOPPED(status)) {
    ::ptrace(PTRACE_DETACH, child, nullptr, nullptr);
    status = endOfChild(child);
  }
  ::munmap(mapped, plan.fileSize);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  EXPECT_TRUE(map.has(Route::keyOf(0))) << "the table is sound";
}

// One key rewritten without pause: readers of it keep to their bound.
TEST(ReadersOfOneEntryRewrittenAtFullSpeed, AnswerOrAreBusyWithinTheirBound) {
  TempRoot root;
  MapOf<Group> map(writer<Group>(root, 1));
  map.put(Group::make(0, 0));
  const Shared<std::atomic<bool>> stop;
  const pid_t child = startChild([&] {
    const MapOf<Group> watching(reader<Group>(root));
    uint32_t answers = 0;
    for (uint32_t reads = 0; reads < 2000; ++reads) {
      const auto start = std::chrono::steady_clock::now();
      try {
        bool found = false;
        if (!watching.safeLookup(Group::keyOf(0), found).sound() || !found) return 1;
        ++answers;
      } catch (const Shoal::BusyException&) {
      }
      if (std::chrono::steady_clock::now() - start > 2s) return 2;
    }
    stop->store(true);
    return answers > 1000 ? 0 : 3;
  });
  for (uint32_t version = 1; !stop->load(); ++version) {
    map.put(Group::make(0, version));
    int status = 0;
    if (version % 1024 == 0 && ::waitpid(child, &status, WNOHANG) == child) {
      FAIL() << "the reader gave up with " << WEXITSTATUS(status);
    }
  }
  EXPECT_EQ(WEXITSTATUS(endOfChild(child)), 0);
}

}  // namespace
}  // namespace ShoalTest
