// Hash, equality and order of the rows of one type, over the key columns or over all of them; and
// the objects by which the row database has them.
//
// The hash is MurmurHash3's 32-bit block step, once per column from state 0, and no final step.
// Equality and order stop at the first column that differs. That a row's
// type is the right one is the caller's to know; a row without the type's whole fixed area is
// refused.
#pragma once

#include <concepts>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Vane/baseRow.h"
#include "platform/Vane/RowOps.h"
#include "routing-types/ColumnList.h"

namespace RoutingTypes {

template <class Columns>
uint32_t hashOf(const Vane::BaseRow& row) {
  uint32_t h = 0;
  Columns::forEach([&]<PlacedColumn C>(C) {
    h = Wire::murmurBlock(h, row.columnHash<typename C::Type>(C::offset));
  });
  return h;
}

template <PlacedColumn C>
bool equalIn(const Vane::BaseRow& a, const Vane::BaseRow& b) {
  return a.columnEqual<typename C::Type>(C::offset, b, C::offset);
}

template <class Columns>
bool areEqual(const Vane::BaseRow& a, const Vane::BaseRow& b) {
  return Columns::allOf([&]<PlacedColumn C>(C) { return equalIn<C>(a, b); });
}

template <class Columns>
bool isLess(const Vane::BaseRow& a, const Vane::BaseRow& b) {
  bool less = false;
  Columns::allOf([&]<PlacedColumn C>(C) {
    if (equalIn<C>(a, b)) return true;
    less = a.columnLess<typename C::Type>(C::offset, b, C::offset);
    return false;
  });
  return less;
}

// The operations of a row type's only index, its primary one: a hash index on the key.
template <class Row>
class RowOpsKey : public Vane::RowOpsBase {
  using Columns = typename Row::Columns;

 public:
  // 0 for a null row.
  uint32_t keyHash(const Vane::BaseRow& row) override {
    return row.isNull() ? 0 : hashOf<typename Columns::Keys>(whole(row));
  }
  uint32_t rowHash(const Vane::BaseRow& row) override {
    return hashOf<typename Columns::All>(whole(row));
  }
  bool keyEquals(const Vane::BaseRow& a, const Vane::BaseRow& b) override {
    return areEqual<typename Columns::Keys>(whole(a), whole(b));
  }
  // Rows of different types are unequal, whatever their columns.
  bool rowEquals(const Vane::BaseRow& a, const Vane::BaseRow& b) override {
    return a.rowType() == b.rowType() && areEqual<typename Columns::All>(whole(a), whole(b));
  }
  bool keyLess(const Vane::BaseRow& a, const Vane::BaseRow& b) override {
    return isLess<typename Columns::Keys>(whole(a), whole(b));
  }
  bool rowLess(const Vane::BaseRow& a, const Vane::BaseRow& b) override {
    return isLess<typename Columns::All>(whole(a), whole(b));
  }
  bool unique() override { return true; }
  bool ordered() override { return false; }
  uint8_t index() override { return 0; }
  uint64_t getTotalInstructionsExecuted() override { return 0; }

 private:
  static const Vane::BaseRow& whole(const Vane::BaseRow& row) {
    row.needFixedArea(Row::baseRowLength_);
    return row;
  }
};

// Hands out objects of class Ops for index 0, and registers itself under the row type's name.
template <class Row, std::derived_from<Vane::RowOpsBase> Ops>
class RowOpsKeyGenerator : public Vane::RowOpsGenerator {
 public:
  RowOpsKeyGenerator() { Vane::installRowOpsGenerator(Row::rowTypeName(), this); }
  RowOpsKeyGenerator(const RowOpsKeyGenerator&) = delete;
  RowOpsKeyGenerator& operator=(const RowOpsKeyGenerator&) = delete;

  void operator()(std::vector<std::shared_ptr<Vane::RowOpsBase>>& ops) override {
    ops.push_back((*this)(0));
  }
  std::shared_ptr<Vane::RowOpsBase> operator()(unsigned char index) override {
    if (index != 0) return nullptr;
    return std::shared_ptr<Vane::RowOpsBase>(new Ops);
  }

 protected:
  ~RowOpsKeyGenerator() = default;
};

// Offers the type's description to the row database when it is constructed, at library load.
template <class Row>
struct RowDescription {
  RowDescription() {
    Vane::RowMetadata metadata;
    metadata.typeName = Row::rowTypeName();
    metadata.signature = Row::vaTypeSignature();
    Row::Columns::Keys::forEach(
        [&]<PlacedColumn C>(C) { metadata.keyColumns.emplace_back(C::name); });
    metadata.baseRowLength = Row::baseRowLength_;
    metadata.toJson = [](const Vane::BaseRow& row) { return Row(row).toJson(); };
    metadata.toText = &Row::browToString;
    metadata.forgetTypeId = &Row::reset;
    Vane::installRowMetadata(std::move(metadata));
  }
};

}  // namespace RoutingTypes
