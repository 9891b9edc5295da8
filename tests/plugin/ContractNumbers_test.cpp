// Numbers that others rely on, as numbers.
#include <gtest/gtest.h>

#include <type_traits>

#include "platform/Hub/Mount.h"
#include "platform/P4Runtime/Plugin.h"
#include "platform/Shoal/TableEntity.h"
#include "platform/Shoal/TableStore.h"
#include "platform/Vane/VaTable.h"
#include "platform/Vane/VaneDB.h"

namespace {

template <class Enum>
constexpr unsigned number(Enum value) {
  return static_cast<unsigned>(value);
}

TEST(ContractNumbers, OfChangeKindsAre1And2In32Bits) {
  EXPECT_EQ(number(Vane::ChangeKind::exists), 1u);
  EXPECT_EQ(number(Vane::ChangeKind::removed), 2u);
  EXPECT_EQ(sizeof(Vane::ChangeKind), 4u);
  EXPECT_FALSE((std::is_signed_v<std::underlying_type_t<Vane::ChangeKind>>));
}

TEST(ContractNumbers, OfTableTypesAre0To2) {
  EXPECT_EQ(number(Vane::TableType::memory), 0u);
  EXPECT_EQ(number(Vane::TableType::derived), 1u);
  EXPECT_EQ(number(Vane::TableType::adapter), 2u);
}

TEST(ContractNumbers, OfTableStatesAre0To2) {
  EXPECT_EQ(number(Vane::TableState::created), 0u);
  EXPECT_EQ(number(Vane::TableState::loading), 1u);
  EXPECT_EQ(number(Vane::TableState::ready), 2u);
}

TEST(ContractNumbers, OfAttachmentModesAre0To2) {
  EXPECT_EQ(number(Shoal::Mode::writer), 0u);
  EXPECT_EQ(number(Shoal::Mode::reader), 1u);
  EXPECT_EQ(number(Shoal::Mode::snapshot), 2u);
}

TEST(ContractNumbers, OfATablesEntriesAsAnAttributeIs258) {
  EXPECT_EQ(number(Shoal::entriesAttribute), 258u);
}

TEST(ContractNumbers, OfTheKindOfAMountedTableIs0) {
  EXPECT_EQ(number(KitShoal::KitShoalType::hashTable), 0u);
}

TEST(ContractNumbers, OfTheReasonThatDetachesTablesIs1) {
  EXPECT_EQ(number(P4Runtime::PluginCleanupReason::restart), 0u);
  EXPECT_EQ(number(P4Runtime::PluginCleanupReason::removal), 1u);
  EXPECT_EQ(number(P4Runtime::PluginCleanupReason::reconfigure), 2u);
}

}  // namespace
