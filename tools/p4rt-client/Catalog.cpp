#include "tools/p4rt-client/Catalog.h"

#include <fmt/format.h>

#include "tools/common/Exit.h"

namespace P4Client {
namespace {

using Tools::ExitCode;
using Tools::Failure;

bool isNamed(const p4::config::v1::Preamble& preamble, std::string_view name) {
  const std::string& full = preamble.name();
  return full == name || preamble.alias() == name || full.ends_with(fmt::format(".{}", name));
}

template <class Objects>
const auto& find(const Objects& objects, std::string_view kind, std::string_view name) {
  for (const auto& object : objects) {
    if (isNamed(object.preamble(), name)) return object;
  }
  throw Failure(ExitCode::absent, fmt::format("the pipeline has no {} \"{}\"", kind, name));
}

template <class Named>
uint32_t idOf(const Named& named, std::string_view owner, std::string_view name) {
  for (const auto& each : named) {
    if (each.name() == name) return each.id();
  }
  throw Failure(ExitCode::absent, fmt::format("{} has no \"{}\"", owner, name));
}

}  // namespace

std::string byteString(std::string_view bigEndian) {
  const size_t first = bigEndian.find_first_not_of('\0');
  return first == std::string_view::npos ? std::string(1, '\0')
                                         : std::string(bigEndian.substr(first));
}

std::string byteString(uint64_t value) {
  char bytes[8];
  for (int i = 0; i < 8; ++i) bytes[i] = static_cast<char>(value >> (56 - 8 * i));
  return byteString(std::string_view(bytes, sizeof bytes));
}

const p4::config::v1::Table& Catalog::table(std::string_view name) const {
  return find(info_.tables(), "table", name);
}

const p4::config::v1::Action& Catalog::action(std::string_view name) const {
  return find(info_.actions(), "action", name);
}

const p4::config::v1::ActionProfile& Catalog::profile(std::string_view name) const {
  return find(info_.action_profiles(), "action profile", name);
}

void Catalog::match(const p4::config::v1::Table& table, std::string_view field, uint64_t value,
                    p4::v1::TableEntry& entry) {
  auto& match = *entry.add_match();
  match.set_field_id(idOf(table.match_fields(), table.preamble().name(), field));
  match.mutable_exact()->set_value(byteString(value));
}

void Catalog::match(const p4::config::v1::Table& table, std::string_view field,
                    const Wire::IpGenPrefix& prefix, p4::v1::TableEntry& entry) {
  const uint32_t id = idOf(table.match_fields(), table.preamble().name(), field);
  if (prefix.length == 0) return;  // any address: the field is left out
  auto& match = *entry.add_match();
  match.set_field_id(id);
  match.mutable_lpm()->set_value(byteString(std::string_view(
      reinterpret_cast<const char*>(prefix.bytes.data()), Wire::addressLength(prefix.family))));
  match.mutable_lpm()->set_prefix_len(prefix.length);
}

void Catalog::argument(const p4::config::v1::Action& action, std::string_view param,
                       std::string value, p4::v1::Action& call) {
  call.set_action_id(action.preamble().id());
  auto& argument = *call.add_params();
  argument.set_param_id(idOf(action.params(), action.preamble().name(), param));
  argument.set_value(std::move(value));
}

}  // namespace P4Client
