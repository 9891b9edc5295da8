// A row type's id: the row database's, asked for once.
#include <set>

#include "tests/routing-types/RowTypes.h"

namespace RoutingTypes::Test {
namespace {

template <class Row>
class RowTypeId : public WithDB {};
TYPED_TEST_SUITE(RowTypeId, AllTypes);

TYPED_TEST(RowTypeId, StartsUnknown) { EXPECT_EQ(TypeParam::rowType_, 65535); }

TYPED_TEST(RowTypeId, IsLoadedOnceAndThenKept) {
  EXPECT_EQ(TypeParam::protRowType(), 258);
  EXPECT_EQ(TypeParam::rowType_, 258);
  EXPECT_EQ(this->db->recordsAsked, 2);  // before the description was loaded, and after
  EXPECT_EQ(this->db->loadsAsked, 1);
  EXPECT_EQ(TypeParam::protRowType(), 258);
  EXPECT_EQ(this->db->recordsAsked, 2);
  EXPECT_EQ(this->db->loadsAsked, 1);
}

TYPED_TEST(RowTypeId, IsAskedForAgainAfterReset) {
  TypeParam::protRowType();
  TypeParam::reset();
  EXPECT_EQ(TypeParam::rowType_, 65535);
  EXPECT_EQ(TypeParam::protRowType(), 258);
  EXPECT_EQ(this->db->recordsAsked, 3);
  EXPECT_EQ(this->db->loadsAsked, 1) << "the description was loaded already";
}

TYPED_TEST(RowTypeId, OfATypeThatTheDatabaseCannotDescribeIsNullRowAndStaysUnknown) {
  this->db->ids.clear();
  expectThrows<Vane::VaNullRow>([] { TypeParam::protRowType(); }, "null row");
  EXPECT_EQ(TypeParam::rowType_, 65535);
  EXPECT_EQ(this->db->loadsAsked, 1);
  expectThrows<Vane::VaNullRow>([] { TypeParam row; }, "null row");
  expectThrows<Vane::VaNullRow>([] { rowOf<TypeParam>(0); }, "null row");
  expectThrows<Vane::VaNullRow>([] { TypeParam row{BaseRow(64)}; }, "null row");
}

TYPED_TEST(RowTypeId, IsAskedOfTheDatabaseThatBecomesTheCurrentOne) {
  EXPECT_EQ(TypeParam::protRowType(), 258);
  Vane::VaneDB::currentIs(this->db);
  EXPECT_EQ(TypeParam::rowType_, 258) << "the same database";
  const auto other = std::make_shared<TestDB>();
  other->ids[TypeParam::rowTypeName()] = 7;
  Vane::VaneDB::currentIs(other);
  EXPECT_EQ(TypeParam::protRowType(), 7);
}

TYPED_TEST(RowTypeId, IsUnknownWithoutACurrentDatabase) {
  Vane::VaneDB::currentIs(nullptr);
  expectThrows<Vane::VaNullRow>([] { TypeParam::protRowType(); }, "null row");
  EXPECT_EQ(TypeParam::rowType_, 65535);
}

TYPED_TEST(RowTypeId, HasSixteenBits) {
  this->db->ids[TypeParam::rowTypeName()] = 65534;
  EXPECT_EQ(TypeParam::protRowType(), 65534);
  EXPECT_EQ(TypeParam().rowType(), 65534);
}

TYPED_TEST(RowTypeId, OfTheReferenceDatabaseIsTheTablesTypeId) {
  const auto reference = Vane::makeVaneDB();
  Vane::VaneDB::currentIs(reference);
  const uint16_t id = TypeParam::protRowType();
  EXPECT_EQ(id, reference->tableTypeId(TypeParam::rowTypeName()));
  EXPECT_EQ(TypeParam().rowType(), id);
}

class RowTypeIds : public WithDB {};

TEST_F(RowTypeIds, OfTheReferenceDatabaseDiffer) {
  Vane::VaneDB::currentIs(Vane::makeVaneDB());
  const std::set<uint16_t> ids{IpDestinationRow::protRowType(),
                               VrfPrefixDestinationRow::protRowType(),
                               IpVrfPrefixStatusEntryRow::protRowType(),
                               L2NexthopGroupEncapRow::protRowType(),
                               NexthopInfoRow::protRowType(),
                               EcmpMemberListRow::protRowType()};
  EXPECT_EQ(ids.size(), 6u);
}

TEST_F(RowTypeIds, AreLookedUpAfterTheColumnsAreSetByTheValueConstructor) {
  db->ids.clear();
  const std::vector<uint32_t> tooLong(8192);
  EXPECT_THROW(EcmpMemberListRow(1, 2, true, 3, 4, tooLong, {}), Guard::AssertException);
  EXPECT_EQ(db->recordsAsked, 0);
}

TEST_F(RowTypeIds, ARowOfOneTypeIsNotOneOfAnother) {
  db->ids["P4RuntimeRouting::VrfPrefixDestinationRow"] = 259;
  expectThrows<Vane::VaBadCast>([] { IpDestinationRow row{VrfPrefixDestinationRow()}; },
                                "row type 259 does not match row type 258 0");
  IpDestinationRow row;
  expectThrows<Vane::VaBadCast>([&] { row = VrfPrefixDestinationRow(); },
                                "row type 259 does not match row type 258 0");
}

}  // namespace
}  // namespace RoutingTypes::Test
