#include "platform/Shoal/TableFormat.h"

#include <algorithm>
#include <cstring>
#include <iomanip>
#include <sstream>
#include <string>

#include "platform/Shoal/KeyHash.h"

namespace Shoal {

namespace {

template <class... Parts>
std::string text(const Parts&... parts) {
  std::ostringstream out;
  (out << ... << parts);
  return out.str();
}

// Of what the places in the file follow from, of which the other fields tell only in part.
uint64_t layoutHash(const EntryLayout& layout, uint32_t capacity) {
  const auto* name = reinterpret_cast<const std::byte*>(layout.typeName.data());
  uint64_t h = keyHash(name, layout.typeName.size());
  for (const uint32_t size : {layout.entrySize, layout.keyOffset, layout.keySize, capacity}) {
    h = detail::hashStep(h, size);
  }
  return h;
}

// A number in the header that must have one certain value.
struct Expectation {
  const char* name;
  uint64_t found;
  uint64_t expected;
};

std::string firstDifference(std::initializer_list<Expectation> expectations) {
  for (const Expectation& e : expectations) {
    if (e.found != e.expected) return text(e.name, " ", e.found, ", expected ", e.expected);
  }
  return {};
}

std::string hexText(const std::array<char, 8>& bytes) {
  std::ostringstream out;
  out << std::hex << std::setfill('0');
  for (const char byte : bytes) {
    out << std::setw(2) << static_cast<unsigned>(static_cast<unsigned char>(byte));
  }
  return out.str();
}

// The header is one of this format at all; the fields looked at here keep their places in every
// version.
std::string formatFault(const Header& header) {
  if (header.magic != tableMagic) {
    return text("not a shared table: it begins with ", hexText(header.magic), ", expected ",
                hexText(tableMagic));
  }
  if (header.byteOrder == __builtin_bswap32(byteOrderMark)) {
    return text("written on a host of the other byte order: byte order mark ", header.byteOrder,
                ", expected ", byteOrderMark);
  }
  return firstDifference({{"byte order mark", header.byteOrder, byteOrderMark},
                          {"format version", header.version, formatVersion},
                          {"header size", header.headerSize, sizeof(Header)},
                          {"hash id", header.hashId, hashIdKeyHash}});
}

}  // namespace

Plan::Plan(uint32_t entry, uint32_t keyAt, uint32_t key, uint32_t slots)
    : entrySize(entry), keyOffset(keyAt), keySize(key), capacity(slots) {
  slotStride = static_cast<uint32_t>(sizeof(SlotHead) + alignUp(entrySize, 8));
  journalStride = static_cast<uint32_t>(alignUp(sizeof(JournalHead) + entrySize, lineSize));
  ringStride = static_cast<uint32_t>(sizeof(ChangeHead) + alignUp(keySize, 8));
  ringRecords = std::clamp(std::bit_ceil(capacity), 1024u, 65536u);
  slotBits = static_cast<uint32_t>(std::bit_width(capacity));

  journalOffset = sizeof(Header);
  slotsOffset = alignUp(journalOffset + uint64_t{journalRecords} * journalStride, pageSize);
  indexOffset = alignUp(slotsOffset + uint64_t{capacity} * slotStride, pageSize);

  uint32_t words = std::max(smallestLevel, std::bit_ceil(2 * capacity));
  for (indexLevels = 1; words / 4 >= smallestLevel; ++indexLevels) words /= 4;
  uint64_t end = indexOffset;
  for (uint32_t level = 0; level < indexLevels; ++level, words *= 4) {
    levelWords[level] = words;
    levelOffset[level] = end;
    end += uint64_t{words} * sizeof(uint32_t);
  }
  ringOffset = end;
  fileSize = alignUp(ringOffset + uint64_t{ringRecords} * ringStride, pageSize);
}

Header headerFor(const EntryLayout& layout, const Plan& plan) {
  Header header{};
  header.magic = tableMagic;
  header.version = formatVersion;
  header.byteOrder = byteOrderMark;
  header.headerSize = sizeof(Header);
  header.hashId = hashIdKeyHash;
  header.fileSize = plan.fileSize;
  header.entrySize = plan.entrySize;
  header.keyOffset = plan.keyOffset;
  header.keySize = plan.keySize;
  header.capacity = plan.capacity;
  header.slotStride = plan.slotStride;
  header.journalStride = plan.journalStride;
  header.layoutHash = layoutHash(layout, plan.capacity);
  header.journalOffset = plan.journalOffset;
  header.slotsOffset = plan.slotsOffset;
  header.indexOffset = plan.indexOffset;
  header.ringOffset = plan.ringOffset;
  header.indexLevels = plan.indexLevels;
  header.ringRecords = plan.ringRecords;
  header.ringStride = plan.ringStride;
  layout.typeName.copy(header.typeName.data(), maxTypeName);
  return header;
}

EntryLayout layoutOf(const Header& header) {
  return {header.typeName.data(), header.entrySize, header.keyOffset, header.keySize};
}

std::string layoutFault(const EntryLayout& layout, uint64_t capacity) {
  if (layout.typeName.empty() || layout.typeName.size() > maxTypeName ||
      layout.typeName.find('\0') != std::string::npos) {
    return text("entry type name of ", layout.typeName.size(), " bytes, expected 1 to ",
                maxTypeName);
  }
  if (layout.entrySize == 0 || layout.entrySize > maxEntrySize) {
    return text("entry size ", layout.entrySize, ", expected 1 to ", maxEntrySize);
  }
  if (layout.keySize == 0 || layout.keySize > maxKeySize) {
    return text("key size ", layout.keySize, ", expected 1 to ", maxKeySize);
  }
  if (uint64_t{layout.keyOffset} + layout.keySize > layout.entrySize) {
    return text("key of ", layout.keySize, " bytes at ", layout.keyOffset,
                ", expected inside an entry of ", layout.entrySize);
  }
  if (capacity == 0 || capacity > maxCapacity) {
    return text("capacity ", capacity, ", expected 1 to ", maxCapacity);
  }
  return {};
}

std::string layoutDifference(const EntryLayout& found, const EntryLayout& expected) {
  if (found.typeName != expected.typeName) {
    return text("entry type \"", found.typeName, "\", expected \"", expected.typeName, "\"");
  }
  return firstDifference({{"entry size", found.entrySize, expected.entrySize},
                          {"key offset", found.keyOffset, expected.keyOffset},
                          {"key size", found.keySize, expected.keySize}});
}

std::string headerFault(const Header& header, uint64_t fileSize) {
  if (std::string fault = formatFault(header); !fault.empty()) return fault;
  if (header.typeName.back() != '\0')
    return text("entry type name without an end, expected at most ", maxTypeName, " bytes");
  const EntryLayout layout = layoutOf(header);
  if (std::string fault = layoutFault(layout, header.capacity); !fault.empty()) return fault;

  const Plan plan(header.entrySize, header.keyOffset, header.keySize, header.capacity);
  const Header expected = headerFor(layout, plan);
  std::string fault =
      firstDifference({{"slot stride", header.slotStride, expected.slotStride},
                       {"journal stride", header.journalStride, expected.journalStride},
                       {"layout hash", header.layoutHash, expected.layoutHash},
                       {"journal offset", header.journalOffset, expected.journalOffset},
                       {"slots offset", header.slotsOffset, expected.slotsOffset},
                       {"index offset", header.indexOffset, expected.indexOffset},
                       {"ring offset", header.ringOffset, expected.ringOffset},
                       {"index levels", header.indexLevels, expected.indexLevels},
                       {"ring records", header.ringRecords, expected.ringRecords},
                       {"ring stride", header.ringStride, expected.ringStride},
                       {"file size in the header", header.fileSize, expected.fileSize},
                       {"file size", fileSize, expected.fileSize}});
  if (fault.empty() && header.typeName != expected.typeName) {
    fault = "bytes after the end of the entry type name, expected zeros";
  }
  return fault;
}

}  // namespace Shoal
