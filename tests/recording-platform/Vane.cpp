// The recording platform's row database.
#include <algorithm>
#include <sstream>

#include "platform/Vane/RowOps.h"
#include "platform/Vane/VaTable.h"
#include "tests/recording-platform/Platform.h"

namespace Recording {

void Database::registerTable(const std::string& name, const std::string& rowTypeName,
                             Vane::TableType type, uint16_t a, uint16_t b, const std::string& text,
                             Options options) {
  std::ostringstream line;
  line << name_ << ": registerTable " << name << " of " << rowTypeName << " type "
       << static_cast<uint32_t>(type) << " " << a << " " << b << " \"" << text << "\" with "
       << options.size() << " options";
  call(line.str());
  registered_.push_back(name);
}

void Database::tableImplementationIs(const std::string& name,
                                     std::shared_ptr<Vane::VaTableImplementation> table) {
  const auto& known = dynamic_cast<const Vane::DefaultVaTableImplementation&>(*table);
  call(name_ + ": tableImplementationIs " + name + " " + known.tableTypeName());
  installed_.push_back(name);
  tables_[name] = std::move(table);
}

uint32_t Database::tableTypeId(const std::string& rowTypeName) {
  call(name_ + ": tableTypeId " + rowTypeName);
  return 7;
}

std::shared_ptr<Vane::VaTableImplementation> Database::table(const std::string& name) const {
  const auto found = tables_.find(name);
  return found == tables_.end() ? nullptr : found->second;
}

}  // namespace Recording

namespace Vane {

void installRowOpsGenerator(const std::string& typeName, RowOpsGenerator* generator) {
  Recording::call("installRowOpsGenerator " + typeName + (generator ? "" : " null"));
}
void installRowMetadata(RowMetadata metadata) {
  Recording::call("installRowMetadata " + metadata.typeName);
}

// Every type has a class record, and the same id. Not written down: a row type asks once in the
// life of the process, and when depends on what ran before.
BaseRow VaneDB::vaClass(const std::string&) {
  BaseRow record(va_contentOffset + 2);
  record.setColumn<uint16_t>(va_contentOffset, 7, va_contentOffset + 2);
  return record;
}
void VaneDB::loadMetadata(const std::string&) {}

DefaultVaTableImplementation::DefaultVaTableImplementation(
    std::string tableTypeName, std::string rowTypeName, uint16_t rowTypeId, bool unique,
    bool bounded, bool external, bool ordered, VaTableOps* ops, Options options)
    : unique_(unique),
      bounded_(bounded),
      external_(external),
      ordered_(ordered),
      tableTypeName_(std::move(tableTypeName)),
      rowTypeName_(std::move(rowTypeName)),
      rowTypeId_(rowTypeId),
      ops_(ops),
      options_(std::move(options)) {
  rowHookIs(nullptr);
}

bool DefaultVaTableImplementation::isUnique(uint8_t) const { return unique_; }
bool DefaultVaTableImplementation::isOrdered(uint8_t) const { return ordered_; }
std::shared_ptr<RowOpsBase> DefaultVaTableImplementation::primaryRowOps() const { return nullptr; }
void DefaultVaTableImplementation::rowHookIs(std::shared_ptr<VaRowHook> hook) {
  hook_ = hook ? hook : std::make_shared<VaRowHook>();
}
std::shared_ptr<VaTableImplementation::ReaderPlace> DefaultVaTableImplementation::registerReader(
    uint64_t) {
  return std::make_shared<ReaderPlace>();
}
void DefaultVaTableImplementation::observerIs(std::shared_ptr<VaTableObserver> observer) {
  observers_->push_back(std::move(observer));
}
void DefaultVaTableImplementation::observerDel(const std::shared_ptr<VaTableObserver>& observer) {
  std::erase(*observers_, observer);
}
void DefaultVaTableImplementation::pruneChanges() {}
uint64_t DefaultVaTableImplementation::notifyObservers(uint64_t previous, uint64_t index,
                                                       bool deleted, const BaseRow& row) {
  for (const auto& observer : *observers_) observer->onChange(previous, index, deleted, row);
  return 0;
}
void DefaultVaTableImplementation::cleanChanges(uint64_t) {}

}  // namespace Vane
