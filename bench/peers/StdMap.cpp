// std::unordered_map, with the shared table's hash.
#include <unordered_map>

#include "bench/Tables.h"
#include "platform/Shoal/KeyHash.h"

namespace Bench {
namespace {

struct Hash {
  size_t operator()(const IpGenPrefix& prefix) const {
    return static_cast<size_t>(
        Shoal::keyHash(reinterpret_cast<const std::byte*>(&prefix), sizeof prefix));
  }
};

class StdMap {
 public:
  static constexpr auto name = "StdMap";

  explicit StdMap(size_t) {}
  void set(const IpDestination& route) { map_[route.destinationPrefix] = route; }
  bool find(const IpGenPrefix& prefix, IpDestination& route) const {
    const auto at = map_.find(prefix);
    if (at == map_.end()) return false;
    route = at->second;
    return true;
  }
  uint64_t sum() const {
    uint64_t sum = 0;
    for (const auto& [prefix, route] : map_) sum += route.destinationId;
    return sum;
  }
  uint64_t size() const { return map_.size(); }

 private:
  std::unordered_map<IpGenPrefix, IpDestination, Hash> map_;
};

const MapSubjects<StdMap> subjects(usualSizes());

}  // namespace
}  // namespace Bench
