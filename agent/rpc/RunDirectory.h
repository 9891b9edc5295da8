// The agent's run directory: where clients on this machine find its sockets and addresses.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "agent/rpc/Listen.h"

namespace Agent::Rpc {

// Makes the directory, for its owner and group only, if it is not there. One that it has made goes
// with it, if nothing is in it any more.
class RunDirectory {
 public:
  // Throws ListenException.
  explicit RunDirectory(std::filesystem::path directory);
  ~RunDirectory();
  RunDirectory(const RunDirectory&) = delete;
  RunDirectory& operator=(const RunDirectory&) = delete;

 private:
  const std::filesystem::path directory_;
  bool isOurs_ = false;
};

// A file with the addresses of a server, one a line, for as long as this lives. It is there whole
// or not at all.
class AddressFile {
 public:
  // Throws ListenException. requires: the directory is there.
  AddressFile(const std::filesystem::path& directory, const std::string& name,
              const std::vector<ListenAddress>& addresses);
  ~AddressFile();
  AddressFile(const AddressFile&) = delete;
  AddressFile& operator=(const AddressFile&) = delete;

 private:
  const std::filesystem::path file_;
};

}  // namespace Agent::Rpc
