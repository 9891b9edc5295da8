// What must not compile. Each refusal stands beside its nearest use that does compile.
#include <type_traits>

#include "tests/adapters/Samples.h"

namespace adapter_tests {
namespace {

using P4RuntimeVane::TableTraits;

struct HashOfAnotherWidth : IpDestinationTraits {
  static uint64_t keyHash(const Key&);
};
struct KeyThatIsAnotherField : IpDestinationTraits {
  static constexpr auto key = &Entry::destinationId;
};
struct RowOfAnotherType : IpDestinationTraits {
  using Row = NexthopInfoRow;
};
struct DeletionByAnotherKey : IpDestinationTraits {
  static constexpr auto del = &P4RuntimeRouting::EcmpMember::nexthopInfoDel;
};

TEST(Misuse, TraitsThatDoNotFitTheirTableAreNoTraits) {
  EXPECT_TRUE(TableTraits<IpDestinationTraits>);
  EXPECT_FALSE(TableTraits<HashOfAnotherWidth>);
  EXPECT_FALSE(TableTraits<KeyThatIsAnotherField>);
  EXPECT_FALSE(TableTraits<RowOfAnotherType>);
  EXPECT_FALSE(TableTraits<DeletionByAnotherKey>);
  EXPECT_FALSE(TableTraits<IpDestinationRow>);
}

template <class A>
class AdapterMisuse : public testing::Test {};
TYPED_TEST_SUITE(AdapterMisuse, Adapters, AdapterNames);

TYPED_TEST(AdapterMisuse, AnAdapterIsNotCopied) {
  EXPECT_FALSE(std::is_copy_constructible_v<TypeParam>);
  EXPECT_FALSE(std::is_copy_assignable_v<TypeParam>);
}

TYPED_TEST(AdapterMisuse, AnAdapterIsOfItsOwnTable) {
  using Db = std::shared_ptr<Vane::VaneDB>;
  using Table = typename Sample<TypeParam>::Traits::Table;
  EXPECT_TRUE((std::is_constructible_v<TypeParam, Kit::Ptr<Table>, Db, Vane::VaTableOps*, bool>));
  EXPECT_FALSE(
      (std::is_constructible_v<TypeParam, Kit::Ptr<Kit::Entity>, Db, Vane::VaTableOps*, bool>));
}

// An iterator points into itself.
TYPED_TEST(AdapterMisuse, AnIteratorIsClonedNotCopied) {
  using Iterator = P4RuntimeVane::RowIterator<typename Sample<TypeParam>::Traits>;
  EXPECT_FALSE(std::is_copy_constructible_v<Iterator>);
  EXPECT_FALSE(std::is_copy_assignable_v<Iterator>);
}

}  // namespace
}  // namespace adapter_tests
