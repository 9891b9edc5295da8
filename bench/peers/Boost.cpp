// Boost's unordered_map in a mapped file, under its lock: shared by readers, exclusive for the
// writer.
#include <boost/interprocess/allocators/allocator.hpp>
#include <boost/interprocess/managed_mapped_file.hpp>
#include <boost/interprocess/sync/interprocess_sharable_mutex.hpp>
#include <boost/interprocess/sync/scoped_lock.hpp>
#include <boost/interprocess/sync/sharable_lock.hpp>
#include <boost/unordered_map.hpp>
#include <functional>

#include "bench/Tables.h"

namespace Bench {
namespace {

namespace ipc = boost::interprocess;

class BoostMap {
  using Pair = std::pair<const IpGenPrefix, IpDestination>;
  using Allocator = ipc::allocator<Pair, ipc::managed_mapped_file::segment_manager>;
  using Map = boost::unordered_map<IpGenPrefix, IpDestination, PrefixHash,
                                   std::equal_to<IpGenPrefix>, Allocator>;

 public:
  static constexpr auto name = "Boost";

  explicit BoostMap(size_t routes)
      : file_(ipc::create_only, (directory_.path() / "map").c_str(), routes * 200 + (1 << 20)),
        lock_(*file_.construct<ipc::interprocess_sharable_mutex>("lock")()),
        map_(*file_.construct<Map>("map")(16, PrefixHash(), std::equal_to<IpGenPrefix>(),
                                          file_.get_segment_manager())) {}
  void set(const IpDestination& route) {
    const ipc::scoped_lock<ipc::interprocess_sharable_mutex> locked(lock_);
    map_.insert_or_assign(route.destinationPrefix, route);
  }
  bool find(const IpGenPrefix& prefix, IpDestination& route) const {
    const ipc::sharable_lock<ipc::interprocess_sharable_mutex> locked(lock_);
    const auto at = map_.find(prefix);
    if (at == map_.end()) return false;
    route = at->second;
    return true;
  }
  uint64_t sum() const {
    const ipc::sharable_lock<ipc::interprocess_sharable_mutex> locked(lock_);
    uint64_t sum = 0;
    for (const auto& [prefix, route] : map_) sum += route.destinationId;
    return sum;
  }
  uint64_t size() const { return map_.size(); }

 private:
  Directory directory_;
  ipc::managed_mapped_file file_;
  ipc::interprocess_sharable_mutex& lock_;
  Map& map_;
};

const MapSubjects<BoostMap> subjects(usualSizes());

}  // namespace
}  // namespace Bench
