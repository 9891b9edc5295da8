// Lists of distinct prefixes: generated with the mix of lengths of the Internet's routing table, or
// read from files.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/Wire/Address.h"

namespace Demo {

struct PrefixLists {
  std::vector<Wire::IpGenPrefix> ipv4;
  std::vector<Wire::IpGenPrefix> ipv6;
  uint64_t duplicates = 0;  // dropped
};

PrefixLists generatedPrefixes(uint64_t seed, uint32_t ipv4, uint32_t ipv6);

// One prefix a line, plain or gzip; blank lines and lines that begin with '#' are skipped. Throws
// std::runtime_error for a file that cannot be read, or a line that is no prefix.
PrefixLists readPrefixes(const std::vector<std::string>& files);

}  // namespace Demo
