// Where a table's files are, and how they are opened.
//
// A table "a/b/name" below a root is the file root/a/b/name.shoal, and beside it name.lock, whose
// lock the writer holds. The kernel drops the lock with its holder; the file itself stays for ever,
// because whoever removed it would let a second writer lock another one.
//
// Directories are opened part by part and files by their directory. Everything from the root on
// belongs to one user, who alone may write it: for the writer that is its own. A symbolic link on
// the way, anything but a plain file of one name at the end, another owner, or rights to write for
// others are refused before anything is opened for writing, made or removed; and the directory in
// which the root stands must not let others exchange it.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "platform/Kit/FileDescriptor.h"
#include "platform/Shoal/TableFormat.h"

namespace Shoal {

using Kit::FileDescriptor;

// The parts of a table path. Throws AttachException unless each of them is a plain file name.
std::vector<std::string> tablePathParts(const std::string& tablePath);

class TableFile {
 public:
  enum class Access { read, write };

  // Opens the table's directory; for writing, makes what is missing of it below the root's parent.
  // Throws AttachException.
  TableFile(const std::filesystem::path& root, const std::string& tablePath, Access access);

  const std::string& name() const { return name_; }

  // Becomes the table's writer. The lock lasts as long as the descriptor. Throws
  // WriterPresentException, which names the holder.
  FileDescriptor lock() const;
  // Whether a writer holds the lock. Throws AttachException if that cannot be told.
  bool locked() const;

  // The table's file, or none if it is not there.
  std::optional<FileDescriptor> open(Access access) const;
  // Makes the file, lets `fill` write it, and only then gives it its name. requires: lock() is
  // held.
  FileDescriptor create(uint64_t size, const std::function<void(FileDescriptor)>& fill) const;
  void remove() const;

  // The header, or none if the file is shorter than one. Throws AttachException.
  std::optional<Header> readHeader(const FileDescriptor& file) const;
  // What the kernel says of the open file. Throws AttachException.
  struct stat statusOf(int file) const;

  // Throws AttachException: the file's path, and `what`.
  [[noreturn]] void refuse(const std::string& what) const;

 private:
  void openDirectory(const std::filesystem::path& root, Access access);
  FileDescriptor openPart(int parent, const std::string& part, Access access);
  // Opens what is there under the name in the directory, if it is a plain file that is ours to use.
  std::optional<FileDescriptor> openPlain(const std::string& name, int flags) const;
  FileDescriptor makePlain(const std::string& name) const;
  FileDescriptor openLock() const;
  void removeLeftover() const;
  void checkRights(const struct stat& status, const std::string& what) const;
  void checkPlain(const struct stat& status, const std::string& name) const;
  [[noreturn]] void refuseHolder() const;
  [[noreturn]] void refuseErrno(const std::string& attempted) const;

  std::string name_;  // the table path
  std::filesystem::path path_;
  FileDescriptor directory_;
  std::optional<uint32_t> owner_;  // of everything; known when the first part has been opened
  std::string file_, lockFile_, temporary_;  // names within the directory
};

// When a process started, in clock ticks after boot; none if there is no such process. Tells a
// process from a later one with the same id. Throws AttachException, in the name of the table for
// whose sake it is asked, if that cannot be told.
std::optional<uint64_t> processStart(uint32_t pid, const std::string& tablePath);

}  // namespace Shoal
