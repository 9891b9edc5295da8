// StreamChannel over a socket: who becomes primary, who is told, what ends a stream.
#include <future>
#include <optional>
#include <thread>

#include "tests/agent-rpc/Rpc.h"

namespace RpcTest {
namespace {

struct StreamChannel : testing::Test {
  static Offer offer() {
    Offer offer;
    offer.arbitration.streamsPerRole = 3;
    return offer;
  }
  Served served{offer()};
  std::unique_ptr<p4::v1::P4Runtime::Stub> stub = served.client();
};

// Faults of a first message.

TEST_F(StreamChannel, AFirstMessageForAnotherDeviceEndsItWithNotFound) {
  Arbitration message = stating(1);
  message.set_device_id(device + 1);
  EXPECT_EQ(Stream(*stub).endsWith(message), StatusCode::NOT_FOUND);
  message.set_device_id(0);
  EXPECT_EQ(Stream(*stub).endsWith(message), StatusCode::NOT_FOUND) << "0 is never a device";
}

TEST_F(StreamChannel, AFirstMessageWithAnIdInUseEndsItWithInvalidArgument) {
  Stream first(*stub, stating(1));
  EXPECT_EQ(Stream(*stub).endsWith(stating(1)), StatusCode::INVALID_ARGUMENT);
  EXPECT_EQ(writes(*stub, 1), StatusCode::OK) << "the one who has it keeps it";
}

TEST_F(StreamChannel, AFirstMessageWithARoleConfigurationEndsItWithInvalidArgument) {
  Arbitration message = stating(1, "west");
  message.mutable_role()->mutable_config()->set_type_url("type.googleapis.com/a.Config");
  EXPECT_EQ(Stream(*stub).endsWith(message), StatusCode::INVALID_ARGUMENT);
}

TEST_F(StreamChannel, OneStreamTooManyForARoleEndsWithResourceExhausted) {
  Stream one(*stub, stating(1)), two(*stub, unset()), three(*stub, unset());
  EXPECT_EQ(Stream(*stub).endsWith(unset()), StatusCode::RESOURCE_EXHAUSTED);
  EXPECT_EQ(Stream(*stub, unset("west")).last.status().code(), StatusCode::NOT_FOUND);
}

// Faults of a later one.

TEST_F(StreamChannel, ALaterMessageForAnotherDeviceEndsItWithFailedPrecondition) {
  Stream stream(*stub, stating(1));
  Arbitration message = stating(1);
  message.set_device_id(device + 1);
  EXPECT_EQ(stream.endsWith(message), StatusCode::FAILED_PRECONDITION);
}

TEST_F(StreamChannel, ALaterMessageForAnotherRoleEndsItWithFailedPrecondition) {
  Stream stream(*stub, stating(1, "west"));
  EXPECT_EQ(stream.endsWith(stating(1, "east")), StatusCode::FAILED_PRECONDITION);
}

TEST_F(StreamChannel, ALaterMessageWithAnIdInUseEndsItWithInvalidArgument) {
  Stream one(*stub, stating(1)), two(*stub, stating(2));
  EXPECT_EQ(one.endsWith(stating(2)), StatusCode::INVALID_ARGUMENT);
}

TEST_F(StreamChannel, ALaterMessageWithARoleConfigurationEndsItWithInvalidArgument) {
  Stream stream(*stub, stating(1, "west"));
  Arbitration message = stating(1, "west");
  message.mutable_role()->mutable_config();
  EXPECT_EQ(stream.endsWith(message), StatusCode::INVALID_ARGUMENT);
}

TEST_F(StreamChannel, AFaultOfThePrimaryIsToldToTheOthersAsItsEnd) {
  Stream primary(*stub, stating(2)), backup(*stub, stating(1));
  Arbitration message = stating(2);
  message.set_device_id(device + 1);
  EXPECT_EQ(primary.endsWith(message), StatusCode::FAILED_PRECONDITION);
  EXPECT_EQ(backup.notice(), StatusCode::NOT_FOUND);
}

// Accepted ones.

TEST_F(StreamChannel, TheFirstIdIsThePrimary) {
  Stream stream(*stub);
  EXPECT_EQ(stream.state(stating(0)), StatusCode::OK) << "zero, if set, is an ordinary id";
  EXPECT_EQ(writes(*stub, 0), StatusCode::OK);
}

TEST_F(StreamChannel, AnUnsetIdIsABackupEvenAlone) {
  Stream stream(*stub);
  EXPECT_EQ(stream.state(unset()), StatusCode::NOT_FOUND);
  EXPECT_FALSE(stream.last.has_election_id());
}

TEST_F(StreamChannel, ALowerIdIsABackupAndItAloneIsTold) {
  Stream primary(*stub, stating(5)), backup(*stub);
  EXPECT_EQ(backup.state(stating(4)), StatusCode::ALREADY_EXISTS);
  EXPECT_EQ(backup.last.election_id().low(), 5u);
  // The primary's next news is the answer to its own message.
  EXPECT_EQ(primary.state(stating(3)), StatusCode::NOT_FOUND);
}

TEST_F(StreamChannel, AHigherIdTakesOverAndAllAreTold) {
  Stream old(*stub, stating(5)), backup(*stub, stating(4)), next(*stub);
  EXPECT_EQ(next.state(stating(6)), StatusCode::OK);
  EXPECT_EQ(old.notice(), StatusCode::ALREADY_EXISTS);
  EXPECT_EQ(backup.notice(), StatusCode::ALREADY_EXISTS);
  EXPECT_EQ(backup.last.election_id().low(), 6u);
  EXPECT_EQ(writes(*stub, 5), StatusCode::PERMISSION_DENIED);
  EXPECT_EQ(writes(*stub, 6), StatusCode::OK);
}

TEST_F(StreamChannel, APrimaryThatRepeatsItsIdIsChosenAgainAndAllAreTold) {
  Stream primary(*stub, stating(5)), backup(*stub, stating(4));
  EXPECT_EQ(primary.state(stating(5)), StatusCode::OK);
  EXPECT_EQ(backup.notice(), StatusCode::ALREADY_EXISTS);
}

TEST_F(StreamChannel, APrimaryThatLowersItsIdStepsDownAndNobodyIsPromoted) {
  Stream primary(*stub, stating(5)), backup(*stub, stating(4));
  EXPECT_EQ(primary.state(stating(3)), StatusCode::NOT_FOUND);
  EXPECT_EQ(primary.last.election_id().low(), 5u);
  EXPECT_EQ(backup.notice(), StatusCode::NOT_FOUND);
  for (const uint64_t id : {3, 4, 5}) EXPECT_EQ(writes(*stub, id), StatusCode::PERMISSION_DENIED);
}

TEST_F(StreamChannel, APrimaryThatClosesItsStreamIsMissedAndMayReturnWithItsId) {
  Stream backup(*stub, stating(4));
  {
    Stream primary(*stub, stating(5));
    EXPECT_EQ(backup.notice(), StatusCode::ALREADY_EXISTS);
    EXPECT_TRUE(primary.close().ok());
  }
  EXPECT_EQ(backup.notice(), StatusCode::NOT_FOUND);
  EXPECT_EQ(writes(*stub, 5), StatusCode::PERMISSION_DENIED);
  Stream returned(*stub);
  EXPECT_EQ(returned.state(stating(5)), StatusCode::OK);
  EXPECT_EQ(writes(*stub, 5), StatusCode::OK);
}

TEST_F(StreamChannel, APrimaryWhoseStreamBreaksIsMissedToo) {
  Stream backup(*stub, stating(4)), primary(*stub, stating(5));
  EXPECT_EQ(backup.notice(), StatusCode::ALREADY_EXISTS);
  primary.cancel();
  EXPECT_EQ(backup.notice(), StatusCode::NOT_FOUND);
}

TEST_F(StreamChannel, ABackupRisesOnlyByAnIdThatIsHighEnough) {
  std::optional<Stream> primary(std::in_place, *stub, stating(5));
  Stream backup(*stub, stating(4));
  primary->close();
  EXPECT_EQ(backup.notice(), StatusCode::NOT_FOUND);
  EXPECT_EQ(backup.state(stating(4)), StatusCode::NOT_FOUND);
  EXPECT_EQ(backup.state(stating(5)), StatusCode::OK);
}

TEST_F(StreamChannel, ANoticeHasTheClientsOwnWordsAndTheHighestId) {
  Arbitration message = stating(5, "west");
  message.mutable_role()->set_id(9);
  Stream stream(*stub);
  EXPECT_EQ(stream.state(message), StatusCode::OK);
  EXPECT_EQ(stream.last.device_id(), device);
  EXPECT_EQ(stream.last.role().name(), "west");
  EXPECT_EQ(stream.last.role().id(), 9u);
  EXPECT_EQ(stream.last.election_id().low(), 5u);
  EXPECT_TRUE(stream.last.has_status()) << "present for OK too";
}

TEST_F(StreamChannel, RolesHavePrimariesOfTheirOwn) {
  Stream west(*stub, stating(5, "west")), east(*stub, stating(5, "east"));
  EXPECT_EQ(west.last.status().code(), StatusCode::OK);
  EXPECT_EQ(east.last.status().code(), StatusCode::OK);
  EXPECT_EQ(writes(*stub, 5, "west"), StatusCode::OK);
  EXPECT_EQ(writes(*stub, 5), StatusCode::PERMISSION_DENIED);
}

TEST_F(StreamChannel, ANewPrimaryWaitsForTheWritesThatHaveBegun) {
  std::promise<void> begun, mayEnd;
  served.target.onWrite = [&](const p4::v1::WriteRequest&, Agent::LoopGate::Deadline) {
    begun.set_value();
    mayEnd.get_future().wait();
    return FakeTarget::WriteResult{};
  };
  Stream old(*stub, stating(5));
  auto writing = std::async(std::launch::async, [&] { return writes(*stub, 5); });
  begun.get_future().wait();
  Stream next(*stub);
  next.send(stating(6));
  EXPECT_EQ(old.notice(), StatusCode::ALREADY_EXISTS) << "the others are told first";
  EXPECT_EQ(writes(*stub, 5), StatusCode::PERMISSION_DENIED) << "no new write of the old one";
  EXPECT_EQ(writes(*stub, 6), StatusCode::PERMISSION_DENIED) << "none of the new one yet";
  mayEnd.set_value();
  EXPECT_EQ(next.notice(), StatusCode::OK);
  EXPECT_EQ(writing.get(), StatusCode::OK) << "what had begun is finished";
  served.target.onWrite = nullptr;
  EXPECT_EQ(writes(*stub, 6), StatusCode::OK);
}

// Other messages.

Request packetOut() {
  Request request;
  request.mutable_packet()->set_payload("x");
  return request;
}

TEST_F(StreamChannel, APacketOfABackupIsDenied) {
  Stream stream(*stub, unset());
  stream.send(packetOut());
  const Response answer = stream.next();
  EXPECT_EQ(answer.error().canonical_code(), StatusCode::PERMISSION_DENIED);
  EXPECT_TRUE(answer.error().has_packet_out());
}

TEST_F(StreamChannel, APacketOfThePrimaryIsUnimplemented) {
  Stream stream(*stub, stating(1));
  stream.send(packetOut());
  const Response answer = stream.next();
  EXPECT_EQ(answer.error().canonical_code(), StatusCode::UNIMPLEMENTED);
  EXPECT_TRUE(answer.error().has_packet_out());
}

TEST_F(StreamChannel, AnAcknowledgementOfAnUnknownDigestIsInvalid) {
  Stream stream(*stub, stating(1));
  Request request;
  request.mutable_digest_ack()->set_digest_id(9);
  stream.send(request);
  const Response answer = stream.next();
  EXPECT_EQ(answer.error().canonical_code(), StatusCode::INVALID_ARGUMENT);
  EXPECT_EQ(answer.error().digest_list_ack().digest_list_ack().digest_id(), 9u);
}

TEST_F(StreamChannel, AnErrorForADigestTellsItsNumbersAndNothingElseOfTheMessage) {
  Stream stream(*stub, stating(1));
  Request request;
  p4::v1::DigestListAck& ack = *request.mutable_digest_ack();
  ack.set_digest_id(9);
  ack.set_list_id(77);
  ack.GetReflection()->MutableUnknownFields(&ack)->AddLengthDelimited(1000,
                                                                      std::string(500'000, 'x'));
  stream.send(request);
  const Response answer = stream.next();
  EXPECT_EQ(answer.error().digest_list_ack().digest_list_ack().digest_id(), 9u);
  EXPECT_EQ(answer.error().digest_list_ack().digest_list_ack().list_id(), 77u);
  EXPECT_LT(answer.ByteSizeLong(), 1000u);
}

TEST_F(StreamChannel, AMessageOfMoreThanAMebibyteEndsIt) {
  Stream stream(*stub, stating(1));
  Request request;
  request.mutable_packet()->set_payload(std::string(1'000'000, 'x'));
  stream.send(request);
  EXPECT_TRUE(stream.next().has_error());
  request.mutable_packet()->set_payload(std::string(1'048'576, 'x'));
  stream.send(request);
  EXPECT_EQ(stream.end().error_code(), StatusCode::RESOURCE_EXHAUSTED);
}

TEST_F(StreamChannel, AnotherOrAnEmptyMessageIsAnErrorAndNoEnd) {
  Stream stream(*stub, stating(1));
  Request other;
  other.mutable_other();
  for (const Request& request : {other, Request{}}) {
    stream.send(request);
    const Response answer = stream.next();
    EXPECT_NE(answer.error().canonical_code(), StatusCode::OK);
    EXPECT_TRUE(answer.error().has_other());
  }
  EXPECT_EQ(stream.state(stating(1)), StatusCode::OK);
}

TEST_F(StreamChannel, AMessageBeforeTheFirstArbitrationIsAnErrorAndNoEnd) {
  Stream stream(*stub);
  stream.send(packetOut());
  EXPECT_EQ(stream.next().error().canonical_code(), StatusCode::PERMISSION_DENIED);
  EXPECT_EQ(stream.state(stating(1)), StatusCode::OK);
}

// Clients that do not do their part.

TEST_F(StreamChannel, AClientThatDoesNotReadIsEndedAndNobodyWaitsForIt) {
  const std::string role(1000, 'r');
  Stream deaf(*stub), primary(*stub, stating(5, role));
  deaf.send(stating(4, role));
  for (int i = 0; i < 5000; ++i) ASSERT_EQ(primary.state(stating(5, role)), StatusCode::OK);
  EXPECT_EQ(writes(*stub, 5, role), StatusCode::OK);
  EXPECT_EQ(deaf.end().error_code(), StatusCode::RESOURCE_EXHAUSTED);
  EXPECT_EQ(Stream(*stub, stating(4, role)).last.status().code(), StatusCode::ALREADY_EXISTS)
      << "its id is free again";
}

TEST_F(StreamChannel, AFloodOfRefusedMessagesEndsNothing) {
  Stream stream(*stub, stating(1));
  for (int i = 0; i < 5000; ++i) stream.send(packetOut());
  stream.send(stating(1));
  Response answer = stream.next();
  int errors = 0;
  for (; answer.has_error(); answer = stream.next()) ++errors;
  EXPECT_TRUE(answer.has_arbitration()) << "the answer to the last message";
  EXPECT_GT(errors, 0);
  EXPECT_LE(errors, 5000);
}

TEST_F(StreamChannel, TheServersEndIsToldToOpenStreams) {
  Stream primary(*stub, stating(1)), silent(*stub);
  EXPECT_EQ(silent.state(unset("west")), StatusCode::NOT_FOUND);
  served.stop();
  EXPECT_EQ(primary.end().error_code(), StatusCode::UNAVAILABLE);
  EXPECT_EQ(silent.end().error_code(), StatusCode::UNAVAILABLE);
}

}  // namespace
}  // namespace RpcTest
