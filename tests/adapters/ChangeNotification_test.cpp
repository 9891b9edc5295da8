#include <map>
#include <random>
#include <typeinfo>

#include "platform/Vane/ChangeReader.h"
#include "tests/VaneCore/Witness.h"
#include "tests/adapters/Samples.h"

namespace adapter_tests {
namespace {

using Vane::ChangeKind;

struct Change {
  uint64_t index;
  ChangeKind kind;
  std::string row;
  bool operator==(const Change&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Change& change) {
  return out << change.index << (change.kind == ChangeKind::exists ? " exists " : " removed ")
             << change.row;
}

Change made(const Vane::BasicVaTableChange& change) {
  return {change.index(), change.kind(), hex(change.row())};
}

template <class A>
class ChangeNotification : public AdapterTest<A> {
 protected:
  // The changes above an index.
  std::vector<Change> changes(uint64_t after = 0) {
    std::vector<Change> found;
    const auto end = adapter->endChange();
    for (const auto at = adapter->nextChange(after); *at != *end; ++*at) {
      found.push_back(made(**at));
    }
    return found;
  }
  Change exists(uint64_t index, uint32_t i, uint32_t version = 1) const {
    return {index, ChangeKind::exists, hex(this->s.row(i, version))};
  }
  Change removed(uint64_t index, uint32_t i) const {
    return {index, ChangeKind::removed, hex(this->s.rowOfKeyAlone(i))};
  }
  using Changes = std::vector<Change>;

  const std::unique_ptr<A> adapter = this->makeAdapter();
};
TYPED_TEST_SUITE(ChangeNotification, Adapters, AdapterNames);

TYPED_TEST(ChangeNotification, TheLogIsEmptyAtFirstWithBothIndicesOne) {
  EXPECT_EQ(this->adapter->oldestChangeIdx(), 1u);
  EXPECT_EQ(this->adapter->latestChangeIdx(), 1u);
  EXPECT_TRUE(this->changes().empty());
}

TYPED_TEST(ChangeNotification, WhatIsInTheTableAlreadyIsNotLogged) {
  this->set(1);
  const auto later = this->makeAdapter();
  EXPECT_EQ(later->latestChangeIdx(), 1u);
  EXPECT_TRUE(*later->nextChange(0) == *later->endChange());
}

TYPED_TEST(ChangeNotification, AnEntryThatIsSetIsAChangeThatExists) {
  this->set(1);
  this->set(2);
  EXPECT_EQ(this->changes(), (std::vector{this->exists(2, 1), this->exists(4, 2)}));
  EXPECT_EQ(this->adapter->latestChangeIdx(), 4u);
}

TYPED_TEST(ChangeNotification, SettingAnEqualEntryIsAChange) {
  this->set(1);
  this->set(1);
  EXPECT_EQ(this->changes(), std::vector{this->exists(4, 1)});
}

TYPED_TEST(ChangeNotification, AddChangeAndRemovalOfAKeyLeaveOneNodeThatHoldsOnlyTheKey) {
  this->set(3);
  this->set(3, 2);
  this->del(3);
  EXPECT_EQ(this->changes(), std::vector{this->removed(7, 3)});
}

TYPED_TEST(ChangeNotification, RemovalOfAnAbsentKeyIsNoChange) {
  this->del(1);
  EXPECT_EQ(this->adapter->latestChangeIdx(), 1u);
}

TYPED_TEST(ChangeNotification, AKeyThatComesBackAfterItsRemovalExists) {
  this->set(1);  // 2
  this->del(1);  // 5
  this->set(1);  // 6
  EXPECT_EQ(this->changes(), std::vector{this->exists(6, 1)});
}

// From an odd index to the next even number, from an even one by two, to a removal by two or three.
TYPED_TEST(ChangeNotification, IndicesOfSuccessiveChangesRise) {
  std::vector<uint64_t> indices;
  const auto note = [&] { indices.push_back(this->adapter->latestChangeIdx()); };
  this->set(1), note();
  this->set(2), note();
  this->del(1), note();
  this->del(2), note();
  this->set(3), note();
  EXPECT_EQ(indices, (std::vector<uint64_t>{2, 4, 7, 9, 10}));
}

TYPED_TEST(ChangeNotification, NothingFollowsTheLatestChange) {
  this->set(1);
  EXPECT_TRUE(*this->adapter->nextChange(this->adapter->latestChangeIdx()) ==
              *this->adapter->endChange());
}

TYPED_TEST(ChangeNotification, ChangesAreAskedForFromAnyIndex) {
  this->set(1);  // 2
  this->set(2);  // 4
  this->set(3);  // 6
  EXPECT_EQ(this->changes(2), (std::vector{this->exists(4, 2), this->exists(6, 3)}));
  EXPECT_EQ(this->changes(5), std::vector{this->exists(6, 3)});
}

TYPED_TEST(ChangeNotification, AfterPruningTheFirstChangeIsTheOldestThatIsLeft) {
  for (const uint32_t i : {1, 2, 3}) this->set(i);
  this->adapter->cleanChangeMap(4);
  EXPECT_EQ(this->adapter->oldestChangeIdx(), 4u);
  EXPECT_EQ(this->changes(0), std::vector{this->exists(6, 3)});
  this->adapter->cleanChangeMap(5);
  EXPECT_EQ(this->adapter->oldestChangeIdx(), 5u);
  EXPECT_EQ(this->changes(0), std::vector{this->exists(6, 3)});
}

TYPED_TEST(ChangeNotification, APrunedKeyThatChangesIsLoggedAnew) {
  this->set(1);
  this->adapter->cleanChangeMap(2);
  this->set(1, 2);
  EXPECT_EQ(this->changes(), std::vector{this->exists(4, 1, 2)});
}

TYPED_TEST(ChangeNotification, TheRecordOfAnEntryShowsItAsItIsWhenTheRecordIsRead) {
  this->set(1);
  this->setUntold(this->s.entry(1, 2));
  EXPECT_EQ(this->changes(), std::vector{this->exists(2, 1, 2)});
}

TYPED_TEST(ChangeNotification, TheRecordOfAnEntryThatHasGoneUntoldIsEmpty) {
  this->set(1);
  this->delUntold(1);
  const auto at = this->adapter->nextChange(0);
  const Vane::BasicVaTableChange change = **at;
  EXPECT_EQ(change.kind(), ChangeKind::exists);
  EXPECT_EQ(hex(change.row()), hex(this->adapter->row(this->s.keyRow(1), 0)));
}

// The reactor goes by what the table holds, not by what it is told.
TYPED_TEST(ChangeNotification, AChangeByAnotherProcessIsLoggedAsItIsFound) {
  using Key = typename TestFixture::Key;
  const Key key = this->s.key(1);
  this->setUntold(this->s.entry(1));
  this->table->notifyChanged(this->asBytes(key));
  EXPECT_EQ(this->changes(), std::vector{this->exists(2, 1)});
  this->delUntold(1);
  this->table->notifyChanged(this->asBytes(key));
  EXPECT_EQ(this->changes(), std::vector{this->removed(5, 1)});
}

TYPED_TEST(ChangeNotification, AnEntryWhoseEveryFieldIsZeroCountsAsGone) {
  this->set(typename TestFixture::Entry{});
  const auto at = this->adapter->nextChange(0);
  EXPECT_EQ((**at).index(), 3u);
  EXPECT_EQ((**at).kind(), ChangeKind::removed);
}

TYPED_TEST(ChangeNotification, AnotherAttributeOrNoKeyLeavesTheLogUnchanged) {
  using Reactor = typename TypeParam::ReactorForVane;
  const auto key = this->s.key(1);
  this->setUntold(this->s.entry(1));
  Reactor reactor(this->table, *this->adapter);
  reactor.onAttribute(Kit::AttributeId{257}, &key);
  reactor.onAttribute(Kit::AttributeId{259}, &key);
  reactor.onAttribute(Kit::AttributeId{258}, nullptr);
  EXPECT_EQ(this->adapter->latestChangeIdx(), 1u);
  reactor.onAttribute(Kit::AttributeId{258}, &key);
  EXPECT_EQ(this->changes(), std::vector{this->exists(2, 1)});
}

TYPED_TEST(ChangeNotification, NothingIsLoggedOnceTheAdapterHasGone) {
  auto other = this->makeAdapter();
  EXPECT_EQ(this->table->notifiees(), 2u);
  other.reset();
  EXPECT_EQ(this->table->notifiees(), 1u);
  this->set(1);
  EXPECT_EQ(this->changes().size(), 1u);
}

TYPED_TEST(ChangeNotification, ChangeIteratorsCompareTheirPositions) {
  this->set(1);
  this->set(2);
  const auto one = this->adapter->nextChange(0);
  const auto other = this->adapter->nextChange(1);
  EXPECT_TRUE(*one == *other);
  ++*other;
  EXPECT_TRUE(*one != *other);
  EXPECT_FALSE(*one == *other);
  ++*other;
  EXPECT_TRUE(*other == *this->adapter->endChange());
}

struct ForeignChangeIterator final : Vane::VaChangeIteratorImpl {
  VaChangeIteratorImpl& operator++() override { return *this; }
  Vane::BasicVaTableChange operator*() override { return {0, ChangeKind::exists, {}}; }
  bool operator==(const VaChangeIteratorImpl&) const override { return true; }
  bool operator!=(const VaChangeIteratorImpl&) const override { return false; }
  std::unique_ptr<VaChangeIteratorImpl> clone() const override { return nullptr; }
};

TYPED_TEST(ChangeNotification, ComparingWithAChangeIteratorOfAnotherClassIsABadCast) {
  const auto at = this->adapter->nextChange(0);
  const std::unique_ptr<Vane::VaChangeIteratorImpl> foreign =
      std::make_unique<ForeignChangeIterator>();
  EXPECT_THROW(static_cast<void>(*at == *foreign), std::bad_cast);
  EXPECT_THROW(static_cast<void>(*at != *foreign), std::bad_cast);
}

TYPED_TEST(ChangeNotification, ACloneStandsWhereItsSourceStandsAndWalksOnAlone) {
  this->set(1);
  this->set(2);
  const auto at = this->adapter->nextChange(0);
  const auto clone = at->clone();
  EXPECT_TRUE(*at == *clone);
  ++*clone;
  EXPECT_EQ(made(**at), this->exists(2, 1));
  EXPECT_EQ(made(**clone), this->exists(4, 2));
}

TYPED_TEST(ChangeNotification, AChangeIteratorKeepsTheTableEntity) {
  const uint32_t before = this->table->references();
  const auto at = this->adapter->nextChange(0);
  const auto end = this->adapter->endChange();
  EXPECT_EQ(this->table->references(), before + 2);
}

TYPED_TEST(ChangeNotification, ARecordKeepsItsRowWhenTheIteratorMovesOn) {
  this->set(1);
  this->set(2);
  const auto at = this->adapter->nextChange(0);
  const Vane::BasicVaTableChange first = **at;
  ++*at;
  const Vane::BasicVaTableChange second = **at;
  EXPECT_EQ(hex(first.row()), hex(this->s.row(1)));
  EXPECT_EQ(hex(second.row()), hex(this->s.row(2)));
}

// Long and short rows take turns; a short one holds nothing of the long one before.
TYPED_TEST(ChangeNotification, RowsOfDifferentLengthsDoNotMixInTheScratchRow) {
  for (uint32_t i = 1; i <= 12; ++i) this->set(i);
  for (uint32_t i = 12; i >= 1; --i) this->set(i);
  const auto found = this->changes();
  ASSERT_EQ(found.size(), 12u);
  for (uint32_t n = 0; n < 12; ++n) EXPECT_EQ(found[n], this->exists(26 + 2 * n, 12 - n));
}

using Witness = testing_tables::Witness<hex>;

TYPED_TEST(ChangeNotification, ObserversAreToldOfIndicesKindAndRow) {
  const auto witness = std::make_shared<Witness>();
  this->adapter->observerIs(witness);
  this->set(1);
  this->del(1);
  EXPECT_EQ(witness->told,
            (std::vector<Witness::Told>{{1, 2, false, hex(this->s.row(1))},
                                        {2, 5, true, hex(this->s.rowOfKeyAlone(1))}}));
}

TYPED_TEST(ChangeNotification, ARowThatAnObserverKeepsIsNotWrittenOver) {
  const auto witness = std::make_shared<Witness>();
  this->adapter->observerIs(witness);
  this->set(1);
  this->set(2);
  EXPECT_EQ(hex(witness->kept[0]), hex(this->s.row(1)));
  EXPECT_EQ(hex(witness->kept[1]), hex(this->s.row(2)));
}

TYPED_TEST(ChangeNotification, AnObserverThatThrowsCostsNobodyElseAChange) {
  const auto other = this->makeAdapter();
  const auto witness = std::make_shared<Witness>();
  witness->then = [] { throw std::runtime_error("refused"); };
  this->adapter->observerIs(witness);
  EXPECT_THROW(this->set(1), std::runtime_error);
  EXPECT_THROW(this->set(2), std::runtime_error);
  EXPECT_THROW(this->adapter->rowDelAll(), std::runtime_error);
  EXPECT_EQ(this->store->size(), 0u);
  EXPECT_EQ(this->changes(), (std::vector{this->removed(7, 1), this->removed(9, 2)}));
  EXPECT_EQ(other->latestChangeIdx(), 9u);
}

TYPED_TEST(ChangeNotification, AnEntryThatCannotBeReadIsToldToTheTableAndLeavesNoSilentGap) {
  this->set(1);
  this->store->corruptRead(0);
  EXPECT_THROW(this->set(2), Guard::CorruptionDetectedException);
  EXPECT_EQ(this->store->corruptions(), std::vector<std::string>{"torn entry"});
  EXPECT_EQ(this->adapter->latestChangeIdx(), 4u);
  EXPECT_EQ(this->adapter->oldestChangeIdx(), 4u);
  EXPECT_TRUE(this->changes().empty());
  this->set(1);
  EXPECT_EQ(this->changes(), (std::vector{this->exists(6, 1)}));
}

TYPED_TEST(ChangeNotification, ATableWithAnUnreadableEntryIsEmptiedAndHasToBeReadAfresh) {
  this->set(1);
  this->set(2);
  this->store->corruptRead(1);  // the step from the first entry to the second
  EXPECT_THROW(this->adapter->rowDelAll(), Guard::CorruptionDetectedException);
  EXPECT_EQ(this->store->size(), 0u);
  EXPECT_EQ(this->store->corruptions(), std::vector<std::string>{"torn entry"});
  // 2 and 4: the sets; 7: the removal that is told of; 8: what is not.
  EXPECT_EQ(this->adapter->latestChangeIdx(), 8u);
  EXPECT_EQ(this->adapter->oldestChangeIdx(), 8u);
  EXPECT_TRUE(this->changes().empty());
}

TYPED_TEST(ChangeNotification, AnObserverMayChangeTheTableWhileItIsTold) {
  const auto writer = std::make_shared<Witness>();
  const auto witness = std::make_shared<Witness>();
  writer->then = [&] {
    writer->then = nullptr;
    this->set(2);
  };
  this->adapter->observerIs(writer);
  this->adapter->observerIs(witness);
  this->set(1);
  // The inner change is told in full before the outer one goes on.
  EXPECT_EQ(witness->told, (std::vector<Witness::Told>{{2, 4, false, hex(this->s.row(2))},
                                                       {1, 2, false, hex(this->s.row(1))}}));
  EXPECT_EQ(writer->afterwards.back(), hex(this->s.row(1)));
  EXPECT_EQ(this->changes(), (std::vector{this->exists(2, 1), this->exists(4, 2)}));
}

TYPED_TEST(ChangeNotification, ReadersFollowTheTableAndLetTheLogBePruned) {
  const std::shared_ptr<TypeParam> shared = this->makeAdapter();
  Vane::ChangeReader reader(shared, 1);
  this->set(1);
  this->set(2);
  this->del(1);
  std::vector<Vane::BasicVaTableChange> out;
  EXPECT_EQ(reader.take(out, 10), Vane::ChangeReader::Result::changes);
  ASSERT_EQ(out.size(), 2u);
  EXPECT_EQ(made(out[0]), this->exists(4, 2));
  EXPECT_EQ(made(out[1]), this->removed(7, 1));
  EXPECT_EQ(shared->oldestChangeIdx(), 7u);
  EXPECT_TRUE(*shared->nextChange(0) == *shared->endChange());
  Vane::ChangeReader late(shared, 4);
  EXPECT_EQ(late.take(out, 10), Vane::ChangeReader::Result::readAfresh);
}

TYPED_TEST(ChangeNotification, AChangePrunesWhatEveryReaderHasPassed) {
  const std::shared_ptr<TypeParam> shared = this->makeAdapter();
  this->set(1);  // 2
  this->set(2);  // 4
  const auto place = shared->registerReader(2);
  this->set(3);
  EXPECT_EQ(shared->oldestChangeIdx(), 2u);
}

// The log against the plainest telling of it: of each key its last change.
TYPED_TEST(ChangeNotification, ARandomHistoryAgreesWithAModel) {
  const uint32_t seed = std::random_device{}();
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  std::map<uint64_t, Change> model;
  std::map<uint32_t, uint64_t> last;
  std::map<uint32_t, bool> held;
  uint64_t pruned = 1;
  for (int step = 0; step < 600; ++step) {
    const uint32_t i = 1 + random() % 24;
    const uint64_t before = this->adapter->latestChangeIdx();
    const auto log = [&](bool exists) {
      const uint64_t index = this->adapter->latestChangeIdx();
      ASSERT_GT(index, before);
      ASSERT_EQ(index % 2, exists ? 0u : 1u);
      if (last.contains(i)) model.erase(last[i]);
      last[i] = index;
      model[index] =
          exists ? this->exists(index, i, static_cast<uint32_t>(step)) : this->removed(index, i);
    };
    switch (random() % 8) {
      case 0:
        pruned += random() % (before - pruned + 1);
        this->adapter->cleanChangeMap(pruned);
        model.erase(model.begin(), model.upper_bound(pruned));
        std::erase_if(last, [&](const auto& node) { return node.second <= pruned; });
        ASSERT_EQ(this->adapter->oldestChangeIdx(), pruned);
        break;
      case 1:
      case 2:
      case 3:
        this->del(i);
        if (held[i]) {
          log(false);
        } else {
          ASSERT_EQ(this->adapter->latestChangeIdx(), before);
        }
        held[i] = false;
        break;
      default:
        this->set(i, static_cast<uint32_t>(step));
        log(true);
        held[i] = true;
    }
    std::vector<Change> expected;
    for (const auto& [index, change] : model) expected.push_back(change);
    ASSERT_EQ(this->changes(), expected) << "step " << step;
  }
}

// The documented change handlers: virtual, and what the reactor calls. Each says how often it was
// called and with what.
template <class Adapter>
struct Handled : Adapter {
  using Adapter::Adapter;
  std::vector<std::string> calls;

 protected:
  void note(const Vane::BaseRow& row, bool deleted) {
    calls.push_back((deleted ? "removed " : "exists ") + hex(row));
  }
};

template <class Adapter>
struct Handler;

template <>
struct Handler<IpDestinationVaneWrapper> : Handled<IpDestinationVaneWrapper> {
  using Handled::Handled;
  void kitIpDestinationModified(const IpDestinationRow& row, bool deleted,
                                const Wire::IpGenPrefix& key) override {
    note(row, deleted);
    IpDestinationVaneWrapper::kitIpDestinationModified(row, deleted, key);
  }
};
template <>
struct Handler<VrfPrefixDestinationVaneWrapper> : Handled<VrfPrefixDestinationVaneWrapper> {
  using Handled::Handled;
  void kitVrfPrefixDestinationModified(const VrfPrefixDestinationRow& row, bool deleted,
                                       const IpVrfPrefixKey& key) override {
    note(row, deleted);
    VrfPrefixDestinationVaneWrapper::kitVrfPrefixDestinationModified(row, deleted, key);
  }
};
template <>
struct Handler<L2NexthopGroupEncapVaneWrapper> : Handled<L2NexthopGroupEncapVaneWrapper> {
  using Handled::Handled;
  void kitL2NexthopGroupEncapModified(const L2NexthopGroupEncapRow& row, bool deleted,
                                      const NexthopGroup::EncapId& key) override {
    note(row, deleted);
    L2NexthopGroupEncapVaneWrapper::kitL2NexthopGroupEncapModified(row, deleted, key);
  }
};
template <>
struct Handler<NexthopInfoVaneWrapper> : Handled<NexthopInfoVaneWrapper> {
  using Handled::Handled;
  void kitNexthopInfoModified(const NexthopInfoRow& row, bool deleted,
                              const P4Runtime::MemberOrGroupId& key) override {
    note(row, deleted);
    NexthopInfoVaneWrapper::kitNexthopInfoModified(row, deleted, key);
  }
};
template <>
struct Handler<EcmpMemberListVaneWrapper> : Handled<EcmpMemberListVaneWrapper> {
  using Handled::Handled;
  void kitEcmpMemberListModified(const EcmpMemberListRow& row, bool deleted,
                                 const P4Runtime::MemberOrGroupId& key) override {
    note(row, deleted);
    EcmpMemberListVaneWrapper::kitEcmpMemberListModified(row, deleted, key);
  }
};

TYPED_TEST(ChangeNotification, TheReactorCallsTheAdaptersChangeHandler) {
  Handler<TypeParam> handler(this->table, this->db, nullptr, true);
  this->set(1);
  this->del(1);
  EXPECT_EQ(handler.calls, (std::vector<std::string>{"exists " + hex(this->s.row(1)),
                                                     "removed " + hex(this->s.rowOfKeyAlone(1))}));
  EXPECT_EQ(handler.latestChangeIdx(), 5u);
}

}  // namespace
}  // namespace adapter_tests
