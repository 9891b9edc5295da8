// The recording platform's entity system.
#include <algorithm>
#include <map>

#include "platform/Kit/Entity.h"
#include "tests/recording-platform/Recorder.h"

namespace Kit {
namespace {

std::map<String, TypeNode*>& types() {
  static auto& types = *new std::map<String, TypeNode*>;
  return types;
}

}  // namespace

PtrInterface::~PtrInterface() = default;
size_t PtrInterface::notifiees() const { return notifiees_.size(); }
void PtrInterface::join(NotifieeConst* notifiee) const { notifiees_.push_back(notifiee); }
void PtrInterface::leave(NotifieeConst* notifiee) const { std::erase(notifiees_, notifiee); }
void PtrInterface::notify(AttributeId attr, const void* key) const {
  Recording::call("notify " + std::to_string(static_cast<uint32_t>(attr)));
  const auto round = notifiees_;
  for (NotifieeConst* notifiee : round) {
    if (std::ranges::find(notifiees_, notifiee) != notifiees_.end()) {
      notifiee->onAttribute(attr, key);
    }
  }
}

PtrInterface::NotifieeConst::NotifieeConst(Ptr<const PtrInterface> notifier)
    : notifier_(std::move(notifier)) {
  notifier_->join(this);
}
PtrInterface::NotifieeConst::~NotifieeConst() { notifier_->leave(this); }
void PtrInterface::NotifieeConst::onAttribute(AttributeId, const void*) {}

String Entity::fullName() const { return name_.str(); }

Dir::~Dir() {
  for (const auto& [name, entity] : entities_) entity->parent_ = nullptr;
}
Ptr<Entity> Dir::createEntity(const Name& name, const String& typeName) {
  Recording::call("createEntity " + name.str() + " of " + typeName.str());
  const TypeNode* const type = typeNode(typeName);
  if (entity(name) || !type) {
    Guard::RangeException::throwException("no entity " + name.str() + " of " + typeName.str());
  }
  const auto made = type->factory(name);
  entityIs(made);
  return made;
}
void Dir::entityIs(const Ptr<Entity>& entity) {
  entityDel(entity->name());
  entities_.insert_or_assign(entity->name(), entity);
  entity->parent_ = this;
}
Ptr<Entity> Dir::entity(const Name& name) const {
  const auto found = entities_.find(name);
  return found == entities_.end() ? nullptr : found->second;
}
void Dir::entityDel(const Name& name) {
  const auto found = entities_.find(name);
  if (found == entities_.end()) return;
  found->second->parent_ = nullptr;
  entities_.erase(found);
}

void* allocateEntity(size_t bytes) {
  Recording::call("allocateEntity");
  return ::operator new(bytes);
}
void freeEntity(void* memory) noexcept {
  Recording::event("freeEntity");
  ::operator delete(memory);
}

const TypeNode& typeNodeIs(TypeNode node) {
  Recording::call("typeNodeIs " + node.name.str());
  const String name = node.name;
  return *(types()[name] = new TypeNode(std::move(node)));
}
const TypeNode* typeNode(const String& name) {
  const auto found = types().find(name);
  return found == types().end() ? nullptr : found->second;
}

uint32_t hashSingleAttr(uint32_t seed, uint32_t value) { return seed ^ value; }

}  // namespace Kit
