#include "platform/Shoal/TableFile.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <string_view>

#include "platform/Shoal/CrashPoint.h"
#include "platform/Shoal/SharedTable.h"

namespace Shoal {

namespace {

constexpr mode_t directoryMode = 0750;
constexpr mode_t fileMode = 0640;
constexpr int directoryFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
constexpr int openFlags = O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;

// The mode of what was just made, whatever the process's umask has left of it. A directory keeps
// the bit that hands its group on.
void modeIs(int file, mode_t mode) {
  struct stat status;
  if (::fstat(file, &status) == 0) ::fchmod(file, mode | (status.st_mode & S_ISGID));
}

const char* kindOfFile(mode_t mode) {
  switch (mode & S_IFMT) {
    case S_IFREG:
      return "a regular file";
    case S_IFDIR:
      return "a directory";
    case S_IFLNK:
      return "a symbolic link";
    case S_IFIFO:
      return "a named pipe";
    case S_IFSOCK:
      return "a socket";
    default:
      return "a device";
  }
}

struct flock wholeFile(short type) {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  return lock;
}

bool plainName(const std::string& part) {
  return !part.empty() && part != "." && part != ".." && part.size() <= 200 &&
         part.find('\0') == std::string::npos;
}

// A file larger than a process may make would not be an error but a signal (SIGXFSZ).
void needFileSize(const std::string& name, uint64_t size) {
  struct rlimit limit;
  if (::getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return;
  if (size <= limit.rlim_cur) return;
  std::ostringstream text;
  text << "shared table \"" << name << "\": out of memory: a file of " << size << " bytes needed, "
       << limit.rlim_cur << " allowed to this process";
  Guard::MemoryResourceException::throwException(text.str());
}

}  // namespace

std::vector<std::string> tablePathParts(const std::string& tablePath) {
  std::vector<std::string> parts;
  for (size_t from = 0; from <= tablePath.size();) {
    const size_t to = std::min(tablePath.find('/', from), tablePath.size());
    parts.push_back(tablePath.substr(from, to - from));
    from = to + 1;
  }
  if (!std::all_of(parts.begin(), parts.end(), plainName)) {
    AttachException::throwException("table path \"" + tablePath +
                                    "\": expected names separated by single slashes, none of them "
                                    "empty, \".\", \"..\" or longer than 200 bytes");
  }
  return parts;
}

TableFile::TableFile(const std::filesystem::path& root, const std::string& tablePath, Access access)
    : name_(tablePath), path_(tableFile(root, tablePath)) {
  if (access == Access::write) owner_ = ::geteuid();
  openDirectory(root, access);
  const std::string last = tablePathParts(tablePath).back();
  file_ = last + ".shoal";
  lockFile_ = last + ".lock";
  temporary_ = last + ".shoal.new";
}

void TableFile::openDirectory(const std::filesystem::path& root, Access access) {
  const std::filesystem::path whole = std::filesystem::absolute(root).lexically_normal();
  // "/a/b/" has an empty last part.
  const std::filesystem::path top = whole.has_filename() ? whole : whole.parent_path();
  const std::string parentName = top.parent_path().string();
  const FileDescriptor parent(::open(parentName.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!parent) refuseErrno("open the directory " + parentName);
  struct stat status;
  if (::fstat(parent.get(), &status) != 0) refuseErrno("look at the directory " + parentName);
  if ((status.st_mode & S_IWOTH) != 0 && (status.st_mode & S_ISVTX) == 0) {
    refuse("the directory " + parentName + " is open to all writers and not sticky, expected one " +
           "in which nobody else can exchange " + top.filename().string());
  }
  directory_ = top.has_filename() ? openPart(parent.get(), top.filename(), access)
                                  : openPart(parent.get(), ".", access);
  std::vector<std::string> parts = tablePathParts(name_);
  parts.pop_back();
  for (const std::string& part : parts) directory_ = openPart(directory_.get(), part, access);
}

FileDescriptor TableFile::openPart(int parent, const std::string& part, Access access) {
  FileDescriptor directory(::openat(parent, part.c_str(), directoryFlags));
  if (!directory && errno == ENOENT && access == Access::write) {
    const bool made = ::mkdirat(parent, part.c_str(), directoryMode) == 0;
    if (!made && errno != EEXIST) refuseErrno("make the directory " + part);
    crashPoint<"attach: directory made">();
    directory = FileDescriptor(::openat(parent, part.c_str(), directoryFlags));
    if (made && directory) modeIs(directory.get(), directoryMode);
  }
  struct stat status;
  if (!directory && (errno == ENOTDIR || errno == ELOOP) &&
      ::fstatat(parent, part.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
    refuse("the directory " + part + " is " + kindOfFile(status.st_mode));
  }
  if (!directory) refuseErrno("open the directory " + part);
  if (::fstat(directory.get(), &status) != 0) refuseErrno("look at the directory " + part);
  if (!owner_) owner_ = status.st_uid;
  checkRights(status, "the directory " + part);
  return directory;
}

void TableFile::checkRights(const struct stat& status, const std::string& what) const {
  if ((status.st_mode & S_IWOTH) != 0) refuse(what + " is open to all writers, expected its owner");
  if ((status.st_mode & S_IWGRP) != 0) {
    refuse(what + " is open to the writers of its group, expected its owner");
  }
  if (status.st_uid == owner_) return;
  std::ostringstream text;
  text << what << " belongs to user " << status.st_uid << ", expected " << *owner_;
  refuse(text.str());
}

void TableFile::checkPlain(const struct stat& status, const std::string& name) const {
  const std::string what = "the file " + name;
  if (!S_ISREG(status.st_mode)) {
    refuse(what + " is " + kindOfFile(status.st_mode) + ", expected a regular file");
  }
  if (status.st_nlink > 1) {
    refuse(what + " has " + std::to_string(status.st_nlink) + " names, expected one");
  }
  checkRights(status, what);
}

// Looked at before it is opened, because opening some kinds of files does something to them; and
// then once more. A file that was exchanged in between, as a table that is made anew, is looked at
// again.
std::optional<FileDescriptor> TableFile::openPlain(const std::string& name, int flags) const {
  for (int tries = 0; tries < 10; ++tries) {
    struct stat before, now;
    if (::fstatat(directory_.get(), name.c_str(), &before, AT_SYMLINK_NOFOLLOW) != 0) {
      if (errno == ENOENT) return std::nullopt;
      refuseErrno("look at the file " + name);
    }
    checkPlain(before, name);
    FileDescriptor file(::openat(directory_.get(), name.c_str(), flags | openFlags));
    if (!file && errno != ENOENT && errno != ELOOP) refuseErrno("open the file " + name);
    if (!file) continue;
    if (::fstat(file.get(), &now) != 0) refuseErrno("look at the file " + name);
    if (now.st_dev == before.st_dev && now.st_ino == before.st_ino) {
      checkPlain(now, name);
      return file;
    }
  }
  refuse("the file " + name + " is exchanged again and again");
}

// Empty if something has the name already.
FileDescriptor TableFile::makePlain(const std::string& name) const {
  FileDescriptor file(
      ::openat(directory_.get(), name.c_str(), O_RDWR | O_CREAT | O_EXCL | openFlags, fileMode));
  if (!file && errno != EEXIST) refuseErrno("make the file " + name);
  if (file) modeIs(file.get(), fileMode);
  return file;
}

FileDescriptor TableFile::openLock() const {
  for (int tries = 0; tries < 10; ++tries) {
    if (auto file = openPlain(lockFile_, O_RDWR)) return std::move(*file);
    if (auto file = makePlain(lockFile_)) return file;
  }
  refuse("the file " + lockFile_ + " comes and goes");
}

FileDescriptor TableFile::lock() const {
  FileDescriptor file = openLock();
  struct flock lock = wholeFile(F_WRLCK);
  if (::fcntl(file.get(), F_OFD_SETLK, &lock) == 0) {
    crashPoint<"attach: lock taken">();
    return file;
  }
  if (errno != EAGAIN && errno != EACCES) refuseErrno("lock the file " + lockFile_);
  refuseHolder();
}

bool TableFile::locked() const {
  const FileDescriptor file(::openat(directory_.get(), lockFile_.c_str(),
                                     O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file && errno == ENOENT) return false;
  if (!file) refuseErrno("open the file " + lockFile_);
  struct flock lock = wholeFile(F_RDLCK);
  if (::fcntl(file.get(), F_OFD_GETLK, &lock) != 0) {
    refuseErrno("look at the lock of the file " + lockFile_);
  }
  return lock.l_type != F_UNLCK;
}

void TableFile::refuseHolder() const {
  std::ostringstream text;
  text << "shared table \"" << name_ << "\": ";
  const auto file = open(Access::read);
  const auto header = file ? readHeader(*file) : std::nullopt;
  if (header && header->writerPid != 0 &&
      processStart(header->writerPid, name_) == header->writerStart) {
    text << "its writer is process " << header->writerPid;
    if (header->writerPid == static_cast<uint32_t>(::getpid())) text << " (this one)";
  } else {
    text << "another process is about to become its writer";
  }
  WriterPresentException::throwException(text.str());
}

std::optional<FileDescriptor> TableFile::open(Access access) const {
  return openPlain(file_, access == Access::read ? O_RDONLY : O_RDWR);
}

// What a creator left behind that was killed. Anything else in its place stays where it is.
void TableFile::removeLeftover() const {
  struct stat status;
  if (::fstatat(directory_.get(), temporary_.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno == ENOENT) return;
    refuseErrno("look at the file " + temporary_);
  }
  checkPlain(status, temporary_);
  if (::unlinkat(directory_.get(), temporary_.c_str(), 0) != 0) {
    refuseErrno("remove the file " + temporary_);
  }
}

FileDescriptor TableFile::create(uint64_t size,
                                 const std::function<void(FileDescriptor)>& fill) const {
  needFileSize(name_, size);
  removeLeftover();
  crashPoint<"create: no leftover">();
  FileDescriptor file = makePlain(temporary_);
  if (!file) refuse("the file " + temporary_ + " is in the way");
  crashPoint<"create: file made">();
  try {
    if (::ftruncate(file.get(), static_cast<off_t>(size)) != 0) refuseErrno("size the file");
    crashPoint<"create: file sized">();
    FileDescriptor copy(::fcntl(file.get(), F_DUPFD_CLOEXEC, 0));
    if (!copy) refuseErrno("open the file " + temporary_ + " once more");
    fill(std::move(copy));
    // Nothing that has come to stand there meanwhile is replaced.
    if (::renameat2(directory_.get(), temporary_.c_str(), directory_.get(), file_.c_str(),
                    RENAME_NOREPLACE) != 0) {
      refuseErrno("name the file");
    }
    crashPoint<"create: file named">();
  } catch (...) {
    ::unlinkat(directory_.get(), temporary_.c_str(), 0);
    throw;
  }
  return file;
}

void TableFile::remove() const {
  if (::unlinkat(directory_.get(), file_.c_str(), 0) != 0 && errno != ENOENT) {
    refuseErrno("remove the file");
  }
  crashPoint<"remove: file gone">();
}

std::optional<Header> TableFile::readHeader(const FileDescriptor& file) const {
  Header header;
  const ssize_t size = ::pread(file.get(), &header, sizeof header, 0);
  if (size < 0) refuseErrno("read the file");
  if (size != static_cast<ssize_t>(sizeof header)) return std::nullopt;
  return header;
}

struct stat TableFile::statusOf(int file) const {
  struct stat status;
  if (::fstat(file, &status) != 0) refuseErrno("look at the file");
  return status;
}

void TableFile::refuse(const std::string& what) const {
  AttachException::throwException("shared table \"" + name_ + "\" (" + path_.string() +
                                  "): " + what);
}

void TableFile::refuseErrno(const std::string& attempted) const {
  const char* reason = std::strerror(errno);
  refuse("cannot " + attempted + ": " + reason);
}

// The fields after the name, which is in parentheses and may contain anything; the start time is
// the twenty-second of all.
std::optional<uint64_t> processStart(uint32_t pid, const std::string& tablePath) {
  char path[32];
  std::snprintf(path, sizeof(path), "/proc/%" PRIu32 "/stat", pid);
  const Kit::FileDescriptor file(::open(path, O_RDONLY | O_CLOEXEC));
  char line[1024];
  const ssize_t length = file ? ::read(file.get(), line, sizeof(line)) : -1;
  if (length < 0) {
    if (errno == ENOENT || errno == ESRCH) return std::nullopt;
    const char* reason = std::strerror(errno);
    AttachException::throwException("shared table \"" + tablePath + "\": cannot read " + path +
                                    ": " + reason);
  }
  std::string_view left(line, static_cast<size_t>(length));
  left.remove_prefix(std::min(left.rfind(')'), left.size()));
  for (int field = 2; field < 22; ++field) {
    left.remove_prefix(std::min(left.find(' '), left.size()));
    left.remove_prefix(std::min<size_t>(1, left.size()));
  }
  uint64_t start = 0;
  const auto [end, error] = std::from_chars(left.data(), left.data() + left.size(), start);
  if (error != std::errc()) return std::nullopt;
  return start;
}

}  // namespace Shoal
