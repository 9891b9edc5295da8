// std::unordered_map.
#include <unordered_map>

#include "bench/Tables.h"

namespace Bench {
namespace {

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
  std::unordered_map<IpGenPrefix, IpDestination, PrefixHash> map_;
};

const MapSubjects<StdMap> subjects(usualSizes());

}  // namespace
}  // namespace Bench
