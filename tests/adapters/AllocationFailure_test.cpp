// Each allocation of an adapter fails, once or with all that come after it: the error says so, a
// change is in the table and told to the readers of the log, or neither, nothing leaks, and the
// next call works.
#include "tests/Vane/FailingAllocator.h"
#include "tests/adapters/Samples.h"

namespace adapter_tests {
namespace {

using FailingAllocator::failNth;
using FailingAllocator::liveBlocks;
using FailingAllocator::memories;
using FailingAllocator::Memory;

// What a follower knows that has read the log up to the end.
class LogReader {
 public:
  explicit LogReader(Vane::VaTableImplementation& adapter)
      : adapter_(&adapter), seen_(adapter.latestChangeIdx()) {}

  // Whether whoever asks for what came after is told of a change, or else to read the table afresh.
  bool isTold() const {
    if (adapter_->oldestChangeIdx() > seen_) return true;
    return *adapter_->nextChange(seen_) != *adapter_->endChange();
  }

 private:
  Vane::VaTableImplementation* adapter_;
  uint64_t seen_;
};

template <class A>
class AdapterAllocationFailure : public AdapterTest<A> {
 protected:
  void SetUp() override {
    if (!FailingAllocator::isOurs) GTEST_SKIP() << FailingAllocator::isNotOurs;
    // What is made once in a process is made here.
    onNewTable([](TypeParamAdapter& adapter) {
      TestFixture::readAll(adapter);
      Vane::BaseRow row = Sample<A>::row(9);
      adapter.rowIs(row, false);
      adapter.rowDel(Sample<A>::keyRow(9));
    });
  }

  using TypeParamAdapter = A;
  using TestFixture = AdapterAllocationFailure;

  // A table with five entries, three of them in the log.
  template <class Use>
  void onNewTable(Use use) {
    this->storeIs(Shoal::Mode::writer);
    for (uint32_t i = 0; i < 2; ++i) this->set(i);
    const auto adapter = this->makeAdapter();
    for (uint32_t i = 2; i < 5; ++i) this->set(i);
    use(*adapter);
  }

  static size_t readAll(Vane::VaTableImplementation& adapter) {
    size_t rows = 0;
    const auto end = adapter.end(0);
    for (const auto at = adapter.begin(0); *at != *end; ++*at) {
      const auto here = at->clone();
      rows += (**here).rowLength() != 0;
    }
    const auto endChange = adapter.endChange();
    for (const auto at = adapter.nextChange(1); *at != *endChange; ++*at) {
      rows += (**at).index() != 0;
    }
    return rows;
  }

  // Each allocation of `act`, on a table of its own each time. `examine` looks at what a failure
  // left behind, by a reader of the log who had come to its end; afterwards `act` has to work.
  template <class Act, class Examine>
  void failEachOn(Act act, Examine examine) {
    int failures = 0;
    for (const Memory memory : memories) {
      bool failed = true;
      for (int nth = 1; failed; ++nth) {
        ASSERT_LT(nth, 200);
        table->storeIs(store = nullptr);
        const long before = liveBlocks;
        onNewTable([&](A& adapter) {
          const LogReader reader(adapter);
          const auto error = failNth(nth, memory, [&] { act(adapter); });
          failed = error.has_value();
          if (!failed) return;
          ++failures;
          EXPECT_TRUE(error->isOfMemory()) << error->text;
          examine(adapter, reader);
          act(adapter);
        });
        table->storeIs(store = nullptr);
        EXPECT_EQ(liveBlocks, before) << "leak after failure " << nth;
      }
    }
    EXPECT_GT(failures, 0);
  }

  // A failed change is in the table and told, or neither; and so it is when it has been made good.
  template <class Act, class IsMade>
  void failEachChange(Act act, IsMade isMade) {
    failEachOn(
        [&](A& adapter) {
          act(adapter);
          EXPECT_TRUE(isMade());
        },
        [&](A&, const LogReader& reader) { EXPECT_EQ(isMade(), reader.isTold()); });
  }

  using AdapterTest<A>::store;
  using AdapterTest<A>::table;
};
TYPED_TEST_SUITE(AdapterAllocationFailure, Adapters, AdapterNames);

TYPED_TEST(AdapterAllocationFailure, OfItsConstructionLeavesTheTableAndTheAdapterBefore) {
  this->failEachOn([&](TypeParam&) { EXPECT_EQ(this->makeAdapter()->size(), 5u); },
                   [&](TypeParam&, const LogReader& reader) {
                     EXPECT_FALSE(reader.isTold());
                     this->set(6);
                     EXPECT_TRUE(reader.isTold());
                     this->del(6);
                   });
}

TYPED_TEST(AdapterAllocationFailure, OfReadingChangesNothing) {
  size_t rows = 0;
  this->failEachOn([&](TypeParam& adapter) { rows = this->readAll(adapter); },
                   [](TypeParam&, const LogReader& reader) { EXPECT_FALSE(reader.isTold()); });
  EXPECT_EQ(rows, 5u + 3u);
}

TYPED_TEST(AdapterAllocationFailure, OfALookUpChangesNothing) {
  const Vane::BaseRow key = this->s.keyRow(3), expected = this->s.row(3);
  this->failEachOn(
      [&](TypeParam& adapter) {
        EXPECT_TRUE(adapter.row(key, 0).rowEqual(expected));
        EXPECT_TRUE((**adapter.find(key, 0)).rowEqual(expected));
      },
      [](TypeParam&, const LogReader& reader) { EXPECT_FALSE(reader.isTold()); });
}

TYPED_TEST(AdapterAllocationFailure, OfANewRowIsInTheTableAndToldOrNeither) {
  Vane::BaseRow row = this->s.row(7);
  this->failEachChange([&](TypeParam& adapter) { adapter.rowIs(row, false); },
                       [&] { return this->holds(this->s.entry(7)); });
}

TYPED_TEST(AdapterAllocationFailure, OfAReplacementIsInTheTableAndToldOrNeither) {
  Vane::BaseRow row = this->s.row(3, 3);
  this->failEachChange([&](TypeParam& adapter) { adapter.rowIs(row, false); },
                       [&] { return this->holds(this->s.entry(3, 3)); });
}

TYPED_TEST(AdapterAllocationFailure, OfARemovalIsMadeAndToldOrNeither) {
  const Vane::BaseRow key = this->s.keyRow(1);
  this->failEachChange([&](TypeParam& adapter) { adapter.rowDel(key); },
                       [&] { return !this->holds(this->s.entry(1)); });
}

TYPED_TEST(AdapterAllocationFailure, OfRemovingAllIsMadeAndToldOrNeither) {
  this->failEachChange([&](TypeParam& adapter) { adapter.rowDelAll(); },
                       [&] { return this->store->size() == 0; });
}

}  // namespace
}  // namespace adapter_tests
