// A table that was worked out from the page of its format is kept in the tree, so that whoever
// changes the format sees it: today's code reads it, goes on writing it, and makes the same bytes.
#include <sstream>

#include "platform/Shoal/TableCheck.h"
#include "tests/Shoal/TableTest.h"

namespace ShoalTest {
namespace {

constexpr size_t writerStartAt = 264, writerStartEnd = 272;  // differs from run to run

struct Golden {
  std::array<uint8_t, 5> before;
  std::array<uint8_t, 3> id;
  std::array<uint8_t, 15> after;

  using Key = std::array<uint8_t, 3>;
  using Map = Shoal::ShoalMap<Key, Golden>;
  static Shoal::EntryLayout layout() { return {"Golden", 23, 5, 3}; }
  // The n-th entry that is set.
  static Golden make(const Key& key, uint8_t n) {
    Golden entry;
    for (size_t i = 0; i < sizeof entry; ++i) {
      reinterpret_cast<uint8_t*>(&entry)[i] = static_cast<uint8_t>(16 * n + i);
    }
    entry.id = key;
    return entry;
  }
  friend bool operator==(const Golden&, const Golden&) = default;
};
static_assert(sizeof(Golden) == 23);

constexpr Golden::Key a{0x01, 0, 0}, b{0x1e, 0x03, 0}, c{0x78, 0x03, 0}, d{0xef, 0xcd, 0xab},
    e{0x1b, 0x0b, 0};

// "size N", and lines of an offset, 16 bytes and a remark; lines of '#' are remarks.
std::vector<char> goldenBytes() {
  std::ifstream in(ROUTING_SOURCE_DIR "/tests/Shoal/golden/version-1.hex");
  std::vector<char> bytes;
  for (std::string line; std::getline(in, line);) {
    std::istringstream words(line);
    size_t at = 0;
    if (line.starts_with("size ")) {
      words.ignore(5) >> at;
      bytes.resize(at);
    } else if (words >> at) {
      for (size_t i = 0; i < 16; ++i) {
        unsigned byte = 0;
        words >> std::hex >> byte;
        bytes.at(at + i) = static_cast<char>(byte);
      }
    }
  }
  return bytes;
}

class GoldenTable : public ::testing::Test {
 protected:
  GoldenTable() : file_(Shoal::tableFile(root_, "golden")) {}
  void SetUp() override {
    if (std::endian::native != std::endian::little) {
      GTEST_SKIP() << "the table is that of a little-endian host";
    }
    golden_ = goldenBytes();
    ASSERT_EQ(golden_.size(), 36864u);
    contentsAre(file_, golden_);
  }
  static void expectEntries(const MapOf<Golden>& map) {
    expectSame(map, Model<Golden>{
                        {d, Golden::make(d, 7)}, {b, Golden::make(b, 5)}, {c, Golden::make(c, 6)}});
    EXPECT_EQ(map.walk().front().id, d) << "it took the first slot";
    EXPECT_FALSE(map.has(a));
    EXPECT_FALSE(map.has(e));
  }

  TempRoot root_;
  std::filesystem::path file_;
  std::vector<char> golden_;
};

TEST_F(GoldenTable, IsWhatTodaysWriterMakes) {
  TempRoot root;
  {
    MapOf<Golden> map(writer<Golden>(root, 5, "golden"));
    uint8_t n = 0;
    for (const auto& key : {a, b, c, b, b, c}) map.put(Golden::make(key, ++n));
    map.erase(a);
    for (const auto& key : {d, e}) map.put(Golden::make(key, ++n));
    map.erase(e);
  }
  const std::vector<char> made = contents(Shoal::tableFile(root, "golden"));
  ASSERT_EQ(made.size(), golden_.size());
  for (size_t at = 0; at < made.size(); ++at) {
    if (at >= writerStartAt && at < writerStartEnd) continue;
    ASSERT_EQ(made[at], golden_[at]) << "at " << at;
  }
}

TEST_F(GoldenTable, IsReadByTodaysReaders) {
  const MapOf<Golden> map(reader<Golden>(root_, "golden"));
  expectEntries(map);
  expectEntries(MapOf<Golden>(Shoal::attachSnapshot(root_, "golden", Golden::layout())));
  const auto check = Shoal::checkTable(*map.store());
  EXPECT_EQ(check.faultCount, 0u);
  EXPECT_TRUE(check.isCounted);
  const auto status = Shoal::tableStatus(root_, "golden");
  EXPECT_TRUE(status.layout == Golden::layout());
  EXPECT_EQ(status.capacity, 5u);
  EXPECT_EQ(status.generation, 1u);
  EXPECT_EQ(status.changes, 10u);

  Shoal::ChangeFollower::Changes changes;
  Shoal::follow(map.store(), 0)->take(changes, 20);
  ASSERT_EQ(changes.size(), 10u);
  const std::array keys{a, b, c, b, b, c, a, d, e, e};
  for (size_t i = 0; i < keys.size(); ++i) {
    EXPECT_EQ(std::memcmp(changes[i].key.data(), keys[i].data(), 3), 0) << i;
    EXPECT_EQ(changes[i].removed, i == 6 || i == 9) << i;
  }
}

TEST_F(GoldenTable, IsGoneOnWithByTodaysWriter) {
  MapOf<Golden> map(writer<Golden>(root_, 5, "golden"));
  expectEntries(map);
  EXPECT_EQ(map.store()->generation(), 2u);
  map.put(Golden::make(e, 9));
  map.put(Golden::make(a, 10));
  EXPECT_THROW(map.put(Golden::make({9, 9, 9}, 11)), Guard::MemoryResourceException);
  map.erase(d);
  expectSame(map, Model<Golden>{{a, Golden::make(a, 10)},
                                {b, Golden::make(b, 5)},
                                {c, Golden::make(c, 6)},
                                {e, Golden::make(e, 9)}});
}

// Whatever else such a file has, magic, version and byte order mark are where they are here.
TEST_F(GoldenTable, OfAnotherVersionIsRefusedByEverything) {
  for (const char version : {0, 2, 77}) {
    golden_[8] = version;
    std::fill(golden_.begin() + 16, golden_.end(), '\x5a');
    contentsAre(file_, golden_);
    const std::string expected = "format version " + std::to_string(version) + ", expected 1";
    for (const auto& call : std::vector<std::function<void()>>{
             [&] { writer<Golden>(root_, 5, "golden"); },
             [&] { reader<Golden>(root_, "golden"); },
             [&] { Shoal::attachReader(root_, "golden"); },
             [&] { Shoal::attachSnapshot(root_, "golden", Golden::layout()); },
             [&] { Shoal::tableStatus(root_, "golden"); },
         }) {
      const std::string text = thrown<Shoal::AttachException>(call);
      EXPECT_NE(text.find(expected), std::string::npos) << text;
    }
    EXPECT_EQ(contents(file_), golden_) << "left as it is";
  }
}

}  // namespace
}  // namespace ShoalTest
