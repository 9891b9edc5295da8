// Ids by name, from the P4Info that the agent offers: what a client needs to say.
#pragma once

#include <string>
#include <string_view>

#include "p4/config/v1/p4info.pb.h"
#include "p4/v1/p4runtime.pb.h"
#include "platform/Wire/Address.h"

namespace P4Client {

// The bytes of a number or an address without leading zero bytes; one zero byte for zero.
std::string byteString(uint64_t value);
std::string byteString(std::string_view bigEndian);

class Catalog {
 public:
  explicit Catalog(p4::config::v1::P4Info info) : info_(std::move(info)) {}

  // By full name, alias, or any unique last parts of the name. Throw Tools::Failure (absent).
  const p4::config::v1::Table& table(std::string_view name) const;
  const p4::config::v1::Action& action(std::string_view name) const;
  const p4::config::v1::ActionProfile& profile(std::string_view name) const;

  // Sets one field of a match, or one argument of an action, by name.
  static void match(const p4::config::v1::Table& table, std::string_view field, uint64_t value,
                    p4::v1::TableEntry& entry);
  static void match(const p4::config::v1::Table& table, std::string_view field,
                    const Wire::IpGenPrefix& prefix, p4::v1::TableEntry& entry);
  static void argument(const p4::config::v1::Action& action, std::string_view param,
                       std::string value, p4::v1::Action& call);

 private:
  p4::config::v1::P4Info info_;
};

}  // namespace P4Client
