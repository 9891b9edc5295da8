// The agent's start without memory: each allocation fails, once or with all that come after it, in
// a process of its own. It says so and ends, or starts all the same; and it starts the next time.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>

#include "agent/Agent.h"
#include "platform/P4Runtime/PluginLibrary.h"
#include "tests/Hub/HubTest.h"
#include "tests/Vane/FailingAllocator.h"

namespace {

using FailingAllocator::allocationsUntilFailure;
using FailingAllocator::Memory;

class NoServices final : public Agent::Services {
 public:
  void start(Needs) override {}
  void stop() override {}
  std::string p4InfoText() const override { return {}; }
};

class AgentStart : public FailingAllocator::Test {
 protected:
  // The plug-in's library is there already. A static object of it that cannot be made ends the
  // process, by the rules of the language; that is why a library is loaded on trial first.
  static void SetUpTestSuite() { P4Runtime::loadPluginLibrary(ROUTING_PLUGIN_FILE); }

  // Starts, serves nothing and ends; 0, or 1 with an error.
  int run() const {
    try {
      Agent::Options options;
      options.shoalRoot = root.path;
      options.defaultCapacity = 64;
      options.once = true;
      options.logLevel = Agent::LogLevel::error;
      return Agent::P4rtAgent(std::move(options), std::make_unique<NoServices>()).run();
    } catch (const std::exception&) {
      return 1;
    }
  }

  // The same in a process of its own, whose nth allocation fails. Returns the status that wait
  // gives.
  template <class Body>
  static int inChild(Body body) {
    const pid_t child = ::fork();
    if (child == 0) {
      std::freopen("/dev/null", "w", stdout);
      std::freopen("/dev/null", "w", stderr);
      ::_exit(body());
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return status;
  }

  const HubTest::TempRoot root;
};

TEST_F(AgentStart, WithoutMemoryEndsWithAnErrorAndTheNextOneStarts) {
  int pipe[2];
  ASSERT_EQ(::pipe(pipe), 0);
  ASSERT_EQ(inChild([&] {
              allocationsUntilFailure = INT_MAX;
              const int status = run();
              const int taken = INT_MAX - allocationsUntilFailure;
              allocationsUntilFailure = 0;
              return ::write(pipe[1], &taken, sizeof(taken)) == sizeof(taken) ? status : 2;
            }),
            0);
  int taken = 0;
  ASSERT_EQ(::read(pipe[0], &taken, sizeof(taken)), ssize_t{sizeof(taken)});
  ::close(pipe[0]);
  ::close(pipe[1]);
  constexpr int step = 3;  // of some thousand
  int failed = 0;
  for (const Memory memory : FailingAllocator::memories) {
    for (int nth = 1; nth <= taken; nth += step) {
      const int status = inChild([&] {
        allocationsUntilFailure = nth;
        FailingAllocator::staysExhausted = memory == Memory::isExhausted;
        return run();
      });
      EXPECT_TRUE(WIFEXITED(status)) << "allocation " << nth << ": signal " << WTERMSIG(status);
      failed += status != 0;
      EXPECT_EQ(inChild([&] { return run(); }), 0) << "after allocation " << nth;
    }
  }
  EXPECT_GT(failed, 0);
}

}  // namespace
