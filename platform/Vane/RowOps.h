// Row operations: what the row database does with rows whose type it knows only by name.
//
// A row type offers three things when its library is loaded: a generator, registered under the type
// name, that hands out its operations object by index; and its description (RowMetadata), from
// which the database makes the type's class record.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Vane/baseRow.h"

namespace Vane {

// The operations of one index of one row type. Stateless.
class RowOpsBase {
 public:
  virtual ~RowOpsBase() = default;
  virtual uint32_t keyHash(const BaseRow& row) = 0;
  virtual uint32_t rowHash(const BaseRow& row) = 0;
  virtual bool keyEquals(const BaseRow& a, const BaseRow& b) = 0;
  virtual bool rowEquals(const BaseRow& a, const BaseRow& b) = 0;
  virtual bool keyLess(const BaseRow& a, const BaseRow& b) = 0;
  virtual bool rowLess(const BaseRow& a, const BaseRow& b) = 0;
  virtual bool unique() = 0;
  virtual bool ordered() = 0;
  virtual uint8_t index() = 0;
  virtual uint64_t getTotalInstructionsExecuted() = 0;
};

// Hands out operations objects. Generators are static objects: they are registered by address and
// never unregistered, so a library that holds one stays loaded.
class RowOpsGenerator {
 public:
  // Appends the operations of every index of the type.
  virtual void operator()(std::vector<std::shared_ptr<RowOpsBase>>& ops) = 0;
  // The operations of one index; empty when the type has no such index.
  virtual std::shared_ptr<RowOpsBase> operator()(unsigned char index) = 0;

 protected:
  ~RowOpsGenerator() = default;
};

// Registers a generator under its row type's name. A second registration of a name replaces the
// first.
void installRowOpsGenerator(const std::string& typeName, RowOpsGenerator* generator);
// The generator registered under this name; null if there is none.
RowOpsGenerator* rowOpsGenerator(const std::string& typeName);

// What a row type tells the database of itself.
struct RowMetadata {
  std::string typeName;
  std::string signature;                // one-line JSON object: column name to type word, in order
  std::vector<std::string> keyColumns;  // names, in key order
  uint16_t baseRowLength = 0;           // bytes of header and fixed area
  std::string (*toJson)(const BaseRow&) = nullptr;  // of a generic row of this type
  std::string (*toText)(const BaseRow&) = nullptr;
  void (*forgetTypeId)() = nullptr;  // the id that the type has kept is another database's
};

// Offers a row type's description. The database reads it when the type is first asked for. A second
// description of a name replaces the first.
void installRowMetadata(RowMetadata metadata);
// The description offered for this name; null if there is none.
const RowMetadata* rowMetadata(const std::string& typeName);
// The names of the row types that have offered a description, sorted.
std::vector<std::string> rowTypeNames();
// Lets every row type ask for its id again: it was another database's. Takes no memory.
void forgetRowTypeIds();

}  // namespace Vane
