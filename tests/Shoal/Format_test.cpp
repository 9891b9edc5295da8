// The bytes of a table, as docs/shared-table-format.md works them out by hand.
#include <cstdlib>

#include "platform/Shoal/TableFormat.h"
#include "tests/Shoal/TableTest.h"

namespace ShoalTest {
namespace {

// An entry of 16 bytes: a key of 4 bytes at 4, and the rest.
struct Sample {
  std::array<uint8_t, 4> before;
  std::array<uint8_t, 4> id;
  std::array<uint8_t, 8> after;
  static constexpr auto key = &Sample::id;
};
using SampleMap = Shoal::ShoalMap<std::array<uint8_t, 4>, Sample>;
const Shoal::EntryLayout sampleLayout{"Sample", 16, 4, 4};

std::string hex(const std::vector<char>& bytes, size_t from, size_t size) {
  static constexpr char digits[] = "0123456789abcdef";
  std::string text;
  for (size_t i = from; i < from + size; ++i) {
    const auto byte = static_cast<uint8_t>(bytes.at(i));
    if (!text.empty()) text += ' ';
    text += digits[byte >> 4];
    text += digits[byte & 15];
  }
  return text;
}

// The hash as the format page defines it, for a key of four bytes, in other words than the code's.
uint64_t documentedHash(uint32_t word) {
  uint64_t state = (uint64_t{0x9E3779B97F4A7C15u} * 5) ^ word;
  state = state * 0xD6E8FEB86659FD93u;
  state = state ^ state / 0x100000000u;
  state = state * 0xFF51AFD7ED558CCDu;
  return state ^ state / 0x20000000u;
}

class FormatBytes : public ::testing::Test {
 protected:
  // The example of the format page: three places; 0x0A and 0x0B are added, 0x0A is replaced and
  // 0x0B removed.
  FormatBytes() {
    if (std::endian::native != std::endian::little) return;
    SampleMap map;
    map.storeIs(Shoal::attachWriter(root_, "sample", sampleLayout, 3));
    map.set(keyA, {{0x11, 0x12, 0x13, 0x14}, keyA, {1, 2, 3, 4, 5, 6, 7, 8}});
    map.set(keyB, {{0x21, 0x22, 0x23, 0x24}, keyB, {9, 9, 9, 9, 9, 9, 9, 9}});
    map.set(keyA, {{0x31, 0x32, 0x33, 0x34}, keyA, {8, 7, 6, 5, 4, 3, 2, 1}});
    map.erase(keyB);
    map.storeIs(nullptr);
    bytes_ = contents(Shoal::tableFile(root_, "sample"));
  }
  void SetUp() override {
    if (bytes_.empty()) GTEST_SKIP() << "the example is that of a little-endian host";
  }

  static constexpr std::array<uint8_t, 4> keyA{0x0A, 0, 0, 0}, keyB{0x0B, 0, 0, 0};
  TempRoot root_;
  std::vector<char> bytes_;
};

TEST_F(FormatBytes, FixedPartOfTheHeader) {
  EXPECT_EQ(hex(bytes_, 0, 16), "53 48 4f 41 4c 54 42 4c 01 00 00 00 04 03 02 01");
  EXPECT_EQ(hex(bytes_, 16, 16), "00 02 00 00 01 00 00 00 00 90 00 00 00 00 00 00");
  EXPECT_EQ(hex(bytes_, 32, 24),
            "10 00 00 00 04 00 00 00 04 00 00 00 03 00 00 00 18 00 00 00 40 00 00 00");
  EXPECT_EQ(hex(bytes_, 64, 32),
            "00 02 00 00 00 00 00 00 00 10 00 00 00 00 00 00 "
            "00 20 00 00 00 00 00 00 00 30 00 00 00 00 00 00");
  EXPECT_EQ(hex(bytes_, 96, 32),
            "01 00 00 00 00 04 00 00 18 00 00 00 00 00 00 00 "
            "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
  EXPECT_EQ(hex(bytes_, 128, 8), "53 61 6d 70 6c 65 00 00");
}

TEST_F(FormatBytes, MovingPartOfTheHeader) {
  EXPECT_EQ(hex(bytes_, 256, 8), "01 00 00 00 00 00 00 00");
  EXPECT_EQ(hex(bytes_, 272, 8), "00 00 00 00 02 00 00 00");
  EXPECT_EQ(hex(bytes_, 320, 8), "00 00 00 00 00 00 00 00");
  EXPECT_EQ(hex(bytes_, 384, 16), "01 00 00 00 02 00 00 00 03 00 00 00 00 04 00 00");
  EXPECT_EQ(hex(bytes_, 416, 32),
            "00 00 00 00 01 00 00 00 02 00 00 00 00 00 00 00 "
            "03 00 00 00 00 00 00 00 00 00 00 00 01 00 00 00");
  EXPECT_EQ(hex(bytes_, 448, 8), "04 00 00 00 00 00 00 00");
}

TEST_F(FormatBytes, Journal) {
  EXPECT_EQ(hex(bytes_, 512, 24),
            "03 00 00 00 01 00 00 00 11 12 13 14 0a 00 00 00 01 02 03 04 05 06 07 08");
  EXPECT_EQ(hex(bytes_, 576, 8), "00 00 00 00 00 00 00 00");
}

TEST_F(FormatBytes, Slots) {
  EXPECT_EQ(hex(bytes_, 4096, 24),
            "04 00 00 00 01 00 00 00 31 32 33 34 0a 00 00 00 08 07 06 05 04 03 02 01");
  EXPECT_EQ(hex(bytes_, 4120, 24),
            "02 00 00 00 02 00 00 00 21 22 23 24 0b 00 00 00 09 09 09 09 09 09 09 09");
  EXPECT_EQ(hex(bytes_, 4144, 24),
            "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
}

TEST_F(FormatBytes, Index) {
  std::map<uint32_t, uint32_t> expected;
  for (uint32_t slot = 0; slot < 2; ++slot) {
    const uint64_t hash = documentedHash(0x0A + slot);
    expected[hash / 0x100000000u % 1024] = static_cast<uint32_t>(hash % 0x40000000u * 4 + slot + 1);
  }
  ASSERT_EQ(expected.size(), 2u);
  std::map<uint32_t, uint32_t> found;
  for (uint32_t at = 0; at < 1024; ++at) {
    uint32_t word;
    std::memcpy(&word, &bytes_[8192 + at * 4], 4);
    if (word != 0) found[at] = word;
  }
  EXPECT_EQ(found, expected);
}

TEST_F(FormatBytes, ChangeRing) {
  EXPECT_EQ(hex(bytes_, 12288, 24),
            "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
  EXPECT_EQ(hex(bytes_, 12312, 24),
            "01 00 00 00 00 00 00 00 01 00 00 00 00 00 00 00 0a 00 00 00 00 00 00 00");
  EXPECT_EQ(hex(bytes_, 12336, 24),
            "02 00 00 00 00 00 00 00 01 00 00 00 01 00 00 00 0b 00 00 00 00 00 00 00");
  EXPECT_EQ(hex(bytes_, 12360, 24),
            "03 00 00 00 00 00 00 00 01 00 00 00 00 00 00 00 0a 00 00 00 00 00 00 00");
  EXPECT_EQ(hex(bytes_, 12384, 24),
            "04 00 00 00 00 00 00 00 02 00 00 00 01 00 00 00 0b 00 00 00 00 00 00 00");
  EXPECT_EQ(bytes_.size(), 36864u);
}

TEST(KeyHash, IsTheSameInEveryProcess) {
  const auto hash = [](uint32_t key) {
    return Shoal::keyHash(reinterpret_cast<const std::byte*>(&key), sizeof key);
  };
  if (std::endian::native != std::endian::little) GTEST_SKIP() << "the keys are little-endian";
  for (const uint32_t key : {0u, 1u, 0x0Au, 0x80000000u, 0xFFFFFFFFu}) {
    EXPECT_EQ(hash(key), documentedHash(key)) << key;
  }
}

TEST(KeyHash, TakesEveryByteOfKeysOfAnyLength) {
  for (size_t size = 1; size <= 40; ++size) {
    std::vector<std::byte> key(size);
    const uint64_t zero = Shoal::keyHash(key.data(), size);
    EXPECT_NE(zero, Shoal::keyHash(std::vector<std::byte>(size + 1).data(), size + 1));
    for (size_t at = 0; at < size; ++at) {
      key[at] = std::byte{1};
      EXPECT_NE(Shoal::keyHash(key.data(), size), zero) << at << " of " << size;
      key[at] = std::byte{0};
    }
  }
}

TEST(Plan, PutsEachPartBehindTheOneBefore) {
  for (const uint32_t capacity : {1u, 3u, 1000u, 1000000u, Shoal::maxCapacity}) {
    const Shoal::Plan plan(8232, 28, 4, capacity);
    EXPECT_GE(plan.slotsOffset, 512 + 2 * uint64_t{plan.journalStride});
    EXPECT_GE(plan.indexOffset, plan.slotsOffset + uint64_t{capacity} * 8240);
    uint64_t end = plan.indexOffset;
    for (uint32_t level = 0; level < plan.indexLevels; ++level) {
      EXPECT_EQ(plan.levelOffset[level], end);
      end += uint64_t{plan.levelWords[level]} * 4;
    }
    EXPECT_GE(plan.levelWords[plan.indexLevels - 1], 2 * uint64_t{capacity});
    EXPECT_EQ(plan.ringOffset, end);
    EXPECT_GE(plan.fileSize, end + uint64_t{plan.ringRecords} * plan.ringStride);
    for (const uint32_t slot : {0u, capacity - 1}) {
      const uint32_t word = plan.wordOf(0xFFFFFFFFFFFFFFFF, slot);
      EXPECT_EQ(plan.slotOf(word), slot);
      EXPECT_TRUE(plan.tagMatches(word, 0xFFFFFFFFFFFFFFFF));
      EXPECT_FALSE(plan.tagMatches(word, 0));
    }
  }
}

// --- A process of the other word size ------------------------------------------------------------

template <class Entry>
void writeRows(const std::filesystem::path& root) {
  MapOf<Entry> map(writer<Entry>(root, 3000, Entry::layout().typeName));
  map.clear();
  for (uint32_t number = 0; number < 3000; ++number) map.put(Entry::make(number, number + 7));
}
template <class Entry>
void expectRows(const std::filesystem::path& root) {
  const MapOf<Entry> map(reader<Entry>(root, Entry::layout().typeName));
  ASSERT_EQ(map.walk().size(), 3000u);
  for (uint32_t number = 0; number < 3000; ++number) {
    bool found = false;
    EXPECT_TRUE(map.safeLookup(Entry::keyOf(number), found) == Entry::make(number, number + 7));
    EXPECT_TRUE(found);
  }
}

TEST(DISABLED_Peer, WritesTables) {
  writeRows<Odd>(std::getenv("SHOAL_PEER_ROOT"));
  writeRows<Route>(std::getenv("SHOAL_PEER_ROOT"));
}
TEST(DISABLED_Peer, ReadsTables) {
  expectRows<Odd>(std::getenv("SHOAL_PEER_ROOT"));
  expectRows<Route>(std::getenv("SHOAL_PEER_ROOT"));
}

TEST(ProcessOfTheOtherWordSize, SharesTheSameTables) {
  if (std::getenv("SHOAL_PEER") == nullptr) {
    GTEST_SKIP() << "SHOAL_PEER does not name the test program of the other build";
  }
  TempRoot root;
  ASSERT_TRUE(peerRuns("DISABLED_Peer.WritesTables", root));
  expectRows<Odd>(root);
  expectRows<Route>(root);
  writeRows<Odd>(root);  // over what the other one left
  writeRows<Route>(root);
  EXPECT_TRUE(peerRuns("DISABLED_Peer.ReadsTables", root));
}

}  // namespace
}  // namespace ShoalTest
