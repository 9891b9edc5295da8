// Each allocation of a typed row fails once: the error is the row layer's or std::bad_alloc, the
// row is as it was, nothing leaks, and the next call works.
#include <gmock/gmock.h>

#include <sstream>

#include "tests/Vane/FailingAllocator.h"
#include "tests/routing-types/RowTypes.h"

namespace RoutingTypes::Test {
namespace {

using FailingAllocator::badAlloc;
using FailingAllocator::failEach;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

const auto nothingToCheck = [] {};
const auto onlyBadAlloc = AllOf(Not(IsEmpty()), Each(std::string(badAlloc)));

// The row's shared pointer block, and then its bytes.
auto ofABuffer(const std::string& call, size_t bytes) {
  return ElementsAre(badAlloc, call + " failed requested length: " + std::to_string(bytes));
}

// Bytes of the variable part of rowOf<Row>: IPv4 prefixes low and high, an IPv4 and an IPv6
// address, arrays of two elements and of one.
template <class Row>
constexpr size_t lowBodies = 5;
template <class Row>
constexpr size_t highBodies = 5;
template <>
constexpr size_t lowBodies<L2NexthopGroupEncapRow> = 4 + 4;
template <>
constexpr size_t highBodies<L2NexthopGroupEncapRow> = 16 + 16;
template <>
constexpr size_t lowBodies<NexthopInfoRow> = 0;
template <>
constexpr size_t highBodies<NexthopInfoRow> = 0;
template <>
constexpr size_t lowBodies<EcmpMemberListRow> = 2 * (2 + 2 * 4);
template <>
constexpr size_t highBodies<EcmpMemberListRow> = 2 * (2 + 4);

template <class Row>
class TypedAllocationFailure : public WithDB {
 protected:
  void SetUp() override {
    if (!FailingAllocator::isOurs) GTEST_SKIP() << FailingAllocator::isNotOurs;
    Row::protRowType();
  }
  static constexpr size_t fixed = Known<Row>::fixedLength;
};
TYPED_TEST_SUITE(TypedAllocationFailure, AllTypes);

TYPED_TEST(TypedAllocationFailure, OfANewRow) {
  const size_t fixed = this->fixed;
  EXPECT_THAT(failEach([] { TypeParam row; }, nothingToCheck), ofABuffer("calloc()", fixed));
  EXPECT_THAT(failEach([] { rowOf<TypeParam>(0); }, nothingToCheck),
              ofABuffer("calloc()", fixed + lowBodies<TypeParam>));
  EXPECT_THAT(failEach([] { rowOf<TypeParam>(allBits<TypeParam>); }, nothingToCheck),
              ofABuffer("calloc()", fixed + highBodies<TypeParam>));
  const bool hasPrefix = requires { TypeParam::key(prefixes[0]); }
  || requires { TypeParam::key(u32[0], prefixes[0]); };
  EXPECT_THAT(failEach([] { keyOf<TypeParam>(0); }, nothingToCheck),
              ofABuffer("calloc()", fixed + (hasPrefix ? 5 : 0)));
}

TYPED_TEST(TypedAllocationFailure, OfAClone) {
  const TypeParam row = rowOf<TypeParam>(0);
  EXPECT_THAT(failEach([&] { row.clone(); }, [&] { EXPECT_EQ(row.buffer().use_count(), 1); }),
              ofABuffer("malloc()", this->fixed + lowBodies<TypeParam>));
}

TYPED_TEST(TypedAllocationFailure, OfAWriteToASharedRowLeavesItSharing) {
  const TypeParam source = rowOf<TypeParam>(0);
  TypeParam copy(source);
  EXPECT_THAT(
      failEach([&] { copy.entryHandleIs(7); }, [&] { EXPECT_EQ(copy.buffer(), source.buffer()); }),
      ofABuffer("malloc()", this->fixed + lowBodies<TypeParam>));
  EXPECT_EQ(copy.entryHandle(), 7u);
}

TYPED_TEST(TypedAllocationFailure, OfClearingASharedRowLeavesItSharing) {
  const TypeParam source = rowOf<TypeParam>(0);
  TypeParam copy(source);
  EXPECT_THAT(failEach([&] { copy.clearRow(); },
                       [&] {
                         EXPECT_EQ(copy.buffer(), source.buffer());
                         EXPECT_TRUE(copy.rowEqual(source));
                       }),
              ofABuffer("calloc()", this->fixed + lowBodies<TypeParam>));
  EXPECT_EQ(copy.rowLength(), this->fixed);
  EXPECT_EQ(copy.rowType(), this->typeId);
}

TYPED_TEST(TypedAllocationFailure, IsNotMetByClearingARowOfItsOwn) {
  TypeParam row = rowOf<TypeParam>(0);
  EXPECT_THAT(failEach([&] { row.clearRow(); }, nothingToCheck), IsEmpty());
}

TYPED_TEST(TypedAllocationFailure, OfItsTextsLeavesTheRowReadable) {
  const TypeParam row = rowOf<TypeParam>(allBits<TypeParam>);
  const std::string before = hex(row), json = row.toJson(), text = row.toString();
  std::string made;
  const auto unchanged = [&] {
    EXPECT_EQ(hex(row), before);
    EXPECT_EQ(made, "");
  };
  EXPECT_THAT(failEach([&] { made = row.toJson(); }, unchanged), onlyBadAlloc);
  EXPECT_EQ(made, json);
  made = std::string();
  EXPECT_THAT(failEach([&] { made = row.toString(); }, unchanged), onlyBadAlloc);
  EXPECT_EQ(made, text);
  made = std::string();
  EXPECT_THAT(failEach([&] { made = TypeParam::browToString(row); }, unchanged), onlyBadAlloc);
  EXPECT_EQ(made, text);
  made = std::string();
  EXPECT_THAT(failEach([&] { made = TypeParam::vaTypeSignature(); }, unchanged), onlyBadAlloc);
}

// The refusal has a text to make; without memory for it the failure to make it passes on instead.
TYPED_TEST(TypedAllocationFailure, OfARefusalStillRefuses) {
  BaseRow generic(64);
  generic.rowTypeIs(777);
  EXPECT_THAT(failEach(
                  [&] {
                    try {
                      TypeParam row(generic);
                      ADD_FAILURE() << "took a row of another type";
                    } catch (const Vane::VaBadCast&) {
                    }
                  },
                  [&] { EXPECT_EQ(generic.buffer().use_count(), 1); }),
              Each(testing::AnyOf(badAlloc, "")));
  expectThrows<Vane::VaBadCast>([&] { TypeParam row(generic); },
                                "row type 777 does not match row type 258 0");
}

TYPED_TEST(TypedAllocationFailure, OfTheFirstLookUpLeavesTheTypesIdUnknown) {
  TypeParam::reset();
  EXPECT_THAT(failEach([] { TypeParam::protRowType(); },
                       [] { EXPECT_EQ(TypeParam::rowType_, TypeParam::unknownRowType); }),
              Not(IsEmpty()));
  EXPECT_EQ(TypeParam::protRowType(), this->typeId);
}

// The list is made once in a process, so a child of it tries. Nobody here asks this type before.
class OwnRow final : public RoutingTypes::TypedRow<OwnRow> {
 public:
  static constexpr auto typeName = "Test::OwnRow";
  using Columns = ColumnList<KeyColumn<"id", uint32_t>, Column<"members", std::vector<uint32_t>>>;
  using TypedRow::TypedRow;
};

class VariableColumnsFailure : public WithDB {
 protected:
  void SetUp() override {
    if (!FailingAllocator::isOurs) GTEST_SKIP() << FailingAllocator::isNotOurs;
  }
};

TEST_F(VariableColumnsFailure, OfTheListIsMadeGoodByTheNextCall) {
  const OwnRow row{BaseRow()};
  EXPECT_EXIT(
      {
        const auto errors = failEach([&] { row.vcd(); }, nothingToCheck);
        const bool isGood = errors == std::vector<std::string>{badAlloc} &&
                            row.vcd() == Vane::vcdType{8} && !testing::Test::HasFailure();
        std::exit(isGood ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

// A default row has no room for the bodies of its variable-size columns.
TEST_F(VariableColumnsFailure, OfTheFirstBodyLeavesTheColumnUnset) {
  IpDestinationRow route;
  EXPECT_THAT(failEach([&] { route.destinationPrefixIs(prefixes[0]); },
                       [&] {
                         EXPECT_EQ(route.destinationPrefix(), Vane::IpGenPrefix());
                         EXPECT_EQ(route.rowLength(), 37);
                       }),
              ElementsAre("realloc() failed. previous length: 37 requested new length: 42"));
  EXPECT_EQ(route.destinationPrefix(), prefixes[0]);
}

}  // namespace
}  // namespace RoutingTypes::Test
