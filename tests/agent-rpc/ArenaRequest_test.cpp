#include "agent/rpc/ArenaRequest.h"

#include <gtest/gtest.h>

#include <string>

#include "p4/v1/p4runtime.pb.h"

namespace {

using Request = Agent::Rpc::ArenaRequest<p4::v1::WriteRequest>;

grpc::Status read(const std::string& sent, Request& request) {
  const grpc::Slice slice(sent);
  grpc::ByteBuffer buffer(&slice, 1);
  return grpc::SerializationTraits<Request>::Deserialize(&buffer, &request);
}

TEST(ArenaRequest, LiesInItsArenaWithAllItsParts) {
  p4::v1::WriteRequest message;
  message.add_updates()->mutable_entity()->mutable_table_entry()->set_table_id(9);
  Request request;
  ASSERT_TRUE(read(message.SerializeAsString(), request).ok());
  ASSERT_EQ(request->updates_size(), 1);
  const auto& entry = request->updates(0).entity().table_entry();
  EXPECT_EQ(entry.table_id(), 9u);
  EXPECT_NE(entry.GetArena(), nullptr);
  EXPECT_EQ(entry.GetArena(), request->GetArena());
}

TEST(ArenaRequest, HasTheLengthThatWasSentNotTheOneThatWouldDo) {
  Request request;
  ASSERT_TRUE(read("\x08\x01\x08\x07", request).ok()) << "device_id, twice";
  EXPECT_EQ(request->device_id(), 7u);
  EXPECT_EQ(request.bytes(), 4u);
}

TEST(ArenaRequest, ThatIsNoMessageIsRefused) {
  Request request;
  EXPECT_FALSE(read("\x08", request).ok());
}

}  // namespace
