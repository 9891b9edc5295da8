// The election of primaries, without a server.
#include "agent/p4/Arbitration.h"

#include <grpc/status.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>

namespace Agent::P4 {
namespace {

using Notice = Arbitration::Notice;

constexpr uint64_t device = 7;

Arbitration::Limits limits() {
  Arbitration::Limits limits;
  limits.deviceId = device;
  limits.streamsPerRole = 3;
  limits.roles = 3;
  limits.roleNameLength = 20;
  return limits;
}

// A message without an election id.
Notice unset(const std::string& role = {}) {
  Notice message;
  message.set_device_id(device);
  if (!role.empty()) message.mutable_role()->set_name(role);
  return message;
}

Notice stating(uint64_t low, const std::string& role = {}, uint64_t high = 0) {
  Notice message = unset(role);
  message.mutable_election_id()->set_low(low);
  message.mutable_election_id()->set_high(high);
  return message;
}

// A stream, and what it has been told.
struct Client {
  explicit Client(Arbitration& arbitration, std::string* order = nullptr, char name = '?')
      : stream(std::make_unique<Arbitration::Stream>(arbitration, [=, this](const Notice& notice) {
          told.push_back(notice);
          if (order != nullptr) *order += name;
        })) {}

  int state(const Notice& message) { return stream->update(message).code(); }
  // The status of the one notice since the last call; -1: none; -2: several.
  int news() {
    const int code = told.empty()            ? -1
                     : told.size() > 1       ? -2
                     : !told[0].has_status() ? -3
                                             : told[0].status().code();
    told.clear();
    return code;
  }

  std::vector<Notice> told;
  std::unique_ptr<Arbitration::Stream> stream;
};

struct Arbitrated : testing::Test {
  int admitted(uint64_t low, const std::string& role = {}, uint64_t high = 0) {
    return arbitration.admit(device, roleKey(role, 0), ElectionId{high, low}).status.code();
  }
  Arbitration arbitration{limits()};
  Client a{arbitration}, b{arbitration}, c{arbitration};
};

TEST_F(Arbitrated, TheFirstIdOfARoleIsThePrimary) {
  EXPECT_EQ(a.state(stating(5)), GRPC_STATUS_OK);
  EXPECT_EQ(a.news(), GRPC_STATUS_OK);
  EXPECT_TRUE(a.stream->isPrimary());
  EXPECT_EQ(admitted(5), GRPC_STATUS_OK);
}

TEST_F(Arbitrated, AStreamWithoutAnIdIsABackupAlsoOfAnEmptyRole) {
  EXPECT_EQ(a.state(unset()), GRPC_STATUS_OK);
  ASSERT_EQ(a.told.size(), 1u);
  EXPECT_FALSE(a.told[0].has_election_id()) << "there was never a primary";
  EXPECT_FALSE(a.told[0].has_role()) << "as the client gave it";
  EXPECT_EQ(a.told[0].device_id(), device);
  EXPECT_EQ(a.news(), GRPC_STATUS_NOT_FOUND);
  EXPECT_EQ(b.state(unset()), GRPC_STATUS_OK) << "any number may leave it unset";
}

TEST_F(Arbitrated, AnIdOfZeroIsTheLowestAndMayWin) {
  EXPECT_EQ(a.state(stating(0)), GRPC_STATUS_OK);
  EXPECT_EQ(a.news(), GRPC_STATUS_OK);
  EXPECT_EQ(admitted(0), GRPC_STATUS_OK);
  EXPECT_EQ(b.state(stating(1)), GRPC_STATUS_OK);
  EXPECT_EQ(b.news(), GRPC_STATUS_OK);
  EXPECT_EQ(a.news(), GRPC_STATUS_ALREADY_EXISTS);
}

TEST_F(Arbitrated, TheHighHalfOfAnIdCountsFirst) {
  a.state(stating(~uint64_t{0}));
  EXPECT_EQ(b.state(stating(0, {}, 1)), GRPC_STATUS_OK);
  EXPECT_TRUE(b.stream->isPrimary());
  ASSERT_FALSE(b.told.empty());
  EXPECT_EQ(b.told[0].election_id().high(), 1u);
  EXPECT_EQ(b.told[0].election_id().low(), 0u);
  EXPECT_EQ(admitted(0), GRPC_STATUS_PERMISSION_DENIED);
  EXPECT_EQ(admitted(0, {}, 1), GRPC_STATUS_OK);
}

TEST_F(Arbitrated, ABackupThatComesIsToldAlone) {
  a.state(stating(5));
  a.told.clear();
  EXPECT_EQ(b.state(stating(4)), GRPC_STATUS_OK);
  ASSERT_EQ(b.told.size(), 1u);
  EXPECT_EQ(b.told[0].election_id().low(), 5u);
  EXPECT_EQ(b.news(), GRPC_STATUS_ALREADY_EXISTS);
  EXPECT_EQ(a.news(), -1);
}

TEST_F(Arbitrated, AHigherIdTakesOverAndTheNewPrimaryIsToldLast) {
  std::string order;
  Client first(arbitration, &order, '1'), second(arbitration, &order, '2'),
      third(arbitration, &order, '3');
  first.state(stating(5));
  second.state(stating(4));
  order.clear();
  third.state(stating(6));
  EXPECT_EQ(order, "123");
  for (const Client* other : {&first, &second}) {
    EXPECT_EQ(other->told.back().status().code(), GRPC_STATUS_ALREADY_EXISTS);
    EXPECT_EQ(other->told.back().election_id().low(), 6u);
  }
  EXPECT_EQ(admitted(5), GRPC_STATUS_PERMISSION_DENIED);
  EXPECT_EQ(admitted(6), GRPC_STATUS_OK);
}

TEST_F(Arbitrated, APrimaryThatRepeatsItsIdIsChosenAgainAndAllAreTold) {
  a.state(stating(5));
  b.state(stating(4));
  a.told.clear();
  b.told.clear();
  EXPECT_EQ(a.state(stating(5)), GRPC_STATUS_OK);
  EXPECT_EQ(a.news(), GRPC_STATUS_OK);
  EXPECT_EQ(b.news(), GRPC_STATUS_ALREADY_EXISTS);
}

TEST_F(Arbitrated, APrimaryThatRaisesItsIdWritesUnderTheNewOneOnly) {
  a.state(stating(5));
  a.told.clear();
  EXPECT_EQ(a.state(stating(8)), GRPC_STATUS_OK);
  EXPECT_EQ(a.news(), GRPC_STATUS_OK);
  EXPECT_EQ(admitted(5), GRPC_STATUS_PERMISSION_DENIED);
  EXPECT_EQ(admitted(8), GRPC_STATUS_OK);
}

TEST_F(Arbitrated, APrimaryThatLowersItsIdStepsDownAndNobodyIsPromoted) {
  a.state(stating(5));
  b.state(stating(4));
  a.told.clear();
  b.told.clear();
  EXPECT_EQ(a.state(stating(3)), GRPC_STATUS_OK);
  EXPECT_EQ(a.told.at(0).election_id().low(), 5u) << "the highest ever seen";
  EXPECT_EQ(a.news(), GRPC_STATUS_NOT_FOUND);
  EXPECT_EQ(b.news(), GRPC_STATUS_NOT_FOUND);
  for (const uint64_t id : {3, 4, 5}) EXPECT_EQ(admitted(id), GRPC_STATUS_PERMISSION_DENIED);
}

TEST_F(Arbitrated, APrimaryThatLeavesOutItsIdStepsDown) {
  a.state(stating(5));
  a.told.clear();
  EXPECT_EQ(a.state(unset()), GRPC_STATUS_OK);
  EXPECT_EQ(a.news(), GRPC_STATUS_NOT_FOUND);
  EXPECT_FALSE(a.stream->isPrimary());
}

TEST_F(Arbitrated, TheOthersAreToldWhenThePrimaryGoesAndItMayReturnWithItsId) {
  a.state(stating(5));
  b.state(stating(4));
  b.told.clear();
  a.stream.reset();
  EXPECT_EQ(b.news(), GRPC_STATUS_NOT_FOUND);
  EXPECT_EQ(b.state(stating(4)), GRPC_STATUS_OK);
  EXPECT_EQ(b.news(), GRPC_STATUS_NOT_FOUND) << "below the highest ever seen";
  EXPECT_EQ(c.state(stating(5)), GRPC_STATUS_OK);
  EXPECT_EQ(c.news(), GRPC_STATUS_OK);
  EXPECT_EQ(b.news(), GRPC_STATUS_ALREADY_EXISTS);
}

TEST_F(Arbitrated, NobodyIsToldWhenABackupGoes) {
  a.state(stating(5));
  b.state(stating(4));
  a.told.clear();
  b.stream.reset();
  EXPECT_EQ(a.news(), -1);
  EXPECT_EQ(c.state(stating(4)), GRPC_STATUS_OK) << "its id is free again";
}

TEST_F(Arbitrated, ABackupBecomesPrimaryByAnIdThatIsHighEnough) {
  a.state(stating(5));
  b.state(stating(4));
  a.stream.reset();
  b.told.clear();
  EXPECT_EQ(b.state(stating(5)), GRPC_STATUS_OK);
  EXPECT_EQ(b.news(), GRPC_STATUS_OK);
  EXPECT_EQ(admitted(5), GRPC_STATUS_OK);
}

TEST_F(Arbitrated, TheHighestIdIsRememberedWhenEveryStreamHasGone) {
  a.state(stating(5));
  a.stream.reset();
  b.state(stating(4));
  EXPECT_EQ(b.told.at(0).election_id().low(), 5u);
  EXPECT_EQ(b.news(), GRPC_STATUS_NOT_FOUND);
}

TEST_F(Arbitrated, RolesElectOnTheirOwn) {
  a.state(stating(5));
  b.state(stating(5, "west"));
  EXPECT_TRUE(a.stream->isPrimary());
  EXPECT_TRUE(b.stream->isPrimary());
  EXPECT_EQ(b.told.at(0).role().name(), "west");
  EXPECT_EQ(a.told.size(), 1u);
  EXPECT_EQ(admitted(5, "west"), GRPC_STATUS_OK);
  EXPECT_EQ(admitted(5, "east"), GRPC_STATUS_PERMISSION_DENIED);
}

TEST_F(Arbitrated, AnEmptyRoleNameIsTheRoleWithoutOne) {
  Notice named = stating(5);
  named.mutable_role();
  EXPECT_EQ(a.state(named), GRPC_STATUS_OK);
  EXPECT_TRUE(a.told.at(0).has_role());
  EXPECT_EQ(b.state(stating(5)), GRPC_STATUS_INVALID_ARGUMENT) << "the same role";
}

TEST_F(Arbitrated, ANumberWithoutANameIsARoleOfItsOwn) {
  Notice numbered = stating(5);
  numbered.mutable_role()->set_id(9);
  EXPECT_EQ(a.state(numbered), GRPC_STATUS_OK);
  EXPECT_EQ(a.told.at(0).role().id(), 9u);
  EXPECT_EQ(b.state(stating(5)), GRPC_STATUS_OK);
  EXPECT_TRUE(b.stream->isPrimary());
  EXPECT_EQ(arbitration.admit(device, roleKey({}, 9), ElectionId{0, 5}).status.code(),
            GRPC_STATUS_OK);
  EXPECT_EQ(roleKey("west", 9), roleKey("west", 0)) << "the name decides";
}

TEST_F(Arbitrated, AFirstMessageForAnotherDeviceIsNotFound) {
  Notice message = stating(5);
  for (const uint64_t wrong : {uint64_t{0}, device + 1}) {
    message.set_device_id(wrong);
    message.mutable_role()->mutable_config();
    EXPECT_EQ(a.state(message), GRPC_STATUS_NOT_FOUND);
  }
  EXPECT_TRUE(a.told.empty());
}

TEST_F(Arbitrated, ALaterMessageForAnotherDeviceIsAFailedPrecondition) {
  a.state(stating(5));
  Notice message = stating(5, "west");
  message.set_device_id(device + 1);
  EXPECT_EQ(a.state(message), GRPC_STATUS_FAILED_PRECONDITION);
}

TEST_F(Arbitrated, ALaterMessageForAnotherRoleIsAFailedPrecondition) {
  a.state(stating(5, "west"));
  EXPECT_EQ(a.state(stating(5, "east")), GRPC_STATUS_FAILED_PRECONDITION);
  EXPECT_EQ(a.state(stating(5)), GRPC_STATUS_FAILED_PRECONDITION);
}

TEST_F(Arbitrated, AnIdInUseByAnotherStreamIsInvalid) {
  a.state(stating(5));
  EXPECT_EQ(b.state(stating(5)), GRPC_STATUS_INVALID_ARGUMENT);
  c.state(stating(4));
  EXPECT_EQ(c.state(stating(5)), GRPC_STATUS_INVALID_ARGUMENT);
  EXPECT_TRUE(a.stream->isPrimary());
}

TEST_F(Arbitrated, AFaultyMessageLeavesNoIdBehind) {
  Notice message = stating(9);
  message.mutable_role()->mutable_config();
  EXPECT_EQ(a.state(message), GRPC_STATUS_INVALID_ARGUMENT);
  EXPECT_EQ(b.state(stating(1)), GRPC_STATUS_OK);
  EXPECT_EQ(b.told.at(0).election_id().low(), 1u);
  EXPECT_EQ(b.news(), GRPC_STATUS_OK);
}

TEST_F(Arbitrated, ARoleConfigurationIsNotUnderstood) {
  Notice message = stating(5, "west");
  message.mutable_role()->mutable_config()->set_type_url("type.googleapis.com/some.Config");
  EXPECT_EQ(a.state(message), GRPC_STATUS_INVALID_ARGUMENT);
  EXPECT_EQ(b.state(stating(5, "west")), GRPC_STATUS_OK);
  EXPECT_EQ(b.state(message), GRPC_STATUS_INVALID_ARGUMENT) << "later too";
}

TEST_F(Arbitrated, OfTwoFaultsTheFirstOfTheOrderIsTold) {
  Notice both = stating(5);
  both.mutable_role()->mutable_config();
  a.state(stating(5));
  EXPECT_NE(b.stream->update(both).message().find("election_id"), std::string::npos)
      << "a first message: the id before the configuration";
  b.state(stating(4));
  EXPECT_NE(b.stream->update(both).message().find("role.config"), std::string::npos)
      << "a later one: the configuration before the id";
}

TEST_F(Arbitrated, StreamsOfARoleAreLimited) {
  a.state(stating(1));
  b.state(unset());
  c.state(unset());
  Client d(arbitration);
  EXPECT_EQ(d.state(stating(2)), GRPC_STATUS_RESOURCE_EXHAUSTED);
  EXPECT_EQ(d.state(stating(2, "west")), GRPC_STATUS_OK) << "another role has room";
  EXPECT_TRUE(a.stream->isPrimary());
  Client e(arbitration);
  b.stream.reset();
  EXPECT_EQ(e.state(unset()), GRPC_STATUS_OK) << "room is given back";
}

TEST_F(Arbitrated, RolesAreLimitedAndThoseWithoutAnIdAreForgotten) {
  a.state(stating(1, "1"));
  b.state(stating(1, "2"));
  c.state(unset("3"));
  Client d(arbitration);
  EXPECT_EQ(d.state(stating(1, "4")), GRPC_STATUS_RESOURCE_EXHAUSTED);
  c.stream.reset();
  EXPECT_EQ(d.state(stating(1, "4")), GRPC_STATUS_OK);
}

TEST_F(Arbitrated, ARoleNameHasALimitedLength) {
  EXPECT_EQ(a.state(stating(1, std::string(20, 'x'))), GRPC_STATUS_OK);
  EXPECT_EQ(b.state(stating(1, std::string(21, 'x'))), GRPC_STATUS_INVALID_ARGUMENT);
}

TEST_F(Arbitrated, ACallWithoutAnIdIsDenied) {
  a.state(stating(0));
  EXPECT_EQ(arbitration.admit(device, {}, std::nullopt).status.code(),
            GRPC_STATUS_PERMISSION_DENIED);
  EXPECT_EQ(arbitration.admit(device + 1, {}, ElectionId{}).status.code(), GRPC_STATUS_NOT_FOUND);
}

TEST_F(Arbitrated, ANewPrimaryIsAcceptedWhenTheOldOnesCallsAreDone) {
  a.state(stating(5));
  std::optional<Arbitration::Admission> call(arbitration.admit(device, {}, ElectionId{0, 5}));
  ASSERT_EQ(call->status.code(), GRPC_STATUS_OK);
  std::atomic<bool> accepted = false;
  std::thread newcomer([&] {
    b.state(stating(6));
    accepted = true;
  });
  while (admitted(5) == GRPC_STATUS_OK) std::this_thread::yield();
  // The old one is refused already, the new one is not admitted yet, as long as the call lasts.
  for (int i = 0; i < 1000; ++i) {
    EXPECT_EQ(admitted(6), GRPC_STATUS_PERMISSION_DENIED);
    EXPECT_FALSE(accepted);
  }
  call.reset();
  newcomer.join();
  EXPECT_EQ(admitted(6), GRPC_STATUS_OK);
  EXPECT_EQ(a.told.back().status().code(), GRPC_STATUS_ALREADY_EXISTS);
  EXPECT_EQ(b.news(), GRPC_STATUS_OK);
}

TEST_F(Arbitrated, APrimaryThatRepeatsItsIdDoesNotWaitForItsCalls) {
  a.state(stating(5));
  const auto call = arbitration.admit(device, {}, ElectionId{0, 5});
  EXPECT_EQ(a.state(stating(5)), GRPC_STATUS_OK);
  EXPECT_EQ(admitted(5), GRPC_STATUS_OK);
}

TEST_F(Arbitrated, CallsOfAPrimaryThatHasGoneAreWaitedForToo) {
  a.state(stating(5));
  std::optional<Arbitration::Admission> call(arbitration.admit(device, {}, ElectionId{0, 5}));
  a.stream.reset();
  std::atomic<bool> accepted = false;
  std::thread newcomer([&] {
    b.state(stating(5));
    accepted = true;
  });
  for (int i = 0; i < 1000; ++i) {
    EXPECT_EQ(admitted(5), GRPC_STATUS_PERMISSION_DENIED);
    EXPECT_FALSE(accepted);
  }
  call.reset();
  newcomer.join();
  EXPECT_EQ(admitted(5), GRPC_STATUS_OK);
}

TEST(ArbitrationUnderLoad, ThereIsNeverASecondPrimaryAndNoCallOfAnOldOne) {
  Arbitration arbitration{[] {
    Arbitration::Limits many;
    many.deviceId = device;
    many.streamsPerRole = 100;
    return many;
  }()};
  std::atomic<uint64_t> nextId = 1;
  std::atomic<int> calls = 0, mixed = 0, done = 0;
  std::vector<std::thread> clients;
  for (int i = 0; i < 4; ++i) {
    clients.emplace_back([&] {
      for (int round = 0; round < 200; ++round) {
        Arbitration::Stream stream(arbitration, [](const Notice&) {});
        const uint64_t id = nextId++;
        stream.update(stating(id));
        for (int call = 0; call < 5; ++call) {
          const auto admission = arbitration.admit(device, {}, ElectionId{0, id});
          if (admission.status.code() != GRPC_STATUS_OK) continue;
          if (calls++ != 0) ++mixed;  // no id has two calls at a time
          ++done;
          --calls;
        }
      }
    });
  }
  for (auto& client : clients) client.join();
  EXPECT_EQ(mixed, 0);
  EXPECT_GT(done, 0);
}

TEST(ArbitrationNotice, TellsARolesNameAndNumberAndNothingElseThatCameWithIt) {
  Arbitration arbitration(limits());
  Client client(arbitration);
  Notice message = stating(1, "west");
  p4::v1::Role& role = *message.mutable_role();
  role.set_id(9);
  role.GetReflection()->MutableUnknownFields(&role)->AddLengthDelimited(1000, "much");
  EXPECT_EQ(client.state(message), GRPC_STATUS_OK);
  ASSERT_EQ(client.told.size(), 1u);
  const p4::v1::Role& told = client.told[0].role();
  EXPECT_EQ(told.name(), "west");
  EXPECT_EQ(told.id(), 9u);
  EXPECT_TRUE(told.GetReflection()->GetUnknownFields(told).empty());
}

}  // namespace
}  // namespace Agent::P4
