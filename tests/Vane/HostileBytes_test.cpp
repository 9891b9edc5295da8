// Rows whose bytes did not come from these operations: nothing is read or written outside the
// buffer. The sanitizer build of these tests is what proves it; every build checks the errors.
#include <gtest/gtest.h>

#include <random>

#include "tests/Vane/Rows.h"

namespace Vane::Test {
namespace {

using Array = std::vector<uint32_t>;

constexpr len_t fixedLength = PathRow::fixedLength;

TEST(HostileRow, LengthBeyondTheBufferIsNotFollowed) {
  BaseRow row(8);
  row.rowLengthIs(60000);
  const BaseRow shared(row);
  const auto message =
      "row length 60000: expected at least 4 and at most the 8 bytes that the buffer has from the "
      "row's header";
  expectThrows<VaOutOfRange>([&] { row.clone(); }, message);
  expectThrows<VaOutOfRange>([&] { row.rowEqual(shared); }, message);
  expectThrows<VaOutOfRange>([&] { row.clearRow(); }, message);
  expectThrows<VaOutOfRange>([&] { row.setColumn<bool>(4, true, 8); }, message);
  expectThrows<VaOutOfRange>([&] { row.setColumn<uint32_t>(4, Array{1}, 8); }, message);
  EXPECT_EQ(row.buffer(), shared.buffer());
  EXPECT_EQ(row.toString(), "len: 60000, type: 0, content: 00 00 00 00");
}

TEST(HostileRow, LengthBeyondTheBufferOfASoleOwnerIsNotCleared) {
  BaseRow row(8);
  row.rowLengthIs(9);
  EXPECT_THROW(row.clearRow(), VaOutOfRange);
}

TEST(HostileRow, LengthBelowTheHeaderIsNotFollowed) {
  for (const len_t length : {0, 1, 2, 3}) {
    BaseRow row(8);
    row.rowLengthIs(length);
    BaseRow shared(row);
    EXPECT_THROW(row.clone(), VaOutOfRange);
    EXPECT_THROW(shared.setColumn<bool>(4, true, 8), VaOutOfRange);
    EXPECT_THROW(shared.clearRow(), VaOutOfRange);
    EXPECT_THROW(row.rowEqual(shared), VaOutOfRange);
  }
}

// The private copy is as long as the row says, which left no room for the column.
TEST(HostileRow, LengthBelowAColumnIsNotWrittenBeyond) {
  BaseRow row(16);
  row.rowLengthIs(6);
  BaseRow shared(row);
  expectThrows<VaOutOfRange>([&] { shared.setColumn<uint32_t>(8, 1, 16); },
                             "column 8: 4 bytes at offset 8 lie outside the row's buffer, which "
                             "has 6 bytes from the row's "
                             "header");
  EXPECT_EQ(row.getScalar<uint32_t>(8), 0u);
}

TEST(HostileRow, TooShortForATypesFixedAreaIsSaidToBe) {
  BaseRow row(16);
  EXPECT_TRUE(row.hasFixedArea(16));
  EXPECT_FALSE(row.hasFixedArea(17));
  row.rowLengthIs(6);
  expectThrows<VaOutOfRange>(
      [&] { row.needFixedArea(7); },
      "row of length 6 with 16 bytes from its header: expected a fixed area of 7 bytes");
  EXPECT_NO_THROW(row.needFixedArea(6));
  EXPECT_THROW(BaseRow().hasFixedArea(4), VaNullRow);
}

TEST(HostileRow, EqualLengthBeyondTheOthersBufferIsNotFollowed) {
  const BaseRow row(64);
  BaseRow other(8);
  other.rowLengthIs(64);
  EXPECT_THROW(row.rowEqual(other), VaOutOfRange);
  EXPECT_THROW(other.rowEqual(row), VaOutOfRange);
}

TEST(HostileRow, ShorterThanItsLengthIsMadeWholeByAnArray) {
  BaseRow row(20, 10);
  row.setColumn<uint32_t>(4, Array{1}, 20);
  EXPECT_EQ(row.rowLength(), 26);
  EXPECT_EQ(row.buffer()->length(), 26);
  EXPECT_EQ(arrayOf(row, 4), Array{1});
}

TEST(HostileDescriptor, OutsideTheBufferIsNotFollowed) {
  BaseRow row(40);
  pokeDescriptor(row, 8, 60000, 14);
  Array values;
  const auto message =
      "column 8: 14 bytes at offset 60000 lie outside the row's buffer, which has 40 bytes from "
      "the "
      "row's header";
  expectThrows<VaOutOfRange>([&] { row.getFixElemArray<uint32_t>(8, values); }, message);
  expectThrows<VaOutOfRange>([&] { row.columnHash<Array>(8); }, message);
  expectThrows<VaOutOfRange>([&] { row.columnEqual<Array>(8, row, 8); }, message);
  expectThrows<VaOutOfRange>([&] { row.columnLess<Array>(8, row, 8); }, message);
  expectThrows<VaOutOfRange>([&] { row.setColumn<uint32_t>(8, Array{1, 2, 3}, 40); }, message);
  IpGenAddr addr;
  expectThrows<VaOutOfRange>([&] { row.getColumn(8, addr); }, message);
  expectThrows<VaOutOfRange>([&] { row.columnHash<IpGenPrefix>(8); }, message);
  EXPECT_TRUE(values.empty());
  BaseRow view(8);
  expectThrows<VaOutOfRange>([&] { row.getColumnStruct(8, view); }, message);
  EXPECT_EQ(view.rowLength(), 8);  // as it was
}

TEST(HostileDescriptor, EndingOneByteBeyondTheBufferIsNotFollowed) {
  BaseRow row(40);
  Array values;
  pokeDescriptor(row, 8, 34, 6);
  row.getFixElemArray<uint32_t>(8, values);
  pokeDescriptor(row, 8, 35, 6);
  EXPECT_THROW(row.getFixElemArray<uint32_t>(8, values), VaOutOfRange);
}

TEST(HostileDescriptor, ItselfOutsideTheBufferIsNotRead) {
  BaseRow row(10);
  Array values;
  expectThrows<VaOutOfRange>(
      [&] { row.getFixElemArray<uint32_t>(7, values); },
      "column 7: 4 bytes at offset 7 lie outside the row's buffer, which has "
      "10 bytes from the row's header");
  IpGenPrefix prefix;
  EXPECT_THROW(row.getColumn(65535, prefix), VaOutOfRange);
  EXPECT_THROW(row.setColumn<uint32_t>(7, Array{1}, 10), VaOutOfRange);
  EXPECT_THROW(row.setColumn<uint32_t>(7, Array{}, 10), VaOutOfRange);
  EXPECT_THROW(row.setColumn<IpGenPrefix>(7, IpGenPrefix{}, 10), VaOutOfRange);
  EXPECT_THROW(row.updateVCT(7, 4, 4), VaOutOfRange);
  BaseRow view;
  EXPECT_THROW(row.getColumnStruct(7, view), VaOutOfRange);
}

TEST(HostileArray, CountBeyondTheBufferIsNotFollowed) {
  BaseRow row(40);
  pokeDescriptor(row, 8, 30, 10);
  poke16(row, 30, 3);  // 14 bytes, of which there are 10
  Array values{7};
  expectThrows<VaOutOfRange>([&] { row.getFixElemArray<uint32_t>(8, values); },
                             "column 8: 14 bytes at offset 30 lie outside the row's buffer, which "
                             "has 40 bytes from the row's header");
  EXPECT_EQ(values, Array{7});
}

TEST(HostileArray, BodyWithoutRoomForItsCountIsNotRead) {
  BaseRow row(40);
  pokeDescriptor(row, 8, 39, 1);
  Array values;
  EXPECT_THROW(row.getFixElemArray<uint32_t>(8, values), VaOutOfRange);
}

TEST(HostileAddress, BodyOfNoAddressLengthIsRefused) {
  BaseRow row(40);
  pokeDescriptor(row, 8, 20, 6);
  IpGenPrefix prefix;
  IpGenAddr addr;
  const auto message =
      "column 8: a body of 6 bytes is no address or prefix, which take 4, 5, 16 or 17";
  expectThrows<VaOutOfRange>([&] { row.getColumn(8, prefix); }, message);
  expectThrows<VaOutOfRange>([&] { row.getColumn(8, addr); }, message);
  expectThrows<VaOutOfRange>([&] { row.columnHash<IpGenPrefix>(8); }, message);
  pokeDescriptor(row, 8, 20, 5);
  row.getColumn(8, prefix);
  EXPECT_THROW(row.getColumn(8, addr), VaOutOfRange);  // five bytes are a prefix, not an address
}

TEST(HostileNestedRow, HeaderOutsideTheBufferIsNotFollowed) {
  BaseRow row(40);
  pokeDescriptor(row, 8, 37, 3);  // three bytes are there, a header has four
  BaseRow view;
  EXPECT_THROW(row.getColumnStruct(8, view), VaOutOfRange);
  pokeDescriptor(row, 8, 65535, 1);
  EXPECT_THROW(row.getColumnStruct(8, view), VaOutOfRange);
  EXPECT_TRUE(view.isNull());
}

TEST(HostileNestedRow, FixedAreaOutsideTheBufferIsNotReadAsARowType) {
  BaseRow row(40);
  pokeDescriptor(row, 8, 36, 4);  // a header alone
  BaseRow generic;
  row.getColumnStruct(8, generic);
  EXPECT_EQ(generic.rowOffset(), 36);
  LinkRow link{BaseRow()};
  EXPECT_THROW(row.getColumnStruct(8, link), VaOutOfRange);
  EXPECT_THROW(row.columnHash<LinkRow>(8), VaOutOfRange);
  BaseRow whole(40);
  pokeDescriptor(whole, 8, 12, 9);
  EXPECT_FALSE(whole.columnEqual<LinkRow>(8, row, 8));
  EXPECT_THROW(whole.columnLess<LinkRow>(8, row, 8), VaOutOfRange);
}

TEST(HostileNestedRow, LengthBeyondTheBufferIsNotCopied) {
  BaseRow row(40);
  pokeDescriptor(row, 8, 20, 9);
  poke16(row, 20, 21);  // from offset 20 there are 20 bytes
  BaseRow view;
  row.getColumnStruct(8, view);
  EXPECT_EQ(view.rowLength(), 21);
  EXPECT_THROW(view.clone(), VaOutOfRange);
  EXPECT_THROW(view.clearRow(), VaOutOfRange);
  EXPECT_THROW(view.setColumn<bool>(4, true, 9), VaOutOfRange);
  EXPECT_THROW(view.rowEqual(view), VaOutOfRange);
}

TEST(HostileNestedRow, DescriptorsAreBoundedFromTheNestedHeaderOn) {
  BaseRow row(40);
  pokeDescriptor(row, 8, 20, 12);
  poke16(row, 20, 12);
  pokeDescriptor(row, 24, 16, 6);  // inside 40 bytes, but 36 + 6 from the buffer's start
  BaseRow view;
  row.getColumnStruct(8, view);
  Array values;
  EXPECT_THROW(view.getFixElemArray<uint32_t>(4, values), VaOutOfRange);
}

TEST(HostileNestedRow, InsideItselfIsRead) {
  BaseRow row(40);
  pokeDescriptor(row, 8, 0, 40);
  BaseRow view(row);
  for (int depth = 0; depth < 100; ++depth) {
    const BaseRow parent(view);
    parent.getColumnStruct(8, view);
  }
  EXPECT_TRUE(view.rowEqual(row));
}

TEST(HostileCompaction, OverlappingBodiesAreRefusedBeforeAnyIsMoved) {
  PathRow row(200);
  row.rowLengthIs(100);
  pokeDescriptor(row, PathRow::membersCol, 60, 20);
  pokeDescriptor(row, PathRow::watchCol, 70, 20);
  const std::string before = hex(row, 0, 200);
  expectThrows<VaOutOfRange>(
      [&] { row.compactVariableData(fixedLength); },
      "variable data of a row with fixed-data length 28: bodies overlap each "
      "other or the fixed area");
  pokeDescriptor(row, PathRow::watchCol, 60, 20);
  EXPECT_THROW(row.compactVariableData(fixedLength), VaOutOfRange);
  pokeDescriptor(row, PathRow::watchCol, 70, 20);
  EXPECT_EQ(hex(row, 0, 200), before);
}

TEST(HostileCompaction, BodiesInTheFixedAreaAreRefused) {
  PathRow row;
  pokeDescriptor(row, PathRow::membersCol, 4, 6);
  EXPECT_THROW(row.compactVariableData(fixedLength), VaOutOfRange);
}

TEST(HostileCompaction, BodiesOutsideTheBufferAreRefused) {
  PathRow row;
  pokeDescriptor(row, PathRow::membersCol, 28, 1);
  EXPECT_THROW(row.compactVariableData(fixedLength), VaOutOfRange);
}

TEST(HostileCompaction, BodiesBeyondTheRowButInsideItsBufferAreMovedIn) {
  PathRow row(200);
  pokeDescriptor(row, PathRow::membersCol, 190, 10);
  poke16(row, 190, 2);
  row.rowLengthIs(row.compactVariableData(fixedLength));
  EXPECT_EQ(row.rowLength(), 38);
  EXPECT_EQ(arrayOf(row, PathRow::membersCol), (Array{0, 0}));
}

// Every operation that follows lengths, on rows of random bytes whose offsets and lengths are
// mostly near the truth. Each ends with a result or with VaOutOfRange; none may leave the buffer.
TEST(HostileRow, OfRandomBytesIsNeverReadOutside) {
  const auto seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const auto below = [&](uint32_t bound) { return random() % bound; };
  int refused = 0;
  int done = 0;
  const auto attempt = [&](auto&& action) {
    try {
      action();
      ++done;
    } catch (const VaOutOfRange&) {
      ++refused;
    } catch (const VaNullRow&) {  // an absent nested row was hashed
      ++done;
    }
  };
  for (int round = 0; round < 20000; ++round) {
    const auto capacity = static_cast<len_t>(fixedLength + below(60));
    PathRow row(capacity);
    for (size_t i = 4; i < capacity; ++i) bytesOf(row)[i] = static_cast<uint8_t>(below(4));
    for (const len_t col : row.vcd()) {
      const auto length = below(5) == 0 ? 5 + 12 * below(2) : below(40);
      const auto offset = below(8) == 0 ? below(65536) : fixedLength + below(60);
      pokeDescriptor(row, col, static_cast<len_t>(offset),
                     static_cast<len_t>(length | (below(2) << 15)));
    }
    if (below(2) != 0) row.rowLengthIs(static_cast<len_t>(below(capacity + 4)));
    const PathRow before = row;  // writers below work on a copy
    PathRow copy = row;
    Array values;
    IpGenPrefix prefix;
    IpGenAddr addr;
    BaseRow view;
    attempt([&] { row.getFixElemArray<uint32_t>(PathRow::membersCol, values); });
    attempt([&] { row.getColumn(PathRow::prefixCol, prefix); });
    attempt([&] { row.getColumn(PathRow::addrCol, addr); });
    attempt([&] { row.columnHash<LinkRow>(PathRow::linkCol); });
    attempt([&] { row.columnLess<LinkRow>(PathRow::linkCol, before, PathRow::linkCol); });
    attempt([&] { row.columnEqual<LinkRow>(PathRow::linkCol, before, PathRow::linkCol); });
    attempt([&] { row.columnLess<Array>(PathRow::membersCol, before, PathRow::watchCol); });
    attempt([&] { row.columnLess<IpGenPrefix>(PathRow::prefixCol, before, PathRow::prefixCol); });
    attempt([&] { row.getColumnStruct(PathRow::linkCol, view); });
    attempt([&] { view.clone().rowEqual(view); });
    attempt([&] { view.setColumn<uint32_t>(4, Array(below(9), 1), 8); });
    attempt([&] { row.toString(); });
    attempt([&] { row.clone(); });
    attempt(
        [&] { copy.setColumn<uint32_t>(PathRow::membersCol, Array(below(9), 1), fixedLength); });
    attempt([&] { copy.setColumn<uint32_t>(PathRow::watchCol, Array(below(9), 1), fixedLength); });
    attempt([&] { copy.setColumn<IpGenPrefix>(PathRow::prefixCol, prefix, fixedLength); });
    attempt([&] { copy.compactVariableData(fixedLength); });
    attempt([&] { copy.clearRow(); });
  }
  EXPECT_GT(refused, 1000);
  EXPECT_GT(done, 1000);
}

}  // namespace
}  // namespace Vane::Test
