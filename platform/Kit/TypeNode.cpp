#include <deque>
#include <mutex>
#include <unordered_map>

#include "platform/Kit/Entity.h"
#include "platform/Wire/Hash.h"

namespace Kit {
namespace {

struct Registry {
  std::mutex mutex;
  std::deque<TypeNode> nodes;  // replaced ones too: entities may still refer to them
  std::unordered_map<String, const TypeNode*> byName;
};

// Made on first use, because types register during static initialisation, and never destroyed,
// because entities of static lifetime look at their types when they go.
Registry& registry() {
  static Registry& instance = *new Registry;
  return instance;
}

}  // namespace

const TypeNode& typeNodeIs(TypeNode node) {
  Registry& types = registry();
  const std::lock_guard lock(types.mutex);
  const TypeNode& registered = types.nodes.emplace_back(std::move(node));
  types.byName[registered.name] = &registered;
  return registered;
}

const TypeNode* typeNode(const String& name) {
  Registry& types = registry();
  const std::lock_guard lock(types.mutex);
  const auto found = types.byName.find(name);
  return found == types.byName.end() ? nullptr : found->second;
}

uint32_t hashSingleAttr(uint32_t seed, uint32_t value) {
  return Wire::murmurAvalanche(Wire::murmurBlock(seed, value));
}

}  // namespace Kit
