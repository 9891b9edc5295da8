// What calls are answered with, beyond their messages.
#pragma once

#include <grpcpp/server_context.h>
#include <grpcpp/support/status.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace Agent::Rpc {

// Text as a message may carry it: bytes that are no valid UTF-8 are written as \xHH.
std::string utf8(std::string_view text);

// The most that a status says, in bytes. Clients take 8 KiB with a status, in which a byte beyond
// ASCII takes three.
constexpr size_t longestText = 1024;

// Text as a status may carry it: UTF-8, and not too long for a client to take. What repeats a
// client's own words may be of any length; its end is left out, and "..." stands for it.
std::string statusText(std::string_view text);

inline grpc::Status refusal(grpc::StatusCode code, std::string_view text) {
  return {code, statusText(text)};
}

// Ends a call from any thread while its handler may be waiting for the client to read or to write;
// the client is told, however much it has left unread. Does nothing to a call that has ended.
void end(grpc::ServerContext& context, const grpc::Status& status);

}  // namespace Agent::Rpc
