#include "platform/Shoal/TableFile.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>

#include "platform/Shoal/CrashPoint.h"
#include "platform/Shoal/SharedTable.h"

namespace Shoal {

namespace {

constexpr mode_t directoryMode = 0750;
constexpr mode_t fileMode = 0640;
constexpr int directoryFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

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
  const FileDescriptor parent(
      ::open(top.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!parent) refuseErrno("open the directory " + top.parent_path().string());
  directory_ = top.has_filename() ? openPart(parent.get(), top.filename(), access)
                                  : openPart(parent.get(), ".", access);
  std::vector<std::string> parts = tablePathParts(name_);
  parts.pop_back();
  for (const std::string& part : parts) directory_ = openPart(directory_.get(), part, access);
}

FileDescriptor TableFile::openPart(int parent, const std::string& part, Access access) const {
  FileDescriptor directory(::openat(parent, part.c_str(), directoryFlags));
  if (!directory && errno == ENOENT && access == Access::write) {
    if (::mkdirat(parent, part.c_str(), directoryMode) != 0 && errno != EEXIST) {
      refuseErrno("make the directory " + part);
    }
    crashPoint<"attach: directory made">();
    directory = FileDescriptor(::openat(parent, part.c_str(), directoryFlags));
  }
  if (!directory) refuseErrno("open the directory " + part);
  struct stat status;
  if (::fstat(directory.get(), &status) != 0) refuseErrno("look at the directory " + part);
  if ((status.st_mode & S_IWOTH) != 0) refuse("the directory " + part + " is open to all writers");
  if (access == Access::write) checkOwner(directory.get(), "directory");
  return directory;
}

void TableFile::checkOwner(int file, const char* kind) const {
  struct stat status;
  if (::fstat(file, &status) != 0) refuseErrno(std::string("look at the ") + kind);
  if (status.st_uid == ::geteuid()) return;
  std::ostringstream text;
  text << "its " << kind << " belongs to user " << status.st_uid << ", expected " << ::geteuid();
  refuse(text.str());
}

void TableFile::checkPlainFile(const FileDescriptor& file) const {
  struct stat status;
  if (::fstat(file.get(), &status) != 0) refuseErrno("look at the file");
  if (!S_ISREG(status.st_mode)) refuse("not a regular file");
  if (status.st_nlink > 1) refuse("the file has another name");
  if ((status.st_mode & S_IWOTH) != 0) refuse("the file is open to all writers");
}

FileDescriptor TableFile::lock() const {
  FileDescriptor file(::openat(directory_.get(), lockFile_.c_str(),
                               O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, fileMode));
  if (!file) refuseErrno("open the lock file " + lockFile_);
  checkPlainFile(file);
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
  struct flock lock = wholeFile(F_RDLCK);
  return file && ::fcntl(file.get(), F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

void TableFile::refuseHolder() const {
  std::ostringstream text;
  text << "shared table \"" << name_ << "\": ";
  const auto file = open(Access::read);
  const auto header = file ? readHeader(*file) : std::nullopt;
  if (header && header->writerPid != 0 && processStart(header->writerPid) == header->writerStart) {
    text << "its writer is process " << header->writerPid;
    if (header->writerPid == static_cast<uint32_t>(::getpid())) text << " (this one)";
  } else {
    text << "another process is about to become its writer";
  }
  WriterPresentException::throwException(text.str());
}

std::optional<FileDescriptor> TableFile::open(Access access) const {
  const int flags = O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  FileDescriptor file(::openat(directory_.get(), file_.c_str(), O_RDONLY | flags));
  if (!file && errno == ENOENT) return std::nullopt;
  if (!file) refuseErrno("open the file");
  checkPlainFile(file);
  if (access == Access::read) return file;
  checkOwner(file.get(), "file");
  FileDescriptor writable(::openat(directory_.get(), file_.c_str(), O_RDWR | flags));
  if (!writable) refuseErrno("open the file for writing");
  checkPlainFile(writable);
  return writable;
}

FileDescriptor TableFile::create(uint64_t size,
                                 const std::function<void(FileDescriptor)>& fill) const {
  needFileSize(name_, size);
  ::unlinkat(directory_.get(), temporary_.c_str(), 0);  // of a creator that was killed
  crashPoint<"create: no leftover">();
  FileDescriptor file(::openat(directory_.get(), temporary_.c_str(),
                               O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, fileMode));
  if (!file) refuseErrno("make the file " + temporary_);
  crashPoint<"create: file made">();
  try {
    if (::ftruncate(file.get(), static_cast<off_t>(size)) != 0) refuseErrno("size the file");
    crashPoint<"create: file sized">();
    FileDescriptor copy(::fcntl(file.get(), F_DUPFD_CLOEXEC, 0));
    if (!copy) refuseErrno("open the file " + temporary_ + " once more");
    fill(std::move(copy));
    if (::renameat(directory_.get(), temporary_.c_str(), directory_.get(), file_.c_str()) != 0) {
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

std::optional<Header> TableFile::readHeader(const FileDescriptor& file) {
  Header header;
  const ssize_t size = ::pread(file.get(), &header, sizeof header, 0);
  if (size != static_cast<ssize_t>(sizeof header)) return std::nullopt;
  return header;
}

uint64_t TableFile::sizeOf(const FileDescriptor& file) {
  struct stat status;
  return ::fstat(file.get(), &status) == 0 ? static_cast<uint64_t>(status.st_size) : 0;
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
std::optional<uint64_t> processStart(uint32_t pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
  const std::string line{std::istreambuf_iterator<char>(in), {}};
  const size_t nameEnd = line.rfind(')');
  if (nameEnd == std::string::npos) return std::nullopt;
  std::istringstream fields(line.substr(nameEnd + 1));
  std::string skipped;
  for (int field = 3; field < 22; ++field) fields >> skipped;
  uint64_t start = 0;
  if (!(fields >> start)) return std::nullopt;
  return start;
}

}  // namespace Shoal
