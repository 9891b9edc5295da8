#include "platform/P4Runtime/TrustedFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <deque>
#include <string>
#include <utility>

namespace P4Runtime {

namespace {

using Kit::FileDescriptor;

[[noreturn]] void refuse(const std::filesystem::path& part, const std::string& what) {
  UntrustedFileException::throwException(part.string() + " " + what);
}

[[noreturn]] void refuseErrno(const std::filesystem::path& part) {
  UntrustedFileException::throwException(part.string() + ": " + std::strerror(errno));
}

bool isOurs(uid_t user) { return user == 0 || user == ::geteuid(); }
bool isOurGroup(gid_t group) { return group == 0 || group == ::getegid(); }

void checkOwner(const std::filesystem::path& part, const struct stat& status) {
  if (isOurs(status.st_uid)) return;
  refuse(part, "belongs to user " + std::to_string(status.st_uid) + ", expected 0 or " +
                   std::to_string(::geteuid()));
}

void checkWriters(const std::filesystem::path& part, const struct stat& status) {
  const bool isKept = S_ISDIR(status.st_mode) && (status.st_mode & S_ISVTX) != 0;
  if (isKept) return;
  if ((status.st_mode & S_IWOTH) != 0) refuse(part, "may be written to by everybody");
  if ((status.st_mode & S_IWGRP) != 0 && !isOurGroup(status.st_gid)) {
    refuse(part, "may be written to by group " + std::to_string(status.st_gid));
  }
}

// The way through the directories, from the root.
class Walk {
 public:
  explicit Walk(const std::filesystem::path& file) {
    push(file);
    startAgain();
  }

  FileDescriptor toItsEnd() {
    while (!pending_.empty()) {
      const std::string part = std::move(pending_.front());
      pending_.pop_front();
      step(part);
    }
    return std::move(at_);
  }

 private:
  static constexpr int mostLinks = 40;  // as the kernel follows

  void startAgain() {
    seen_ = "/";
    at_ = FileDescriptor(::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!at_) refuseErrno(seen_);
    check();
  }

  // The parts of a path come before those that are pending already.
  void push(const std::filesystem::path& path) {
    std::deque<std::string> parts;
    for (const auto& part : path.relative_path()) {
      if (!part.empty() && part != ".") parts.push_back(part.string());
    }
    pending_.insert(pending_.begin(), parts.begin(), parts.end());
  }

  void step(const std::string& part) {
    const std::filesystem::path before = seen_;
    seen_ = part == ".." ? seen_.parent_path() : seen_ / part;
    FileDescriptor next(::openat(at_.get(), part.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!next) refuseErrno(seen_);
    struct stat status {};
    if (::fstat(next.get(), &status) != 0) refuseErrno(seen_);
    if (S_ISLNK(status.st_mode)) return follow(next, status, before);
    at_ = std::move(next);
    check();
  }

  void follow(const FileDescriptor& link, const struct stat& status,
              const std::filesystem::path& directory) {
    checkOwner(seen_, status);
    if (++links_ > mostLinks) refuse(seen_, "is one symbolic link too many");
    std::array<char, PATH_MAX> target;
    const ssize_t size = ::readlinkat(link.get(), "", target.data(), target.size());
    if (size <= 0) refuseErrno(seen_);
    const std::filesystem::path to(std::string(target.data(), static_cast<size_t>(size)));
    seen_ = directory;
    push(to);
    if (to.is_absolute()) startAgain();
  }

  void check() const {
    struct stat status {};
    if (::fstat(at_.get(), &status) != 0) refuseErrno(seen_);
    const bool isLast = pending_.empty();
    if (isLast ? !S_ISREG(status.st_mode) : !S_ISDIR(status.st_mode)) {
      refuse(seen_, isLast ? "is not a regular file" : "is not a directory");
    }
    checkOwner(seen_, status);
    checkWriters(seen_, status);
  }

  std::filesystem::path seen_;  // for messages
  FileDescriptor at_;
  std::deque<std::string> pending_;
  int links_ = 0;
};

}  // namespace

FileDescriptor openTrusted(const std::filesystem::path& file) {
  const FileDescriptor found = Walk(file).toItsEnd();
  // The same file, whatever has the name now.
  FileDescriptor readable(
      ::open(("/proc/self/fd/" + std::to_string(found.get())).c_str(), O_RDONLY | O_CLOEXEC));
  if (!readable) refuseErrno(file);
  return readable;
}

}  // namespace P4Runtime
