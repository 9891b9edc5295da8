#include "bench/Data.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>

#include "tools/routing-demo/Prefixes.h"

namespace Bench {
namespace {

namespace fs = std::filesystem;

using Prefixes = std::vector<IpGenPrefix>;

bool before(const IpGenPrefix& a, const IpGenPrefix& b) {
  return std::memcmp(&a, &b, sizeof a) < 0;
}

// Standard shuffles differ between libraries.
void shuffle(Prefixes& prefixes, uint64_t seed) {
  std::mt19937_64 random(seed);
  for (size_t i = prefixes.size(); i > 1; --i) std::swap(prefixes[i - 1], prefixes[random() % i]);
}

std::string fromEnvironment(const char* name) {
  const char* const value = std::getenv(name);
  return value ? value : "";
}

void append(Prefixes& all, const Demo::PrefixLists& lists) {
  all.insert(all.end(), lists.ipv4.begin(), lists.ipv4.end());
  all.insert(all.end(), lists.ipv6.begin(), lists.ipv6.end());
}

Prefixes realPrefixes() {
  const std::string directory = fromEnvironment("ROUTING_PREFIXES");
  if (directory.empty()) return {};
  std::vector<std::string> files;
  for (const auto& entry : fs::directory_iterator(directory)) {
    const std::string name = entry.path().filename();
    if (name.ends_with(".txt") || name.ends_with(".txt.gz")) files.push_back(entry.path());
  }
  if (files.empty()) {
    throw std::runtime_error(directory + ": expected lists of prefixes, *.txt or *.txt.gz");
  }
  std::ranges::sort(files);
  Prefixes all;
  append(all, Demo::readPrefixes(files));
  shuffle(all, 1);
  return all;
}

// Appends generated prefixes that are not there yet.
void generate(Prefixes& all, size_t count) {
  const auto ipv6 = static_cast<uint32_t>(count / 6);
  Prefixes made;
  append(made, Demo::generatedPrefixes(count, static_cast<uint32_t>(count) - ipv6, ipv6));
  Prefixes known = all;
  std::ranges::sort(made, before);
  std::ranges::sort(known, before);
  Prefixes fresh;
  std::ranges::set_difference(made, known, std::back_inserter(fresh), before);
  shuffle(fresh, count);
  all.insert(all.end(), fresh.begin(), fresh.end());
}

bool load(const fs::path& file, Prefixes& all) {
  std::ifstream in(file, std::ios::binary | std::ios::ate);
  if (!in) return false;
  all.resize(static_cast<size_t>(in.tellg()) / sizeof(IpGenPrefix));
  in.seekg(0);
  in.read(reinterpret_cast<char*>(all.data()),
          static_cast<std::streamsize>(all.size() * sizeof(IpGenPrefix)));
  return in.good();
}

void save(const fs::path& file, const Prefixes& all) {
  std::ofstream(file, std::ios::binary)
      .write(reinterpret_cast<const char*>(all.data()),
             static_cast<std::streamsize>(all.size() * sizeof(IpGenPrefix)));
}

// Grows by steps of fixed sizes, so that what is there never depends on what was asked for when.
// The programs of one run share what one of them has made.
class Universe {
 public:
  static Universe& instance() {
    static Universe universe;
    return universe;
  }
  std::span<const IpGenPrefix> part(size_t first, size_t count) {
    for (size_t step = 0; step < std::size(steps); ++step) {
      if (all_[step].empty()) grow(step);
      if (all_[step].size() >= first + count) return {all_[step].data() + first, count};
    }
    throw std::runtime_error("there are not so many prefixes");
  }

 private:
  static constexpr size_t steps[] = {200000, 2500000, 12500000};

  void grow(size_t step) {
    const std::string shared = fromEnvironment("ROUTING_BENCH_DIR");
    const fs::path file = fs::path(shared) / std::string("prefixes-").append(std::to_string(step));
    Prefixes& all = all_[step];
    if (!shared.empty() && load(file, all)) return;
    if (step == 0) {
      all = realPrefixes();
    } else {
      all = all_[step - 1];
    }
    if (all.size() < steps[step]) generate(all, steps[step] - all.size() + steps[step] / 10);
    if (!shared.empty()) save(file, all);
  }

  Prefixes all_[std::size(steps)];
};

}  // namespace

std::span<const IpGenPrefix> prefixes(size_t count) { return Universe::instance().part(0, count); }

std::span<const IpGenPrefix> absentPrefixes(size_t count) {
  return Universe::instance().part(count, std::min<size_t>(count, 2000000));
}

std::string whichPrefixes() {
  return fromEnvironment("ROUTING_PREFIXES").empty() ? "generated" : "real, then generated";
}

IpDestination routeTo(const IpGenPrefix& prefix, uint32_t number, uint64_t version) {
  IpDestination route;
  route.genId = version;
  route.entryHandle = number + uint64_t{1};
  route.valid = true;
  route.entryId = 33554433;
  route.destinationPrefix = prefix;
  route.destinationType = 1;
  route.destinationId = number;
  return route;
}

Directory::Directory() {
  std::string where = fromEnvironment("ROUTING_BENCH_DIR");
  if (where.empty()) where = "/dev/shm";
  std::string name = where + "/benchmarks-XXXXXX";
  if (!::mkdtemp(name.data())) {
    throw std::runtime_error(name + ": no directory can be made: " + std::strerror(errno));
  }
  path_ = name;
}

Directory::~Directory() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

}  // namespace Bench
