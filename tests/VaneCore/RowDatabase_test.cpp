#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/Vane/VaneDB.h"
#include "tests/Guard/MessageOf.h"
#include "tests/VaneCore/MemoryTable.h"

namespace {

using GuardTest::messageOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing_tables::MemoryTable;
using Vane::TableType;
using Vane::VaneDB;

Vane::RowMetadata describe(const std::string& typeName) {
  return {typeName, "{\"key\":\"uint32_t\"}", {"key"}, 8};
}

void registerTable(VaneDB& db, const std::string& name, const std::string& rowType) {
  db.registerTable(name, rowType, TableType::adapter, 0, 0, "", {});
}

// Type names that no other test offers.
class RowDatabase : public testing::Test {
 protected:
  RowDatabase() {
    Vane::installRowMetadata(describe("Test::First"));
    Vane::installRowMetadata(describe("Test::Second"));
  }
  ~RowDatabase() override { VaneDB::currentIs(nullptr); }
  const std::shared_ptr<VaneDB> db = Vane::makeVaneDB();
};

TEST_F(RowDatabase, GivesTypeIdsFromOneInOrderOfLoading) {
  EXPECT_EQ(db->tableTypeId("Test::Second"), 1u);
  EXPECT_EQ(db->tableTypeId("Test::First"), 2u);
  EXPECT_EQ(db->tableTypeId("Test::Second"), 1u);
}

TEST_F(RowDatabase, AnUnknownRowTypeIsNamedTogetherWithThoseThatAreKnown) {
  // Whatever else this process has been offered, in order of name.
  std::string known;
  for (const auto& name : Vane::rowTypeNames())
    known += (known.empty() ? "\"" : ", \"") + name + '"';
  ASSERT_THAT(known, HasSubstr("\"Test::First\", "));
  ASSERT_THAT(known, HasSubstr("\"Test::Second\""));
  EXPECT_TRUE(messageOf<Vane::VaUnknownName>([&] { db->tableTypeId("Test::Nowhere"); }) ==
              "row type \"Test::Nowhere\" is not known; known are " + known);
}

TEST_F(RowDatabase, ATableOfAnUnknownRowTypeIsNotRegistered) {
  EXPECT_THAT(
      messageOf<Vane::VaUnknownName>([&] { registerTable(*db, "Routes", "Test::Nowhere"); }),
      HasSubstr("\"Test::Nowhere\""));
  registerTable(*db, "Routes", "Test::First");
}

TEST_F(RowDatabase, ANameIsTakenOnce) {
  registerTable(*db, "Routes", "Test::First");
  EXPECT_EQ(messageOf<Vane::VaNotSupported>([&] { registerTable(*db, "Routes", "Test::First"); }),
            "table \"Routes\" is registered already");
}

TEST_F(RowDatabase, ATableIsNotThereUntilItHasItsImplementation) {
  registerTable(*db, "Routes", "Test::First");
  EXPECT_EQ(db->table("Routes"), nullptr);
  EXPECT_TRUE(db->tableNames().empty());
  const auto table = std::make_shared<MemoryTable>();
  db->tableImplementationIs("Routes", table);
  EXPECT_EQ(db->table("Routes"), table);
  EXPECT_THAT(db->tableNames(), ElementsAre("Routes"));
}

TEST_F(RowDatabase, NamesItsTablesInOrderOfRegistration) {
  for (const char* name : {"Zebra", "Aardvark", "Mole"}) registerTable(*db, name, "Test::First");
  db->tableImplementationIs("Mole", std::make_shared<MemoryTable>());
  db->tableImplementationIs("Zebra", std::make_shared<MemoryTable>());
  EXPECT_THAT(db->tableNames(), ElementsAre("Zebra", "Mole"));
}

TEST_F(RowDatabase, AnUnregisteredTableGetsNoImplementation) {
  EXPECT_EQ(messageOf<Vane::VaUnknownName>(
                [&] { db->tableImplementationIs("Routes", std::make_shared<MemoryTable>()); }),
            "table \"Routes\" is not registered");
  EXPECT_EQ(db->table("Routes"), nullptr);
}

TEST_F(RowDatabase, AnImplementationWithOtherRowsIsRefused) {
  registerTable(*db, "Routes", "Test::Second");
  EXPECT_EQ(messageOf<Vane::VaNotSupported>(
                [&] { db->tableImplementationIs("Routes", std::make_shared<MemoryTable>()); }),
            "table \"Routes\": rows of type \"Test::First\", expected \"Test::Second\"");
  EXPECT_EQ(db->table("Routes"), nullptr);
}

TEST_F(RowDatabase, OwnsItsTables) {
  auto table = std::make_shared<MemoryTable>();
  const std::weak_ptr<MemoryTable> alive = table;
  auto owner = Vane::makeVaneDB();
  registerTable(*owner, "Routes", "Test::First");
  owner->tableImplementationIs("Routes", std::move(table));
  EXPECT_FALSE(alive.expired());
  owner.reset();
  EXPECT_TRUE(alive.expired());
}

TEST_F(RowDatabase, AClassRecordIsNullUntilItsDescriptionIsLoaded) {
  EXPECT_TRUE(db->classRecord("Test::First").isNull());
  db->metadataIs("Test::First");
  EXPECT_FALSE(db->classRecord("Test::First").isNull());
}

// Header: 6 bytes long, type 0. First column: the id.
TEST_F(RowDatabase, AClassRecordHoldsTheTypeIdInItsFirstColumn) {
  db->metadataIs("Test::First");
  db->metadataIs("Test::Second");
  const Vane::BaseRow record = db->classRecord("Test::Second");
  ASSERT_EQ(record.rowLength(), 6);
  const uint8_t* const bytes = record.buffer()->data();
  EXPECT_EQ(std::vector<int>(bytes, bytes + 6), (std::vector<int>{6, 0, 0, 0, 2, 0}));
}

TEST_F(RowDatabase, AClassRecordCannotBeWritten) {
  db->metadataIs("Test::First");
  Vane::BaseRow record = db->classRecord("Test::First");
  EXPECT_THROW(record.rowTypeIs(9), Vane::VaPermissionViolation);
}

TEST_F(RowDatabase, LoadingADescriptionThatNobodyOfferedDoesNothing) {
  db->metadataIs("Test::Nowhere");
  EXPECT_TRUE(db->classRecord("Test::Nowhere").isNull());
}

TEST_F(RowDatabase, LoadingTwiceKeepsTheId) {
  db->metadataIs("Test::First");
  db->metadataIs("Test::Second");
  db->metadataIs("Test::First");
  EXPECT_EQ(db->tableTypeId("Test::First"), 1u);
}

TEST_F(RowDatabase, EachDatabaseHasItsOwnIds) {
  const auto other = Vane::makeVaneDB();
  db->metadataIs("Test::First");
  EXPECT_TRUE(other->classRecord("Test::First").isNull());
  EXPECT_EQ(other->tableTypeId("Test::Second"), 1u);
}

TEST_F(RowDatabase, WithoutACurrentDatabaseNoTypeIsKnown) {
  EXPECT_EQ(VaneDB::current(), nullptr);
  VaneDB::loadMetadata("Test::First");
  EXPECT_TRUE(VaneDB::vaClass("Test::First").isNull());
}

TEST_F(RowDatabase, IsAskedForTypesWhenItIsTheCurrentOne) {
  VaneDB::currentIs(db);
  EXPECT_EQ(VaneDB::current(), db);
  EXPECT_TRUE(VaneDB::vaClass("Test::First").isNull());
  VaneDB::loadMetadata("Test::First");
  EXPECT_EQ(VaneDB::vaClass("Test::First").getScalar<uint16_t>(4), 1);
  EXPECT_FALSE(db->classRecord("Test::First").isNull());
}

TEST(RowTypeIds, RunOutBeforeTheOneThatSaysNotKnown) {
  const auto db = Vane::makeVaneDB();
  for (int i = 0; i < 65534; ++i) {
    const std::string name = "Test::Many" + std::to_string(i);
    Vane::installRowMetadata(describe(name));
    ASSERT_EQ(db->tableTypeId(name), static_cast<uint32_t>(i) + 1);
  }
  Vane::installRowMetadata(describe("Test::OneTooMany"));
  EXPECT_EQ(messageOf<Vane::VaOutOfRange>([&] { db->tableTypeId("Test::OneTooMany"); }),
            "row type \"Test::OneTooMany\": all 65534 type ids are taken");
  EXPECT_EQ(db->tableTypeId("Test::Many0"), 1u);
}

struct Generator final : Vane::RowOpsGenerator {
  void operator()(std::vector<std::shared_ptr<Vane::RowOpsBase>>&) override {}
  std::shared_ptr<Vane::RowOpsBase> operator()(unsigned char) override { return nullptr; }
};

TEST(RowOpsRegistry, KnowsAGeneratorByItsTypeName) {
  Generator generator;
  Vane::installRowOpsGenerator("Test::Generated", &generator);
  EXPECT_EQ(Vane::rowOpsGenerator("Test::Generated"), &generator);
  EXPECT_EQ(Vane::rowOpsGenerator("Test::Generate"), nullptr);
}

TEST(RowOpsRegistry, ASecondGeneratorReplacesTheFirst) {
  Generator first;
  Generator second;
  Vane::installRowOpsGenerator("Test::Twice", &first);
  Vane::installRowOpsGenerator("Test::Twice", &second);
  EXPECT_EQ(Vane::rowOpsGenerator("Test::Twice"), &second);
}

TEST(RowOpsRegistry, KnowsADescriptionByItsTypeName) {
  Vane::installRowMetadata(describe("Test::Described"));
  const Vane::RowMetadata* const found = Vane::rowMetadata("Test::Described");
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(found->typeName, "Test::Described");
  EXPECT_EQ(found->baseRowLength, 8);
  EXPECT_EQ(Vane::rowMetadata("Test::Undescribed"), nullptr);
}

TEST(RowOpsRegistry, ASecondDescriptionReplacesTheFirstInPlace) {
  Vane::installRowMetadata(describe("Test::DescribedTwice"));
  const Vane::RowMetadata* const found = Vane::rowMetadata("Test::DescribedTwice");
  Vane::RowMetadata longer = describe("Test::DescribedTwice");
  longer.baseRowLength = 12;
  Vane::installRowMetadata(longer);
  EXPECT_EQ(Vane::rowMetadata("Test::DescribedTwice"), found);
  EXPECT_EQ(found->baseRowLength, 12);
}

// Row types of a plug-in register before main, whatever the order of the libraries' start.
const bool registeredEarly = [] {
  Vane::installRowMetadata(describe("Test::Early"));
  static Generator generator;
  Vane::installRowOpsGenerator("Test::Early", &generator);
  return true;
}();

TEST(RowOpsRegistry, TakesWhatIsRegisteredDuringStaticInitialisation) {
  ASSERT_TRUE(registeredEarly);
  EXPECT_NE(Vane::rowMetadata("Test::Early"), nullptr);
  EXPECT_NE(Vane::rowOpsGenerator("Test::Early"), nullptr);
}

}  // namespace
