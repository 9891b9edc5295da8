#include "platform/Vane/VaneDB.h"

#include <utility>

#include "platform/Vane/VaExceptions.h"

namespace Vane {
namespace {

// The class record: header, then the type's id.
constexpr len_t idColumn = va_contentOffset;
constexpr len_t classRecordLength = idColumn + 2;

BaseRow makeClassRecord(uint16_t id) {
  BaseRow record(classRecordLength);
  record.setColumn<uint16_t>(idColumn, id, classRecordLength);
  record.readOnlyIs(true);  // handed out as it is, to whoever asks
  return record;
}

[[noreturn]] void throwUnknownType(const std::string& typeName) {
  std::string message = "row type \"" + typeName + "\" is not known; known are";
  const char* separator = " ";
  for (const std::string& known : rowTypeNames()) {
    message += separator + ("\"" + known + "\"");
    separator = ", ";
  }
  VaUnknownName::throwException(rowTypeNames().empty() ? message + " none" : message);
}

class ReferenceDB final : public VaneDB {
 public:
  void registerTable(const std::string& name, const std::string& rowTypeName, TableType, uint16_t,
                     uint16_t, const std::string&, Options) override {
    tableTypeId(rowTypeName);
    if (find(name)) {
      VaNotSupported::throwException("table \"" + name + "\" is registered already");
    }
    tables_.push_back({name, rowTypeName, nullptr});
  }

  void tableImplementationIs(const std::string& name,
                             std::shared_ptr<VaTableImplementation> table) override {
    Table* const registered = find(name);
    if (!registered) VaUnknownName::throwException("table \"" + name + "\" is not registered");
    if (table && table->rowTypeName() != registered->rowTypeName) {
      VaNotSupported::throwException("table \"" + name + "\": rows of type \"" +
                                     table->rowTypeName() + "\", expected \"" +
                                     registered->rowTypeName + "\"");
    }
    registered->implementation = std::move(table);
  }

  uint32_t tableTypeId(const std::string& rowTypeName) override {
    metadataIs(rowTypeName);
    const BaseRow record = classRecord(rowTypeName);
    if (record.isNull()) throwUnknownType(rowTypeName);
    return record.getScalar<uint16_t>(idColumn);
  }

  std::vector<std::string> tableNames() const override {
    std::vector<std::string> names;
    for (const Table& table : tables_) {
      if (table.implementation) names.push_back(table.name);
    }
    return names;
  }

  std::shared_ptr<VaTableImplementation> table(const std::string& name) const override {
    const Table* const registered = find(name);
    return registered ? registered->implementation : nullptr;
  }

  BaseRow classRecord(const std::string& typeName) const override {
    const auto found = classes_.find(typeName);
    return found == classes_.end() ? BaseRow() : found->second;
  }

  void metadataIs(const std::string& typeName) override {
    if (classes_.contains(typeName) || !rowMetadata(typeName)) return;
    // Ids are 16 bits, and the highest says "not known".
    if (classes_.size() == maxTypes) {
      VaOutOfRange::throwException("row type \"" + typeName + "\": all " +
                                   std::to_string(maxTypes) + " type ids are taken");
    }
    classes_.emplace(typeName, makeClassRecord(static_cast<uint16_t>(classes_.size() + 1)));
  }

 private:
  static constexpr size_t maxTypes = 65534;

  struct Table {
    std::string name;
    std::string rowTypeName;
    std::shared_ptr<VaTableImplementation> implementation;
  };

  const Table* find(const std::string& name) const {
    for (const Table& table : tables_) {
      if (table.name == name) return &table;
    }
    return nullptr;
  }
  Table* find(const std::string& name) {
    return const_cast<Table*>(std::as_const(*this).find(name));
  }

  std::vector<Table> tables_;  // in order of registration
  std::unordered_map<std::string, BaseRow> classes_;
};

std::shared_ptr<VaneDB>& currentDB() {
  // Never destroyed: objects that go when the process ends may still ask.
  static auto& db = *new std::shared_ptr<VaneDB>;
  return db;
}

}  // namespace

std::shared_ptr<VaneDB> VaneDB::current() { return currentDB(); }
void VaneDB::currentIs(std::shared_ptr<VaneDB> db) {
  if (db == currentDB()) return;
  currentDB() = std::move(db);
  forgetRowTypeIds();
}

BaseRow VaneDB::vaClass(const std::string& typeName) {
  const auto db = current();
  return db ? db->classRecord(typeName) : BaseRow();
}

void VaneDB::loadMetadata(const std::string& typeName) {
  if (const auto db = current()) db->metadataIs(typeName);
}

std::shared_ptr<VaneDB> makeVaneDB() { return std::make_shared<ReferenceDB>(); }

}  // namespace Vane
