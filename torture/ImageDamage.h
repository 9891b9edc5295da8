// The image of one small table, and every way in which the images campaign damages it.
//
// The table is written by today's writer; where its parts are is told here a second time, from the
// page of the format, so that the campaign does not believe the code that it tries.
//
//   0        512       4096                36864     40960
//   | header | journal | 512 slots of 64   | 1024    | 1024 changes of 24 bytes |
//   |        |         | bytes             | words   |                          | 65536
#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "platform/Shoal/TableStore.h"

namespace Torture {

struct ImageEntry {
  uint64_t key;
  std::array<uint8_t, 48> rest;

  static ImageEntry make(uint64_t key, uint32_t version);
  Shoal::Bytes bytes() const { return std::as_bytes(std::span<const ImageEntry, 1>(this, 1)); }
  Shoal::Bytes keyBytes() const { return bytes().first(sizeof key); }

  friend bool operator==(const ImageEntry&, const ImageEntry&) = default;
};
static_assert(sizeof(ImageEntry) == 56);

namespace Image {
inline constexpr uint32_t slots = 512;
inline constexpr size_t fixedEnd = 108, nameAt = 128, nameEnd = 256;  // the header's fixed part
inline constexpr size_t movingAt = 256, movingEnd = 460;
inline constexpr size_t generationAt = 256, highWaterAt = 276, indexLevelAt = 320,
                        slotsClaimedAt = 392, operationAt = 416, changesAt = 448;
inline constexpr size_t journalAt = 512, journalStride = 64;
inline constexpr size_t slotsAt = 4096, slotStride = 64;
inline constexpr size_t indexAt = 36864, indexWords = 1024;
inline constexpr size_t ringAt = 40960, ringStride = 24, ringRecords = 1024;
inline constexpr size_t size = 65536;

const Shoal::EntryLayout& layout();
inline const std::string name = "image";
}  // namespace Image

// The sound table.
struct GoodImage {
  std::vector<std::byte> bytes;
  std::vector<std::optional<ImageEntry>> live;  // by slot; none: free
  std::vector<uint64_t> freeKeys;               // keys that have been removed
  std::vector<uint64_t> changedKeys;            // by change number - 1
  uint64_t generation = 0;

  // Makes it below the directory, and leaves the table there.
  explicit GoodImage(const std::filesystem::path& root);
};

// What has been done to an image: the ranges of bytes that may differ, or the size of the file.
struct Damage {
  struct Range {
    size_t from, to;
  };
  std::vector<Range> ranges;
  std::optional<size_t> fileSize;
};

// All images, by number: first every byte times four patterns, then every length in steps of 64
// bytes, then every field of the header with values of every wrong kind, then random ones.
class Damages {
 public:
  Damages(const GoodImage& good, uint64_t seed, uint64_t randomOnes)
      : good_(good), seed_(seed), randomOnes_(randomOnes) {}

  uint64_t count() const { return lastField() + randomOnes_; }
  // Damages `image`, which is the good one; the same for the same number and seed.
  Damage make(uint64_t number, std::byte* image) const;

 private:
  class Maker;
  static constexpr uint64_t patterns = 4;
  static constexpr uint64_t oneByteImages = Image::size * patterns;
  static constexpr uint64_t lengths = 2 * Image::size / 64;  // also longer ones

  static uint64_t lastField();

  const GoodImage& good_;
  uint64_t seed_;
  uint64_t randomOnes_;
};

}  // namespace Torture
