// Each row type's bytes, signature, JSON and text, as other software reads them.
#include "platform/Vane/RowLayout.h"
#include "tests/routing-types/RowTypes.h"

namespace RoutingTypes::Test {
namespace {

constexpr uint64_t genId = 0x0102030405060708;        // 72623859790382856
constexpr uint64_t entryHandle = 0x1112131415161718;  // 1230066625199609624
constexpr uint32_t entryId = 0x21222324;              // 555885348
constexpr uint32_t destinationId = 0x31323334;        // 825373492
constexpr uint32_t vrfId = 0x41424344;                // 1094861636

class RowBytes : public WithDB {};
class RowText : public WithDB {};

IpDestinationRow ipDestination() {
  return {genId, entryHandle, true, entryId, prefix("10.0.0.0/8"), -2, destinationId};
}
VrfPrefixDestinationRow vrfPrefixDestination() {
  return {genId, entryHandle, true, entryId, vrfId, prefix("2001:db8::/32"), -2, destinationId};
}
IpVrfPrefixStatusEntryRow ipVrfPrefixStatusEntry() {
  return {genId, entryHandle, -7, true, vrfId, prefix("192.0.2.0/24")};
}
L2NexthopGroupEncapRow l2NexthopGroupEncap() {
  return {0x5152, entryHandle, 3, addr("192.0.2.1"), addr("2001:db8::1")};
}
NexthopInfoRow nexthopInfo() {
  return {genId,
          entryHandle,
          true,
          entryId,
          0x61626364,
          0x71727374,
          mac("02:00:5e:10:20:30"),
          mac("02:00:5e:40:50:60"),
          true,
          -1,
          0x0FFE};
}
EcmpMemberListRow ecmpMemberList() {
  return {genId, entryHandle, true, entryId, 0x61626364, {1, 2, 3}, {9}};
}

TEST_F(RowBytes, IpDestination) {
  EXPECT_EQ(hex(ipDestination()),
            "2a 00 02 01 "              // length 42, type 258
            "08 07 06 05 04 03 02 01 "  // genId
            "18 17 16 15 14 13 12 11 "  // entryHandle
            "01 24 23 22 21 "           // valid, entryId
            "25 00 05 80 "              // destinationPrefix: at 37, 5 bytes, written
            "fe ff ff ff 34 33 32 31 "  // destinationType, destinationId
            "08 0a 00 00 00");          // 10.0.0.0/8
}

TEST_F(RowBytes, VrfPrefixDestination) {
  EXPECT_EQ(hex(vrfPrefixDestination()),
            "3a 00 02 01 "  // length 58
            "08 07 06 05 04 03 02 01 18 17 16 15 14 13 12 11 01 24 23 22 21 "
            "44 43 42 41 "              // vrfId
            "29 00 11 80 "              // prefix: at 41, 17 bytes, written
            "fe ff ff ff 34 33 32 31 "  // destinationType, destinationId
            "20 20 01 0d b8 00 00 00 00 00 00 00 00 00 00 00 00");
}

TEST_F(RowBytes, IpVrfPrefixStatusEntry) {
  EXPECT_EQ(hex(ipVrfPrefixStatusEntry()),
            "26 00 02 01 "  // length 38
            "08 07 06 05 04 03 02 01 18 17 16 15 14 13 12 11 "
            "f9 ff ff ff 01 "  // errorCode, deleted
            "44 43 42 41 "     // vrfId
            "21 00 05 80 "     // prefix: at 33, 5 bytes, written
            "18 c0 00 02 00");
}

TEST_F(RowBytes, L2NexthopGroupEncap) {
  EXPECT_EQ(hex(l2NexthopGroupEncap()),
            "2e 00 02 01 "                    // length 46
            "52 51 18 17 16 15 14 13 12 11 "  // encapId, entryHandle
            "03 00 00 00 "                    // encapType
            "1a 00 04 80 1e 00 10 80 "        // srcAddr: at 26, 4 bytes; dstAddr: at 30, 16 bytes
            "c0 00 02 01 "
            "20 01 0d b8 00 00 00 00 00 00 00 00 00 00 00 01");
}

TEST_F(RowBytes, NexthopInfo) {
  EXPECT_EQ(hex(nexthopInfo()),
            "34 00 02 01 "  // length 52
            "08 07 06 05 04 03 02 01 18 17 16 15 14 13 12 11 01 24 23 22 21 "
            "64 63 62 61 74 73 72 71 "              // id, egressPort
            "02 00 5e 10 20 30 02 00 5e 40 50 60 "  // srcMac, dstMac
            "01 ff ff ff ff fe 0f");                // vlanTagged, encapType, vlanId
}

TEST_F(RowBytes, EcmpMemberList) {
  EXPECT_EQ(hex(ecmpMemberList()),
            "39 00 02 01 "  // length 57
            "08 07 06 05 04 03 02 01 18 17 16 15 14 13 12 11 01 24 23 22 21 "
            "64 63 62 61 "              // id
            "25 00 0e 80 33 00 06 80 "  // members: at 37, 14 bytes; watchPorts: at 51, 6 bytes
            "03 00 01 00 00 00 02 00 00 00 03 00 00 00 "
            "01 00 09 00 00 00");
}

// Default rows and keys.

TEST_F(RowBytes, ADefaultRowIsZeroButForItsDefaults) {
  EXPECT_EQ(hex(IpDestinationRow()),
            "25 00 02 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
            "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
  EXPECT_EQ(hex(VrfPrefixDestinationRow()),
            "29 00 02 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
            "00 00 00 00 00 ff ff ff 00 00 00 00 00 00 00 00 00 00 00 00 00");
  EXPECT_EQ(hex(IpVrfPrefixStatusEntryRow()),
            "21 00 02 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
            "00 00 00 00 00 ff ff ff 00 00 00 00 00");
  EXPECT_EQ(hex(L2NexthopGroupEncapRow()),
            "1a 00 02 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
  EXPECT_EQ(hex(NexthopInfoRow()),
            "34 00 02 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
            "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
  EXPECT_EQ(hex(EcmpMemberListRow()),
            "25 00 02 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
            "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
}

TEST_F(RowBytes, DefaultsAreConstantsOfTheType) {
  EXPECT_EQ(int32_t{IpDestinationRow::destinationType_DEFAULT}, 0);
  EXPECT_EQ(uint32_t{VrfPrefixDestinationRow::vrfId_DEFAULT}, 16777215u);
  EXPECT_EQ(int32_t{VrfPrefixDestinationRow::destinationType_DEFAULT}, 0);
  EXPECT_EQ(int32_t{IpVrfPrefixStatusEntryRow::errorCode_DEFAULT}, 0);
  EXPECT_EQ(uint32_t{IpVrfPrefixStatusEntryRow::vrfId_DEFAULT}, 16777215u);
  EXPECT_EQ(int32_t{L2NexthopGroupEncapRow::encapType_DEFAULT}, 0);
}

TEST_F(RowBytes, ADefaultVrfRowHasTheLargest24BitVrf) {
  const VrfPrefixDestinationRow row;
  EXPECT_EQ(row.vrfId(), 16777215u);
  EXPECT_EQ(row.destinationType(), 0);
  EXPECT_EQ(IpVrfPrefixStatusEntryRow().vrfId(), 16777215u);
}

TEST_F(RowBytes, AKeyOfAnIpv4PrefixTakes42BytesAndOfAnIpv6PrefixTakes54) {
  const auto ipv4 = IpDestinationRow::key(prefix("10.0.0.0/8"));
  EXPECT_EQ(ipv4.buffer()->length(), 42);
  EXPECT_EQ(hex(ipv4),
            "2a 00 02 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
            "00 00 00 00 00 25 00 05 80 00 00 00 00 00 00 00 00 08 0a 00 00 00");
  const auto ipv6 = IpDestinationRow::key(prefix("2001:db8::/32"));
  EXPECT_EQ(ipv6.buffer()->length(), 54);
  EXPECT_EQ(ipv6.rowLength(), 54);
  EXPECT_EQ(ipv6.destinationPrefix(), prefix("2001:db8::/32"));
}

TEST_F(RowBytes, AKeyOfAnUnsetPrefixTakesTheFixedLength) {
  const auto row = IpDestinationRow::key(Vane::IpGenPrefix());
  EXPECT_EQ(row.buffer()->length(), 37);
  EXPECT_EQ(row.rowLength(), 37);
  EXPECT_EQ(row.destinationPrefix(), Vane::IpGenPrefix());
}

TEST_F(RowBytes, AKeyOfVrfAndPrefixKeepsTheVrfThatItIsGiven) {
  const auto row = VrfPrefixDestinationRow::key(5, prefix("10.0.0.0/8"));
  EXPECT_EQ(row.vrfId(), 5u);
  EXPECT_EQ(row.destinationType(), 0);
  EXPECT_EQ(hex(row),
            "2e 00 02 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
            "05 00 00 00 29 00 05 80 00 00 00 00 00 00 00 00 08 0a 00 00 00");
}

TEST_F(RowBytes, AStatusKeyHasNoErrorAndIsNotDeleted) {
  const auto row = IpVrfPrefixStatusEntryRow::key(5, prefix("2001:db8::/32"));
  EXPECT_EQ(row.errorCode(), 0);
  EXPECT_FALSE(row.deleted());
  EXPECT_EQ(row.vrfId(), 5u);
  EXPECT_EQ(row.prefix(), prefix("2001:db8::/32"));
  EXPECT_EQ(row.buffer()->length(), 50);
}

TEST_F(RowBytes, AnEncapKeyIs26BytesWithItsAddressesUnset) {
  const auto row = L2NexthopGroupEncapRow::key(7);
  EXPECT_EQ(hex(row),
            "1a 00 02 01 07 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
  EXPECT_EQ(row.buffer()->length(), 26);
  EXPECT_EQ(row.encapId(), 7);
  EXPECT_EQ(row.encapType(), 0);
  EXPECT_EQ(row.srcAddr(), Vane::IpGenAddr());
  EXPECT_EQ(row.dstAddr(), Vane::IpGenAddr());
}

TEST_F(RowBytes, AnEcmpKeyIsItsIdAlone) {
  EXPECT_EQ(NexthopInfoRow::key(5).id(), 5u);
  EXPECT_EQ(NexthopInfoRow::key(5).buffer()->length(), 52);
  EXPECT_EQ(EcmpMemberListRow::key(5).id(), 5u);
  EXPECT_EQ(EcmpMemberListRow::key(5).buffer()->length(), 37);
}

TEST_F(RowBytes, EachAddressIsSizedOnItsOwn) {
  const Vane::IpGenAddr unset;
  const auto ipv4 = addr("192.0.2.1");
  const auto ipv6 = addr("2001:db8::1");
  auto length = [](const auto& src, const auto& dst) {
    return L2NexthopGroupEncapRow(1, 2, 3, src, dst).buffer()->length();
  };
  EXPECT_EQ(length(unset, unset), 26);
  EXPECT_EQ(length(ipv4, unset), 30);
  EXPECT_EQ(length(unset, ipv6), 42);
  EXPECT_EQ(length(ipv4, ipv6), 46);
  EXPECT_EQ(length(ipv6, ipv6), 58);
}

// Accessors.

TEST_F(RowBytes, EachColumnIsReadByName) {
  const auto route = vrfPrefixDestination();
  EXPECT_EQ(route.genId(), genId);
  EXPECT_EQ(route.entryHandle(), entryHandle);
  EXPECT_TRUE(route.valid());
  EXPECT_EQ(route.entryId(), entryId);
  EXPECT_EQ(route.vrfId(), vrfId);
  EXPECT_EQ(route.prefix(), prefix("2001:db8::/32"));
  EXPECT_EQ(route.destinationType(), -2);
  EXPECT_EQ(route.destinationId(), destinationId);
  const auto encap = l2NexthopGroupEncap();
  EXPECT_EQ(encap.encapId(), 0x5152);
  EXPECT_EQ(encap.encapType(), 3);
  EXPECT_EQ(encap.srcAddr(), addr("192.0.2.1"));
  EXPECT_EQ(encap.dstAddr(), addr("2001:db8::1"));
  const auto status = ipVrfPrefixStatusEntry();
  EXPECT_EQ(status.errorCode(), -7);
  EXPECT_TRUE(status.deleted());
  const auto nexthop = nexthopInfo();
  EXPECT_EQ(nexthop.id(), 0x61626364u);
  EXPECT_EQ(nexthop.egressPort(), 0x71727374u);
  EXPECT_EQ(nexthop.srcMac(), mac("02:00:5e:10:20:30"));
  EXPECT_EQ(nexthop.dstMac(), mac("02:00:5e:40:50:60"));
  EXPECT_TRUE(nexthop.vlanTagged());
  EXPECT_EQ(nexthop.encapType(), -1);
  EXPECT_EQ(nexthop.vlanId(), 0x0FFE);
  const auto group = ecmpMemberList();
  EXPECT_EQ(group.members(), (std::vector<uint32_t>{1, 2, 3}));
  EXPECT_EQ(group.watchPorts(), (std::vector<uint32_t>{9}));
}

TEST_F(RowBytes, ColumnsSetByNameGiveTheBytesOfTheValueConstructor) {
  IpDestinationRow route;
  route.genIdIs(genId);
  route.entryHandleIs(entryHandle);
  route.validIs(true);
  route.entryIdIs(entryId);
  route.destinationPrefixIs(prefix("10.0.0.0/8"));
  route.destinationTypeIs(-2);
  route.destinationIdIs(destinationId);
  EXPECT_EQ(hex(route), hex(ipDestination()));

  VrfPrefixDestinationRow vrfRoute;
  vrfRoute.genIdIs(genId);
  vrfRoute.entryHandleIs(entryHandle);
  vrfRoute.validIs(true);
  vrfRoute.entryIdIs(entryId);
  vrfRoute.vrfIdIs(vrfId);
  vrfRoute.prefixIs(prefix("2001:db8::/32"));
  vrfRoute.destinationTypeIs(-2);
  vrfRoute.destinationIdIs(destinationId);
  EXPECT_EQ(hex(vrfRoute), hex(vrfPrefixDestination()));

  IpVrfPrefixStatusEntryRow status;
  status.genIdIs(genId);
  status.entryHandleIs(entryHandle);
  status.errorCodeIs(-7);
  status.deletedIs(true);
  status.vrfIdIs(vrfId);
  status.prefixIs(prefix("192.0.2.0/24"));
  EXPECT_EQ(hex(status), hex(ipVrfPrefixStatusEntry()));

  L2NexthopGroupEncapRow encap;
  encap.encapIdIs(0x5152);
  encap.entryHandleIs(entryHandle);
  encap.encapTypeIs(3);
  encap.srcAddrIs(addr("192.0.2.1"));
  encap.dstAddrIs(addr("2001:db8::1"));
  EXPECT_EQ(hex(encap), hex(l2NexthopGroupEncap()));

  NexthopInfoRow nexthop;
  nexthop.genIdIs(genId);
  nexthop.entryHandleIs(entryHandle);
  nexthop.validIs(true);
  nexthop.entryIdIs(entryId);
  nexthop.idIs(0x61626364);
  nexthop.egressPortIs(0x71727374);
  nexthop.srcMacIs(mac("02:00:5e:10:20:30"));
  nexthop.dstMacIs(mac("02:00:5e:40:50:60"));
  nexthop.vlanTaggedIs(true);
  nexthop.encapTypeIs(-1);
  nexthop.vlanIdIs(0x0FFE);
  EXPECT_EQ(hex(nexthop), hex(nexthopInfo()));

  EcmpMemberListRow group;
  group.genIdIs(genId);
  group.entryHandleIs(entryHandle);
  group.validIs(true);
  group.entryIdIs(entryId);
  group.idIs(0x61626364);
  group.membersIs({1, 2, 3});
  group.watchPortsIs({9});
  EXPECT_EQ(hex(group), hex(ecmpMemberList()));
}

TEST_F(RowBytes, SettingAColumnOfACopyLeavesTheSourceAlone) {
  const auto row = ipDestination();
  auto copy = row;
  copy.destinationIdIs(1);
  EXPECT_EQ(row.destinationId(), destinationId);
  EXPECT_EQ(copy.destinationId(), 1u);
}

TEST_F(RowBytes, EveryAccessorOfANullRowFailsVariableSizeColumnsIncluded) {
  auto fails = [](auto action) { expectThrows<Vane::VaNullRow>(action, "null row"); };
  const IpDestinationRow route{BaseRow()};
  fails([&] { route.genId(); });
  fails([&] { route.destinationPrefix(); });
  const L2NexthopGroupEncapRow encap{BaseRow()};
  fails([&] { encap.srcAddr(); });
  const NexthopInfoRow nexthop{BaseRow()};
  fails([&] { nexthop.srcMac(); });
  EcmpMemberListRow group{BaseRow()};
  fails([&] { group.members(); });
  fails([&] { group.membersIs({1}); });
}

// A typed row knows its columns, so outgrown bodies leave no dead bytes behind.

TEST_F(RowBytes, AnArrayThatGrowsIsMovedBehindTheOther) {
  auto row = ecmpMemberList();
  row.membersIs({1, 2, 3, 4, 5});
  EXPECT_EQ(row.rowLength(), 65);                         // 37 + 6 + 22
  EXPECT_EQ(hex(row, 29, 8), "2b 00 16 80 25 00 06 80");  // members at 43, watchPorts at 37
  EXPECT_EQ(row.members(), (std::vector<uint32_t>{1, 2, 3, 4, 5}));
  EXPECT_EQ(row.watchPorts(), (std::vector<uint32_t>{9}));
}

TEST_F(RowBytes, AnAddressThatGrowsIsMovedBehindTheOther) {
  auto row = l2NexthopGroupEncap();
  row.srcAddrIs(addr("2001:db8::2"));
  EXPECT_EQ(row.rowLength(), 58);                         // 26 + 16 + 16
  EXPECT_EQ(hex(row, 18, 8), "2a 00 10 80 1a 00 10 80");  // srcAddr at 42, dstAddr at 26
  EXPECT_EQ(row.srcAddr(), addr("2001:db8::2"));
  EXPECT_EQ(row.dstAddr(), addr("2001:db8::1"));
}

TEST_F(RowBytes, ListsThatNoRowCanHoldAreRefusedByTheirWriter) {
  const std::vector<uint32_t> most(4095, 1);
  EXPECT_EQ(EcmpMemberListRow(1, 2, true, 3, 4, most, most).rowLength(), 37 + 2 * 16382);
  const std::vector<uint32_t> over(8192, 1);  // 32770 bytes, a descriptor tells 32767
  expectThrows<Guard::AssertException>([&] { EcmpMemberListRow(1, 2, true, 3, 4, over, {}); },
                                       "array field length greater than 32767 bytes");
  const std::vector<uint32_t> half(8191, 1);  // 37 + 2 * 32766 = 65569
  expectThrows<Vane::VaOutOfRange>([&] { EcmpMemberListRow(1, 2, true, 3, 4, half, half); },
                                   "desired row size 65569 is greater than maxRowLength: 65535");
}

// A row built from the signature alone has the same bytes: the type is what its signature says.

template <class Row>
void expectSignatureTellsTheBytes(const Row& row, const std::vector<Vane::ColumnValue>& values) {
  const auto layout = Vane::RowLayout::of(Row::rowTypeName());
  EXPECT_EQ(hex(layout.row(258, values)), hex(row)) << Row::rowTypeName();
}

TEST_F(RowBytes, ARowBuiltFromTheSignatureIsTheSame) {
  using Array = std::vector<uint32_t>;
  expectSignatureTellsTheBytes(ipDestination(), {genId, entryHandle, true, entryId,
                                                 prefix("10.0.0.0/8"), int32_t{-2}, destinationId});
  expectSignatureTellsTheBytes(vrfPrefixDestination(),
                               {genId, entryHandle, true, entryId, vrfId, prefix("2001:db8::/32"),
                                int32_t{-2}, destinationId});
  expectSignatureTellsTheBytes(ipVrfPrefixStatusEntry(), {genId, entryHandle, int32_t{-7}, true,
                                                          vrfId, prefix("192.0.2.0/24")});
  expectSignatureTellsTheBytes(l2NexthopGroupEncap(), {uint16_t{0x5152}, entryHandle, int32_t{3},
                                                       addr("192.0.2.1"), addr("2001:db8::1")});
  expectSignatureTellsTheBytes(
      nexthopInfo(),
      {genId, entryHandle, true, entryId, uint32_t{0x61626364}, uint32_t{0x71727374},
       mac("02:00:5e:10:20:30"), mac("02:00:5e:40:50:60"), true, int32_t{-1}, uint16_t{0x0FFE}});
  expectSignatureTellsTheBytes(ecmpMemberList(), {genId, entryHandle, true, entryId,
                                                  uint32_t{0x61626364}, Array{1, 2, 3}, Array{9}});
}

// Names.

TEST_F(RowText, TypeNames) {
  EXPECT_EQ(IpDestinationRow::rowTypeName(), "P4RuntimeRouting::IpDestinationRow");
  EXPECT_EQ(VrfPrefixDestinationRow::rowTypeName(), "P4RuntimeRouting::VrfPrefixDestinationRow");
  EXPECT_EQ(IpVrfPrefixStatusEntryRow::rowTypeName(),
            "P4RuntimeRouting::IpVrfPrefixStatusEntryRow");
  EXPECT_EQ(L2NexthopGroupEncapRow::rowTypeName(), "NexthopGroup::L2NexthopGroupEncapRow");
  EXPECT_EQ(NexthopInfoRow::rowTypeName(), "P4RuntimeRouting::NexthopInfoRow");
  EXPECT_EQ(EcmpMemberListRow::rowTypeName(), "P4RuntimeRouting::EcmpMemberListRow");
}

TEST_F(RowText, Signatures) {
  EXPECT_EQ(IpDestinationRow::vaTypeSignature(),
            "{\"genId\":\"uint64_t\", \"entryHandle\":\"uint64_t\", \"valid\":\"bool\", "
            "\"entryId\":\"uint32_t\", \"destinationPrefix\":\"IpGenPrefix\", "
            "\"destinationType\":\"int32_t\", \"destinationId\":\"uint32_t\"}");
  EXPECT_EQ(VrfPrefixDestinationRow::vaTypeSignature(),
            "{\"genId\":\"uint64_t\", \"entryHandle\":\"uint64_t\", \"valid\":\"bool\", "
            "\"entryId\":\"uint32_t\", \"vrfId\":\"uint32_t\", \"prefix\":\"IpGenPrefix\", "
            "\"destinationType\":\"int32_t\", \"destinationId\":\"uint32_t\"}");
  EXPECT_EQ(IpVrfPrefixStatusEntryRow::vaTypeSignature(),
            "{\"genId\":\"uint64_t\", \"entryHandle\":\"uint64_t\", \"errorCode\":\"int32_t\", "
            "\"deleted\":\"bool\", \"vrfId\":\"uint32_t\", \"prefix\":\"IpGenPrefix\"}");
  EXPECT_EQ(L2NexthopGroupEncapRow::vaTypeSignature(),
            "{\"encapId\":\"uint16_t\", \"entryHandle\":\"uint64_t\", \"encapType\":\"int32_t\", "
            "\"srcAddr\":\"IpGenAddr\", \"dstAddr\":\"IpGenAddr\"}");
  EXPECT_EQ(NexthopInfoRow::vaTypeSignature(),
            "{\"genId\":\"uint64_t\", \"entryHandle\":\"uint64_t\", \"valid\":\"bool\", "
            "\"entryId\":\"uint32_t\", \"id\":\"uint32_t\", \"egressPort\":\"uint32_t\", "
            "\"srcMac\":\"EthAddr\", \"dstMac\":\"EthAddr\", \"vlanTagged\":\"bool\", "
            "\"encapType\":\"int32_t\", \"vlanId\":\"uint16_t\"}");
  EXPECT_EQ(EcmpMemberListRow::vaTypeSignature(),
            "{\"genId\":\"uint64_t\", \"entryHandle\":\"uint64_t\", \"valid\":\"bool\", "
            "\"entryId\":\"uint32_t\", \"id\":\"uint32_t\", \"members\":\"uint32_t[]\", "
            "\"watchPorts\":\"uint32_t[]\"}");
}

// JSON and text.

TEST_F(RowText, JsonOfEachType) {
  EXPECT_EQ(ipDestination().toJson(),
            "{\"genId\":72623859790382856, \"entryHandle\":1230066625199609624, \"valid\":true, "
            "\"entryId\":555885348, \"destinationPrefix\":\"10.0.0.0/8\", "
            "\"destinationType\":-2, \"destinationId\":825373492}");
  EXPECT_EQ(vrfPrefixDestination().toJson(),
            "{\"genId\":72623859790382856, \"entryHandle\":1230066625199609624, \"valid\":true, "
            "\"entryId\":555885348, \"vrfId\":1094861636, \"prefix\":\"2001:db8::/32\", "
            "\"destinationType\":-2, \"destinationId\":825373492}");
  EXPECT_EQ(ipVrfPrefixStatusEntry().toJson(),
            "{\"genId\":72623859790382856, \"entryHandle\":1230066625199609624, "
            "\"errorCode\":-7, \"deleted\":true, \"vrfId\":1094861636, "
            "\"prefix\":\"192.0.2.0/24\"}");
  EXPECT_EQ(l2NexthopGroupEncap().toJson(),
            "{\"encapId\":20818, \"entryHandle\":1230066625199609624, \"encapType\":3, "
            "\"srcAddr\":\"192.0.2.1\", \"dstAddr\":\"2001:db8::1\"}");
  EXPECT_EQ(nexthopInfo().toJson(),
            "{\"genId\":72623859790382856, \"entryHandle\":1230066625199609624, \"valid\":true, "
            "\"entryId\":555885348, \"id\":1633837924, \"egressPort\":1903326068, "
            "\"srcMac\":\"02:00:5e:10:20:30\", \"dstMac\":\"02:00:5e:40:50:60\", "
            "\"vlanTagged\":true, \"encapType\":-1, \"vlanId\":4094}");
  EXPECT_EQ(ecmpMemberList().toJson(),
            "{\"genId\":72623859790382856, \"entryHandle\":1230066625199609624, \"valid\":true, "
            "\"entryId\":555885348, \"id\":1633837924, \"members\":[1, 2, 3], "
            "\"watchPorts\":[9]}");
}

TEST_F(RowText, TextOfEachType) {
  EXPECT_EQ(ipDestination().toString(),
            "genId = 72623859790382856, entryHandle = 1230066625199609624, valid = true, "
            "entryId = 555885348, destinationPrefix = \"10.0.0.0/8\", destinationType = -2, "
            "destinationId = 825373492");
  EXPECT_EQ(vrfPrefixDestination().toString(),
            "genId = 72623859790382856, entryHandle = 1230066625199609624, valid = true, "
            "entryId = 555885348, vrfId = 1094861636, prefix = \"2001:db8::/32\", "
            "destinationType = -2, destinationId = 825373492");
  EXPECT_EQ(ipVrfPrefixStatusEntry().toString(),
            "genId = 72623859790382856, entryHandle = 1230066625199609624, errorCode = -7, "
            "deleted = true, vrfId = 1094861636, prefix = \"192.0.2.0/24\"");
  EXPECT_EQ(l2NexthopGroupEncap().toString(),
            "encapId = 20818, entryHandle = 1230066625199609624, encapType = 3, "
            "srcAddr = \"192.0.2.1\", dstAddr = \"2001:db8::1\"");
  EXPECT_EQ(nexthopInfo().toString(),
            "genId = 72623859790382856, entryHandle = 1230066625199609624, valid = true, "
            "entryId = 555885348, id = 1633837924, egressPort = 1903326068, "
            "srcMac = \"02:00:5e:10:20:30\", dstMac = \"02:00:5e:40:50:60\", vlanTagged = true, "
            "encapType = -1, vlanId = 4094");
  EXPECT_EQ(ecmpMemberList().toString(),
            "genId = 72623859790382856, entryHandle = 1230066625199609624, valid = true, "
            "entryId = 555885348, id = 1633837924, members = [1, 2, 3], watchPorts = [9]");
}

TEST_F(RowText, UnsetValuesPrintAsEmptyText) {
  EXPECT_EQ(IpDestinationRow().toJson(),
            "{\"genId\":0, \"entryHandle\":0, \"valid\":false, \"entryId\":0, "
            "\"destinationPrefix\":\"\", \"destinationType\":0, \"destinationId\":0}");
  EXPECT_EQ(L2NexthopGroupEncapRow().toString(),
            "encapId = 0, entryHandle = 0, encapType = 0, srcAddr = \"\", dstAddr = \"\"");
  EXPECT_EQ(EcmpMemberListRow().toJson(),
            "{\"genId\":0, \"entryHandle\":0, \"valid\":false, \"entryId\":0, \"id\":0, "
            "\"members\":[], \"watchPorts\":[]}");
}

TEST_F(RowText, TheLargestAndSmallestNumbersPrintInFull) {
  const IpDestinationRow row(UINT64_MAX, UINT64_MAX, false, UINT32_MAX,
                             prefix("ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff/128"), INT32_MIN,
                             UINT32_MAX);
  EXPECT_EQ(row.toJson(),
            "{\"genId\":18446744073709551615, \"entryHandle\":18446744073709551615, "
            "\"valid\":false, \"entryId\":4294967295, "
            "\"destinationPrefix\":\"ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff/128\", "
            "\"destinationType\":-2147483648, \"destinationId\":4294967295}");
}

}  // namespace
}  // namespace RoutingTypes::Test
