// The row database: tables by name, row types by name, and readers that follow changes.
//
// A table is registered under a name with its row type, then given its implementation. A row type
// is known once its description has been loaded; it then has a class record, itself a row, whose
// first column (offset 4, u16) is the type's id. Ids are given in order of loading, from 1.
//
// One database is the process's current one; row types look themselves up there.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "Vane/baseRow.h"
#include "platform/Vane/RowOps.h"
#include "platform/Vane/VaTable.h"

namespace Vane {

// Who keeps a table's rows. The numbers are part of the contract.
enum class TableType : uint32_t { memory = 0, derived = 1, adapter = 2 };

class VaneDB {
 public:
  using Options = std::unordered_map<std::string, std::string>;

  virtual ~VaneDB() = default;
  VaneDB(const VaneDB&) = delete;
  VaneDB& operator=(const VaneDB&) = delete;

  // Makes a table of this name without an implementation. `a` and `b` bound the rows and the
  // changes kept by tables of type memory (0: no bound); `text` describes the table to people.
  // Throws VaUnknownName for an unknown row type, VaNotSupported for a name that is taken. (The
  // reference database has tables with an implementation only: it ignores all but the names.)
  virtual void registerTable(const std::string& name, const std::string& rowTypeName,
                             TableType type, uint16_t a, uint16_t b, const std::string& text,
                             Options options) = 0;
  // Gives the table its implementation and owns it. Throws VaUnknownName for an unknown table,
  // VaNotSupported for an implementation with rows of another type.
  virtual void tableImplementationIs(const std::string& name,
                                     std::shared_ptr<VaTableImplementation> table) = 0;

  // The id of a row type, loading its description if need be. Throws VaUnknownName for an unknown
  // one.
  virtual uint32_t tableTypeId(const std::string& rowTypeName) = 0;

  // The names of the tables that have an implementation, in order of registration.
  virtual std::vector<std::string> tableNames() const = 0;
  // The implementation of this table; null when there is no such table or it has none yet.
  virtual std::shared_ptr<VaTableImplementation> table(const std::string& name) const = 0;

  // The class record of a type; a null row while it has not been loaded.
  virtual BaseRow classRecord(const std::string& typeName) const = 0;
  // Loads the description that the type has offered. Nothing happens when it has offered none.
  virtual void metadataIs(const std::string& typeName) = 0;

  // The process's current database; empty at first. Each database numbers the row types itself, so
  // with another one the types forget the ids that they have kept.
  static std::shared_ptr<VaneDB> current();
  static void currentIs(std::shared_ptr<VaneDB> db);
  // classRecord and metadataIs of the current database. Without one no type is known.
  static BaseRow vaClass(const std::string& typeName);
  static void loadMetadata(const std::string& typeName);

 protected:
  VaneDB() = default;
};

// The reference database. It becomes the current one only when currentIs says so.
std::shared_ptr<VaneDB> makeVaneDB();

}  // namespace Vane
