// What rows and operations objects allocate. The program's operator new is replaced by one that
// counts and, on request, fails; the C allocator's calls that make and grow a row's bytes are
// counted on their way to the C library, where no sanitizer has taken them over.
#include <cstdlib>
#include <new>

#include "tests/routing-types/RowTypes.h"

namespace {

constexpr int never = -1;

int newCalls = 0;
int liveBlocks = 0;
int callsUntilFailure = never;

}  // namespace

#if defined(__GLIBC__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define COUNTS_C_ALLOCATIONS
static int callocCalls = 0;
static int reallocCalls = 0;
extern "C" {
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* calloc(size_t count, size_t size) {
  ++callocCalls;
  return __libc_calloc(count, size);
}
void* realloc(void* block, size_t size) {
  ++reallocCalls;
  return __libc_realloc(block, size);
}
}
#endif

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

// Calls of operator new during `action`. What it returns is destroyed afterwards.
int news(auto action) {
  const int before = newCalls;
  const auto result = action();
  static_cast<void>(result);
  return newCalls - before;
}

// Calls of operator new are a row's shared pointer block; its bytes are the C allocator's.
template <class Row>
class Allocations : public WithDB {
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

#ifdef COUNTS_C_ALLOCATIONS
TYPED_TEST(Allocations, ARowsBytesAreOneBlockThatNeverGrows) {
  for (unsigned high : {0u, allBits<TypeParam>}) {
    callocCalls = reallocCalls = 0;
    const TypeParam row = rowOf<TypeParam>(high);
    const int callocs = callocCalls;
    const int reallocs = reallocCalls;
    EXPECT_EQ(callocs, 1);
    EXPECT_EQ(reallocs, 0);
  }
}

class KeyAllocations : public WithDB {};

TEST_F(KeyAllocations, AKeysBytesAreOneBlockThatNeverGrows) {
  IpDestinationRow::protRowType();
  const auto ipv6 = prefix("2001:db8::/32");
  callocCalls = reallocCalls = 0;
  const auto row = IpDestinationRow::key(ipv6);
  const int callocs = callocCalls;
  const int reallocs = reallocCalls;
  EXPECT_EQ(callocs, 1);
  EXPECT_EQ(reallocs, 0);
}
#endif

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
class GeneratorAllocations : public WithDB {};
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
