// The switch's ECMP state as the shared-memory tables hold it: next hops (members) and member lists
// (groups). Layout rules as in RoutingTypes.h.
#pragma once

#include <array>
#include <cstdint>

#include "platform/Guard/Exception.h"
#include "platform/Shoal/TableEntity.h"
#include "platform/Wire/Address.h"

namespace P4Runtime {

// The number of an ECMP member or group, the key of both tables.
using MemberOrGroupId = uint32_t;
// A port number as the P4 pipeline counts ports.
enum class P4PortId : uint32_t {};

}  // namespace P4Runtime

namespace P4RuntimeRouting {

// The place of a member within its group: 0 to 1023.
class MemberIndex {
 public:
  static constexpr uint32_t min = 0;
  static constexpr uint32_t max = 1023;
  // Throws Guard::RangeException for a value outside min to max.
  explicit MemberIndex(uint32_t value) : value_(value) {
    if (value > max) [[unlikely]]
      throwOutOfRange();
  }
  uint32_t value() const { return value_; }

 private:
  [[noreturn]] static void throwOutOfRange();
  uint32_t value_;
};

// One next hop. The row columns stand in the order of these fields.
struct NexthopInfo {
  uint64_t genId = 0;
  uint64_t entryHandle = 0;
  bool valid = false;
  uint8_t reserved1[3] = {};  // zero, as are the others
  uint32_t entryId = 0;
  P4Runtime::MemberOrGroupId id = 0;
  uint32_t egressPort = 0;
  Wire::EthAddr srcMac;
  Wire::EthAddr dstMac;
  bool vlanTagged = false;
  uint8_t reserved2[3] = {};
  int32_t encapType = 0;
  uint16_t vlanId = 0;
  uint8_t reserved3[2] = {};

  static constexpr std::array truths{&NexthopInfo::valid, &NexthopInfo::vlanTagged};
  friend bool operator==(const NexthopInfo&, const NexthopInfo&) = default;
};
static_assert(sizeof(NexthopInfo) == 56);

// The members of one group and the port that each of them watches, by member index. The two lists
// have counts of their own.
struct EcmpMemberList {
  static constexpr uint32_t slots = MemberIndex::max + 1;

  uint64_t genId = 0;
  uint64_t entryHandle = 0;
  bool valid = false;
  uint8_t reserved1[3] = {};  // zero, as are the others
  uint32_t entryId = 0;
  P4Runtime::MemberOrGroupId id = 0;
  uint32_t memberCount = 0;
  std::array<P4Runtime::MemberOrGroupId, slots> members{};
  uint32_t watchCount = 0;
  std::array<P4Runtime::P4PortId, slots> watches{};
  uint8_t reserved2[4] = {};

  // Sets one slot; the list then reaches at least that far.
  void memberIs(MemberIndex index, P4Runtime::MemberOrGroupId id);
  void watchIs(MemberIndex index, P4Runtime::P4PortId port);
  P4Runtime::MemberOrGroupId member(MemberIndex index) const { return members[index.value()]; }
  P4Runtime::P4PortId watch(MemberIndex index) const { return watches[index.value()]; }

  static constexpr std::array truths{&EcmpMemberList::valid};
  friend bool operator==(const EcmpMemberList&, const EcmpMemberList&) = default;
};
static_assert(sizeof(EcmpMemberList) == 8232);

struct EcmpMemberTraits {
  using Key = P4Runtime::MemberOrGroupId;
  using Entry = NexthopInfo;
  static constexpr auto key = &NexthopInfo::id;
  static constexpr auto typeName = "P4RuntimeRouting::EcmpMember";
};

class EcmpMember final : public Shoal::TableEntity<EcmpMemberTraits> {
 public:
  explicit EcmpMember(Kit::Name name) : TableEntity(std::move(name)) {}
  const Kit::TypeNode* fwkType() const override;

  const Map& nexthopInfo() const { return map(); }
  void nexthopInfoIs(const NexthopInfo& entry) { entryIs(entry); }
  void nexthopInfoDel(P4Runtime::MemberOrGroupId key) { entryDel(key); }
  void nexthopInfoDelAll() { entryDelAll(); }
};

struct EcmpGroupTraits {
  using Key = P4Runtime::MemberOrGroupId;
  using Entry = EcmpMemberList;
  static constexpr auto key = &EcmpMemberList::id;
  static constexpr auto typeName = "P4RuntimeRouting::EcmpGroup";
};

class EcmpGroup final : public Shoal::TableEntity<EcmpGroupTraits> {
 public:
  explicit EcmpGroup(Kit::Name name) : TableEntity(std::move(name)) {}
  const Kit::TypeNode* fwkType() const override;

  const Map& ecmpMemberList() const { return map(); }
  void ecmpMemberListIs(const EcmpMemberList& entry) { entryIs(entry); }
  void ecmpMemberListDel(P4Runtime::MemberOrGroupId key) { entryDel(key); }
  void ecmpMemberListDelAll() { entryDelAll(); }
};

}  // namespace P4RuntimeRouting
