// Redis as network operating systems use it: a hash for each route, written in pipelines, and a
// message to whoever follows; over a Unix socket, without files.
#include <hiredis/hiredis.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <stdexcept>

#include "bench/Data.h"
#include "bench/Processes.h"
#include "bench/Runner.h"

namespace Bench {
namespace {

using Connection = std::unique_ptr<redisContext, decltype(&redisFree)>;
using Reply = std::unique_ptr<void, decltype(&freeReplyObject)>;

// A server for as long as the object lives.
class Server {
 public:
  Server() : socket_(directory_.path() / "redis.sock") {
    pid_ = ::fork();
    if (pid_ == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      ::execlp(BENCH_REDIS_SERVER, BENCH_REDIS_SERVER, "--port", "0", "--unixsocket",
               socket_.c_str(), "--save", "", "--appendonly", "no", "--logfile", "/dev/null",
               "--dir", directory_.path().c_str(), nullptr);
      ::_exit(127);
    }
    for (int tries = 0; tries < 1000 && !std::filesystem::exists(socket_); ++tries)
      sleepFor(10000000);
  }
  ~Server() {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  Connection connect() const {
    Connection made(redisConnectUnix(socket_.c_str()), &redisFree);
    if (!made || made->err) throw std::runtime_error("redis: no connection to the server");
    return made;
  }

 private:
  Directory directory_;
  std::filesystem::path socket_;
  pid_t pid_ = -1;
};

redisReply& await(redisContext& connection, Reply& reply) {
  void* got = nullptr;
  if (redisGetReply(&connection, &got) != REDIS_OK) throw std::runtime_error(connection.errstr);
  reply.reset(got);
  if (static_cast<redisReply*>(got)->type == REDIS_REPLY_ERROR)
    throw std::runtime_error(static_cast<redisReply*>(got)->str);
  return *static_cast<redisReply*>(got);
}

void finish(redisContext& connection, size_t replies) {
  Reply reply(nullptr, &freeReplyObject);
  for (size_t i = 0; i < replies; ++i) await(connection, reply);
}

const void* bytesOf(const IpGenPrefix& prefix) { return &prefix; }

void appendSet(redisContext& connection, const IpGenPrefix& prefix, const IpDestination& route) {
  redisAppendCommand(&connection, "HSET ROUTES %b %b", bytesOf(prefix), sizeof prefix, &route,
                     sizeof route);
}
void appendPublish(redisContext& connection, const IpGenPrefix& prefix) {
  redisAppendCommand(&connection, "PUBLISH ROUTES %b", bytesOf(prefix), sizeof prefix);
}

// Takes messages until so many have come.
template <class Each>
void subscribe(const Server& server, SharedWords& words, uint64_t messages, Each each) {
  const Connection connection = server.connect();
  redisAppendCommand(connection.get(), "SUBSCRIBE ROUTES");
  finish(*connection, 1);
  words.ready.store(1);
  Reply reply(nullptr, &freeReplyObject);
  for (uint64_t number = 1; number <= messages; ++number) {
    const redisReply& message = await(*connection, reply);
    check(message.elements == 3, "a message");
    each(number);
  }
}

// The server's work counts: wall-clock time.
void setPipelined(State& state) {
  const auto list = prefixes(static_cast<size_t>(state.range()));
  const Server server;
  const Connection connection = server.connect();
  for (auto _ : state) {
    const uint64_t begun = now();
    for (size_t i = 0; i < list.size(); ++i) {
      appendSet(*connection, list[i], routeTo(list[i], static_cast<uint32_t>(i)));
      if (i % 1000 == 999) finish(*connection, 1000);
    }
    state.SetIterationTime(static_cast<double>(now() - begun) * 1e-9);
  }
  itemsPerStep(state, list.size());
}
const Subject subjectSet(Subject::Once(), "BM_RedisSet_Pipelined", setPipelined, {100000});

void followLive(State& state) {
  constexpr size_t changes = 100000;
  const Server server;
  for (auto _ : state) {
    Child child([&](SharedWords& words) {
      const uint64_t begun = processorTime();
      subscribe(server, words, changes, [](uint64_t) {});
      words.processorTime.store(processorTime() - begun);
    });
    child.awaitReady();
    const Connection connection = server.connect();
    size_t number = 0;
    for (const IpGenPrefix& prefix : prefixes(changes)) {
      appendPublish(*connection, prefix);
      if (++number % 1000 == 0) finish(*connection, 1000);
    }
    child.join();
    state.SetIterationTime(static_cast<double>(child.words().processorTime) * 1e-9);
  }
  itemsPerStep(state, changes);
}
const Subject subjectLive(Subject::Once(), "BM_RedisFollow_Live", followLive);

void visible(State& state) {
  constexpr size_t messages = 2000;
  const Server server;
  const auto list = prefixes(messages);
  for (auto _ : state) {
    Child child([&](SharedWords& words) {
      subscribe(server, words, messages, [&](uint64_t number) { seen(words, number); });
    });
    const Connection connection = server.connect();
    const double latency = medianLatency(child, messages, 200000, [&](uint64_t number) {
      const IpGenPrefix& prefix = list[number - 1];
      appendSet(*connection, prefix, routeTo(prefix, static_cast<uint32_t>(number)));
      appendPublish(*connection, prefix);
      finish(*connection, 2);
    });
    child.join();
    state.SetIterationTime(latency * 1e-9);
  }
  itemsPerStep(state, 1);
}
const Subject subjectVisible(Subject::Once(), "BM_RedisVisible", visible);

}  // namespace
}  // namespace Bench
