// Entities for the tests of the entity system.
#pragma once

#include <functional>
#include <utility>

#include "platform/Kit/Entity.h"

namespace KitTest {

// An entity that says when it goes, and whose attributes change at will.
class Probe : public Kit::Entity {
 public:
  explicit Probe(Kit::Name name, bool* gone = nullptr) : Entity(std::move(name)), gone_(gone) {}
  ~Probe() override {
    if (gone_) *gone_ = true;
  }
  void change(uint32_t attr, const void* key = nullptr) const {
    notify(Kit::AttributeId{attr}, key);
  }

 private:
  bool* gone_;
};

// Does with each change what the test says.
class Listener final : public Kit::PtrInterface::NotifieeConst {
 public:
  using Action = std::function<void(uint32_t attr, const void* key)>;
  Listener(Kit::Ptr<const Kit::PtrInterface> notifier, Action action)
      : NotifieeConst(std::move(notifier)), action_(std::move(action)) {}
  void onAttribute(Kit::AttributeId attr, const void* key) override {
    action_(static_cast<uint32_t>(attr), key);
  }

 private:
  Action action_;
};

}  // namespace KitTest
