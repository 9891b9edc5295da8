// One entry of each kind and the row that it becomes, byte by byte.
#include "tests/adapters/Samples.h"

namespace adapter_tests {
namespace {

using NexthopGroup::L2NexthopGroupEncapTableVaneWrappers::vaneNexthopGroupL2NexthopGroupEncap;
using P4RuntimeRouting::EcmpGroupVaneWrappers::vaneP4RuntimeRoutingEcmpMemberList;
using P4RuntimeRouting::EcmpMemberVaneWrappers::vaneP4RuntimeRoutingNexthopInfo;
using P4RuntimeRouting::IpDestinationTableVaneWrappers::vaneP4RuntimeRoutingIpDestination;
using P4RuntimeRouting::IpVrfPrefixTableVaneWrappers::vaneP4RuntimeRoutingVrfPrefixDestination;

// The row type that is asked for first has id 1.
class RowBytes : public DatabaseTest {};

TEST_F(RowBytes, OfARoute) {
  IpDestination entry;
  entry.genId = 0x0102030405060708;
  entry.entryHandle = 0x1112131415161718;
  entry.valid = true;
  entry.entryId = 0x21222324;
  entry.destinationPrefix = Wire::IpGenPrefix::ipv4(0x0A010200, 24);
  entry.destinationType = -2;
  entry.destinationId = 0x41424344;
  IpDestinationRow row;
  vaneP4RuntimeRoutingIpDestination(entry, row);
  EXPECT_EQ(hex(row),
            "2A 00 01 00 "              //  0  length 42 = 37 + 5, type 1
            "08 07 06 05 04 03 02 01 "  //  4  genId
            "18 17 16 15 14 13 12 11 "  // 12  entryHandle
            "01 "                       // 20  valid
            "24 23 22 21 "              // 21  entryId
            "25 00 05 80 "              // 25  destinationPrefix: 5 bytes at 37, written
            "FE FF FF FF "              // 29  destinationType
            "44 43 42 41 "              // 33  destinationId
            "18 0A 01 02 00");          // 37  /24, 10.1.2.0
}

TEST_F(RowBytes, OfARouteWithinARoutingInstance) {
  VrfPrefixDestination entry;
  entry.genId = 1;
  entry.entryHandle = 2;
  entry.valid = false;
  entry.entryId = 3;
  entry.key.vrfId = 0x00FFFFFE;
  entry.key.prefix = Wire::IpGenPrefix::ipv6({{0x20, 0x01, 0x0D, 0xB8}}, 32);
  entry.destinationType = 4;
  entry.destinationId = 5;
  VrfPrefixDestinationRow row;
  vaneP4RuntimeRoutingVrfPrefixDestination(entry, row);
  EXPECT_EQ(hex(row),
            "3A 00 01 00 "              //  0  length 58 = 41 + 17, type 1
            "01 00 00 00 00 00 00 00 "  //  4  genId
            "02 00 00 00 00 00 00 00 "  // 12  entryHandle
            "00 "                       // 20  valid
            "03 00 00 00 "              // 21  entryId
            "FE FF FF 00 "              // 25  vrfId
            "29 00 11 80 "              // 29  prefix: 17 bytes at 41, written
            "04 00 00 00 "              // 33  destinationType
            "05 00 00 00 "              // 37  destinationId
            "20 20 01 0D B8 00 00 00 00 00 00 00 00 00 00 00 00");  // 41  /32, 2001:db8::
}

TEST_F(RowBytes, OfAnEncapsulation) {
  L2NexthopGroupEncap entry;
  entry.encapId = 0x0102;
  entry.entryHandle = 0x1112131415161718;
  entry.encapType = -1;
  entry.srcAddr = Wire::IpGenAddr::ipv4(0xC0000201);
  entry.dstAddr =
      Wire::IpGenAddr::ipv6({{0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}});
  L2NexthopGroupEncapRow row;
  vaneNexthopGroupL2NexthopGroupEncap(entry, row);
  EXPECT_EQ(hex(row),
            "2E 00 01 00 "              //  0  length 46 = 26 + 4 + 16, type 1
            "02 01 "                    //  4  encapId
            "18 17 16 15 14 13 12 11 "  //  6  entryHandle
            "FF FF FF FF "              // 14  encapType
            "1A 00 04 80 "              // 18  srcAddr: 4 bytes at 26, written
            "1E 00 10 80 "              // 22  dstAddr: 16 bytes at 30, written
            "C0 00 02 01 "              // 26  192.0.2.1
            "20 01 0D B8 00 00 00 00 00 00 00 00 00 00 00 01");  // 30  2001:db8::1
}

TEST_F(RowBytes, OfAnEcmpMember) {
  NexthopInfo entry;
  entry.genId = 1;
  entry.entryHandle = 2;
  entry.valid = true;
  entry.entryId = 3;
  entry.id = 0x01020304;
  entry.egressPort = 0x11121314;
  entry.srcMac = {{0xA1, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6}};
  entry.dstMac = {{0xB1, 0xB2, 0xB3, 0xB4, 0xB5, 0xB6}};
  entry.vlanTagged = true;
  entry.encapType = -2;
  entry.vlanId = 0x0FFE;
  NexthopInfoRow row;
  vaneP4RuntimeRoutingNexthopInfo(entry, row);
  EXPECT_EQ(hex(row),
            "34 00 01 00 "              //  0  length 52, type 1
            "01 00 00 00 00 00 00 00 "  //  4  genId
            "02 00 00 00 00 00 00 00 "  // 12  entryHandle
            "01 "                       // 20  valid
            "03 00 00 00 "              // 21  entryId
            "04 03 02 01 "              // 25  id
            "14 13 12 11 "              // 29  egressPort
            "A1 A2 A3 A4 A5 A6 "        // 33  srcMac, as it is written
            "B1 B2 B3 B4 B5 B6 "        // 39  dstMac
            "01 "                       // 45  vlanTagged
            "FE FF FF FF "              // 46  encapType
            "FE 0F");                   // 50  vlanId
}

TEST_F(RowBytes, OfAnEcmpGroup) {
  EcmpMemberList entry;
  entry.genId = 1;
  entry.entryHandle = 2;
  entry.valid = true;
  entry.entryId = 3;
  entry.id = 0x01020304;
  entry.memberIs(MemberIndex(0), 0x0A);
  entry.memberIs(MemberIndex(1), 0x0B0C0D0E);
  entry.watchIs(MemberIndex(0), P4Runtime::P4PortId{0x21});
  EcmpMemberListRow row;
  vaneP4RuntimeRoutingEcmpMemberList(entry, row);
  EXPECT_EQ(hex(row),
            "35 00 01 00 "                    //  0  length 53 = 37 + 10 + 6, type 1
            "01 00 00 00 00 00 00 00 "        //  4  genId
            "02 00 00 00 00 00 00 00 "        // 12  entryHandle
            "01 "                             // 20  valid
            "03 00 00 00 "                    // 21  entryId
            "04 03 02 01 "                    // 25  id
            "25 00 0A 80 "                    // 29  members: 10 bytes at 37, written
            "2F 00 06 80 "                    // 33  watchPorts: 6 bytes at 47, written
            "02 00 0A 00 00 00 0E 0D 0C 0B "  // 37  two members
            "01 00 21 00 00 00");             // 47  one port
}

// Both lists are written, an empty one as an absent column.
TEST_F(RowBytes, OfAnEcmpGroupWithoutMembers) {
  EcmpMemberList entry;
  entry.id = 7;
  EcmpMemberListRow row;
  vaneP4RuntimeRoutingEcmpMemberList(entry, row);
  EXPECT_EQ(hex(row),
            "25 00 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
            "07 00 00 00 00 00 00 00 00 00 00 00");
}

TEST_F(RowBytes, OfUnsetAddressesTakeNoRoom) {
  IpDestinationRow route;
  vaneP4RuntimeRoutingIpDestination({}, route);
  EXPECT_EQ(route.rowLength(), 37);
  L2NexthopGroupEncapRow encap;
  vaneNexthopGroupL2NexthopGroupEncap({}, encap);
  EXPECT_EQ(encap.rowLength(), 26);
}

// A null typed row, to be filled.
template <class Row>
Row nullRow() {
  return Row(Vane::BaseRow());
}

TEST_F(RowBytes, CannotBePutIntoANullRow) {
  auto route = nullRow<IpDestinationRow>();
  EXPECT_EQ(messageOf<Vane::VaNullRow>([&] { vaneP4RuntimeRoutingIpDestination({}, route); }),
            "null row");
  auto vrf = nullRow<VrfPrefixDestinationRow>();
  EXPECT_EQ(messageOf<Vane::VaNullRow>([&] { vaneP4RuntimeRoutingVrfPrefixDestination({}, vrf); }),
            "null row");
  auto encap = nullRow<L2NexthopGroupEncapRow>();
  EXPECT_EQ(messageOf<Vane::VaNullRow>([&] { vaneNexthopGroupL2NexthopGroupEncap({}, encap); }),
            "null row");
  auto member = nullRow<NexthopInfoRow>();
  EXPECT_EQ(messageOf<Vane::VaNullRow>([&] { vaneP4RuntimeRoutingNexthopInfo({}, member); }),
            "null row");
  auto group = nullRow<EcmpMemberListRow>();
  EXPECT_EQ(messageOf<Vane::VaNullRow>([&] { vaneP4RuntimeRoutingEcmpMemberList({}, group); }),
            "null row");
}

TEST_F(RowBytes, CannotBePutIntoAReadOnlyRow) {
  IpDestinationRow row;
  row.readOnlyIs(true);
  EXPECT_THROW(vaneP4RuntimeRoutingIpDestination({}, row), Vane::VaPermissionViolation);
}

}  // namespace
}  // namespace adapter_tests
