// What must not compile. Each refusal stands beside its nearest use that does compile.
#include <type_traits>

#include "tests/routing-types/RowTypes.h"

namespace RoutingTypes::Test {
namespace {

using Vane::EthAddr;
using Vane::IpGenAddr;
using Vane::IpGenPrefix;
using Array = std::vector<uint32_t>;

template <class V>
concept IsAPrefix = requires(IpDestinationRow row, const V& value) {
  row.destinationPrefixIs(value);
};
template <class V>
concept IsAMac = requires(NexthopInfoRow row, const V& value) {
  row.srcMacIs(value);
};
template <class V>
concept IsAList = requires(EcmpMemberListRow row, const V& value) {
  row.membersIs(value);
};
template <class V>
concept IsANumber = requires(IpDestinationRow row, const V& value) {
  row.entryIdIs(value);
};

TEST(Misuse, AColumnTakesNoValueOfAnotherKind) {
  EXPECT_TRUE(IsAPrefix<IpGenPrefix>);
  EXPECT_FALSE(IsAPrefix<IpGenAddr>);
  EXPECT_FALSE(IsAPrefix<std::string>);
  EXPECT_FALSE(IsAPrefix<uint32_t>);
  EXPECT_TRUE(IsAMac<EthAddr>);
  EXPECT_FALSE(IsAMac<uint64_t>);
  EXPECT_FALSE(IsAMac<IpGenAddr>);
  EXPECT_TRUE(IsAList<Array>);
  EXPECT_FALSE(IsAList<std::vector<uint16_t>>);
  EXPECT_FALSE(IsAList<uint32_t>);
  EXPECT_TRUE(IsANumber<uint32_t>);
  EXPECT_FALSE(IsANumber<IpGenPrefix>);
  EXPECT_FALSE(IsANumber<Array>);
}

TEST(Misuse, ARowIsMadeOfExactlyOneValueForEachColumnInOrder) {
  using u64 = uint64_t;
  using u32 = uint32_t;
  EXPECT_TRUE(
      (std::is_constructible_v<IpDestinationRow, u64, u64, bool, u32, IpGenPrefix, int32_t, u32>));
  EXPECT_FALSE((std::is_constructible_v<IpDestinationRow, u64, u64, bool, u32, IpGenPrefix, u32>));
  EXPECT_FALSE((std::is_constructible_v<IpDestinationRow, u64, u64, bool, u32, IpGenPrefix, int32_t,
                                        u32, u32>));
  EXPECT_FALSE(
      (std::is_constructible_v<IpDestinationRow, u64, u64, bool, IpGenPrefix, u32, int32_t, u32>));
}

TEST(Misuse, ATypedRowIsNotMadeOfALength) {
  EXPECT_TRUE((std::is_constructible_v<BaseRow, Vane::len_t>));
  EXPECT_FALSE((std::is_constructible_v<IpDestinationRow, Vane::len_t>));
}

template <class Row, class... Vs>
concept HasKey = requires(const Vs&... values) {
  Row::key(values...);
};

TEST(Misuse, AKeyIsMadeOfExactlyTheKeyColumnsInOrder) {
  EXPECT_TRUE((HasKey<IpDestinationRow, IpGenPrefix>));
  EXPECT_FALSE((HasKey<IpDestinationRow>));
  EXPECT_FALSE((HasKey<IpDestinationRow, uint32_t>));
  EXPECT_TRUE((HasKey<VrfPrefixDestinationRow, uint32_t, IpGenPrefix>));
  EXPECT_FALSE((HasKey<VrfPrefixDestinationRow, IpGenPrefix, uint32_t>));
  EXPECT_FALSE((HasKey<VrfPrefixDestinationRow, IpGenPrefix>));
}

template <class Row>
concept CanBeWritten = requires(Row row) {
  row.entryHandleIs(uint64_t{1});
};
template <class Row>
concept CanBeCleared = requires(Row row) {
  row.clearRow();
};
template <class Row>
concept CanBeWrittenByColumnName = requires(Row row) {
  row.template set<"entryHandle">(uint64_t{1});
};

TEST(Misuse, AConstantRowIsNotWritten) {
  EXPECT_TRUE(CanBeWritten<IpDestinationRow>);
  EXPECT_FALSE(CanBeWritten<const IpDestinationRow>);
  EXPECT_TRUE(CanBeCleared<IpDestinationRow>);
  EXPECT_FALSE(CanBeCleared<const IpDestinationRow>);
}

TEST(Misuse, ColumnsAreReachedThroughTheirAccessorsAlone) {
  EXPECT_FALSE(CanBeWrittenByColumnName<IpDestinationRow>);
}

template <class T>
concept HasAColumn = requires {
  typename RoutingTypes::Column<"column", T>;
};

TEST(Misuse, AColumnIsOfAKindThatRowsHave) {
  EXPECT_TRUE(HasAColumn<uint16_t>);
  EXPECT_TRUE(HasAColumn<Array>);
  EXPECT_FALSE(HasAColumn<float>);
  EXPECT_FALSE(HasAColumn<std::string>);
  EXPECT_FALSE(HasAColumn<const char*>);
  EXPECT_FALSE(HasAColumn<std::vector<uint64_t>>);
}

template <class T, class V>
concept IsSetAs = requires(BaseRow row, const V& value) {
  row.setColumn<T>(4, value, 37);
};
template <class T>
concept IsReadAsAScalar = requires(const BaseRow row) {
  row.getScalar<T>(4);
};

TEST(Misuse, AGenericRowTakesAndGivesOnlyWhatAColumnHolds) {
  EXPECT_TRUE((IsSetAs<uint32_t, uint32_t>));
  EXPECT_TRUE((IsSetAs<uint32_t, Array>));
  EXPECT_FALSE((IsSetAs<uint32_t, IpGenPrefix>));
  EXPECT_FALSE((IsSetAs<float, float>));
  EXPECT_FALSE((IsSetAs<uint16_t, std::vector<uint16_t>>));
  EXPECT_TRUE(IsReadAsAScalar<uint64_t>);
  EXPECT_FALSE(IsReadAsAScalar<IpGenPrefix>);
  EXPECT_FALSE(IsReadAsAScalar<double>);
}

using Keys = VrfPrefixDestinationRow::Columns::Keys;
constexpr auto visit = [](auto, const auto&) {};
template <class... Vs>
concept WalksKeysWith = requires(const Vs&... values) {
  Keys::forEachWith(visit, values...);
};

TEST(Misuse, AWalkWithValuesHasOneOfTheColumnsOwnTypeForEach) {
  EXPECT_TRUE((WalksKeysWith<uint32_t, IpGenPrefix>));
  EXPECT_FALSE((WalksKeysWith<uint32_t>));
  EXPECT_FALSE((WalksKeysWith<uint64_t, IpGenPrefix>));
  EXPECT_FALSE((WalksKeysWith<IpGenPrefix, uint32_t>));
}

template <class Ops>
concept HasAGenerator = requires {
  typename RowOpsKeyGenerator<IpDestinationRow, Ops>;
};

TEST(Misuse, AGeneratorIsOfOperationsObjects) {
  EXPECT_TRUE(HasAGenerator<RowOpsKey<IpDestinationRow>>);
  EXPECT_FALSE(HasAGenerator<IpDestinationRow>);
}

TEST(Misuse, AGeneratorIsNotCopied) {
  using Generator = P4RuntimeRouting::IpDestinationRowRowOpsGenerator;
  EXPECT_FALSE(std::is_copy_constructible_v<Generator>);
  EXPECT_FALSE(std::is_copy_assignable_v<Generator>);
}

}  // namespace
}  // namespace RoutingTypes::Test
