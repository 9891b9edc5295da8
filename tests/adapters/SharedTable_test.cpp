// The adapters over tables in real shared memory.
#include <unistd.h>

#include <filesystem>
#include <map>
#include <random>

#include "platform/Shoal/SharedTable.h"
#include "platform/Vane/ChangeReader.h"
#include "tests/adapters/Samples.h"

namespace adapter_tests {
namespace {

namespace fs = std::filesystem;

template <class A>
class SharedTable : public DatabaseTest {
 protected:
  using S = Sample<A>;
  static constexpr S s{};
  using Traits = typename S::Traits;
  using Table = typename Traits::Table;
  using Entry = typename Traits::Entry;

  SharedTable() {
    std::string name = "/dev/shm/adapters-XXXXXX";
    if (!::mkdtemp(name.data())) throw std::runtime_error("no directory for shared tables");
    root = name;
    table->storeIs(Shoal::attachWriter(root, "a/table", table->layout(), 256));
    adapter = std::make_shared<A>(table, db, nullptr, true);
  }
  ~SharedTable() override {
    adapter.reset();
    table->storeIs(nullptr);
    std::error_code ignored;
    fs::remove_all(root, ignored);
  }

  void rowIs(Vane::BaseRow row) { adapter->rowIs(row, false); }
  // What an adapter shows, by row, and how often.
  static std::map<std::string, int> contents(Vane::VaTableImplementation& of) {
    std::map<std::string, int> rows;
    for (const auto at = of.begin(0); *at; ++*at) ++rows[hex(**at)];
    return rows;
  }
  // Another attachment to the same table.
  std::shared_ptr<A> attached(std::shared_ptr<Shoal::TableStore> store) {
    const Kit::Ptr<Table> other = new Table("other");
    other->storeIs(std::move(store));
    return std::make_shared<A>(other, db, nullptr, false);
  }

  fs::path root;
  const Kit::Ptr<Table> table = new Table("table");
  std::shared_ptr<A> adapter;
};
TYPED_TEST_SUITE(SharedTable, Adapters, AdapterNames);

TYPED_TEST(SharedTable, IsShownByAReaderAsItsWriterShowsIt) {
  for (uint32_t i = 1; i <= 100; ++i) this->rowIs(this->s.row(i));
  const auto reader =
      this->attached(Shoal::attachReader(this->root, "a/table", this->table->layout()));
  EXPECT_EQ(reader->size(), 100u);
  EXPECT_EQ(this->contents(*reader), this->contents(*this->adapter));
  for (uint32_t i = 1; i <= 100; ++i) {
    ASSERT_EQ(hex(reader->row(this->s.keyRow(i), 0)), hex(this->s.row(i)));
  }
}

TYPED_TEST(SharedTable, OfAReaderTakesNoModifiers) {
  EXPECT_TRUE(this->attached(Shoal::attachReader(this->root, "a/table", this->table->layout()))
                  ->observerSupported());
  const Kit::Ptr<typename TestFixture::Table> other = new typename TestFixture::Table("other");
  other->storeIs(Shoal::attachReader(this->root, "a/table", this->table->layout()));
  EXPECT_THROW(TypeParam(other, this->db, nullptr, true), Guard::AssertException);
}

TYPED_TEST(SharedTable, AsASnapshotStaysAsItWas) {
  for (uint32_t i = 1; i <= 20; ++i) this->rowIs(this->s.row(i));
  const auto snapshot =
      this->attached(Shoal::attachSnapshot(this->root, "a/table", this->table->layout()));
  EXPECT_FALSE(snapshot->observerSupported());
  const auto before = this->contents(*snapshot);
  EXPECT_EQ(before.size(), 20u);
  this->adapter->rowDelAll();
  EXPECT_EQ(this->contents(*snapshot), before);
  EXPECT_TRUE(this->contents(*this->adapter).empty());
}

TYPED_TEST(SharedTable, IsWalkedToItsEndThoughEveryEntryGoesUnderTheWalker) {
  for (uint32_t i = 1; i <= 50; ++i) this->rowIs(this->s.row(i));
  int steps = 0;
  for (const auto at = this->adapter->begin(0); *at; ++*at) {
    this->adapter->rowDel(**at);
    ASSERT_LE(++steps, 50);
  }
  EXPECT_EQ(steps, 50);
  EXPECT_EQ(this->adapter->size(), 0u);
}

TYPED_TEST(SharedTable, ThatIsFullRefusesARowAndStaysAsItIs) {
  for (uint32_t i = 0; i < 256; ++i) this->rowIs(this->s.row(i));
  const auto before = this->contents(*this->adapter);
  EXPECT_THROW(this->rowIs(this->s.row(256)), Guard::MemoryResourceException);
  EXPECT_EQ(this->contents(*this->adapter), before);
  this->rowIs(this->s.row(5, 2));
  EXPECT_EQ(hex(this->adapter->row(this->s.keyRow(5), 0)), hex(this->s.row(5, 2)));
}

TYPED_TEST(SharedTable, FindOfEveryKeyWalksOnFromThere) {
  for (uint32_t i = 1; i <= 30; ++i) this->rowIs(this->s.row(i));
  std::vector<std::string> order;
  for (const auto at = this->adapter->begin(0); *at; ++*at) order.push_back(hex(**at));
  for (uint32_t i = 1; i <= 30; ++i) {
    const auto at = this->adapter->find(this->s.keyRow(i), 0);
    ASSERT_EQ(hex(**at), hex(this->s.row(i)));
    const auto place = std::ranges::find(order, hex(this->s.row(i)));
    ++*at;
    if (place + 1 == order.end()) {
      EXPECT_FALSE(static_cast<bool>(*at));
    } else {
      EXPECT_EQ(hex(**at), *(place + 1));
    }
  }
}

// Rows by key number, as the table, the reader of its changes and the model believe them to be.
TYPED_TEST(SharedTable, ARandomHistoryAgreesWithAModelForTableAndFollower) {
  const uint32_t seed = std::random_device{}();
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  Vane::ChangeReader reader(this->adapter, 1);
  std::map<uint32_t, std::string> model;
  std::map<std::string, std::string> followed;  // by the row of the key alone
  const auto follow = [&](size_t limit) {
    std::vector<Vane::BasicVaTableChange> changes;
    const auto result = reader.take(changes, limit);
    EXPECT_NE(result, Vane::ChangeReader::Result::readAfresh);
    for (const auto& change : changes) {
      bool known = false;
      for (uint32_t i = 1; i <= 40 && !known; ++i) {
        const auto key = P4RuntimeVane::keyOf<typename TestFixture::Traits>(change.row());
        known = key == this->s.key(i);
        if (!known) continue;
        const std::string name = hex(this->s.rowOfKeyAlone(i));
        if (change.kind() == Vane::ChangeKind::removed) {
          EXPECT_EQ(hex(change.row()), name);
          followed.erase(name);
        } else {
          followed[name] = hex(change.row());
        }
      }
      EXPECT_TRUE(known);
    }
    return result;
  };
  for (uint32_t step = 0; step < 800; ++step) {
    const uint32_t i = 1 + random() % 40;
    switch (random() % 16) {
      case 0:
        if (random() % 4 != 0) break;
        this->adapter->rowDelAll();
        model.clear();
        break;
      case 1:
      case 2:
      case 3:
      case 4:
      case 5:
        this->adapter->rowDel(this->s.keyRow(i));
        model.erase(i);
        break;
      case 6:
        follow(random() % 10);
        break;
      default:
        this->rowIs(this->s.row(i, step));
        model[i] = hex(this->s.row(i, step));
    }
    ASSERT_EQ(this->adapter->size(), model.size());
    if (step % 16 == 0) {
      std::map<std::string, int> expected;
      for (const auto& [number, row] : model) ++expected[row];
      ASSERT_EQ(this->contents(*this->adapter), expected) << "step " << step;
    }
  }
  while (follow(7) == Vane::ChangeReader::Result::changes) {
  }
  std::map<std::string, std::string> expected;
  for (const auto& [number, row] : model) expected[hex(this->s.rowOfKeyAlone(number))] = row;
  EXPECT_EQ(followed, expected);
}

}  // namespace
}  // namespace adapter_tests
