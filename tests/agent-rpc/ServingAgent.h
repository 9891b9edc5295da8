// The agent as a process that serves P4Runtime, and a connection to it.
#pragma once

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "tests/agent-rpc/Rpc.h"
#include "tests/e2e/Programs.h"

namespace RpcTest {

using p4::config::v1::P4Info;

inline std::filesystem::path runDirectory(const E2e::Scratch& scratch) {
  return scratch.root() + ".run";
}

inline std::string addressIn(const std::filesystem::path& directory) {
  std::ifstream in(directory / "p4runtime.addr");
  std::string line;
  std::getline(in, line);
  return line;
}

// An agent that serves on a port of its own choice.
struct ServingAgent {
  explicit ServingAgent(const E2e::Scratch& scratch, const std::vector<std::string>& more = {})
      : process(E2e::agentOn(scratch.root(), [&] {
          std::vector<std::string> all{"--listen", "127.0.0.1:0"};
          all.insert(all.end(), more.begin(), more.end());
          return all;
        }())) {
    process.waitForErr("P4Runtime on ");
    channel =
        grpc::CreateChannel(addressIn(runDirectory(scratch)), grpc::InsecureChannelCredentials());
    stub = p4::v1::P4Runtime::NewStub(channel);
  }

  P4Info p4Info() {
    Context context;
    p4::v1::GetForwardingPipelineConfigRequest request;
    request.set_device_id(device);
    p4::v1::GetForwardingPipelineConfigResponse response;
    EXPECT_TRUE(stub->GetForwardingPipelineConfig(&context, request, &response).ok());
    return response.config().p4info();
  }

  E2e::Child process;
  std::shared_ptr<grpc::Channel> channel;
  std::unique_ptr<p4::v1::P4Runtime::Stub> stub;
};

}  // namespace RpcTest
