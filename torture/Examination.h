// Looking at a table whose writer was killed: through readers, through the next writer, and through
// the checks of the table itself.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Shoal/SharedTable.h"
#include "torture/Campaign.h"

namespace Torture {

using ByteString = std::vector<std::byte>;
// Some order, the same in every process.
struct InOrder {
  bool operator()(const ByteString& a, const ByteString& b) const {
    return a.size() != b.size() ? a.size() < b.size()
                                : std::memcmp(a.data(), b.data(), a.size()) < 0;
  }
};
using Content = std::map<ByteString, ByteString, InOrder>;  // entries by key
using Store = std::shared_ptr<Shoal::TableStore>;

// Entries of one shape: how to make the table, and entries that nobody else puts into it.
struct Shape {
  Shoal::EntryLayout layout;
  uint64_t capacity;
  std::function<ByteString(uint32_t number)> stranger;
};

template <class Entry>
Shape shapeOf(uint64_t capacity);

// The contents between which the writer was: each key has its entry of the one or of the other.
// None: there is no table.
struct Between {
  std::optional<Content> before, after;
  uint64_t changesBefore = 0;  // changes that the table had told of when it held `before`
};

// What a walk gives. Throws std::runtime_error if it gives a key twice.
Content contentOf(const Shoal::TableStore& table);

class Examiner {
 public:
  Examiner(Tally& tally, Shape shape) : tally_(tally), shape_(std::move(shape)) {}

  // What the texts of findings begin with: how to provoke them again.
  void contextIs(std::string context) { context_ = std::move(context); }
  const std::string& context() const { return context_; }

  // A reader, attached before or after, sees one of the two contents entry by entry, the same by
  // key and by walk. requires: nobody changes the table meanwhile.
  void reader(const Shoal::TableStore& table, const Between& between);
  // The same of a reader that attaches now.
  void newReader(const std::filesystem::path& root, const std::string& name,
                 const Between& between);
  // The next writer attaches, has one of the two contents, agrees with the table's own counts and
  // change ring, can go on, and nothing half-made lies about.
  // A reader that was attached before, if given, sees what that writer has found.
  void nextWriter(const std::filesystem::path& root, const std::string& name,
                  const Between& between, const Shoal::TableStore* watching = nullptr);

 private:
  void found(uint64_t Tally::*head, const std::string& what);
  void either(const Content& seen, const Between& between, const std::string& who);
  void changes(const Store& table, const Content& now, const Between& between);
  void goOn(Shoal::TableStore& table, Content content);
  void whole(const Shoal::TableStore& table, const Content& content);
  void same(const Shoal::TableStore& table, const Content& content, const std::string& when);

  Tally& tally_;
  Shape shape_;
  std::string context_;
};

template <class Entry>
Shape shapeOf(uint64_t capacity) {
  return {Entry::layout(), capacity, [](uint32_t number) {
            const Entry entry = Entry::make(50000 + number, number);
            const auto* bytes = reinterpret_cast<const std::byte*>(&entry);
            return ByteString(bytes, bytes + sizeof entry);
          }};
}

}  // namespace Torture
