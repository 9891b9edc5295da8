// A row's text. What can be read prints as text that reads as the same row, and as JSON that
// another parser understands in the same way; what cannot be read is refused with BadLine.
// Addresses are read as the C library reads them.
//
//   | row type | text ... |     bit 7 of the type: the text is an address, not a row
#include <arpa/inet.h>

#include <cctype>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string>

#include "agent/Command.h"
#include "agent/RowReader.h"
#include "fuzz/Fuzz.h"
#include "fuzz/RowTypes.h"

namespace {

using Fuzz::isRefused;
using Fuzz::need;
using Json = nlohmann::json;
using Wire::AddressFamily;
using Wire::IpGenAddr;
using Wire::IpGenPrefix;

// A row type's reader, kept from one input to the next as the agent keeps it.
template <class Row>
struct Kept {
  Vane::RowLayout layout = Vane::RowLayout::of(Row::rowTypeName());
  Agent::CommandParser parser;
  Agent::RowReader reader{layout, AddressFamily::unset};

  Vane::BaseRow read(std::string_view text) {
    return layout.row(Row::protRowType(), reader.read(parser.parseRow(text)));
  }
};

bool isSame(const Json& told, const Vane::ColumnValue& value) {
  return std::visit(
      [&]<class T>(const T& held) {
        if constexpr (requires { held.text(); }) {
          return told == held.text();
        } else {
          return told == Json(held);
        }
      },
      value);
}

template <class Row>
void readRow(const std::string& text) {
  static Kept<Row> kept;
  Vane::BaseRow row;
  if (isRefused<Agent::BadLine>([&] { row = kept.read(text); })) return;
  const std::string printed = Row(row).toJson();
  Vane::BaseRow again;
  need(!isRefused<Agent::BadLine>([&] { again = kept.read(printed); }), "what prints can be read");
  need(again.rowEqual(row), "what prints reads as the same row");
  need(Row(again).toJson() == printed, "and prints in the same way");

  const Json other = Json::parse(printed);
  need(other.size() == kept.layout.columns().size(), "every column is printed once");
  for (const auto& column : kept.layout.columns()) {
    const Vane::ColumnValue value = kept.layout.value(row, column);
    need(isSame(other.at(column.name), value), "another parser reads the same value");
    need(Row(row).toString().find(column.name + " = ") != std::string::npos, "a text names all");
  }
}

IpGenAddr byTheLibrary(const std::string& text) {
  in_addr four;
  if (::inet_pton(AF_INET, text.c_str(), &four) == 1) return IpGenAddr::ipv4(ntohl(four.s_addr));
  Wire::Ip6Addr six;
  if (::inet_pton(AF_INET6, text.c_str(), six.bytes.data()) == 1) return IpGenAddr::ipv6(six);
  return {};
}

// By the library's address, and a length without sign or leading zeros; host bits are refused.
IpGenPrefix prefixByTheLibrary(const std::string& text) {
  const size_t slash = text.find('/');
  if (slash == std::string::npos) return {};
  const IpGenAddr address = byTheLibrary(text.substr(0, slash));
  const std::string digits = text.substr(slash + 1);
  const bool areDigits = !digits.empty() && digits.size() <= 3 &&
                         std::ranges::all_of(digits, [](unsigned char c) { return isdigit(c); });
  if (address.family == AddressFamily::unset || !areDigits) return {};
  if (digits.size() > 1 && digits[0] == '0') return {};
  const int length = std::stoi(digits);
  const int bits = address.family == AddressFamily::ipv4 ? 32 : 128;
  if (length > bits) return {};
  for (int bit = length; bit < bits; ++bit) {
    if (address.bytes[bit / 8] >> (7 - bit % 8) & 1) return {};
  }
  return address.family == AddressFamily::ipv4
             ? IpGenPrefix::ipv4(address.ip4HostOrder(), static_cast<uint8_t>(length))
             : IpGenPrefix::ipv6(address.ip6(), static_cast<uint8_t>(length));
}

template <class T>
void needRoundTrip(const std::optional<T>& parsed) {
  if (parsed) need(T::parse(parsed->text()) == parsed, "an address prints as it reads");
}

void readAddress(const std::string& text) {
  const auto address = IpGenAddr::parse(text);
  const auto prefix = IpGenPrefix::parse(text);
  const auto mac = Wire::EthAddr::parse(text);
  needRoundTrip(address);
  needRoundTrip(prefix);
  needRoundTrip(mac);
  if (text.find('\0') != std::string::npos) {
    need(!address && !prefix && !mac, "a text that holds a zero byte is no address");
    return;
  }
  need(address.value_or(IpGenAddr()) == byTheLibrary(text), "an address as the library reads it");
  need(prefix.value_or(IpGenPrefix()) == prefixByTheLibrary(text), "a prefix as its address reads");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Fuzz::needRowDatabase();
  if (size == 0) return 0;
  const std::string text(data + 1, data + size);
  if (data[0] & 0x80) {
    readAddress(text);
  } else {
    Fuzz::withRowType(data[0] % Fuzz::rowTypes, [&]<class Row>() { readRow<Row>(text); });
  }
  return 0;
}
