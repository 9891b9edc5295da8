#include "agent/rpc/RunDirectory.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <utility>

namespace Agent::Rpc {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void throwCannotMake(const char* what, const fs::path& path, const char* reason) {
  ListenException::throwException(fmt::format("{} {}: {}", what, path.string(), reason));
}

}  // namespace

RunDirectory::RunDirectory(fs::path directory) : directory_(std::move(directory)) {
  std::error_code error;
  if (directory_.has_parent_path()) fs::create_directories(directory_.parent_path(), error);
  isOurs_ = !error && ::mkdir(directory_.c_str(), 0750) == 0;
  if (!error && !isOurs_ && errno != EEXIST) error.assign(errno, std::generic_category());
  if (!error && !fs::is_directory(directory_))
    error = std::make_error_code(std::errc::not_a_directory);
  if (error) throwCannotMake("run directory", directory_, error.message().c_str());
}

RunDirectory::~RunDirectory() {
  if (isOurs_) ::rmdir(directory_.c_str());
}

AddressFile::AddressFile(const fs::path& directory, const std::string& name,
                         const std::vector<ListenAddress>& addresses)
    : file_(directory / name) {
  const fs::path made = file_.string() + ".new";
  std::ofstream out(made);
  for (const ListenAddress& address : addresses) out << address.text() << '\n';
  out.close();
  if (!out || std::rename(made.c_str(), file_.c_str()) != 0) {
    throwCannotMake("file of addresses", file_, std::strerror(errno));
  }
}

AddressFile::~AddressFile() {
  std::error_code ignored;
  fs::remove(file_, ignored);
}

}  // namespace Agent::Rpc
