// A request that lies in one arena, with everything in it: its parts cost no allocation each, and
// all of them go at once.
//
// A service whose requests may be large takes them so, and tells gRPC itself how its calls are
// handled: generated services know only messages that own their parts one by one.
#pragma once

#include <google/protobuf/arena.h>
#include <grpcpp/impl/codegen/proto_utils.h>
#include <grpcpp/support/byte_buffer.h>

#include <cstddef>

namespace Agent::Rpc {

template <class Message>
class ArenaRequest {
 public:
  ArenaRequest() : message_(*google::protobuf::Arena::CreateMessage<Message>(&arena_)) {}
  ArenaRequest(const ArenaRequest&) = delete;
  ArenaRequest& operator=(const ArenaRequest&) = delete;

  const Message& operator*() const { return message_; }
  const Message* operator->() const { return &message_; }
  // As it was sent.
  size_t bytes() const { return bytes_; }

 private:
  friend grpc::SerializationTraits<ArenaRequest>;

  google::protobuf::Arena arena_;
  Message& message_;
  size_t bytes_ = 0;
};

}  // namespace Agent::Rpc

// How gRPC makes a request of what has come in.
template <class Message>
class grpc::SerializationTraits<Agent::Rpc::ArenaRequest<Message>, void> {
 public:
  static Status Deserialize(ByteBuffer* buffer, Agent::Rpc::ArenaRequest<Message>* request) {
    request->bytes_ = buffer->Length();
    return SerializationTraits<Message>::Deserialize(buffer, &request->message_);
  }
};
