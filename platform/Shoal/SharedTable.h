// The reference table: one file on a memory file system, one writer, any number of readers.
//
// The file's layout and the rules by which it is written and read are told in
// docs/shared-table-format.md and, field by field, in platform/Shoal/TableFormat.h.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Guard/Exception.h"
#include "platform/Shoal/TableFormat.h"
#include "platform/Shoal/TableStore.h"

namespace Shoal {

// A table that cannot be attached: not there, not a table, of another version, entry type or
// capacity, truncated, not ours to open. The text names the file, what was found and what was
// expected.
class AttachException final : public Guard::Throwable<AttachException> {
 public:
  using Throwable::Throwable;
};

// Another process, or another attachment in this one, is the table's writer. The text names it.
class WriterPresentException final : public Guard::Throwable<WriterPresentException> {
 public:
  using Throwable::Throwable;
};

// A read found the entry being rewritten for as long as its bound allows: 64 looks, and 10 ms from
// then on. The table is sound; the reader may try again.
class BusyException final
    : public Guard::Throwable<BusyException, Guard::CorruptionDetectedException> {
 public:
  using Throwable::Throwable;
};

// The directory that holds a user's tables when nothing else is said: $SHOAL_ROOT, or
// /dev/shm/shoal-<user id>.
std::filesystem::path defaultRoot();

// The file of the table at `tablePath` below `root`: its path with ".shoal" added. Throws
// AttachException for a path that is absolute or would leave the root.
std::filesystem::path tableFile(const std::filesystem::path& root, const std::string& tablePath);

// The tables below a root, as table paths, sorted: none if there is no such directory. Throws
// AttachException if it cannot be read.
std::vector<std::string> tablesBelow(const std::filesystem::path& root);

// Attaches as the writer, creating the table if it is not there, and repairing it if its last
// writer was killed. An existing table keeps its capacity when that is not smaller than asked;
// another smaller one is refused.
std::shared_ptr<TableStore> attachWriter(const std::filesystem::path& root,
                                         const std::string& tablePath, const EntryLayout& layout,
                                         uint64_t capacity);

// Attaches read-only (mode reader) to a table of this layout.
std::shared_ptr<TableStore> attachReader(const std::filesystem::path& root,
                                         const std::string& tablePath, const EntryLayout& layout);

// Attaches read-only to a table of whatever layout the file says; for tools.
std::shared_ptr<TableStore> attachReader(const std::filesystem::path& root,
                                         const std::string& tablePath);

// A private copy of the table as it is now (mode snapshot).
std::shared_ptr<TableStore> attachSnapshot(const std::filesystem::path& root,
                                           const std::string& tablePath, const EntryLayout& layout);

// Removes the table's file. requires: this process is its writer, or the table has none. Nothing
// happens if it is not there.
void removeTable(const std::filesystem::path& root, const std::string& tablePath);

// What a tool shows of a table.
struct TableStatus {
  std::string path;
  EntryLayout layout;
  uint64_t entries = 0;
  uint64_t capacity = 0;
  uint64_t bytes = 0;  // memory claimed
  uint64_t generation = 0;
  uint64_t changes = 0;   // changes since the table was created
  int32_t writerPid = 0;  // 0: no writer now
};
TableStatus tableStatus(const std::filesystem::path& root, const std::string& tablePath);

// The path of the table in whose mapped memory the address lies; null if it lies in none. May be
// called in a signal handler: a table that is cut short while it is attached cannot be read any
// more, and whoever does gets SIGBUS.
const char* tableAtAddress(const void* address) noexcept;

// Follows a table's changes from another process without scanning it.
class ChangeFollower {
 public:
  struct Change {
    uint64_t number;  // 1 for the table's first change; each next one is one more
    bool removed;     // by this change; read the table for what holds now
    Bytes key;        // lies in the Changes that it comes from
  };

  // Changes as they were taken, oldest first: their records in the ring, one behind the other.
  // Keeps its memory when it is cleared. All changes in it are of tables with one key size.
  class Changes {
   public:
    class Iterator {
     public:
      Iterator(const Changes& changes, size_t at) : changes_(&changes), at_(at) {}
      Change operator*() const { return (*changes_)[at_]; }
      Iterator& operator++() { return ++at_, *this; }
      bool operator==(const Iterator&) const = default;

     private:
      const Changes* changes_;
      size_t at_;
    };

    size_t size() const { return count_; }
    bool empty() const { return count_ == 0; }
    void clear() { count_ = 0; }
    Change operator[](size_t at) const {
      const std::byte* record = &records_[at * stride_];
      ChangeHead head;
      std::memcpy(&head, record, sizeof head);
      return {head.number, head.kind == ChangeHead::removed, {record + sizeof head, keySize_}};
    }
    Change back() const { return (*this)[count_ - 1]; }
    Iterator begin() const { return {*this, 0}; }
    Iterator end() const { return {*this, count_}; }

    // For the follower: room for so many more records, and how many of them were of use.
    std::byte* room(size_t keySize, size_t stride, size_t records) {
      keySize_ = keySize;
      stride_ = stride;
      const size_t needed = (count_ + records) * stride;
      if (records_.size() < needed) records_.resize(needed);
      return &records_[count_ * stride];
    }
    void added(size_t records) { count_ += records; }

   private:
    size_t keySize_ = 0, stride_ = 0, count_ = 0;
    std::vector<std::byte> records_;
  };
  enum class Result { changes, none, missed };

  virtual ~ChangeFollower() = default;
  // Adds up to `limit` changes that are ready, oldest first, to `out`. `missed`: the writer has
  // overwritten some that this follower had not read; read the table afresh, it goes on from now.
  virtual Result take(Changes& out, size_t limit) = 0;
  // Sleeps until there is a change to take, or until `limit` has passed; whether there is one.
  virtual bool wait(std::chrono::milliseconds limit) = 0;
  // The number of the last change taken or skipped.
  virtual uint64_t position() const = 0;
};

// A follower that starts after change `since`; by default after the latest. `store` must have been
// made by attachReader or attachWriter; it is kept alive.
std::unique_ptr<ChangeFollower> follow(const std::shared_ptr<TableStore>& store,
                                       std::optional<uint64_t> since = std::nullopt);

}  // namespace Shoal
