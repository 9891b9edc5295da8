#include "agent/p4/Image.h"

namespace Agent::P4 {
namespace {

// A row's handle, buffer and counts.
constexpr size_t rowOverhead = 128;

}  // namespace

size_t Image::bytes() const {
  size_t sum = sizeof(Image) + rowOverhead + row.rowLength();
  if (side) sum += sizeof(SideData) + side->metadata.size() + side->watches.size() / 8;
  if (!set) return sum;
  sum += rowOverhead + set->group.rowLength();
  for (const auto& member : set->members) sum += rowOverhead + member.rowLength();
  return sum;
}

std::vector<Share> sharesOf(const Role& group, const Vane::BaseRow& row) {
  const auto members = group.get(row, group.members);
  const auto ports = group.get(row, group.watchPorts);
  std::vector<Share> shares;
  for (size_t i = 0; i < members.size(); ++i) {
    const uint32_t port = i < ports.size() ? ports[i] : 0;
    if (shares.empty() || shares.back().member != members[i] || shares.back().port != port) {
      shares.push_back({members[i], port, 0});
    }
    ++shares.back().weight;
  }
  return shares;
}

}  // namespace Agent::P4
