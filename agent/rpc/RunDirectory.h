// The agent's run directory: where clients on this machine find its sockets and addresses.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "agent/rpc/Listen.h"

namespace Agent::Rpc {

// Makes the directory, for its owner and group only, if it is not there. Throws ListenException.
void makeRunDirectory(const std::filesystem::path& directory);

// A file with the addresses of a server, one a line, for as long as this lives. It is there whole
// or not at all.
class AddressFile {
 public:
  // Throws ListenException.
  AddressFile(const std::filesystem::path& directory, const std::string& name,
              const std::vector<ListenAddress>& addresses);
  ~AddressFile();
  AddressFile(const AddressFile&) = delete;
  AddressFile& operator=(const AddressFile&) = delete;

 private:
  const std::filesystem::path file_;
};

}  // namespace Agent::Rpc
