#include "torture/ImageDamage.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "platform/Shoal/SharedTable.h"

namespace Torture {

namespace {

struct Field {
  size_t at;
  size_t width;
};
// Every field of the header.
constexpr Field fields[] = {{0, 8},   {8, 4},   {12, 4},  {16, 4},  {20, 4},  {24, 8},  {32, 4},
                            {36, 4},  {40, 4},  {44, 4},  {48, 4},  {52, 4},  {56, 8},  {64, 8},
                            {72, 8},  {80, 8},  {88, 8},  {96, 4},  {100, 4}, {104, 4}, {128, 4},
                            {252, 4}, {256, 8}, {264, 8}, {272, 4}, {276, 4}, {320, 4}, {324, 4},
                            {384, 4}, {388, 4}, {392, 4}, {396, 4}, {416, 4}, {420, 4}, {424, 4},
                            {428, 4}, {432, 8}, {440, 4}, {444, 4}, {448, 8}, {456, 4}};

// Values at which bounds end, signs and words change, and other versions and machines show. Those
// of 32 bits stand in fields of 64 as they are and in their upper half.
constexpr uint64_t values[] = {
    0,          1,          2,          3,          4,          5,           7,
    8,          15,         16,         31,         47,         48,          49,
    55,         56,         57,         63,         64,         65,          127,
    128,        255,        256,        511,        512,        513,         1023,
    1024,       1025,       4095,       4096,       4097,       16384,       16385,
    0x7fff,     0x8000,     0xffff,     0x10000,    0x10001,    0x00ffffff,  0x01000000,
    0x04030201, 0x01020304, 0x1fffffff, 0x20000000, 0x20000001, 0x3fffffff,  0x40000000,
    0x7fffffff, 0x80000000, 0xfffffffe, 0xffffffff, 1ull << 32, 1ull << 62,  (1ull << 63) - 1,
    1ull << 63, ~1ull,      ~0ull,      65535,      65536,      65536 + 4096};

}  // namespace

ImageEntry ImageEntry::make(uint64_t key, uint32_t version) {
  ImageEntry entry{key, {}};
  uint64_t state = key * 0x9E3779B97F4A7C15u + version;
  for (uint8_t& byte : entry.rest) {
    state = state * 6364136223846793005u + 1442695040888963407u;
    byte = static_cast<uint8_t>(state >> 56);
  }
  return entry;
}

const Shoal::EntryLayout& Image::layout() {
  static const Shoal::EntryLayout layout{"Torture::Image", sizeof(ImageEntry), 0, 8};
  return layout;
}

// Forty entries in forty-six slots: six are free, some have been written twice or were another's
// before.
GoodImage::GoodImage(const std::filesystem::path& root) {
  const auto store = Shoal::attachWriter(root, Image::name, Image::layout(), Image::slots);
  live.resize(46);
  const auto set = [&](size_t slot, uint64_t key, uint32_t version) {
    live[slot] = ImageEntry::make(key, version);
    store->set(live[slot]->keyBytes(), live[slot]->bytes());
    changedKeys.push_back(key);
  };
  const auto erase = [&](size_t slot) {
    const uint64_t key = live[slot]->key;
    store->erase(live[slot]->keyBytes());
    live[slot].reset();
    freeKeys.push_back(key);
    changedKeys.push_back(key);
  };
  for (size_t slot = 0; slot < live.size(); ++slot) set(slot, 1000 + 7 * slot, 1);
  for (const size_t slot : {3, 20, 21, 45, 11}) set(slot, 1000 + 7 * slot, 2);
  erase(9);
  set(9, 5000, 1);   // where 1063 was
  freeKeys.clear();  // and no slot remembers that
  for (const size_t slot : {30, 5, 17, 44, 2, 31}) erase(slot);
  generation = store->generation();

  std::ifstream in(Shoal::tableFile(root, Image::name), std::ios::binary);
  std::vector<char> read{std::istreambuf_iterator<char>(in), {}};
  if (read.size() != Image::size) throw std::runtime_error("the table is not of the size foreseen");
  bytes.resize(read.size());
  std::memcpy(bytes.data(), read.data(), read.size());
  // As a writer leaves it that has detached.
  std::memset(bytes.data() + 272, 0, 4);
}

uint64_t Damages::lastField() {
  return oneByteImages + lengths + std::size(fields) * std::size(values) * 2;
}

class Damages::Maker {
 public:
  Maker(const GoodImage& good, std::byte* image) : good_(good), image_(image) {}

  Damage done() { return std::move(damage_); }

  void oneByte(size_t at, uint64_t pattern) {
    const auto was = std::to_integer<unsigned>(image_[at]);
    const std::array<unsigned, patterns> becomes{~was, 0, 0xff, was + 1};
    image_[at] = static_cast<std::byte>(becomes[pattern]);
    note(at, 1);
  }

  void length(size_t size) { damage_.fileSize = size; }

  void field(const Field& field, uint64_t value) { put(field.at, value, field.width); }

  void random(std::mt19937_64& random) {
    random_ = &random;
    const auto kinds = below(8) == 0 ? 1 + below(4) : 1;
    for (uint64_t i = 0; i < kinds; ++i) one();
  }

 private:
  uint64_t below(uint64_t bound) { return (*random_)() % bound; }

  void note(size_t at, size_t size) { damage_.ranges.push_back({at, at + size}); }
  void put(size_t at, uint64_t value, size_t width) {
    std::memcpy(image_ + at, &value, width);  // of the host's byte order: the table is too
    note(at, width);
  }
  uint32_t wordAt(size_t at) const {
    uint32_t word;
    std::memcpy(&word, image_ + at, 4);
    return word;
  }

  uint64_t anyValue() {
    switch (below(4)) {
      case 0:
        return (*random_)();
      case 1:
        return below(80);
      default:
        return values[below(std::size(values))];
    }
  }
  size_t usedSlot() { return below(good_.live.size()); }
  size_t slotAt(size_t slot) { return Image::slotsAt + slot * Image::slotStride; }
  size_t usedWord() {
    for (size_t at = below(Image::indexWords);; at = (at + 1) % Image::indexWords) {
      if (wordAt(Image::indexAt + 4 * at) != 0) return at;
    }
  }

  void one() {
    switch (below(13)) {
      case 0:
        return bytesAnywhere();
      case 1:
        return movingField();
      case 2:
        return slotHead();
      case 3:
        return slotEntry();
      case 4:
        return indexWord();
      case 5:
        return freeList();
      case 6:
        return unfinishedOperation();
      case 7:
        return halfWrittenSlot();
      case 8:
        return ringRecord();
      case 9:
        return copyBlock();
      case 10:
        return fillBlock();
      case 11:
        return fillIndex();
      default:
        return burst();
    }
  }

  void bytesAnywhere() {
    for (uint64_t count = 1 + below(8); count != 0; --count) put(below(Image::size), below(256), 1);
  }
  void movingField() {
    for (uint64_t count = 1 + below(3); count != 0; --count) {
      const Field& field = fields[22 + below(std::size(fields) - 22)];
      put(field.at, anyValue(), field.width);
    }
  }
  void slotHead() {
    const size_t at = slotAt(usedSlot());
    if (below(2) != 0)
      put(at, below(2) != 0 ? wordAt(at) ^ 1 : anyValue(), 4);
    else
      put(at + 4, below(2) != 0 ? below(4) : anyValue(), 4);
  }
  // Another key, often one that is there already.
  void slotEntry() {
    const size_t at = slotAt(usedSlot()) + 8;
    if (below(2) != 0)
      put(at, 1000 + 7 * below(60), 8);
    else
      put(at + below(56), below(256), 1);
  }
  void indexWord() {
    const size_t at = Image::indexAt + 4 * (below(2) != 0 ? usedWord() : below(Image::indexWords));
    switch (below(4)) {
      case 0:
        return put(at, 0, 4);
      case 1:
        return put(at, wordAt(Image::indexAt + 4 * usedWord()), 4);
      case 2:
        return put(at, (wordAt(at) & ~0x3ffu) | below(1024), 4);
      default:
        return put(at, (*random_)(), 4);
    }
  }
  // Free slots that lead to each other, in a loop or out of the list.
  void freeList() {
    for (uint64_t count = 1 + below(6); count != 0; --count) {
      put(slotAt(usedSlot()) + 4, (1 + below(good_.live.size())) << 2 | 2, 4);
    }
    if (below(2) != 0) put(388, below(good_.live.size() + 2), 4);
  }
  void unfinishedOperation() {
    const size_t slot = below(4) == 0 ? below(Image::slots) : usedSlot();
    put(416, 1 + below(3), 4);
    put(420, slot, 4);
    put(424, below(2) != 0 ? 40 : below(Image::slots + 1), 4);
    put(428, wordAt(slotAt(slot)) | 1, 4);
    put(432, good_.changedKeys.size() - below(2), 8);
    put(440, below(2) != 0 ? 0 : below(Image::indexWords + 1), 4);
    put(444, below(4), 4);
  }
  // A replace that was not finished, with or without its old entry in the journal.
  void halfWrittenSlot() {
    const size_t slot = usedSlot();
    const uint32_t odd = wordAt(slotAt(slot)) | 1;
    put(slotAt(slot), odd, 4);
    const size_t record = Image::journalAt + below(2) * Image::journalStride;
    put(record, below(4) == 0 ? odd + 2 : odd, 4);
    put(record + 4, below(4) == 0 ? below(Image::slots) : slot + 1, 4);
    std::memcpy(image_ + record + 8, image_ + slotAt(slot) + 8, 56);
    note(record + 8, 56);
    if (below(2) != 0) {
      put(416, 2, 4);
      put(420, slot, 4);
      put(428, odd, 4);
    }
  }
  void ringRecord() {
    const size_t at = Image::ringAt + Image::ringStride * below(good_.changedKeys.size() + 2);
    if (below(2) != 0)
      put(at, anyValue(), 8);
    else
      put(at + 8, anyValue(), 8);
    if (below(4) == 0) put(Image::changesAt, anyValue(), 8);
  }
  void copyBlock() {
    const size_t unit = below(2) != 0 ? 64 : 4;
    const size_t size = unit * (1 + below(16));
    const size_t from = below((Image::size - size) / unit) * unit;
    const size_t to = below((Image::size - size) / unit) * unit;
    std::memmove(image_ + to, image_ + from, size);
    note(to, size);
  }
  void fillBlock() {
    const size_t at = below(2) != 0 ? Image::movingAt + below(8192) : below(Image::size);
    const size_t size = std::min<size_t>(1 + below(4096), Image::size - at);
    std::memset(image_ + at, static_cast<int>(below(2) != 0 ? 0xff * below(2) : below(256)), size);
    note(at, size);
  }
  // An index without an empty word, of words that each lead to a slot.
  void fillIndex() {
    const uint64_t left = below(3);
    for (size_t at = 0; at + left < Image::indexWords; ++at) {
      uint32_t word = wordAt(Image::indexAt + 4 * at);
      if (word == 0) word = wordAt(Image::indexAt + 4 * usedWord());
      std::memcpy(image_ + Image::indexAt + 4 * at, &word, 4);
    }
    note(Image::indexAt, 4 * Image::indexWords);
    if (below(2) != 0) unfinishedOperation();
  }
  void burst() {
    const size_t at = below(Image::size);
    const size_t size = std::min<size_t>(1 + below(200), Image::size - at);
    for (size_t i = 0; i < size; ++i) image_[at + i] = static_cast<std::byte>(below(256));
    note(at, size);
  }

  const GoodImage& good_;
  std::byte* image_;
  Damage damage_;
  std::mt19937_64* random_ = nullptr;
};

Damage Damages::make(uint64_t number, std::byte* image) const {
  Maker maker(good_, image);
  if (number < oneByteImages) {
    maker.oneByte(number / patterns, number % patterns);
  } else if (number -= oneByteImages; number < lengths) {
    maker.length(number * 64);
  } else if (number -= lengths; number < std::size(fields) * std::size(values) * 2) {
    const uint64_t value = values[number / 2 % std::size(values)];
    maker.field(fields[number / 2 / std::size(values)], number % 2 != 0 ? value << 32 : value);
  } else {
    std::mt19937_64 random(seed_ * 0x9E3779B97F4A7C15u + number);
    maker.random(random);
  }
  return maker.done();
}

}  // namespace Torture
