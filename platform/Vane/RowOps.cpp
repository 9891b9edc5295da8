#include "platform/Vane/RowOps.h"

#include <map>
#include <utility>

namespace Vane {
namespace {

// Made on first use, because row types register during static initialisation, in no order that one
// could rely on; never destroyed, because rows of static lifetime look their type up when they go.
std::map<std::string, RowOpsGenerator*>& generators() {
  static auto& instance = *new std::map<std::string, RowOpsGenerator*>;
  return instance;
}

std::map<std::string, RowMetadata>& descriptions() {
  static auto& instance = *new std::map<std::string, RowMetadata>;
  return instance;
}

}  // namespace

void installRowOpsGenerator(const std::string& typeName, RowOpsGenerator* generator) {
  generators()[typeName] = generator;
}

RowOpsGenerator* rowOpsGenerator(const std::string& typeName) {
  const auto found = generators().find(typeName);
  return found == generators().end() ? nullptr : found->second;
}

void installRowMetadata(RowMetadata metadata) {
  RowMetadata& place = descriptions()[metadata.typeName];
  place = std::move(metadata);
}

const RowMetadata* rowMetadata(const std::string& typeName) {
  const auto found = descriptions().find(typeName);
  return found == descriptions().end() ? nullptr : &found->second;
}

std::vector<std::string> rowTypeNames() {
  std::vector<std::string> names;
  for (const auto& [name, metadata] : descriptions()) names.push_back(name);
  return names;
}

void forgetRowTypeIds() {
  for (const auto& [name, metadata] : descriptions()) {
    if (metadata.forgetTypeId) metadata.forgetTypeId();
  }
}

}  // namespace Vane
