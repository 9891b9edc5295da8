// A sound table file, damaged. Whoever attaches refuses it with a message, or gives entries that
// are there, or says that the table is corrupt; and does bounded work. What a writer says that it
// has written is there.
//
//   | how | damage | damage | ...
//
//   how: bit 0: a writer attaches too; bit 1: the whole table is checked; bit 2: without a layout
//   damage: | region | place u16 | width | value u64 |
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <map>
#include <memory>
#include <vector>

#include "fuzz/Fuzz.h"
#include "fuzz/TempRoot.h"
#include "platform/Shoal/SharedTable.h"
#include "platform/Shoal/TableCheck.h"
#include "platform/Shoal/TableFormat.h"

namespace {

using Fuzz::isRefused;
using Fuzz::need;
using Guard::CorruptionDetectedException;
using Shoal::AttachException;
using Image = std::vector<std::byte>;

struct Entry {
  uint32_t before;
  uint32_t key[2];
  uint32_t payload[5];
};

constexpr uint32_t capacity = 64;
constexpr uint32_t keys = 48;
constexpr auto tablePath = "fuzz/table";
const Shoal::EntryLayout layout{"FuzzTable", sizeof(Entry), offsetof(Entry, key),
                                sizeof(Entry::key)};

Entry entryOf(uint32_t number, uint32_t version) {
  Entry entry{version, {number, ~number}, {}};
  std::fill_n(entry.payload, 5, number * 1000 + version);
  return entry;
}
Shoal::Bytes bytesOf(const Entry& entry) { return std::as_bytes(std::span(&entry, 1)); }
Shoal::Bytes keyOf(const Entry& entry) { return std::as_bytes(std::span(entry.key)); }
Shoal::MutableBytes room(Entry& entry) { return std::as_writable_bytes(std::span(&entry, 1)); }
bool isSame(const Entry& a, const Entry& b) { return std::memcmp(&a, &b, sizeof a) == 0; }

// The table's file, and what it is without damage.
class Bench {
 public:
  Bench() {
    {
      const auto table = writer();
      for (uint32_t i = 0; i < keys; ++i) put(*table, entryOf(i, 1));
      for (uint32_t i = 0; i < keys; i += 5) {
        table->erase(keyOf(entryOf(i, 1)));
        sound_.erase(i);
      }
      for (uint32_t i = 1; i < keys; i += 7) put(*table, entryOf(i, 2));
    }
    file_ = ::open(Shoal::tableFile(root_.path, tablePath).c_str(), O_RDWR | O_CLOEXEC);
    image_.resize(plan.fileSize);
    need(::pread(file_, image_.data(), image_.size(), 0) == static_cast<ssize_t>(image_.size()),
         "the table's file can be read");
  }

  const Image& image() const { return image_; }
  const std::map<uint32_t, Entry>& sound() const { return sound_; }
  const std::filesystem::path& root() const { return root_.path; }

  std::shared_ptr<Shoal::TableStore> writer() const {
    return Shoal::attachWriter(root_.path, tablePath, layout, capacity);
  }
  void fileIs(const Image& image) const {
    need(::ftruncate(file_, static_cast<off_t>(image.size())) == 0 &&
             ::pwrite(file_, image.data(), image.size(), 0) == static_cast<ssize_t>(image.size()),
         "the table's file can be written");
  }

  const Shoal::Plan plan{layout.entrySize, layout.keyOffset, layout.keySize, capacity};

 private:
  void put(Shoal::TableStore& table, const Entry& entry) {
    table.set(keyOf(entry), bytesOf(entry));
    sound_.insert_or_assign(entry.key[0], entry);
  }

  Fuzz::TempRoot root_;
  int file_ = -1;  // open to the end of the process
  Image image_;
  std::map<uint32_t, Entry> sound_;
};

// Most damage goes where it can be believed for a while.
uint64_t offsetOf(const Shoal::Plan& plan, uint32_t region, uint32_t place) {
  switch (region % 8) {
    case 0:
      return offsetof(Shoal::Header, generation) + place % 256;
    case 1:
      return plan.slotsOffset + place % capacity * plan.slotStride + place / capacity % 8;
    case 2:
      return plan.slotsOffset + place % (capacity * plan.slotStride);
    case 3:
      return plan.levelOffset[0] + place % plan.levelWords[0] * 4;
    case 4:
      return plan.ringOffset + place % 64 * plan.ringStride + place / 64 % plan.ringStride;
    case 5:
      return plan.journalOffset + place % (Shoal::journalRecords * plan.journalStride);
    case 6:
      return place % sizeof(Shoal::Header);
    default:
      return place % plan.fileSize;
  }
}

void damage(Image& image, const Shoal::Plan& plan, Fuzz::Input& input) {
  const auto region = input.take<uint8_t>();
  const auto place = input.take<uint16_t>();
  const auto width = input.take<uint8_t>();
  const auto value = input.take<uint64_t>();
  if (region == 0xFF) {
    image.resize(value % (2 * plan.fileSize));
    return;
  }
  const uint64_t at = offsetOf(plan, region, place);
  if (at >= image.size()) return;
  std::memcpy(image.data() + at, &value,
              std::min<size_t>(size_t{1} << width % 4, image.size() - at));
}

// What somebody who attached to a damaged table goes through.
class Visitor {
 public:
  Visitor(const Image& image, const Shoal::TableStore& table) : image_(image), table_(table) {}

  void readAll() const {
    need(table_.size() <= table_.capacity(), "no more entries than the table can hold");
    for (uint32_t i = 0; i < keys + 4; ++i) lookUp(entryOf(i, 0));
    walk();
    for (uint32_t i = 0; i < keys + 4; i += 3) stepFrom(entryOf(i, 0));
  }

 private:
  // An entry is somewhere in the file, whole.
  void needReal(const Entry& entry) const {
    need(::memmem(image_.data(), image_.size(), &entry, sizeof entry) != nullptr,
         "an entry that is read is one of the file's");
  }
  void lookUp(const Entry& asked) const {
    Entry found = asked;
    bool isThere = false;
    if (isRefused<CorruptionDetectedException>(
            [&] { isThere = table_.lookup(keyOf(asked), room(found)); })) {
      return;
    }
    need(std::memcmp(found.key, asked.key, sizeof found.key) == 0,
         "an entry has the key asked for");
    need(isThere || isSame(found, asked), "an absent entry is not touched");
    if (isThere) needReal(found);
  }
  void walk() const {
    isRefused<CorruptionDetectedException>([&] {
      Shoal::IterHint hint;
      Entry entry;
      uint64_t steps = 0;
      for (bool more = table_.first(hint, room(entry)); more; ++steps) {
        needReal(entry);
        need(steps < table_.capacity(), "a walk ends");
        const Entry at = entry;
        more = table_.next(keyOf(at), hint, room(entry));
      }
    });
  }
  void stepFrom(const Entry& from) const {
    isRefused<CorruptionDetectedException>([&] {
      Shoal::IterHint hint;
      Entry entry;
      if (table_.next(keyOf(from), hint, room(entry))) needReal(entry);
    });
  }

  const Image& image_;
  const Shoal::TableStore& table_;
};

void follow(const std::shared_ptr<Shoal::TableStore>& table, uint32_t records, uint64_t since) {
  isRefused<CorruptionDetectedException>([&] {
    const auto follower = Shoal::follow(table, since);
    Shoal::ChangeFollower::Changes changes;
    uint64_t last = 0;
    for (int turn = 0; turn < 4; ++turn) {
      changes.clear();
      const auto result = follower->take(changes, records);
      need(changes.size() <= records, "no more changes than were asked for");
      for (const auto& change : changes) {
        need(change.number > last, "changes rise");
        need(change.key.size() == layout.keySize, "a change has a whole key");
        last = change.number;
      }
      if (result == Shoal::ChangeFollower::Result::none) break;
    }
  });
}

void needSound(const Bench& bench, const Shoal::TableStore& table) {
  for (const auto& [number, entry] : bench.sound()) {
    Entry found{};
    need(table.lookup(keyOf(entry), room(found)) && isSame(found, entry),
         "an undamaged table holds all of its entries");
  }
  need(table.size() == bench.sound().size(), "and no others");
}

void read(const Bench& bench, const Image& image, uint8_t how) {
  std::shared_ptr<Shoal::TableStore> table;
  const bool refused = isRefused<AttachException>([&] {
    table = how & 4 ? Shoal::attachReader(bench.root(), tablePath)
                    : Shoal::attachReader(bench.root(), tablePath, layout);
  });
  need(!refused || image != bench.image(), "a sound table is not refused");
  if (refused || !(table->layout() == layout)) return;
  Visitor(image, *table).readAll();
  for (const uint64_t since : {uint64_t{0}, uint64_t{40}, ~uint64_t{0}}) {
    follow(table, bench.plan.ringRecords, since);
  }
  if (how & 2) {
    const Shoal::TableCheck found = Shoal::checkTable(*table);
    need(image != bench.image() || found.faultCount == 0, "a sound table has no fault");
  }
  if (image == bench.image()) needSound(bench, *table);
}

void write(const Bench& bench) {
  std::shared_ptr<Shoal::TableStore> table;
  using Guard::MemoryResourceException;
  if (isRefused<AttachException, CorruptionDetectedException, MemoryResourceException>(
          [&] { table = bench.writer(); })) {
    return;
  }
  const auto set = [&](uint32_t number) {
    const Entry entry = entryOf(number, 3);
    isRefused<CorruptionDetectedException, MemoryResourceException>([&] {
      table->set(keyOf(entry), bytesOf(entry));
      Entry found{};
      need(table->lookup(keyOf(entry), room(found)) && isSame(found, entry),
           "what is set is there");
      if (number % 2 == 0) return;
      need(table->erase(keyOf(entry)), "what is there is removed");
    });
  };
  for (uint32_t i = 0; i < keys + 8; i += 3) set(i);
  if (isRefused<CorruptionDetectedException, MemoryResourceException>([&] { table->clear(); }))
    return;
  for (uint32_t i = 0; i < capacity; ++i) set(i);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const Bench bench;
  Fuzz::Input input(data, size);
  const auto how = input.take<uint8_t>();
  Image image = bench.image();
  while (!input.isEmpty()) damage(image, bench.plan, input);
  bench.fileIs(image);
  read(bench, image, how);
  if (how & 1) write(bench);
  return 0;
}
