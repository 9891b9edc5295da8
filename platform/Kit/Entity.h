// Entities: named, counted objects in a tree, whose types are known by name.
//
// A type is described by a TypeNode: its name, its factory, generic access to its attributes by
// number, and the names of its attributes and arguments. A library registers its types when it is
// loaded; a Dir then makes entities of any registered type by name.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "platform/Kit/Ptr.h"
#include "platform/Kit/Text.h"

namespace Kit {

class TypeNode;
class Dir;

class Entity : public PtrInterface {
 public:
  const Name& name() const { return name_; }
  // The names from the root of the tree down to this entity, with '/' between them.
  String fullName() const;
  // The directory that holds this entity; null outside any tree.
  Dir* parent() const { return parent_; }
  // The registered type; null for a type that has none.
  virtual const TypeNode* fwkType() const { return nullptr; }

 protected:
  explicit Entity(Name name) : name_(std::move(name)) {}

 private:
  friend class Dir;
  Name name_;
  Dir* parent_ = nullptr;
};

// A directory of entities; it holds a handle to each of them.
class Dir : public Entity {
 public:
  explicit Dir(Name name) : Entity(std::move(name)) {}
  ~Dir() override;

  // Makes an entity of a registered type and holds it. Throws Guard::RangeException when the name
  // is taken or the type is unknown; what the factory throws passes on, with the directory
  // unchanged.
  Ptr<Entity> createEntity(const Name& name, const String& typeName);
  // Holds an entity that was made elsewhere, in place of one of the same name.
  void entityIs(const Ptr<Entity>& entity);
  // The entity of this name; empty if there is none.
  Ptr<Entity> entity(const Name& name) const;
  // Lets the entity go. Nothing happens if there is none.
  void entityDel(const Name& name);
  const std::map<Name, Ptr<Entity>>& entities() const { return entities_; }

 private:
  std::map<Name, Ptr<Entity>> entities_;
};

// What a generic attribute holds: nothing, a text, or an entity (possibly none).
using AttributeValue = std::variant<std::monostate, String, Ptr<Entity>>;

// Operations and results of generic attribute access. The numbers are part of the contract.
enum class AttributeOp : uint8_t { read = 0, write = 1 };
inline constexpr int attributeOpDone = 0;
inline constexpr int attributeOpUnsupported = 1;
inline constexpr int attributeUnknown = 2;

// Counts the entities of one type: allocations under way or alive.
class AllocationTracker {
 public:
  void allocated(size_t bytes) {
    live_.fetch_add(1, std::memory_order_relaxed);
    bytes_.fetch_add(bytes, std::memory_order_relaxed);
    total_.fetch_add(1, std::memory_order_relaxed);
  }
  void released(size_t bytes) {
    live_.fetch_sub(1, std::memory_order_relaxed);
    bytes_.fetch_sub(bytes, std::memory_order_relaxed);
  }
  size_t live() const { return live_.load(std::memory_order_relaxed); }
  size_t bytes() const { return bytes_.load(std::memory_order_relaxed); }
  size_t total() const { return total_.load(std::memory_order_relaxed); }

 private:
  std::atomic<size_t> live_{0};
  std::atomic<size_t> bytes_{0};
  std::atomic<size_t> total_{0};
};

// The entity allocator. Throws Guard::MemoryResourceException when memory has run out.
void* allocateEntity(size_t bytes);
void freeEntity(void* memory) noexcept;

// An argument of one of a type's operations, as it is recorded in the type.
struct ArgumentInfo {
  String name;
  String operation;
  String typeName;
};

class TypeNode {
 public:
  using Factory = Ptr<Entity> (*)(Name name);
  // Reads or writes one attribute of `entity`; see attributeOpDone and its siblings.
  using GenericIfAttributeOp = int (*)(Entity& entity, AttributeValue& value, AttributeId attribute,
                                       AttributeOp op);

  String name;
  Factory factory = nullptr;
  GenericIfAttributeOp genericIfAttributeOp = nullptr;  // null: no generic access
  std::vector<String> attributeNames;
  std::vector<ArgumentInfo> arguments;
  std::shared_ptr<AllocationTracker> allocations = std::make_shared<AllocationTracker>();
};

// Registers a type and returns the registered node, which lives until the process ends. A second
// registration of the same name replaces the first.
const TypeNode& typeNodeIs(TypeNode node);
// The type of this name; null if none is registered.
const TypeNode* typeNode(const String& name);

// 32-bit hash of one attribute's value with a seed: one MurmurHash3 block step of the value,
// zero-extended to 32 bits, then MurmurHash3's 32-bit final avalanche. Neighbouring identifiers
// spread over all bits.
uint32_t hashSingleAttr(uint32_t seed, uint32_t value);

}  // namespace Kit
