// How a table entity's type is made known to the entity system.
#pragma once

#include <utility>

#include "platform/Kit/Entity.h"

namespace State {

// Registers the type, so that a mount can make tables of it by name. `entries` is the name of the
// attribute that holds the table's entries.
template <class Table>
const Kit::TypeNode& registerTableType(const char* typeName, const char* entries) {
  Kit::TypeNode node;
  node.name = typeName;
  node.factory = [](Kit::Name name) { return Kit::Ptr<Kit::Entity>(new Table(std::move(name))); };
  node.attributeNames = {entries};
  return Kit::typeNodeIs(std::move(node));
}

}  // namespace State
