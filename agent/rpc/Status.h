// What calls are answered with, beyond their messages.
#pragma once

#include <grpcpp/server_context.h>
#include <grpcpp/support/status.h>

#include <string>
#include <string_view>

namespace Agent::Rpc {

// Text as a status or a message may carry it: bytes that are no valid UTF-8 are written as \xHH.
std::string utf8(std::string_view text);

inline grpc::Status refusal(grpc::StatusCode code, std::string_view text) {
  return {code, utf8(text)};
}

// Ends a call from any thread while its handler may be waiting for the client to read or to write;
// the client is told, however much it has left unread. Does nothing to a call that has ended.
void end(grpc::ServerContext& context, const grpc::Status& status);

}  // namespace Agent::Rpc
