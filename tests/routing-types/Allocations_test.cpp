// What rows and operations objects allocate. The program's operator new is replaced by one that
// counts and, on request, fails; the C allocator's calls that make and grow a row's bytes are
// counted where no sanitizer has taken them over.
#include <cstdlib>
#include <new>

#include "tests/Vane/FailingAllocator.h"
#include "tests/routing-types/RowTypes.h"

namespace {

constexpr int never = -1;

int newCalls = 0;
int liveBlocks = 0;
int callsUntilFailure = never;

}  // namespace

void* operator new(size_t size) {
  if (callsUntilFailure != never && callsUntilFailure-- == 0) throw std::bad_alloc();
  void* const block = std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) throw std::bad_alloc();
  ++newCalls;
  ++liveBlocks;
  return block;
}

void operator delete(void* block) noexcept {
  if (block != nullptr) --liveBlocks;
  std::free(block);
}
void operator delete(void* block, size_t) noexcept { operator delete(block); }

namespace RoutingTypes::Test {
namespace {

// valgrind puts its own operator new in the place of any.
class CountedNews : public WithDB {
 protected:
  void SetUp() override {
    const int before = newCalls;
    ::operator delete(::operator new(1));
    if (newCalls == before) GTEST_SKIP() << "operator new is not ours";
  }
};

// Calls of operator new during `action`. What it returns is destroyed afterwards.
int news(auto action) {
  const int before = newCalls;
  const auto result = action();
  static_cast<void>(result);
  return newCalls - before;
}

// Calls of operator new are a row's shared pointer block; its bytes are the C allocator's.
template <class Row>
class Allocations : public CountedNews {
 protected:
  Allocations() { Row::protRowType(); }
};
TYPED_TEST_SUITE(Allocations, AllTypes);

TYPED_TEST(Allocations, ARowIsOneBlockBesidesItsBytes) {
  EXPECT_EQ(news([] { return TypeParam(); }), 1);
  EXPECT_EQ(news([] { return rowOf<TypeParam>(0); }), 1);
  EXPECT_EQ(news([] { return rowOf<TypeParam>(allBits<TypeParam>); }), 1);
  const TypeParam row = rowOf<TypeParam>(0);
  EXPECT_EQ(news([&] { return row.clone(); }), 1);
}

// Calls of the C allocator while `make` makes a row: of calloc, and of realloc.
std::pair<int, int> cCalls(auto make) {
  FailingAllocator::callocCalls = FailingAllocator::reallocCalls = 0;
  const auto row = make();
  static_cast<void>(row);
  return {FailingAllocator::callocCalls, FailingAllocator::reallocCalls};
}
const std::pair<int, int> oneCalloc{1, 0};

TYPED_TEST(Allocations, ARowsBytesAreOneBlockThatNeverGrows) {
  if (!FailingAllocator::isOurs) GTEST_SKIP() << FailingAllocator::isNotOurs;
  EXPECT_EQ(cCalls([] { return rowOf<TypeParam>(0); }), oneCalloc);
  EXPECT_EQ(cCalls([] { return rowOf<TypeParam>(allBits<TypeParam>); }), oneCalloc);
}

TYPED_TEST(Allocations, AKeysBytesAreOneBlockThatNeverGrows) {
  if (!FailingAllocator::isOurs) GTEST_SKIP() << FailingAllocator::isNotOurs;
  EXPECT_EQ(cCalls([] { return keyOf<TypeParam>(0); }), oneCalloc);
  EXPECT_EQ(cCalls([] { return keyOf<TypeParam>(1); }), oneCalloc);
}

TYPED_TEST(Allocations, SharingAndConvertingTakeNone) {
  const TypeParam row = rowOf<TypeParam>(0);
  const BaseRow& generic = row;
  EXPECT_EQ(news([&] { return TypeParam(row); }), 0);
  EXPECT_EQ(news([&] { return TypeParam(generic); }), 0);
}

TYPED_TEST(Allocations, HashEqualityAndOrderTakeNone) {
  const TypeParam row = rowOf<TypeParam>(0);
  const TypeParam other = rowOf<TypeParam>(Known<TypeParam>::keyBits);
  const TypeParam same = row.clone();
  const int before = newCalls;
  volatile uint32_t sink = row.hash();
  sink = row.rowHash();
  sink = row == same;
  sink = row < other;
  sink = row.rowEqual(same);
  sink = row.rowLess(same);
  static_cast<void>(sink);
  EXPECT_EQ(newCalls, before);
}

TYPED_TEST(Allocations, ScalarColumnsAreReadAndWrittenInPlace) {
  TypeParam row = rowOf<TypeParam>(0);
  const int before = newCalls;
  row.entryHandleIs(row.entryHandle() + 1);
  EXPECT_EQ(newCalls, before);
}

template <class Row>
class GeneratorAllocations : public CountedNews {};
TYPED_TEST_SUITE(GeneratorAllocations, RouteTypes);

TYPED_TEST(GeneratorAllocations, AFailureAtAnyOfThemPassesOnAndLeaksNothing) {
  auto& generator = *Vane::rowOpsGenerator(TypeParam::rowTypeName());
  std::vector<std::shared_ptr<Vane::RowOpsBase>> ops;
  const int needed = news([&] { return generator(0); });
  ASSERT_EQ(needed, 2) << "the object, and the count of its shares";
  for (int i = 0; i < needed; ++i) {
    const int before = liveBlocks;
    callsUntilFailure = i;
    EXPECT_THROW(generator(0), std::bad_alloc);
    callsUntilFailure = i;
    EXPECT_THROW(generator(ops), std::bad_alloc);
    callsUntilFailure = never;
    EXPECT_EQ(liveBlocks, before);
  }
  EXPECT_TRUE(ops.empty());
  const int before = liveBlocks;
  callsUntilFailure = needed;  // room in the vector
  EXPECT_THROW(generator(ops), std::bad_alloc);
  callsUntilFailure = never;
  EXPECT_EQ(liveBlocks, before);
  EXPECT_TRUE(ops.empty());
}

}  // namespace
}  // namespace RoutingTypes::Test
