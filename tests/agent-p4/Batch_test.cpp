// Batches: order, what becomes of the others when one fails, and taking back.
#include "tests/agent-p4/Switch.h"

namespace P4Test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr auto rollback = WriteRequest::ROLLBACK_ON_ERROR;
constexpr int aborted = StatusCode::ABORTED;

class Batch : public testing::Test {
 protected:
  std::vector<std::vector<std::string>> everything() {
    std::vector<std::vector<std::string>> rows;
    for (const auto& table : Agent::routingTables()) {
      rows.push_back(at.rows(std::string(table.name)));
      std::ranges::sort(rows.back());
    }
    return rows;
  }
  Switch at;
};

TEST_F(Batch, IsAppliedInItsOrder) {
  EXPECT_THAT(
      at.codes({insert(member(1)), insert(group(7, {{1}})), insert(toGroup(prefix(1), 7)),
                modify(toMember(prefix(1), 1)), del(group(7, {})), del(prefix(1)), del(member(1))}),
      ElementsAre(0, 0, 0, 0, 0, 0, 0));
  EXPECT_EQ(at.batches(), 1) << "one hand-over";
}

TEST_F(Batch, WithoutUpdatesSucceeds) { EXPECT_THAT(at.codes({}), IsEmpty()); }

TEST_F(Batch, GoesOnAfterAFailure) {
  EXPECT_THAT(at.codes({insert(member(1)), insert(member(1)), insert(member(0)), del(member(9)),
                        insert(member(2))}),
              ElementsAre(0, 6, 3, 5, 0));
  EXPECT_EQ(at.read(allMembers()).size(), 2u);
}

TEST_F(Batch, MalformedUpdatesAreInvalidAndOtherEntitiesUnimplemented) {
  EXPECT_EQ(at.code(updateOf(Update::UNSPECIFIED, member(1))), 3);
  EXPECT_EQ(at.code(updateOf(static_cast<Update::Type>(4), member(1))), 3);
  EXPECT_EQ(at.code(insert(Entity())), 3);
  Update none;
  none.set_type(Update::INSERT);
  EXPECT_EQ(at.code(none), 3);
  for (const char* kind :
       {"extern_entry {}", "meter_entry {}", "direct_meter_entry {}", "counter_entry {}",
        "direct_counter_entry {}", "packet_replication_engine_entry {}", "value_set_entry {}",
        "register_entry {}", "digest_entry {}"}) {
    EXPECT_EQ(at.code(insert(entity(kind))), StatusCode::UNIMPLEMENTED) << kind;
  }
}

TEST_F(Batch, ThatWantsToBeAtomicForReadersOfTheTablesIsUnimplemented) {
  const auto result = at.write({insert(member(1))}, WriteRequest::DATAPLANE_ATOMIC);
  EXPECT_EQ(result.refused.error_code(), StatusCode::UNIMPLEMENTED);
  EXPECT_EQ(result.refused.error_message(),
            "DATAPLANE_ATOMIC: readers in other processes see each entry whole, not each batch");
  EXPECT_EQ(at.write({}, static_cast<WriteRequest::Atomicity>(3)).refused.error_code(),
            StatusCode::INVALID_ARGUMENT);
  EXPECT_THAT(at.read(allMembers()), IsEmpty());
}

TEST_F(Batch, RolledBackRestoresRowsAndWhatIsKeptBesideThem) {
  Entity route = toMember(prefix(1), 1);
  route.mutable_table_entry()->set_metadata("old");
  ASSERT_THAT(at.codes({insert(member(1)), insert(member(2)), insert(group(7, {{1, 3}}, 8)),
                        insert(route), insert(encap(1))}),
              ElementsAre(0, 0, 0, 0, 0));
  const auto before = everything();
  Entity changed = toGroup(prefix(1), 7);
  changed.mutable_table_entry()->set_metadata("new");
  EXPECT_THAT(at.codes({insert(member(3)), modify(changed), modify(group(7, {{2}}, 8)),
                        del(encap(1)), insert(encap(2)), modify(member(1, 99)), del(prefix(1)),
                        insert(toMember(prefix(1), 2)), insert(member(3)), insert(member(4))},
                       rollback),
              ElementsAre(aborted, aborted, aborted, aborted, aborted, aborted, aborted, aborted,
                          StatusCode::ALREADY_EXISTS, aborted));
  EXPECT_EQ(everything(), before);
  EXPECT_THAT(at.read(entriesOf(override4)), ElementsAre(IsEntity(route)));
  EXPECT_THAT(at.read(allGroups()), ElementsAre(IsEntity(group(7, {{1, 3}}, 8))));
  // References are as before, too.
  EXPECT_EQ(at.code(del(member(2))), 0);
  EXPECT_EQ(at.code(del(member(1))), StatusCode::FAILED_PRECONDITION);
  EXPECT_THAT(at.codes({del(prefix(1)), del(group(7, {})), del(member(1))}), ElementsAre(0, 0, 0));
}

TEST_F(Batch, RolledBackTakesOneShotSetsWithIt) {
  ASSERT_EQ(at.code(insert(toSet(prefix(1), {{1, 2, {}}, {2}}))), 0);
  const auto before = everything();
  EXPECT_THAT(at.codes({insert(toSet(prefix(2), {{3}})), modify(toSet(prefix(1), {{4}})),
                        del(prefix(1)), insert(toSet(prefix(1), {{6}})), del(prefix(9))},
                       rollback),
              ElementsAre(aborted, aborted, aborted, aborted, StatusCode::NOT_FOUND));
  EXPECT_EQ(everything(), before);
  EXPECT_THAT(at.read(allEntries()), ElementsAre(IsEntity(toSet(prefix(1), {{1, 2, {}}, {2}}))));
}

TEST_F(Batch, ThatIsAllOrNothingIsNotBegunWhenAnUpdateIsFaulty) {
  EXPECT_THAT(at.codes({insert(member(1)), insert(member(0)), insert(member(2)), insert(Entity())},
                       rollback),
              ElementsAre(aborted, 3, aborted, 3));
  EXPECT_EQ(at.size("VaneEcmpMember"), 0u);
}

TEST_F(Batch, ThatIsAllOrNothingAndGoodIsAppliedWhole) {
  EXPECT_THAT(at.codes({insert(member(1)), insert(toMember(prefix(1), 1))}, rollback),
              ElementsAre(0, 0));
  EXPECT_EQ(at.read(allEntries()).size(), 1u);
}

TEST_F(Batch, IsCountedByOutcomeAndTable) {
  at.codes({insert(member(1)), insert(member(1)), insert(member(0)), insert(toMember(prefix(1), 1)),
            del(prefix(1))});
  at.read(allMembers());
  const auto counters = at.target().counters();
  EXPECT_EQ(counters.updatesApplied, 3u);
  EXPECT_EQ(counters.entitiesRead, 1u);
  EXPECT_EQ(counters.errors[StatusCode::ALREADY_EXISTS], 1u);
  EXPECT_EQ(counters.errors[StatusCode::INVALID_ARGUMENT], 1u);
  ASSERT_EQ(counters.tables.size(), 10u);
  EXPECT_EQ(counters.tables[0].rowTable, "VaneEcmpMember");
  EXPECT_EQ(counters.tables[0].writes, 1u);
  EXPECT_EQ(counters.tables[0].errors, 2u);
  EXPECT_EQ(counters.tables[2].rowTable, "VaneIpv4Override");
  EXPECT_EQ(counters.tables[2].writes, 1u);
  EXPECT_EQ(counters.tables[2].deletes, 1u);
}

TEST_F(Batch, OfManyFailuresHasAResultForEach) {
  std::vector<Update> updates;
  for (uint32_t id = 1; id <= 200; ++id) updates.push_back(del(member(id)));
  const auto result = at.write(updates);
  EXPECT_TRUE(result.refused.ok());
  ASSERT_EQ(result.results.size(), 200u);
  for (uint32_t id = 1; id <= 200; ++id) {
    EXPECT_EQ(result.results[id - 1].canonical_code(), StatusCode::NOT_FOUND);
    EXPECT_EQ(result.results[id - 1].message(), "member " + std::to_string(id) + " is not there");
  }
}

TEST_F(Batch, ThatComesWhenTheLoopIsClosedOrTooLateIsTurnedAway) {
  WriteRequest request;
  *request.add_updates() = insert(member(1));
  const auto past = std::chrono::system_clock::now() - std::chrono::seconds(1);
  std::promise<void> goOn;
  std::promise<void> begun;
  std::thread busy([&] {
    at.onLoop([&] {
      begun.set_value();
      goOn.get_future().get();
    });
  });
  begun.get_future().get();
  EXPECT_EQ(at.target().write(request, past).refused.error_code(), StatusCode::DEADLINE_EXCEEDED);
  const auto soon = std::chrono::system_clock::now() + std::chrono::milliseconds(200);
  EXPECT_EQ(at.target().write(request, soon).refused.error_code(), StatusCode::DEADLINE_EXCEEDED);
  goOn.set_value();
  busy.join();
  at.onLoop([&] { at.gate().close(); });
  EXPECT_EQ(at.write(request).refused.error_code(), StatusCode::UNAVAILABLE);
  EXPECT_EQ(at.size("VaneEcmpMember"), 0u);
}

}  // namespace
}  // namespace P4Test
