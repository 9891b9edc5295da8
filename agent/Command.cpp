#include "agent/Command.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <limits>
#include <nlohmann/json.hpp>

namespace Agent {
namespace {

using Json = nlohmann::json;
using Kind = JsonValue::Kind;

constexpr std::array<std::pair<std::string_view, Command::Op>, 4> ops{{
    {"set", Command::Op::set},
    {"del", Command::Op::del},
    {"clear", Command::Op::clear},
    {"sync", Command::Op::sync},
}};

[[noreturn]] void fail(const std::string& message) { BadLine::throwException(message); }

}  // namespace

std::string inQuotes(std::string_view text) {
  constexpr size_t longest = 64;
  std::string shown(text.substr(0, longest));
  for (char& c : shown) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = '?';
  }
  return fmt::format("\"{}{}\"", shown, text.size() > longest ? "..." : "");
}

std::string JsonValue::described() const {
  switch (kind) {
    case Kind::null:
      return "null";
    case Kind::boolean:
      return bits ? "true" : "false";
    case Kind::natural:
      return std::to_string(bits);
    case Kind::negative:
      return std::to_string(negative());
    case Kind::real:
      return text;
    case Kind::text:
      return inQuotes(text);
    case Kind::array:
      return "an array";
    case Kind::object:
      break;
  }
  return "an object";
}

namespace {

std::string described(Kind kind, uint64_t bits, std::string_view text) {
  return JsonValue{kind, bits, std::string(text), {}, {}}.described();
}

}  // namespace

// Is told of each token of a line. Depth 1: the members of the command; 2: those of its row.
class CommandParser::Handler : public nlohmann::json_sax<Json> {
 public:
  const Command& parse(std::string_view line) {
    begin(0);
    Json::sax_parse(line.begin(), line.end(), this);
    command_.row = std::span(storage_).first(members_);
    check();
    return command_;
  }

  // As if everything but the row had been read.
  std::span<const Command::Member> parseRow(std::string_view text) {
    begin(1);
    member_ = Member::row;
    Json::sax_parse(text.begin(), text.end(), this);
    return std::span(storage_).first(members_);
  }

  bool null() override { return value(Kind::null, 0); }
  bool boolean(bool held) override { return value(Kind::boolean, held); }
  bool number_integer(number_integer_t held) override {
    return value(Kind::negative, static_cast<uint64_t>(held));
  }
  bool number_unsigned(number_unsigned_t held) override { return value(Kind::natural, held); }
  bool number_float(number_float_t, const string_t& written) override {
    return value(Kind::real, 0, written);
  }
  bool string(string_t& held) override { return value(Kind::text, 0, held); }
  bool binary(binary_t&) override { return true; }

  bool start_object(std::size_t) override {
    if (depth_ == 1 && member_ == Member::row) {
      inRow_ = command_.hasRow = true;
    } else if (depth_ > 0) {
      value(Kind::object, 0);
    }
    ++depth_;
    return true;
  }
  bool end_object() override {
    if (--depth_ == 1) inRow_ = false;
    return true;
  }
  bool start_array(std::size_t) override {
    value(Kind::array, 0);
    if (inRow_ && depth_ == 2) inArray_ = true;
    ++depth_;
    return true;
  }
  bool end_array() override {
    if (--depth_ == 2) inArray_ = false;
    return true;
  }
  bool key(string_t& name) override {
    if (depth_ == 1) memberIs(name);
    if (inRow_ && depth_ == 2) rowMemberIs(name);
    return true;
  }

  bool parse_error(std::size_t position, const std::string&,
                   const nlohmann::detail::exception& error) override {
    // The library's text says what it expected after its own name and the place.
    const std::string_view text = error.what();
    const size_t cause = text.find("syntax error");
    fail(fmt::format("not a JSON object, at position {}: {}", position,
                     cause == std::string_view::npos ? text : text.substr(cause)));
  }

 private:
  enum class Member : uint8_t { table, op, id, row };
  static constexpr std::array<std::string_view, 4> memberNames{"table", "op", "id", "row"};

  void begin(uint32_t depth) {
    command_.op = Command::Op::set;
    command_.table.clear();
    command_.hasRow = false;
    seen_ = {};
    depth_ = depth;
    inRow_ = inArray_ = false;
    members_ = 0;
  }

  void memberIs(const std::string& name) {
    const auto found = std::ranges::find(memberNames, name);
    if (found == memberNames.end()) {
      fail(fmt::format("expected the members table, op, id and row, found {}", inQuotes(name)));
    }
    member_ = static_cast<Member>(found - memberNames.begin());
    if (std::exchange(seen_[static_cast<size_t>(member_)], true)) {
      fail(fmt::format("member \"{}\" stands twice", name));
    }
  }

  void rowMemberIs(std::string& name) {
    if (members_ == storage_.size()) storage_.emplace_back();
    Command::Member& next = storage_[members_++];
    next.name.swap(name);
    next.value.elements.clear();
    next.value.wrongElement.reset();
  }

  bool value(Kind kind, uint64_t bits, std::string_view text = {}) {
    if (depth_ == 0) {
      fail(fmt::format("expected a JSON object, found {}", described(kind, bits, text)));
    } else if (depth_ == 1) {
      commandValue(kind, bits, text);
    } else if (inArray_ && depth_ == 3) {
      element(kind, bits, text);
    } else if (inRow_ && depth_ == 2) {
      JsonValue& held = storage_[members_ - 1].value;
      held.kind = kind;
      held.bits = bits;
      held.text.assign(text);
    }  // else: inside something that will be refused as a whole
    return true;
  }

  void element(Kind kind, uint64_t bits, std::string_view text) {
    JsonValue& array = storage_[members_ - 1].value;
    if (kind == Kind::natural && bits <= std::numeric_limits<uint32_t>::max()) {
      array.elements.push_back(static_cast<uint32_t>(bits));
    } else if (!array.wrongElement) {
      array.wrongElement = array.elements.size();
      array.text = described(kind, bits, text);
    }
  }

  void commandValue(Kind kind, uint64_t bits, std::string_view text) {
    const auto expect = [&](bool right, std::string_view what) {
      if (right) return;
      fail(fmt::format("member \"{}\": expected {}, found {}",
                       memberNames[static_cast<size_t>(member_)], what,
                       described(kind, bits, text)));
    };
    switch (member_) {
      case Member::table:
        expect(kind == Kind::text, "a table name");
        command_.table.assign(text);
        break;
      case Member::op: {
        const auto found = std::ranges::find(ops, text, [](const auto& op) { return op.first; });
        expect(kind == Kind::text && found != ops.end(), "set, del, clear or sync");
        command_.op = found->second;
        break;
      }
      case Member::id:
        expect(kind == Kind::natural, "a number from 0 on");
        command_.id = bits;
        break;
      case Member::row:
        expect(false, "an object of column names and values");
    }
  }

  bool has(Member member) const { return seen_[static_cast<size_t>(member)]; }

  // The members that the operation needs are there, and no others.
  void check() const {
    const bool sync = command_.op == Command::Op::sync;
    const bool wantsRow = command_.op == Command::Op::set || command_.op == Command::Op::del;
    const auto expect = [](bool given, bool wanted, std::string_view name) {
      if (given != wanted) {
        fail(fmt::format("member \"{}\": {}", name,
                         wanted ? "expected, not found" : "not expected for this op"));
      }
    };
    expect(has(Member::table), !sync, "table");
    expect(has(Member::row), wantsRow, "row");
    expect(has(Member::id), sync, "id");
  }

  Command command_;
  std::vector<Command::Member> storage_;  // the row's members; only the first members_ are in use
  size_t members_ = 0;
  std::array<bool, 4> seen_{};
  Member member_ = Member::table;
  uint32_t depth_ = 0;
  bool inRow_ = false;
  bool inArray_ = false;
};

CommandParser::CommandParser() : handler_(std::make_unique<Handler>()) {}
CommandParser::~CommandParser() = default;

const Command& CommandParser::parse(std::string_view line) { return handler_->parse(line); }
std::span<const Command::Member> CommandParser::parseRow(std::string_view text) {
  return handler_->parseRow(text);
}

}  // namespace Agent
