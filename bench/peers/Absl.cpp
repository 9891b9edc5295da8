// abseil's flat_hash_map.
#include <absl/container/flat_hash_map.h>

#include "bench/Tables.h"

namespace Bench {
namespace {

class AbslMap : public ProcessMap<absl::flat_hash_map<IpGenPrefix, IpDestination, PrefixHash>> {
 public:
  static constexpr auto name = "Absl";
  using ProcessMap::ProcessMap;
};

const MapSubjects<AbslMap> subjects(usualSizes());

}  // namespace
}  // namespace Bench
