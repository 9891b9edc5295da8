// One line of the row input, as JSON:
//
//   {"table": "VaneIpv4Override", "op": "set", "row": {"destinationPrefix": "10.0.0.0/8", ...}}
//   {"op": "sync", "id": 7}
//
// Members may stand in any order, so a row's values are kept as they were written until its table,
// and with it the columns' types, is known.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Guard/Exception.h"

namespace Agent {

// An input line that cannot be used. The text says what was expected and what was found.
class BadLine final : public Guard::Throwable<BadLine> {
 public:
  using Throwable::Throwable;
};

// Text from outside as messages show it: in quotes, cut short, without control characters.
std::string inQuotes(std::string_view text);

// A JSON value as a row may have it.
struct JsonValue {
  enum class Kind : uint8_t { null, boolean, natural, negative, real, text, array, object };

  Kind kind = Kind::null;
  uint64_t bits = 0;  // of a boolean, natural or negative number
  std::string text;   // of a text; a real number, or a wrong array element, as it was written
  std::vector<uint32_t> elements;  // of an array
  std::optional<size_t>
      wrongElement;  // the first that is no number of 32 bits; described by `text`

  int64_t negative() const { return static_cast<int64_t>(bits); }
  // For messages: the value as one would write it, cut short if it is long.
  std::string described() const;
};

struct Command {
  enum class Op : uint8_t { set, del, clear, sync };

  struct Member {
    std::string name;
    JsonValue value;
  };

  Op op = Op::set;
  std::string table;  // empty for sync
  uint64_t id = 0;    // of a sync
  bool hasRow = false;
  std::span<const Member> row;
};

// Reads commands line by line. Keeps its memory from one to the next.
class CommandParser {
 public:
  CommandParser();
  ~CommandParser();
  // The command of this line; valid until the next call. Throws BadLine.
  const Command& parse(std::string_view line);
  // The members of a row that stands alone; likewise.
  std::span<const Command::Member> parseRow(std::string_view text);

 private:
  class Handler;
  std::unique_ptr<Handler> handler_;
};

}  // namespace Agent
