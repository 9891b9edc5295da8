// A table that is attached for reading, and the walk through its entries.
#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "platform/Shoal/SharedTable.h"
#include "platform/Shoal/TableStore.h"
#include "platform/Wire/Address.h"
#include "tools/shoalctl/Kinds.h"
#include "tools/shoalctl/Names.h"

namespace ShoalCtl {

using KeyBytes = std::vector<std::byte>;

// An entry that its writer does nothing but rewrite is looked at again for about a second; whoever
// would wait longer is told that it is busy.
template <class Read>
auto patiently(Read&& read) {
  for (int tries = 0; tries < 100; ++tries) {
    try {
      return read();
    } catch (const Shoal::BusyException&) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }
  return read();
}

class Table {
 public:
  // Throws Failure: absent, permission or refused. The entries may be of a kind that is not known
  // here.
  Table(const std::filesystem::path& root, std::string path);

  const std::string& path() const { return path_; }
  const std::string& name() const { return name_; }
  const std::shared_ptr<Shoal::TableStore>& store() const { return store_; }
  // That of its addresses, as its name says; unset for tables without addresses.
  Wire::AddressFamily family() const { return family_; }

  bool isKnown() const { return kind_ != nullptr; }
  // Throws Failure (refused) for entries that are not known.
  const Kind& kind() const;
  std::vector<Tools::Column> columns() const { return kind().columns(family_); }

  Shoal::Bytes keyOf(Shoal::Bytes entry) const {
    return entry.subspan(store_->layout().keyOffset, store_->layout().keySize);
  }
  // The entry of the key, if it is there. Throws Failure (corrupt) for bytes that are none.
  std::optional<std::vector<std::byte>> find(Shoal::Bytes key) const;

  // Hands each entry, in slot order and from behind `after` on if that is given, to `visit`, which
  // says whether to go on.
  template <class Visit>
  void walk(Visit&& visit) const {
    static const std::optional<KeyBytes> start;
    walk(start, std::forward<Visit>(visit));
  }
  template <class Visit>
  void walk(const std::optional<KeyBytes>& after, Visit&& visit) const {
    Shoal::IterHint hint;
    std::vector<std::byte> entry(store_->layout().entrySize);
    bool more = patiently(
        [&] { return after ? store_->next(*after, hint, entry) : store_->first(hint, entry); });
    while (more && visit(Shoal::Bytes(entry))) {
      more = patiently([&] { return store_->next(keyOf(entry), hint, entry); });
    }
  }
  // Throws Failure (corrupt) unless the bytes are an entry of this kind.
  void needEntry(Shoal::Bytes entry) const;

 private:
  std::string path_;
  std::string name_;
  std::shared_ptr<Shoal::TableStore> store_;
  Wire::AddressFamily family_ = Wire::AddressFamily::unset;
  const Kind* kind_ = nullptr;
};

// The table that `text` names.
Table openTable(const std::filesystem::path& root, const std::string& text);

// Runs what attaches to a table's file; a refusal becomes the Failure with its own exit status.
template <class Attach>
auto attaching(const std::filesystem::path& root, const std::string& path, Attach&& attach) {
  try {
    return attach();
  } catch (const Shoal::AttachException& cause) {
    throw Tools::Failure(refusal(Shoal::tableFile(root, path)), cause.what());
  }
}

}  // namespace ShoalCtl
