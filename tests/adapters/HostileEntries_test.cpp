// Entries that no correct writer leaves in a table, as the adapters show them: reported, or shown,
// and never undefined behaviour, which the sanitizers' build looks for.
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <random>

#include "platform/Shoal/SharedTable.h"
#include "tests/adapters/Samples.h"

namespace adapter_tests {
namespace {

template <class A>
class HostileEntries : public DatabaseTest {
 protected:
  using S = Sample<A>;
  static constexpr S s{};
  using Table = typename S::Traits::Table;
  using Entry = typename S::Traits::Entry;

  HostileEntries() {
    std::string name = "/dev/shm/adapters-XXXXXX";
    if (!::mkdtemp(name.data())) throw std::runtime_error("no directory for shared tables");
    root_ = name;
    store_ = Shoal::attachWriter(root_, "table", table_->layout(), 256);
    table_->storeIs(Shoal::attachReader(root_, "table", table_->layout()));
    adapter_ = std::make_shared<A>(table_, db, nullptr, false);
  }
  ~HostileEntries() override {
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
  }

  // As another process writes it.
  void put(const Entry& entry) {
    const auto bytes = std::as_bytes(std::span<const Entry, 1>(&entry, 1));
    store_->set(bytes.subspan(store_->layout().keyOffset, store_->layout().keySize), bytes);
  }
  size_t rowsShown() {
    size_t rows = 0;
    for (const auto at = adapter_->begin(0); *at; ++*at) rows += (**at).rowLength() != 0;
    return rows;
  }

  std::filesystem::path root_;
  const Kit::Ptr<Table> table_ = new Table("table");
  std::shared_ptr<Shoal::TableStore> store_;
  std::shared_ptr<A> adapter_;
};
TYPED_TEST_SUITE(HostileEntries, Adapters, AdapterNames);

TYPED_TEST(HostileEntries, WithABoolThatIsNoneEndAWalkAreReportedAndAreNotHandedOut) {
  using Entry = typename TestFixture::Entry;
  if constexpr (!Shoal::NamesTruths<Entry>) {
    GTEST_SKIP() << "these entries have no field of type bool";
  } else {
    uint64_t reports = 0;
    for (const auto truth : Entry::truths) {
      Entry bad = this->s.entry(2);
      reinterpret_cast<unsigned char&>(bad.*truth) = 2;
      this->put(this->s.entry(1));
      this->put(bad);
      this->put(this->s.entry(3));
      EXPECT_EQ(this->rowsShown(), 1u);
      EXPECT_EQ(this->table_->store()->corruptionsDetected(), ++reports);
      EXPECT_EQ(messageOf<Guard::CorruptionDetectedException>(
                    [&] { this->adapter_->row(this->s.keyRow(2), 0); }),
                "shared table \"table\": a bool is 2, expected 0 or 1");
      EXPECT_EQ(this->table_->store()->corruptionsDetected(), ++reports);
      EXPECT_EQ(this->adapter_->row(this->s.keyRow(3), 0).rowLength(), this->s.row(3).rowLength());
    }
    this->put(this->s.entry(2));
    EXPECT_EQ(this->rowsShown(), 3u) << "once it is mended";
  }
}

TYPED_TEST(HostileEntries, OfAnyBytesAreShownOrRefusedByName) {
  using Entry = typename TestFixture::Entry;
  using Traits = typename TestFixture::S::Traits;
  const uint32_t seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  uint64_t shown = 0, refused = 0;
  for (int round = 0; round < 300; ++round) {
    Entry entry = this->s.entry(1);
    auto* bytes = reinterpret_cast<unsigned char*>(&entry);
    for (size_t i = 0; i < 1 + random() % 8; ++i) {
      bytes[random() % sizeof entry % 256] = static_cast<unsigned char>(random());
    }
    if (random() % 4 == 0) std::generate_n(bytes, sizeof entry, [&] { return random(); });
    this->store_->clear();
    this->put(entry);
    try {
      const uint64_t reports = this->table_->store()->corruptionsDetected();
      for (const auto at = this->adapter_->begin(0); *at; ++*at) {
        bool found = false;
        const Entry read = this->adapter_->map().safeLookup(entry.*Traits::key, found);
        EXPECT_TRUE(found);
        EXPECT_FALSE(P4RuntimeVane::rowOf<Traits>(read).toJson().empty());
        at->clone();
        ++shown;
      }
      refused += this->table_->store()->corruptionsDetected() - reports;
    } catch (const Guard::Exception&) {
      ++refused;
    }
  }
  EXPECT_GT(shown, 0u);
  EXPECT_EQ(shown + refused, 300u);
}

}  // namespace
}  // namespace adapter_tests
