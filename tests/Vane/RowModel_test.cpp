// Random writes to the variable-size columns of a row, checked after every step against plain
// values.
#include <gtest/gtest.h>

#include <random>

#include "tests/Vane/Rows.h"

namespace Vane::Test {
namespace {

using Array = std::vector<uint32_t>;

constexpr len_t fixedLength = PathRow::fixedLength;

// What the row's columns should read as.
struct Model {
  uint32_t number = 0;
  Array members;
  Array watch;
  IpGenPrefix prefix;
  IpGenAddr addr;
  uint32_t link = 0;  // the nested row's number; 0: no nested row
};

void expectHolds(const BaseRow& row, const Model& model) {
  EXPECT_EQ(row.getScalar<uint32_t>(PathRow::numberCol), model.number);
  EXPECT_EQ(arrayOf(row, PathRow::membersCol), model.members);
  EXPECT_EQ(arrayOf(row, PathRow::watchCol), model.watch);
  IpGenPrefix prefix;
  row.getColumn(PathRow::prefixCol, prefix);
  EXPECT_EQ(prefix, model.prefix);
  IpGenAddr addr;
  row.getColumn(PathRow::addrCol, addr);
  EXPECT_EQ(addr, model.addr);
  LinkRow link{BaseRow()};
  row.getColumnStruct(PathRow::linkCol, link);
  EXPECT_EQ(link.isNull() ? 0 : link.getScalar<uint32_t>(LinkRow::numberCol), model.link);
}

len_t liveBytes(const BaseRow& row) {
  len_t live = 0;
  for (const len_t col : PathRow().vcd()) {
    live = static_cast<len_t>(live + (row.getScalar<uint16_t>(col + 2) & 0x7FFF));
  }
  return live;
}

template <class Row>
class RowModel : public testing::Test {
 protected:
  RowModel() : seed_(std::random_device{}()), random_(seed_) {}

  uint32_t below(uint32_t bound) { return static_cast<uint32_t>(random_() % bound); }

  Array anyArray() {
    Array values(below(100) == 0 ? below(4096) : below(12));
    for (uint32_t& value : values) value = static_cast<uint32_t>(random_());
    return values;
  }

  IpGenAddr anyAddr() {
    Wire::Ip6Addr ip6;
    for (uint8_t& byte : ip6.bytes) byte = static_cast<uint8_t>(random_());
    switch (below(3)) {
      case 0:
        return {};
      case 1:
        return IpGenAddr::ipv4(static_cast<uint32_t>(random_()));
      default:
        return IpGenAddr::ipv6(ip6);
    }
  }

  IpGenPrefix anyPrefix() {
    const IpGenAddr addr = anyAddr();
    switch (addr.family) {
      case Wire::AddressFamily::ipv4:
        return IpGenPrefix::ipv4(addr.ip4HostOrder(), static_cast<uint8_t>(below(33)));
      case Wire::AddressFamily::ipv6:
        return IpGenPrefix::ipv6(addr.ip6(), static_cast<uint8_t>(below(129)));
      default:
        return {};
    }
  }

  // Writes `value`; a row that has no room for it is left with the column absent.
  template <class T>
  void write(Row& row, T& model, const T& value, auto&& setColumn) {
    try {
      setColumn(value);
      model = value;
    } catch (const VaOutOfRange&) {
      model = T{};
      EXPECT_GT(row.rowLength(), 40000);
    }
  }

  void step(Row& row, Model& model) {
    switch (below(8)) {
      case 0:
      case 1:
        return write(row, model.members, anyArray(), [&](const Array& values) {
          row.template setColumn<uint32_t>(PathRow::membersCol, values, fixedLength);
        });
      case 2:
      case 3:
        return write(row, model.watch, anyArray(), [&](const Array& values) {
          row.template setColumn<uint32_t>(PathRow::watchCol, values, fixedLength);
        });
      case 4:
        return write(row, model.prefix, anyPrefix(), [&](const IpGenPrefix& value) {
          row.template setColumn<IpGenPrefix>(PathRow::prefixCol, value, fixedLength);
        });
      case 5:
        return write(row, model.addr, anyAddr(), [&](const IpGenAddr& value) {
          row.template setColumn<IpGenAddr>(PathRow::addrCol, value, fixedLength);
        });
      case 6:
        // The scalar write comes first: it makes the row private, as the nested row's writer needs
        // it.
        row.template setColumn<uint32_t>(PathRow::numberCol, model.number = below(1000),
                                         fixedLength);
        return write(row, model.link, 1 + below(1000), [&](uint32_t number) {
          setNested(row, PathRow::linkCol, LinkRow(number, true), fixedLength);
        });
      default:
        if (below(20) != 0) return;
        row.clearRow();
        model = Model{};
    }
  }

  const uint32_t seed_;
  std::mt19937 random_;
};

class GenericPathRow final : public BaseRow {
 public:
  GenericPathRow() : BaseRow(fixedLength) {}
};

using Rows = testing::Types<GenericPathRow, PathRow>;
TYPED_TEST_SUITE(RowModel, Rows);

TYPED_TEST(RowModel, HoldsAfterEveryStepAndSoDoEarlierCopies) {
  SCOPED_TRACE("seed " + std::to_string(this->seed_));
  for (int round = 0; round < 30; ++round) {
    TypeParam row;
    Model model;
    TypeParam earlier = row;
    Model earlierModel = model;
    for (int i = 0; i < 200 && !this->HasFailure(); ++i) {
      this->step(row, model);
      expectHolds(row, model);
      expectHolds(earlier, earlierModel);
      EXPECT_GE(row.rowLength(), fixedLength);
      EXPECT_LE(row.rowLength(), row.buffer()->length());
      if (this->below(10) == 0) {
        earlier = row;
        earlierModel = model;
      }
    }
    ASSERT_FALSE(this->HasFailure()) << "round " << round;
  }
}

TYPED_TEST(RowModel, CompactedRowHoldsTheSameInNoMoreBytesThanItNeeds) {
  SCOPED_TRACE("seed " + std::to_string(this->seed_));
  for (int round = 0; round < 200; ++round) {
    PathRow row;
    Model model;
    if constexpr (std::is_same_v<TypeParam, PathRow>) {
      for (int i = 0; i < 20; ++i) this->step(row, model);
    } else {
      TypeParam generic;  // abandons bodies where PathRow would compact
      for (int i = 0; i < 20; ++i) this->step(generic, model);
      row.shareContents(generic.clone());
    }
    row.rowLengthIs(row.compactVariableData(fixedLength));
    expectHolds(row, model);
    EXPECT_EQ(row.rowLength(), fixedLength + liveBytes(row));
    ASSERT_FALSE(this->HasFailure()) << "round " << round;
  }
}

}  // namespace
}  // namespace Vane::Test
