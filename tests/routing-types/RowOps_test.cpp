// Hash values, the operations objects, and their generators.
#include <type_traits>

#include "tests/Vane/VirtualSlots.h"
#include "tests/routing-types/RowTypes.h"

namespace RoutingTypes::Test {
namespace {

// The mixing step, written down a second time.
uint32_t mix(uint32_t h, uint32_t k) {
  const uint64_t m = 0xFFFFFFFF;
  uint64_t x = k * uint64_t{0xCC9E2D51} & m;
  x = (x << 15 | x >> 17) & m;
  x = x * uint64_t{0x1B873593} & m;
  x ^= h;
  x = (x << 13 | x >> 19) & m;
  return static_cast<uint32_t>((x * 5 + 0xE6546B64) & m);
}

uint32_t mixAll(std::initializer_list<uint32_t> inputs) {
  uint32_t h = 0;
  for (const uint32_t k : inputs) h = mix(h, k);
  return h;
}

class RowHash : public WithDB {};

TEST_F(RowHash, OfAnEncapKeyIsOneStepOnTheId) {
  // For 0 every product is 0, which leaves the constant that is added.
  EXPECT_EQ(L2NexthopGroupEncapRow::key(0).hash(), 0xE6546B64u);
  // For 1: CC9E2D51 rotated by 15 is 16A8E64F; times 1B873593 is C3539A5D; rotated by 13 is
  // 734BB86A; times 5 is 407A9A12.
  EXPECT_EQ(L2NexthopGroupEncapRow::key(1).hash(), 0x26CF0576u);
  EXPECT_EQ(L2NexthopGroupEncapRow::key(65535).hash(), mix(0, 65535));
}

TEST_F(RowHash, OfAPrefixKeyIsOneStepOnThePrefixsOwnHash) {
  const auto row = IpDestinationRow::key(prefix("10.0.0.0/8"));
  EXPECT_EQ(row.hash(), mix(0, row.columnHash<Vane::IpGenPrefix>(25)));
  // The prefix hashes as family 1 and length 8, its address, and the final avalanche: F452FA0B.
  EXPECT_EQ(row.hash(), 0xEF292A29u);
}

TEST_F(RowHash, OfAVrfKeyTakesTheVrfFirst) {
  const auto row = VrfPrefixDestinationRow::key(5, prefix("10.0.0.0/8"));
  EXPECT_EQ(row.hash(), mixAll({5, row.columnHash<Vane::IpGenPrefix>(29)}));
  const auto status = IpVrfPrefixStatusEntryRow::key(5, prefix("10.0.0.0/8"));
  EXPECT_EQ(status.hash(), row.hash());
}

TEST_F(RowHash, OfARouteIsOneStepPerColumnInOrder) {
  const IpDestinationRow row(0x0102030405060708, 0x1112131415161718, true, 0x21222324,
                             prefix("10.0.0.0/8"), -2, 0x31323334);
  EXPECT_EQ(row.rowHash(), mixAll({0x05060708, 0x15161718, 1, 0x21222324,
                                   row.columnHash<Vane::IpGenPrefix>(25), 0xFFFFFFFE, 0x31323334}));
  EXPECT_EQ(row.rowHash(), 0xC45A9E53u);
}

TEST_F(RowHash, OfTheOtherRoutesFollowsTheirColumns) {
  const VrfPrefixDestinationRow route(1, 2, true, 3, 4, prefix("10.0.0.0/8"), -5, 6);
  const uint32_t prefixHash = route.columnHash<Vane::IpGenPrefix>(29);
  EXPECT_EQ(route.rowHash(), mixAll({1, 2, 1, 3, 4, prefixHash, 0xFFFFFFFB, 6}));
  const IpVrfPrefixStatusEntryRow status(1, 2, -3, true, 4, prefix("10.0.0.0/8"));
  EXPECT_EQ(status.rowHash(), mixAll({1, 2, 0xFFFFFFFD, 1, 4, prefixHash}));
}

TEST_F(RowHash, OfAnEncapTakesBothAddresses) {
  const L2NexthopGroupEncapRow row(0x8001, 5, -1, addr("192.0.2.1"), addr("2001:db8::1"));
  EXPECT_EQ(row.rowHash(), mixAll({0x8001, 5, 0xFFFFFFFF, row.columnHash<Vane::IpGenAddr>(18),
                                   row.columnHash<Vane::IpGenAddr>(22)}));
}

TEST_F(RowHash, OfAnEcmpMemberTakesItsMacs) {
  const NexthopInfoRow row(1, 2, false, 3, 4, 5, mac("02:00:5e:10:20:30"), mac("02:00:5e:40:50:60"),
                           true, -6, 7);
  EXPECT_EQ(row.rowHash(), mixAll({1, 2, 0, 3, 4, 5, row.columnHash<Vane::EthAddr>(33),
                                   row.columnHash<Vane::EthAddr>(39), 1, 0xFFFFFFFA, 7}));
  EXPECT_EQ(row.hash(), mix(0, 4));
}

TEST_F(RowHash, OfAnEcmpGroupTakesItsLists) {
  using Array = std::vector<uint32_t>;
  const EcmpMemberListRow row(1, 2, false, 3, 4, {5, 6}, {});
  EXPECT_EQ(row.rowHash(),
            mixAll({1, 2, 0, 3, 4, row.columnHash<Array>(29), row.columnHash<Array>(33)}));
  EXPECT_EQ(row.hash(), mix(0, 4));
  EXPECT_NE(EcmpMemberListRow(1, 2, false, 3, 4, {}, {}).rowHash(),
            EcmpMemberListRow(1, 2, false, 3, 4, {0}, {}).rowHash());
}

TEST_F(RowHash, LeavesOutTheHighHalfOf64BitColumnsWhichEqualityAndOrderDoNot) {
  const Vane::IpGenAddr unset;
  const L2NexthopGroupEncapRow low(1, 5, 0, unset, unset);
  const L2NexthopGroupEncapRow high(1, 0x100000005, 0, unset, unset);
  EXPECT_EQ(low.rowHash(), high.rowHash());
  EXPECT_FALSE(low.rowEqual(high));
  EXPECT_TRUE(low.rowLess(high));
  EXPECT_FALSE(high.rowLess(low));
}

TEST_F(RowHash, OfAnUnsetKeyIsAValueLikeAnother) {
  const IpDestinationRow unset;
  const auto set = IpDestinationRow::key(prefix("0.0.0.0/0"));
  EXPECT_EQ(unset.hash(), IpDestinationRow().hash());
  EXPECT_TRUE(unset == IpDestinationRow());
  EXPECT_FALSE(unset == set);
  EXPECT_TRUE(unset < set);
}

class KeyOrder : public WithDB {};

TEST_F(KeyOrder, IsTheVrfsWhateverThePrefixes) {
  const auto low = VrfPrefixDestinationRow::key(1, prefix("2001:db8::/32"));
  const auto high = VrfPrefixDestinationRow::key(2, prefix("0.0.0.0/0"));
  EXPECT_TRUE(low < high);
  EXPECT_FALSE(high < low);
  EXPECT_TRUE(low.rowLess(high));
}

TEST_F(KeyOrder, DoesNotLookAtThePrefixesOfDifferentVrfs) {
  const auto low = VrfPrefixDestinationRow::key(1, prefix("10.0.0.0/8"));
  auto high = VrfPrefixDestinationRow::key(2, prefix("10.0.0.0/8"));
  Vane::Test::pokeDescriptor(high, 29, 60000, 5);  // a look at this prefix throws
  EXPECT_TRUE(low < high);
  EXPECT_FALSE(low == high);
  EXPECT_THROW(static_cast<void>(high == high), Vane::VaOutOfRange);
}

TEST_F(KeyOrder, OfEncapsIsNumeric) {
  const auto first = L2NexthopGroupEncapRow::key(1);
  const auto last = L2NexthopGroupEncapRow::key(65535);
  NexthopGroup::L2NexthopGroupEncapRowRowOps_KEY ops;
  EXPECT_TRUE(first < last);
  EXPECT_FALSE(last < first);
  EXPECT_TRUE(ops.keyLess(first, last));
  EXPECT_FALSE(ops.keyLess(last, first));
  EXPECT_TRUE(first.rowLess(last));
  EXPECT_TRUE(ops.rowLess(first, last));
}

// The operations objects.

template <class Row>
struct Companion;
template <>
struct Companion<IpDestinationRow> {
  using Ops = P4RuntimeRouting::IpDestinationRowRowOps_KEY;
  using Generator = P4RuntimeRouting::IpDestinationRowRowOpsGenerator;
};
template <>
struct Companion<VrfPrefixDestinationRow> {
  using Ops = P4RuntimeRouting::VrfPrefixDestinationRowRowOps_KEY;
  using Generator = P4RuntimeRouting::VrfPrefixDestinationRowRowOpsGenerator;
};
template <>
struct Companion<IpVrfPrefixStatusEntryRow> {
  using Ops = P4RuntimeRouting::IpVrfPrefixStatusEntryRowRowOps_KEY;
  using Generator = P4RuntimeRouting::IpVrfPrefixStatusEntryRowRowOpsGenerator;
};
template <>
struct Companion<L2NexthopGroupEncapRow> {
  using Ops = NexthopGroup::L2NexthopGroupEncapRowRowOps_KEY;
  using Generator = NexthopGroup::L2NexthopGroupEncapRowRowOpsGenerator;
};
template <>
struct Companion<NexthopInfoRow> {
  using Ops = P4RuntimeRouting::NexthopInfoRowRowOps_KEY;
};
template <>
struct Companion<EcmpMemberListRow> {
  using Ops = P4RuntimeRouting::EcmpMemberListRowRowOps_KEY;
};

template <class Row>
class RowOps : public WithDB {
 protected:
  typename Companion<Row>::Ops ops;
};
TYPED_TEST_SUITE(RowOps, AllTypes);

TYPED_TEST(RowOps, IsStateless) {
  EXPECT_EQ(sizeof(this->ops), sizeof(Vane::RowOpsBase));
  EXPECT_TRUE((std::is_base_of_v<Vane::RowOpsBase, typename Companion<TypeParam>::Ops>));
}

TYPED_TEST(RowOps, DescribesTheOnlyIndexAsAUniqueHash) {
  EXPECT_TRUE(this->ops.unique());
  EXPECT_FALSE(this->ops.ordered());
  EXPECT_EQ(this->ops.index(), 0);
  EXPECT_EQ(this->ops.getTotalInstructionsExecuted(), 0u);
}

TYPED_TEST(RowOps, AnswersAsTheRowsThemselvesDo) {
  std::vector<TypeParam> rows;
  std::vector<BaseRow> generic;
  for (unsigned high = 0; high <= allBits<TypeParam>; ++high) {
    rows.push_back(rowOf<TypeParam>(high));
    generic.push_back(rows.back());
    ASSERT_EQ(this->ops.rowHash(generic[high]), rows[high].rowHash());
    ASSERT_EQ(this->ops.keyHash(generic[high]), rows[high].hash());
  }
  forPairs<TypeParam>([&](unsigned a, unsigned b) {
    ASSERT_EQ(this->ops.keyEquals(generic[a], generic[b]), rows[a] == rows[b]);
    ASSERT_EQ(this->ops.rowEquals(generic[a], generic[b]), rows[a].rowEqual(rows[b]));
    ASSERT_EQ(this->ops.keyLess(generic[a], generic[b]), rows[a] < rows[b]);
    ASSERT_EQ(this->ops.rowLess(generic[a], generic[b]), rows[a].rowLess(rows[b]));
  });
}

TYPED_TEST(RowOps, TellsRowsOfDifferentTypeFieldsApartInEqualityOnly) {
  const TypeParam row = rowOf<TypeParam>(0);
  BaseRow other = row.clone();
  other.rowTypeIs(777);
  EXPECT_FALSE(this->ops.rowEquals(row, other));
  EXPECT_FALSE(this->ops.rowLess(row, other));
  EXPECT_FALSE(this->ops.rowLess(other, row));
  EXPECT_EQ(this->ops.rowHash(row), this->ops.rowHash(other));
  EXPECT_TRUE(this->ops.keyEquals(row, other));
}

TYPED_TEST(RowOps, HashesTheKeyOfANullRowAsZeroAndRefusesAllElse) {
  const BaseRow null;
  const TypeParam row = rowOf<TypeParam>(0);
  EXPECT_EQ(this->ops.keyHash(null), 0u);
  auto fails = [](auto action) { expectThrows<Vane::VaNullRow>(action, "null row"); };
  fails([&] { this->ops.rowHash(null); });
  for (const auto& rows : {std::pair<BaseRow, BaseRow>(null, row), {row, null}, {null, null}}) {
    const auto& a = rows.first;
    const auto& b = rows.second;
    fails([&] { this->ops.keyEquals(a, b); });
    fails([&] { this->ops.rowEquals(a, b); });
    fails([&] { this->ops.keyLess(a, b); });
    fails([&] { this->ops.rowLess(a, b); });
  }
}

TYPED_TEST(RowOps, RefusesARowWithoutTheWholeFixedArea) {
  const TypeParam row = rowOf<TypeParam>(0);
  BaseRow shorter(TypeParam::baseRowLength_ - 1);
  shorter.rowTypeIs(TypeParam::protRowType());
  EXPECT_THROW(this->ops.keyHash(shorter), Vane::VaOutOfRange);
  EXPECT_THROW(this->ops.rowHash(shorter), Vane::VaOutOfRange);
  EXPECT_THROW(this->ops.keyEquals(row, shorter), Vane::VaOutOfRange);
  EXPECT_THROW(this->ops.rowEquals(row, shorter), Vane::VaOutOfRange);
  EXPECT_THROW(this->ops.keyLess(row, shorter), Vane::VaOutOfRange);
  EXPECT_THROW(this->ops.rowLess(shorter, row), Vane::VaOutOfRange);
}

// Generators: of the route and encap types.

template <class Row>
class Generator : public WithDB {
 protected:
  using Class = typename Companion<Row>::Generator;
  using Ops = typename Companion<Row>::Ops;
};
TYPED_TEST_SUITE(Generator, RouteTypes);

TYPED_TEST(Generator, IsRegisteredUnderTheTypesNameAtLibraryLoad) {
  EXPECT_EQ(Vane::rowOpsGenerator(TypeParam::rowTypeName()), &TestFixture::Class::rowOpsGenerator_);
  EXPECT_EQ(sizeof(typename TestFixture::Class), sizeof(Vane::RowOpsGenerator));
}

TYPED_TEST(Generator, HandsOutANewOperationsObjectForIndexZero) {
  auto& generate = TestFixture::Class::rowOpsGenerator_;
  const auto one = generate(0);
  const auto other = generate(0);
  ASSERT_NE(dynamic_cast<typename TestFixture::Ops*>(one.get()), nullptr);
  EXPECT_NE(one, other);
  EXPECT_EQ(one.use_count(), 1);
  const TypeParam row = rowOf<TypeParam>(0);
  EXPECT_EQ(one->keyHash(row), row.hash());
}

TYPED_TEST(Generator, HasNoOtherIndex) {
  for (int index = 1; index <= 255; ++index) {
    EXPECT_EQ(TestFixture::Class::rowOpsGenerator_(static_cast<unsigned char>(index)), nullptr);
  }
}

TYPED_TEST(Generator, AppendsOneToAVectorAndKeepsWhatIsThere) {
  const auto kept = std::make_shared<typename TestFixture::Ops>();
  std::vector<std::shared_ptr<Vane::RowOpsBase>> ops{kept};
  TestFixture::Class::rowOpsGenerator_(ops);
  ASSERT_EQ(ops.size(), 2u);
  EXPECT_EQ(ops[0], kept);
  EXPECT_NE(dynamic_cast<typename TestFixture::Ops*>(ops[1].get()), nullptr);
}

class LibraryLoad : public WithDB {};

TEST_F(LibraryLoad, OffersSixTypesAndGeneratorsForFour) {
  std::vector<std::string> generated;
  const auto names = Vane::rowTypeNames();
  for (const auto& name : names) {
    if (Vane::rowOpsGenerator(name)) generated.push_back(name);
  }
  EXPECT_EQ(names,
            (std::vector<std::string>{
                "NexthopGroup::L2NexthopGroupEncapRow", "P4RuntimeRouting::EcmpMemberListRow",
                "P4RuntimeRouting::IpDestinationRow", "P4RuntimeRouting::IpVrfPrefixStatusEntryRow",
                "P4RuntimeRouting::NexthopInfoRow", "P4RuntimeRouting::VrfPrefixDestinationRow"}));
  EXPECT_EQ(generated, (std::vector<std::string>{"NexthopGroup::L2NexthopGroupEncapRow",
                                                 "P4RuntimeRouting::IpDestinationRow",
                                                 "P4RuntimeRouting::IpVrfPrefixStatusEntryRow",
                                                 "P4RuntimeRouting::VrfPrefixDestinationRow"}));
}

using Vane::Test::slotOf;
using Vane::Test::VirtualSlots;

TEST_F(VirtualSlots, OfARowType) {
  using Row = IpDestinationRow;
  EXPECT_EQ(slotOf(&Row::shareContents), 0u);
  // 1 and 2: the destructor, complete and deleting.
  EXPECT_EQ(slotOf(&Row::vcd), 3u);
  EXPECT_EQ(slotOf(&Row::toString), 4u);
  EXPECT_EQ(slotOf(&Row::toJson), 5u);
  EXPECT_EQ(slotOf(&Row::rowEqual), 6u);
  EXPECT_EQ(slotOf(&Row::rowLess), 7u);
  EXPECT_EQ(slotOf(&Row::rowHash), 8u);
  EXPECT_EQ(slotOf(&Row::baseRowLength), 9u);
  EXPECT_EQ(slotOf(&Row::isFullyDefined), 10u);
  EXPECT_EQ(slotOf(&Row::clearRow), 11u);
}

TEST_F(VirtualSlots, OfAnOperationsObject) {
  using Ops = P4RuntimeRouting::IpDestinationRowRowOps_KEY;
  // 0 and 1: the destructor.
  EXPECT_EQ(slotOf(&Ops::keyHash), 2u);
  EXPECT_EQ(slotOf(&Ops::rowHash), 3u);
  EXPECT_EQ(slotOf(&Ops::keyEquals), 4u);
  EXPECT_EQ(slotOf(&Ops::rowEquals), 5u);
  EXPECT_EQ(slotOf(&Ops::keyLess), 6u);
  EXPECT_EQ(slotOf(&Ops::rowLess), 7u);
  EXPECT_EQ(slotOf(&Ops::unique), 8u);
  EXPECT_EQ(slotOf(&Ops::ordered), 9u);
  EXPECT_EQ(slotOf(&Ops::index), 10u);
  EXPECT_EQ(slotOf(&Ops::getTotalInstructionsExecuted), 11u);
}

TEST_F(VirtualSlots, OfAGenerator) {
  using Generator = P4RuntimeRouting::IpDestinationRowRowOpsGenerator;
  void (Generator::*append)(std::vector<std::shared_ptr<Vane::RowOpsBase>>&) =
      &Generator::operator();
  std::shared_ptr<Vane::RowOpsBase> (Generator::*at)(unsigned char) = &Generator::operator();
  EXPECT_EQ(slotOf(append), 0u);
  EXPECT_EQ(slotOf(at), 1u);
}

}  // namespace
}  // namespace RoutingTypes::Test
