// Who may call what, and in which order it is looked at.
#include "tests/agent-rpc/Rpc.h"

namespace RpcTest {
namespace {

struct Access : testing::Test {
  Served served;
  std::unique_ptr<p4::v1::P4Runtime::Stub> stub = served.client();

  StatusCode capabilities(uint64_t deviceId, std::string* version = nullptr) {
    Context context;
    p4::v1::CapabilitiesRequest request;
    request.set_device_id(deviceId);
    p4::v1::CapabilitiesResponse response;
    const grpc::Status status = stub->Capabilities(&context, request, &response);
    if (version != nullptr) *version = response.p4runtime_api_version();
    return status.error_code();
  }
  StatusCode get(uint64_t deviceId, p4::v1::GetForwardingPipelineConfigResponse* response) {
    Context context;
    p4::v1::GetForwardingPipelineConfigRequest request;
    request.set_device_id(deviceId);
    return stub->GetForwardingPipelineConfig(&context, request, response).error_code();
  }
  using Set = p4::v1::SetForwardingPipelineConfigRequest;
  static Set settingAs(uint64_t id, Set::Action action = Set::VERIFY_AND_COMMIT) {
    Set request;
    request.set_device_id(device);
    request.mutable_election_id()->set_low(id);
    request.set_action(action);
    return request;
  }
  grpc::Status set(const Set& request) {
    Context context;
    p4::v1::SetForwardingPipelineConfigResponse response;
    return stub->SetForwardingPipelineConfig(&context, request, &response);
  }
};

TEST_F(Access, CapabilitiesOfNoDeviceAreTheServers) {
  served.target.isReady = false;
  std::string version;
  EXPECT_EQ(capabilities(0, &version), StatusCode::OK);
  EXPECT_EQ(version, "1.5.0");
}

TEST_F(Access, CapabilitiesOfTheDeviceAreTold) {
  std::string version;
  EXPECT_EQ(capabilities(device, &version), StatusCode::OK);
  EXPECT_EQ(version, "1.5.0");
}

TEST_F(Access, CapabilitiesOfAnotherDeviceAreNotFound) {
  EXPECT_EQ(capabilities(device + 1), StatusCode::NOT_FOUND);
}

TEST_F(Access, TheConfigurationIsGivenWithoutASession) {
  served.target.config.mutable_cookie()->set_cookie(77);
  p4::v1::GetForwardingPipelineConfigResponse response;
  EXPECT_EQ(get(device, &response), StatusCode::OK);
  EXPECT_EQ(response.config().cookie().cookie(), 77u);
}

TEST_F(Access, TheConfigurationOfAnotherDeviceIsNotFound) {
  p4::v1::GetForwardingPipelineConfigResponse response;
  EXPECT_EQ(get(device + 1, &response), StatusCode::NOT_FOUND);
  EXPECT_EQ(get(0, &response), StatusCode::NOT_FOUND);
  EXPECT_EQ(served.target.calls, 0);
}

TEST_F(Access, ConfiguringAnotherDeviceIsNotFound) {
  Set request = settingAs(1);
  request.set_device_id(device + 1);
  EXPECT_EQ(set(request).error_code(), StatusCode::NOT_FOUND);
}

TEST_F(Access, ConfiguringInARoleThatNobodyHoldsIsRefused) {
  Stream primary(*stub, stating(1));
  Set request = settingAs(1);
  request.set_role("nobody's");
  const StatusCode code = set(request).error_code();
  EXPECT_TRUE(code == StatusCode::NOT_FOUND || code == StatusCode::PERMISSION_DENIED) << code;
}

TEST_F(Access, ConfiguringIsThePrimarysForEveryAction) {
  Stream primary(*stub, stating(5)), backup(*stub, stating(4));
  for (int action = Set::UNSPECIFIED; action <= Set::RECONCILE_AND_COMMIT; ++action) {
    const auto as = static_cast<Set::Action>(action);
    EXPECT_EQ(set(settingAs(4, as)).error_code(), StatusCode::PERMISSION_DENIED) << action;
    EXPECT_EQ(served.target.calls, 0);
  }
  Set absent = settingAs(0);
  absent.clear_election_id();
  EXPECT_EQ(set(absent).error_code(), StatusCode::PERMISSION_DENIED);
  EXPECT_EQ(set(settingAs(5)).error_code(), StatusCode::OK);
  EXPECT_EQ(served.target.calls, 1);
}

TEST_F(Access, ConfiguringNeedsNoPipelineAndFailsAsTheTargetSays) {
  served.target.isReady = false;
  served.target.onPipelineIs = [](const Set& request) {
    return grpc::Status(StatusCode::INVALID_ARGUMENT,
                        "action " + std::to_string(request.action()) + ": \xff");
  };
  Stream primary(*stub, stating(1));
  const grpc::Status status = set(settingAs(1, Set::VERIFY));
  EXPECT_EQ(status.error_code(), StatusCode::INVALID_ARGUMENT);
  EXPECT_EQ(status.error_message(), "action 1: \\xff");
}

TEST_F(Access, ReadingAnotherDeviceIsNotFoundAlsoWithoutAPipeline) {
  served.target.isReady = false;
  EXPECT_EQ(read(*stub, readOf(device + 1)).error_code(), StatusCode::NOT_FOUND);
  EXPECT_EQ(read(*stub, readOf(0)).error_code(), StatusCode::NOT_FOUND);
}

TEST_F(Access, ReadingWithoutAPipelineFailsAsTheTargetSays) {
  served.target.isReady = false;
  EXPECT_EQ(read(*stub, readOf()).error_code(), StatusCode::FAILED_PRECONDITION);
}

TEST_F(Access, ReadingNeedsNoSession) {
  p4::v1::ReadRequest request = readOf();
  request.set_role("nobody's");
  EXPECT_EQ(read(*stub, request).error_code(), StatusCode::OK);
  EXPECT_EQ(served.target.calls, 1);
}

TEST_F(Access, WritingToAnotherDeviceIsNotFound) {
  served.target.isReady = false;
  Stream primary(*stub, stating(1));
  p4::v1::WriteRequest request = writeAs(1);
  request.set_device_id(device + 1);
  EXPECT_EQ(write(*stub, request).error_code(), StatusCode::NOT_FOUND);
}

TEST_F(Access, WritingInARoleThatNobodyHoldsIsRefused) {
  Stream primary(*stub, stating(1));
  const StatusCode code = writes(*stub, 1, "nobody's");
  EXPECT_TRUE(code == StatusCode::NOT_FOUND || code == StatusCode::PERMISSION_DENIED) << code;
}

TEST_F(Access, WritingWithoutAPrimaryIsDenied) {
  EXPECT_EQ(writes(*stub, 1), StatusCode::PERMISSION_DENIED);
  Stream backup(*stub, unset());
  EXPECT_EQ(writes(*stub, 0), StatusCode::PERMISSION_DENIED);
}

TEST_F(Access, WritingAsABackupIsDeniedAlsoWithoutAPipeline) {
  served.target.isReady = false;
  Stream primary(*stub, stating(5)), backup(*stub, stating(4));
  EXPECT_EQ(writes(*stub, 4), StatusCode::PERMISSION_DENIED);
  EXPECT_EQ(writes(*stub, 6), StatusCode::PERMISSION_DENIED);
}

TEST_F(Access, WritingWithoutAnElectionIdIsDeniedAlsoWhenThePrimarysIsZero) {
  Stream primary(*stub, stating(0));
  p4::v1::WriteRequest request = writeAs(0);
  EXPECT_EQ(write(*stub, request).error_code(), StatusCode::OK);
  request.clear_election_id();
  EXPECT_EQ(write(*stub, request).error_code(), StatusCode::PERMISSION_DENIED);
}

TEST_F(Access, WritingWithoutAPipelineFailsAsTheTargetSays) {
  served.target.isReady = false;
  Stream primary(*stub, stating(1));
  EXPECT_EQ(writes(*stub, 1), StatusCode::FAILED_PRECONDITION);
}

TEST_F(Access, WritingAsThePrimaryMayComeOverAnotherConnection) {
  Stream primary(*stub, stating(1));
  EXPECT_EQ(writes(*served.client(), 1), StatusCode::OK);
}

TEST_F(Access, ThePrimaryOfANumberedRoleWritesUnderTheNumber) {
  Arbitration message = stating(3);
  message.mutable_role()->set_id(9);
  Stream primary(*stub, message);
  p4::v1::WriteRequest request = writeAs(3);
  EXPECT_EQ(write(*stub, request).error_code(), StatusCode::PERMISSION_DENIED);
  request.set_role_id(9);
  EXPECT_EQ(write(*stub, request).error_code(), StatusCode::OK);
}

TEST(AnotherDeviceId, IsTheOnlyOneThatIsKnown) {
  Offer offer;
  offer.arbitration.deviceId = 42;
  Served served(offer);
  const auto stub = served.client();
  EXPECT_EQ(read(*stub, readOf(42)).error_code(), StatusCode::OK);
  EXPECT_EQ(read(*stub, readOf(1)).error_code(), StatusCode::NOT_FOUND);
}

}  // namespace
}  // namespace RpcTest
