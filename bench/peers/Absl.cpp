// abseil's flat_hash_map.
#include <absl/container/flat_hash_map.h>

#include "bench/Tables.h"

namespace Bench {
namespace {

class AbslMap {
 public:
  static constexpr auto name = "Absl";

  // It grows as it fills, as whoever does not know the number of routes has it.
  explicit AbslMap(size_t) {}
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
  absl::flat_hash_map<IpGenPrefix, IpDestination, PrefixHash> map_;
};

const MapSubjects<AbslMap> subjects(usualSizes());

}  // namespace
}  // namespace Bench
