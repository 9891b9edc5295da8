// std::unordered_map.
#include <unordered_map>

#include "bench/Tables.h"

namespace Bench {
namespace {

class StdMap : public ProcessMap<std::unordered_map<IpGenPrefix, IpDestination, PrefixHash>> {
 public:
  static constexpr auto name = "StdMap";
  using ProcessMap::ProcessMap;
};

const MapSubjects<StdMap> subjects(usualSizes());

}  // namespace
}  // namespace Bench
