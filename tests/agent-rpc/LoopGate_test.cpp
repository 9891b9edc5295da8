// The way into the loop, which is bounded also while the loop stands still.
#include "agent/LoopGate.h"

#include <gtest/gtest.h>

#include <thread>

namespace Agent {
namespace {

using Outcome = LoopGate::Outcome;

LoopGate::Deadline past() { return std::chrono::system_clock::now() - std::chrono::seconds(1); }

// Runs what has been posted until now.
void turn(EventLoop& loop) {
  loop.post([&] { loop.stop(); });
  loop.run();
}

TEST(LoopGate, ALateCallKeepsItsPlaceUntilTheLoopHasSkippedIt) {
  EventLoop loop;
  LoopGate gate(loop, 2);
  int runs = 0;
  const auto work = [&] { ++runs; };
  EXPECT_EQ(gate.run(work, past()), Outcome::late);
  EXPECT_EQ(gate.run(work, past()), Outcome::late);
  EXPECT_EQ(gate.run(work, past()), Outcome::full);
  turn(loop);
  EXPECT_EQ(runs, 0);
  EXPECT_EQ(gate.run(work, past()), Outcome::late) << "room is given back";
}

TEST(LoopGate, AnExceptionOfTheWorkIsThrownAtItsCallerAndGivesThePlaceBack) {
  EventLoop loop;
  LoopGate gate(loop, 1);
  int caught = 0;
  bool last = false;
  std::thread caller([&] {
    for (int i = 0; i < 3; ++i) {
      try {
        gate.run([] { throw std::runtime_error("no"); });
      } catch (const std::runtime_error&) {
        ++caught;
      }
    }
    last = gate.run([&] { loop.stop(); }) == Outcome::done;
  });
  loop.run();
  caller.join();
  EXPECT_EQ(caught, 3);
  EXPECT_TRUE(last);
}

TEST(LoopGate, TurnsEverythingAwayOnceItIsClosed) {
  EventLoop loop;
  LoopGate gate(loop, 1);
  gate.close();
  EXPECT_EQ(gate.run([] {}), Outcome::closed);
}

}  // namespace
}  // namespace Agent
