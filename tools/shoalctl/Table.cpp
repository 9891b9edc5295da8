#include "tools/shoalctl/Table.h"

#include <fmt/format.h>

#include <utility>

#include "tools/common/Exit.h"

namespace ShoalCtl {

using Tools::ExitCode;
using Tools::Failure;

namespace {

Wire::AddressFamily familyOf(const std::string& name) {
  if (name.starts_with("VaneIpv4")) return Wire::AddressFamily::ipv4;
  if (name.starts_with("VaneIpv6")) return Wire::AddressFamily::ipv6;
  return Wire::AddressFamily::unset;
}

}  // namespace

Table::Table(const std::filesystem::path& root, std::string path)
    : path_(std::move(path)), name_(rowDatabaseName(path_)), family_(familyOf(name_)) {
  store_ = attaching(root, path_, [&] { return Shoal::attachReader(root, path_); });
  kind_ = kindOf(store_->layout());
}

const Kind& Table::kind() const {
  if (kind_ != nullptr) return *kind_;
  throw Failure(ExitCode::refused,
                fmt::format("table {}: entries of type {} with {} bytes are not known here", path_,
                            store_->layout().typeName, store_->layout().entrySize));
}

std::optional<std::vector<std::byte>> Table::find(Shoal::Bytes key) const {
  std::vector<std::byte> entry(store_->layout().entrySize);
  if (!patiently([&] { return store_->lookup(key, entry); })) return std::nullopt;
  needEntry(entry);
  return entry;
}

void Table::needEntry(Shoal::Bytes entry) const {
  const std::string fault = kind().fault(entry);
  if (fault.empty()) return;
  throw Failure(ExitCode::corrupt,
                fmt::format("table {}: key {}: {}", name_, kind().keyText(keyOf(entry)), fault));
}

Table openTable(const std::filesystem::path& root, const std::string& text) {
  return Table(root, findTable(root, text));
}

}  // namespace ShoalCtl
