#include "platform/Vane/RowLayout.h"

#include <algorithm>
#include <array>
#include <sstream>
#include <type_traits>
#include <utility>

#include "platform/Vane/ColumnKinds.h"

namespace Vane {
namespace {

struct TypeInfo {
  std::string_view word;
  len_t slotWidth;
};

template <class... Kinds>
constexpr auto infoOfEach(std::type_identity<std::variant<Kinds...>>) {
  return std::array<TypeInfo, sizeof...(Kinds)>{{{typeWord<Kinds>, slotWidth<Kinds>}...}};
}

// By ColumnType.
constexpr auto types = infoOfEach(std::type_identity<ColumnValue>());

template <size_t... I>
ColumnValue zeroOf(ColumnType type, std::index_sequence<I...>) {
  ColumnValue zero;
  static_cast<void>(((static_cast<size_t>(type) == I && (zero.emplace<I>(), true)) || ...));
  return zero;
}

// Walks the text of a signature; any departure from its form ends in fail().
class SignatureReader {
 public:
  SignatureReader(const std::string& typeName, std::string_view text)
      : typeName_(typeName), text_(text) {}

  bool take(char c) {
    while (at_ < text_.size() && text_[at_] == ' ') ++at_;
    if (at_ == text_.size() || text_[at_] != c) return false;
    ++at_;
    return true;
  }
  void expect(char c) {
    if (!take(c)) fail(std::string("expected '") + c + "'");
  }
  std::string_view quoted() {
    expect('"');
    const size_t begin = at_;
    at_ = text_.find('"', begin);
    if (at_ == std::string_view::npos) fail("a name without its closing quote");
    return text_.substr(begin, at_++ - begin);
  }
  void expectEnd() const {
    if (at_ != text_.size()) fail("expected nothing more");
  }
  [[noreturn]] void fail(const std::string& what) const {
    std::ostringstream message;
    message << "signature of row type \"" << typeName_ << "\", position "
            << std::min(at_, text_.size()) << ": " << what;
    VaNotSupported::throwException(message.str());
  }

 private:
  const std::string& typeName_;
  std::string_view text_;
  size_t at_ = 0;
};

}  // namespace

std::string_view wordOf(ColumnType type) { return types[static_cast<size_t>(type)].word; }

ColumnValue zeroValue(ColumnType type) {
  return zeroOf(type, std::make_index_sequence<std::variant_size_v<ColumnValue>>());
}

RowLayout::RowLayout(const RowMetadata& metadata) : typeName_(metadata.typeName) {
  parse(metadata.signature);
  for (const std::string& key : metadata.keyColumns) {
    const auto found = std::ranges::find(columns_, key, &LayoutColumn::name);
    if (found == columns_.end()) {
      VaNotSupported::throwException("row type \"" + typeName_ + "\": key column \"" + key +
                                     "\" is not in its signature");
    }
    found->isKey = true;
  }
  if (fixedLength_ != metadata.baseRowLength) {
    std::ostringstream message;
    message << "row type \"" << typeName_ << "\": its signature gives a fixed length of "
            << fixedLength_ << " bytes, the type states " << metadata.baseRowLength;
    VaNotSupported::throwException(message.str());
  }
}

RowLayout RowLayout::of(const std::string& typeName) {
  const RowMetadata* metadata = rowMetadata(typeName);
  if (metadata == nullptr) {
    VaUnknownName::throwException("row type \"" + typeName + "\" is not known");
  }
  return RowLayout(*metadata);
}

void RowLayout::parse(std::string_view signature) {
  SignatureReader in(typeName_, signature);
  in.expect('{');
  if (in.take('}')) return in.expectEnd();
  do {
    LayoutColumn next;
    next.name = in.quoted();
    if (column(next.name) != nullptr) in.fail("column \"" + next.name + "\" stands twice");
    in.expect(':');
    const std::string_view word = in.quoted();
    const auto type = std::ranges::find(types, word, &TypeInfo::word);
    if (type == types.end()) in.fail("type word \"" + std::string(word) + "\" is not in use");
    next.type = static_cast<ColumnType>(type - types.begin());
    if (fixedLength_ > maxRowLength - type->slotWidth) in.fail("a row above 65535 bytes");
    next.offset = fixedLength_;
    fixedLength_ = static_cast<len_t>(fixedLength_ + type->slotWidth);
    columns_.push_back(std::move(next));
  } while (in.take(','));
  in.expect('}');
  in.expectEnd();
}

const LayoutColumn* RowLayout::column(std::string_view name) const {
  const auto found = std::ranges::find(columns_, name, &LayoutColumn::name);
  return found == columns_.end() ? nullptr : &*found;
}

BaseRow RowLayout::row(len_t typeId, const std::vector<ColumnValue>& values) const {
  uint64_t length = fixedLength_;
  for (const ColumnValue& value : values) {
    length += std::visit([](const auto& held) { return bodyBytes(held); }, value);
  }
  if (length > maxRowLength) {
    std::ostringstream message;
    message << "row of type \"" << typeName_ << "\": " << length << " bytes, expected at most "
            << maxRowLength;
    VaOutOfRange::throwException(message.str());
  }
  BaseRow made(fixedLength_, static_cast<len_t>(length));
  made.rowTypeIs(typeId);
  for (size_t i = 0; i < columns_.size(); ++i) set(made, columns_[i], values[i]);
  return made;
}

ColumnValue RowLayout::value(const BaseRow& row, const LayoutColumn& column) const {
  row.needFixedArea(fixedLength_);
  ColumnValue value = zeroValue(column.type);
  std::visit([&]<class T>(T& held) { held = columnValue<T>(row, column.offset); }, value);
  return value;
}

void RowLayout::set(BaseRow& row, const LayoutColumn& column, const ColumnValue& value) const {
  std::visit([&](const auto& held) { setColumnValue(row, column.offset, held, fixedLength_); },
             value);
}

}  // namespace Vane
