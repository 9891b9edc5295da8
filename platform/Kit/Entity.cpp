#include "platform/Kit/Entity.h"

#include <new>
#include <utility>

#include "platform/Guard/Assert.h"
#include "platform/Guard/Exception.h"

namespace Kit {

String Entity::fullName() const {
  return parent_ ? parent_->fullName() + "/" + name_.str() : String(name_.str());
}

// What is still held elsewhere outlives the directory, outside any tree.
Dir::~Dir() {
  for (const auto& [name, entity] : entities_) entity->parent_ = nullptr;
}

Ptr<Entity> Dir::createEntity(const Name& name, const String& typeName) {
  const auto refuse = [&](const char* why) {
    Guard::RangeException::throwException("creating entity \"" + name.str() + "\" of type \"" +
                                          typeName.str() + "\" in \"" + fullName().str() +
                                          "\": " + why);
  };
  if (entities_.contains(name)) refuse("the name is taken");
  const TypeNode* type = typeNode(typeName);
  if (!type || !type->factory) refuse("the type is unknown");
  Ptr<Entity> created = type->factory(name);
  entityIs(created);
  return created;
}

void Dir::entityIs(const Ptr<Entity>& entity) {
  Guard::standardAssert(static_cast<bool>(entity), "entity");
  // The caller's handle may be the old directory's own.
  const Ptr<Entity> held = entity;  // NOLINT(performance-unnecessary-copy-initialization)
  Ptr<Entity>& place = entities_[held->name()];
  if (held->parent_ && place != held) held->parent_->entityDel(held->name());
  // Goes last: its destructor may look at this directory.
  const Ptr<Entity> replaced = std::exchange(place, held);
  if (replaced) replaced->parent_ = nullptr;
  held->parent_ = this;
}

Ptr<Entity> Dir::entity(const Name& name) const {
  const auto found = entities_.find(name);
  return found == entities_.end() ? nullptr : found->second;
}

void Dir::entityDel(const Name& name) {
  const auto found = entities_.find(name);
  if (found == entities_.end()) return;
  const Ptr<Entity> gone = found->second;  // goes last: its destructor may look at this directory
  gone->parent_ = nullptr;
  entities_.erase(found);
}

void* allocateEntity(size_t bytes) {
  void* memory = ::operator new(bytes, std::nothrow);
  if (!memory) {
    Guard::MemoryResourceException::throwException("allocating an entity of " +
                                                   std::to_string(bytes) + " bytes: no memory");
  }
  return memory;
}

void freeEntity(void* memory) noexcept { ::operator delete(memory); }

}  // namespace Kit
