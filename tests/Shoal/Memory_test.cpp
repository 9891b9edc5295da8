// Running out: of places, of memory. An error with the numbers, and the table as it was.
#include <sys/mount.h>
#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/Kit/FileDescriptor.h"
#include "tests/Shoal/TableTest.h"

namespace ShoalTest {
namespace {

using Guard::MemoryResourceException;

TEST(FullTable, RefusesANewKeyByNameAndCapacityAndStaysAsItIs) {
  TempRoot root;
  MapOf<Tiny> map(writer<Tiny>(root, 3));
  Model<Tiny> model;
  for (uint32_t number = 0; number < 3; ++number) {
    map.put(Tiny::make(number, 1));
    model[Tiny::keyOf(number)] = Tiny::make(number, 1);
  }
  const auto changes = Shoal::tableStatus(root, tableName).changes;
  const std::string text = thrown<MemoryResourceException>([&] { map.put(Tiny::make(3, 1)); });
  EXPECT_EQ(text, "shared table \"a/b/table\": full: capacity 3 entries");
  expectSame(map, model);
  EXPECT_EQ(Shoal::tableStatus(root, tableName).changes, changes);
}

TEST(FullTable, StillTakesReplacementsAndRemovals) {
  TempRoot root;
  MapOf<Tiny> map(writer<Tiny>(root, 2));
  map.put(Tiny::make(0, 1));
  map.put(Tiny::make(1, 1));
  EXPECT_FALSE(map.put(Tiny::make(1, 2)));
  EXPECT_TRUE(map.erase(Tiny::keyOf(0)));
  EXPECT_TRUE(map.put(Tiny::make(2, 1)));
}

TEST(NewTable, ClaimsLittleMemoryWhateverItsCapacity) {
  TempRoot root;
  const auto store = writer<Route>(root, 1000000);
  EXPECT_LT(Shoal::tableStatus(root, tableName).bytes, 256u << 10);
}

TEST(NewTable, ThatTheAddressSpaceCannotHoldIsAnErrorAndLeavesNothing) {
  if (sizeof(void*) == 8) GTEST_SKIP() << "this address space has room for the largest table";
  TempRoot root;
  const std::string text =
      thrown<MemoryResourceException>([&] { writer<Route>(root, uint64_t{1} << 29); });
  EXPECT_NE(text.find("cannot map 4"), std::string::npos) << text;  // 2^29 x 64 bytes and the rest
  EXPECT_TRUE(Shoal::tablesBelow(root).empty());
  EXPECT_FALSE(std::filesystem::exists(root.path() / "a/b/table.shoal.new"));
}

// A memory file system of this test's own; not mounted where the test may not do that.
class SmallFileSystem {
 public:
  explicit SmallFileSystem(const char* size) {
    mounted_ = ::mount("tmpfs", root_.path().c_str(), "tmpfs", 0,
                       (std::string("mode=0700,size=") + size).c_str()) == 0;
    if (!mounted_) reason_ = std::strerror(errno);
  }
  ~SmallFileSystem() {
    if (mounted_) ::umount2(root_.path().c_str(), MNT_DETACH);
  }
  bool mounted() const { return mounted_; }
  const std::string& reason() const { return reason_; }
  std::filesystem::path path() const { return root_.path() / "tables"; }

 private:
  TempRoot root_;
  bool mounted_;
  std::string reason_;
};

void fill(const std::filesystem::path& file) {
  std::ofstream out(file, std::ios::binary);
  const std::vector<char> page(4096, 'x');
  while (out.write(page.data(), 4096).flush()) {
  }
}

template <class Entry>
class FullFileSystem : public ::testing::Test {};
using Entries = ::testing::Types<Tiny, Route, Group>;
TYPED_TEST_SUITE(FullFileSystem, Entries);

TYPED_TEST(FullFileSystem, IsAnErrorWithTheNumbersAndTheTableStaysAsItIs) {
  const SmallFileSystem small("1m");
  if (!small.mounted()) GTEST_SKIP() << "cannot mount a file system here: " << small.reason();
  MapOf<TypeParam> map(writer<TypeParam>(small.path(), 1000000 / (sizeof(TypeParam) / 16)));
  const MapOf<TypeParam> watching(reader<TypeParam>(small.path()));
  Model<TypeParam> model;
  std::string text;
  while (text.empty()) {
    const auto entry = TypeParam::make(static_cast<uint32_t>(model.size()), 1);
    try {
      map.put(entry);
      model[entry.id] = entry;
    } catch (const MemoryResourceException& error) {
      text = error.what();
    }
  }
  EXPECT_NE(text.find("out of memory: "), std::string::npos) << text;
  EXPECT_NE(text.find(" bytes needed, "), std::string::npos) << text;
  EXPECT_NE(text.find(" free"), std::string::npos) << text;
  EXPECT_GE(model.size() * sizeof(TypeParam), 256u << 10) << "much of the memory was of use";
  expectSame(map, model);
  expectSame(watching, model);

  // What needs no memory goes on, also without any.
  fill(small.path() / "filler");
  const auto first = TypeParam::make(0, 2);
  EXPECT_FALSE(map.put(first));
  model[first.id] = first;
  EXPECT_TRUE(map.erase(TypeParam::keyOf(1)));
  model.erase(TypeParam::keyOf(1));
  expectSame(watching, model);
  EXPECT_THROW(writer<TypeParam>(small.path(), 1000, "second"), MemoryResourceException);
  EXPECT_EQ(Shoal::tablesBelow(small.path()).size(), 1u) << "nothing half-made is left";
}

TEST(FullFileSystemWithATable, RefusesToReserveMoreThanItHasAndStaysAsItIs) {
  const SmallFileSystem small("1m");
  if (!small.mounted()) GTEST_SKIP() << "cannot mount a file system here: " << small.reason();
  MapOf<Route> map(writer<Route>(small.path(), 100000));
  map.put(Route::make(1, 1));
  const std::string text = thrown<MemoryResourceException>([&] { map.reserve(100000); });
  EXPECT_NE(text.find("out of memory: "), std::string::npos) << text;
  EXPECT_NE(text.find(" bytes needed, "), std::string::npos) << text;
  expectSame(map, {{Route::keyOf(1), Route::make(1, 1)}});
  EXPECT_TRUE(map.put(Route::make(2, 1)));
}

// The first claim for records of changes has room for 2,730 of them.
TEST(FullFileSystemWithATable, WithoutRoomToTellOfAllRemovalsIsNotEmptiedInPart) {
  const SmallFileSystem small("1m");
  if (!small.mounted()) GTEST_SKIP() << "cannot mount a file system here: " << small.reason();
  MapOf<Tiny> map(writer<Tiny>(small.path(), 4000));
  Model<Tiny> model;
  for (uint32_t number = 0; number < 1500; ++number) {
    map.put(Tiny::make(number, 1));
    model[Tiny::keyOf(number)] = Tiny::make(number, 1);
  }
  fill(small.path() / "filler");
  EXPECT_THROW(map.store()->clear(), MemoryResourceException);
  expectSame(map, model);
  EXPECT_EQ(Shoal::tableStatus(small.path(), tableName).changes, 1500u);
  std::filesystem::remove(small.path() / "filler");
  map.store()->clear();
  EXPECT_EQ(map.size(), 0u);
  EXPECT_EQ(Shoal::tableStatus(small.path(), tableName).changes, 3000u);
}

// The memory for the next change is claimed when there is one, not when a writer attaches.
TEST(FullFileSystemWithATable, StillTakesAWriter) {
  const SmallFileSystem small("96k");
  if (!small.mounted()) GTEST_SKIP() << "cannot mount a file system here: " << small.reason();
  MapOf<Tiny> map(writer<Tiny>(small.path(), 4000));
  fill(small.path() / "filler");
  uint32_t written = 0;
  std::string text;
  while (text.empty()) {
    try {
      map.put(Tiny::make(written % 100, written));
      ++written;
    } catch (const MemoryResourceException& error) {
      text = error.what();
    }
  }
  map.storeIs(nullptr);
  ASSERT_NO_THROW(map.storeIs(writer<Tiny>(small.path(), 4000))) << text;
  EXPECT_EQ(map.walk().size(), std::min(written, 100u));
  EXPECT_THROW(map.put(Tiny::make(1, written)), MemoryResourceException);
  std::filesystem::remove(small.path() / "filler");
  EXPECT_NO_THROW(map.put(Tiny::make(1, written)));
}

TEST(NewTableOfAProcess, ThatMayNotMakeFilesOfThatSizeIsAnErrorWithTheNumbersAndNoSignal) {
  TempRoot root;
  EXPECT_EQ(runChild([&] {
              const rlimit limit{65536, RLIM_INFINITY};
              ::setrlimit(RLIMIT_FSIZE, &limit);
              const std::string text =
                  thrown<MemoryResourceException>([&] { writer<Tiny>(root, 4000); });
              const std::string expected =
                  "shared table \"a/b/table\": out of memory: a file of 241664 bytes needed, 65536 "
                  "allowed to this process";
              if (text != expected) std::fprintf(stderr, "%s\n", text.c_str());
              return text != expected;
            }),
            0);
  EXPECT_TRUE(Shoal::tablesBelow(root).empty());
  EXPECT_FALSE(std::filesystem::exists(root.path() / "a/b/table.shoal.new"));
}

TEST(NewTableOfAProcess, WithoutDescriptorsLeftIsAnErrorThatSaysSoAndLeavesNothing) {
  if (sanitized) GTEST_SKIP() << "a sanitizer needs descriptors to check what an object is";
  TempRoot root;
  // Of the numbers below the first free one all are taken.
  const auto firstFree = [] {
    const Kit::FileDescriptor next(::dup(STDIN_FILENO));
    return next.get();
  };
  bool made = false;
  int refused = 0;
  for (rlim_t more = 0; !made; ++more) {
    const int before = firstFree();
    rlimit usual;
    ::getrlimit(RLIMIT_NOFILE, &usual);
    const rlimit few{static_cast<rlim_t>(before) + more, usual.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &few);
    std::string text;
    try {
      writer<Tiny>(root, 4);
      made = true;
    } catch (const Shoal::AttachException& error) {
      text = error.what();
    }
    ::setrlimit(RLIMIT_NOFILE, &usual);
    EXPECT_EQ(firstFree(), before);
    if (made) break;
    ++refused;
    EXPECT_TRUE(text.starts_with("shared table \"a/b/table\"")) << text;
    EXPECT_NE(text.find(": Too many open files"), std::string::npos) << text;
    EXPECT_FALSE(std::filesystem::exists(root.path() / "a/b/table.shoal.new"));
  }
  EXPECT_GE(refused, 4);
}

}  // namespace
}  // namespace ShoalTest
