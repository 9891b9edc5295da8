#include "agent/rpc/Status.h"

#include <fmt/format.h>
#include <grpc/grpc.h>

#include <algorithm>

namespace Agent::Rpc {
namespace {

// The length of the valid UTF-8 character that `text` begins with; 0: it begins with none.
size_t characterLength(std::string_view text) {
  const auto byte = [&](size_t at) { return static_cast<unsigned char>(text[at]); };
  const unsigned char lead = byte(0);
  if (lead < 0x80) return 1;
  const size_t length = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
  if (lead < 0xc2 || lead > 0xf4 || text.size() < length) return 0;
  for (size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xc0) != 0x80) return 0;
  }
  // Longer than need be, surrogates, beyond the last character.
  const unsigned char second = byte(1);
  const bool wrong = (lead == 0xe0 && second < 0xa0) || (lead == 0xed && second > 0x9f) ||
                     (lead == 0xf0 && second < 0x90) || (lead == 0xf4 && second > 0x8f);
  return wrong ? 0 : length;
}

// Takes the next character, or the next byte that is none, off `text`.
std::string takeCharacter(std::string_view& text) {
  const size_t length = characterLength(text);
  std::string taken = length == 0
                          ? fmt::format("\\x{:02x}", static_cast<unsigned char>(text.front()))
                          : std::string(text.substr(0, length));
  text.remove_prefix(std::max<size_t>(length, 1));
  return taken;
}

}  // namespace

std::string utf8(std::string_view text) {
  std::string valid;
  valid.reserve(text.size());
  while (!text.empty()) valid += takeCharacter(text);
  return valid;
}

std::string statusText(std::string_view text) {
  constexpr std::string_view more = "...";
  std::string valid;
  size_t fitting = 0;  // the length of what fits with `more` after it
  while (!text.empty() && valid.size() <= longestText) {
    if (valid.size() <= longestText - more.size()) fitting = valid.size();
    valid += takeCharacter(text);
  }
  if (valid.size() > longestText || !text.empty()) {
    valid.resize(fitting);
    valid += more;
  }
  return valid;
}

void end(grpc::ServerContext& context, const grpc::Status& status) {
  grpc_call_cancel_with_status(context.c_call(), static_cast<grpc_status_code>(status.error_code()),
                               status.error_message().c_str(), nullptr);
}

}  // namespace Agent::Rpc
