// Clients that are none, or mean no good: the agent answers everybody else as before, in bounded
// memory.
#include <arpa/inet.h>
#include <grpcpp/generic/generic_stub.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <iostream>
#include <random>
#include <thread>

#include "platform/Kit/FileDescriptor.h"
#include "tests/agent-rpc/ServingAgent.h"

namespace RpcTest {
namespace {

using Kit::FileDescriptor;
using Random = std::mt19937;

class HostileClients : public testing::Test {
 protected:
  HostileClients() : agent(scratch) {
    memoryBefore = memory();
    random.seed(seed);
  }
  void TearDown() override {
    if (HasFailure()) std::cerr << "with the seed " << seed << '\n';
  }

  // A connection on which nobody has spoken yet.
  FileDescriptor connection() const {
    FileDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const std::string address = addressIn(runDirectory(scratch));
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<uint16_t>(std::stoi(address.substr(address.rfind(':') + 1))));
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(::connect(socket.get(), reinterpret_cast<const sockaddr*>(&to), sizeof(to)), 0)
        << strerror(errno);
    return socket;
  }
  // Its client vanishes: what it sent last may never arrive.
  static void breakOff(FileDescriptor socket) {
    const linger atOnce{1, 0};
    ::setsockopt(socket.get(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof(atOnce));
  }
  static void send(const FileDescriptor& socket, std::string_view bytes) {
    // The agent may have hung up meanwhile.
    static_cast<void>(::send(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL));
  }
  std::string noise(size_t length) {
    std::string bytes(length, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    return bytes;
  }

  // A Write whose request is these bytes, whatever they are.
  grpc::Status writeBytes(const std::string& bytes) const {
    grpc::GenericStub stub(agent.channel);
    grpc::CompletionQueue queue;
    Context context;
    const grpc::Slice slice(bytes);
    const grpc::ByteBuffer request(&slice, 1);
    const auto call = stub.PrepareUnaryCall(&context, "/p4.v1.P4Runtime/Write", request, &queue);
    call->StartCall();
    grpc::ByteBuffer response;
    grpc::Status status;
    call->Finish(&response, &status, nullptr);
    void* tag;
    bool ok;
    queue.Next(&tag, &ok);
    return status;
  }

  size_t memory() const {
    std::ifstream in("/proc/" + std::to_string(agent.process.pid()) + "/status");
    for (std::string line; std::getline(in, line);) {
      if (line.starts_with("RssAnon:")) return std::stoul(line.substr(8)) * 1024;
    }
    return 0;
  }
  void expectAnswers() { EXPECT_GT(agent.p4Info().tables_size(), 0); }
  void expectMemoryBound() const { EXPECT_LT(memory(), memoryBefore + (size_t{256} << 20)); }

  E2e::Scratch scratch;
  ServingAgent agent;
  size_t memoryBefore;
  const Random::result_type seed = std::random_device{}();
  Random random;
};

TEST_F(HostileClients, AThousandIdleConnectionsKeepNobodyElseOut) {
  rlimit files{};
  ::getrlimit(RLIMIT_NOFILE, &files);
  rlimit enough = files;
  enough.rlim_cur = std::min<rlim_t>(files.rlim_max, 4096);
  ::setrlimit(RLIMIT_NOFILE, &enough);
  if (enough.rlim_cur < 2048) GTEST_SKIP() << "this process may not have a thousand connections";
  std::vector<FileDescriptor> idle;
  while (idle.size() < 1000) idle.push_back(connection());
  expectAnswers();
  const auto another = p4::v1::P4Runtime::NewStub(
      grpc::CreateChannel(addressIn(runDirectory(scratch)), grpc::InsecureChannelCredentials()));
  Context context;
  p4::v1::CapabilitiesResponse response;
  EXPECT_TRUE(another->Capabilities(&context, {}, &response).ok()) << "a client that comes now";
  expectMemoryBound();
  idle.clear();
  expectAnswers();
  ::setrlimit(RLIMIT_NOFILE, &files);
}

TEST_F(HostileClients, NoiseIsNoHarm) {
  static constexpr std::string_view preface = "PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n";
  for (int round = 0; round < 300; ++round) {
    FileDescriptor socket = connection();
    if (round % 2 == 0) send(socket, preface);
    // Frames with a length, a type and flags that mean something, about anything.
    for (int frame = 0; frame < 20; ++frame) {
      const auto length = static_cast<uint8_t>(random());
      send(socket, std::string{'\0', '\0', static_cast<char>(length),
                               static_cast<char>(random() % 10), static_cast<char>(random())} +
                       noise(4 + length));
    }
    if (round % 3 == 0) breakOff(std::move(socket));
    if (round % 100 == 0) expectAnswers();
  }
  expectAnswers();
  expectMemoryBound();
}

TEST_F(HostileClients, AClientThatSaysALittleAndNoMoreIsNotWaitedFor) {
  std::vector<FileDescriptor> slow;
  for (int i = 0; i < 50; ++i) {
    slow.push_back(connection());
    send(slow.back(), std::string_view("PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n").substr(0, 1 + i % 24));
  }
  for (int i = 0; i < 20; ++i) expectAnswers();
}

TEST_F(HostileClients, MutatedWritesAreRefusedOrCarriedOutAndHarmNoOther) {
  Stream controller(*agent.stub, stating(5));
  const P4Info info = agent.p4Info();
  p4::v1::WriteRequest request = writeAs(5);
  for (int i = 0; i < 3; ++i) {
    p4::v1::Update& update = *request.add_updates();
    update.set_type(p4::v1::Update::INSERT);
    auto& member = *update.mutable_entity()->mutable_action_profile_member();
    member.set_action_profile_id(info.action_profiles(0).preamble().id());
    member.set_member_id(static_cast<uint32_t>(i) + 1);
    member.mutable_action()->set_action_id(info.actions(0).preamble().id());
  }
  const std::string bytes = request.SerializeAsString();
  for (int round = 0; round < 2000; ++round) {
    std::string mutated = bytes;
    for (unsigned changes = 1 + random() % 4; changes != 0; --changes) {
      switch (random() % 3) {
        case 0:
          mutated[random() % mutated.size()] = static_cast<char>(random());
          break;
        case 1:
          mutated.insert(random() % mutated.size(), noise(random() % 8));
          break;
        case 2:
          mutated.resize(1 + random() % mutated.size());
          break;
      }
    }
    const StatusCode code = writeBytes(mutated).error_code();
    ASSERT_NE(code, StatusCode::UNAVAILABLE) << "the connection has gone";
    ASSERT_NE(code, StatusCode::DEADLINE_EXCEEDED) << "no answer";
  }
  expectAnswers();
  expectMemoryBound();
}

TEST_F(HostileClients, CallsOfClientsThatVanishAreForgotten) {
  p4::v1::ReadRequest everything;
  everything.set_device_id(device);
  everything.add_entities()->mutable_table_entry();
  for (int round = 0; round < 200; ++round) {
    const auto client = p4::v1::P4Runtime::NewStub(
        grpc::CreateChannel(addressIn(runDirectory(scratch)), grpc::InsecureChannelCredentials()));
    Context context;
    const auto reading = client->Read(&context, everything);
    Stream stream(*client);
    stream.send(stating(1000 + static_cast<uint64_t>(round)));
    context.TryCancel();
  }
  expectAnswers();
  Stream controller(*agent.stub);
  EXPECT_EQ(controller.state(stating(100000)), 0) << "the first of the ids that are left";
  expectMemoryBound();
}

TEST(AgentsLog, ThatCannotBeWrittenStopsNothing) {
  const E2e::Scratch scratch;
  std::vector<std::string> arguments{"/bin/sh", "-c", "exec \"$0\" \"$@\" 2>/dev/full"};
  for (const auto& argument :
       E2e::agentOn(scratch.root(), {"--listen", "127.0.0.1:0", "--log-level", "debug"})) {
    arguments.push_back(argument);
  }
  E2e::Child agent(arguments);
  while (addressIn(runDirectory(scratch)).empty()) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  const auto stub = p4::v1::P4Runtime::NewStub(
      grpc::CreateChannel(addressIn(runDirectory(scratch)), grpc::InsecureChannelCredentials()));
  Context context;
  p4::v1::CapabilitiesResponse response;
  EXPECT_TRUE(stub->Capabilities(&context, {}, &response).ok());
  agent.signal(SIGTERM);
  EXPECT_EQ(agent.wait().status, 0);
}

}  // namespace
}  // namespace RpcTest
