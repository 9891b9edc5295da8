// The plug-in entity as the type system sees it: factory, generic attribute access.
#include <string>
#include <utility>
#include <variant>

#include "P4RuntimePlugin/RoutingTables.h"
#include "platform/Guard/Exception.h"

namespace P4RuntimeRouting {
namespace {

using Plugin = P4RuntimeRoutingVanePlugin;

[[noreturn]] void throwWrongKind(const Plugin& plugin, const char* attribute,
                                 const char* expected) {
  Guard::RangeException::throwException("writing attribute \"" + std::string(attribute) +
                                        "\" of \"" + plugin.fullName().str() + "\": expected " +
                                        expected);
}

void read(const Plugin& plugin, const TextAttribute& attribute, Kit::AttributeValue& value) {
  value = (plugin.*attribute.get)();
}

void write(Plugin& plugin, const TextAttribute& attribute, const Kit::AttributeValue& value) {
  const auto* text = std::get_if<Kit::String>(&value);
  if (!text) throwWrongKind(plugin, attribute.name, "a text");
  (plugin.*attribute.set)(*text);
}

template <class Adapter>
void read(const Plugin& plugin, const TableAttribute<Adapter>& attribute,
          Kit::AttributeValue& value) {
  value = Kit::Ptr<Kit::Entity>((plugin.*attribute.get)());
}

template <class Adapter>
void write(Plugin& plugin, const TableAttribute<Adapter>& attribute,
           const Kit::AttributeValue& value) {
  const auto* entity = std::get_if<Kit::Ptr<Kit::Entity>>(&value);
  if (!entity) throwWrongKind(plugin, attribute.name, "an entity");
  const auto table = Kit::dynamicCast<typename TableAttribute<Adapter>::Table>(*entity);
  if (*entity && !table) throwWrongKind(plugin, attribute.name, "an entity of the table's type");
  (plugin.*attribute.set)(table);
}

template <class Attribute>
int access(Plugin& plugin, const Attribute& attribute, Kit::AttributeValue& value,
           Kit::AttributeOp op) {
  switch (op) {
    case Kit::AttributeOp::read:
      read(plugin, attribute, value);
      return Kit::attributeOpDone;
    case Kit::AttributeOp::write:
      write(plugin, attribute, value);
      return Kit::attributeOpDone;
  }
  return Kit::attributeOpUnsupported;
}

int genericIfAttributeOp(Kit::Entity& entity, Kit::AttributeValue& value, Kit::AttributeId id,
                         Kit::AttributeOp op) {
  auto& plugin = dynamic_cast<Plugin&>(entity);
  int result = Kit::attributeUnknown;
  const auto accessIfMeant = [&](const auto& attribute) {
    if (attribute.id == id) result = access(plugin, attribute, value, op);
  };
  forEachText(accessIfMeant);
  forEachTable(accessIfMeant);
  return result;
}

std::vector<Kit::String> attributeNames() {
  std::vector<Kit::String> names = {// Of the plug-in base and its own bases.
                                    "name",
                                    "fullName",
                                    "parent",
                                    "parentAttrName",
                                    "entity",
                                    "hubOnly",
                                    "doHubMountsComplete",
                                    "handleMountStatus",
                                    "pluginName",
                                    "cliConfig",
                                    "cliStatus",
                                    "pluginContext",
                                    "pluginConfigDir",
                                    "pluginStatusDir",
                                    "pluginDataDir",
                                    "allPluginConfig",
                                    "pluginStatus",
                                    "pluginCleanupSm",
                                    "init",
                                    "initComplete",
                                    "pluginCleanupHelper",
                                    "defaultPluginCleanupHelper",
                                    "doMountsComplete",
                                    "pluginInit",
                                    "doCleanup"};
  const auto append = [&names](const auto& attribute) { names.push_back(attribute.name); };
  forEachText(append);
  forEachTable(append);
  return names;
}

Kit::TypeNode makeType() {
  Kit::TypeNode type;
  type.name = p4RuntimeRoutingVanePluginTypeName;
  type.factory = p4RuntimeRoutingVanePluginFactory;
  type.genericIfAttributeOp = genericIfAttributeOp;
  type.attributeNames = attributeNames();
  type.arguments = {{"reason", "doCleanup", "P4Runtime::PluginCleanupReason"},
                    {"context", "pluginInit", "P4Runtime::PluginContext"},
                    {"mountStatus", "doMountsComplete", "Hub::MountStatus"},
                    {"mountGroup", "doMountsComplete", "Hub::EntityManager"}};
  return type;
}

}  // namespace

const Kit::TypeNode& p4RuntimeRoutingVanePluginType() {
  static const Kit::TypeNode& type = Kit::typeNodeIs(makeType());
  return type;
}

const Kit::TypeNode* P4RuntimeRoutingVanePlugin::fwkType() const {
  return &p4RuntimeRoutingVanePluginType();
}

Kit::Ptr<Kit::Entity> p4RuntimeRoutingVanePluginFactory(Kit::Name name) {
  return new P4RuntimeRoutingVanePlugin(std::move(name));
}

// An allocation that fails is taken back here; one whose construction fails, by operator delete.
void* P4RuntimeRoutingVanePlugin::operator new(size_t bytes) {
  struct Tracked {
    explicit Tracked(size_t bytes) : bytes(bytes) { tracker.allocated(bytes); }
    ~Tracked() {
      if (!memory) tracker.released(bytes);
    }
    Kit::AllocationTracker& tracker = *p4RuntimeRoutingVanePluginType().allocations;
    size_t bytes;
    void* memory = nullptr;
  } tracked(bytes);
  return tracked.memory = Kit::allocateEntity(bytes);
}

void P4RuntimeRoutingVanePlugin::operator delete(void* memory, size_t bytes) noexcept {
  Kit::freeEntity(memory);
  p4RuntimeRoutingVanePluginType().allocations->released(bytes);
}

}  // namespace P4RuntimeRouting
