// Counted handles and notification: the root of every entity.
//
// A PtrInterface counts its Ptr handles and is destroyed when the last one goes. The count is
// atomic when the process runs in thread-safe pointer mode, and plain otherwise; a process sets the
// mode once, before it makes a second thread.
//
// It also keeps a list of notifiees and tells each of them when one of its attributes changed.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/Guard/Assert.h"

namespace Kit {

// The number of an attribute within its entity type. Numbers are part of a type's contract.
enum class AttributeId : uint32_t {};

enum class PtrMode : uint8_t { plain, threadSafe };

inline std::atomic<PtrMode> ptrMode_{PtrMode::plain};
inline PtrMode ptrMode() { return ptrMode_.load(std::memory_order_relaxed); }
// requires: one thread so far.
inline void ptrModeIs(PtrMode mode) { ptrMode_.store(mode, std::memory_order_relaxed); }

template <class T>
class Ptr;

class PtrInterface {
 public:
  class NotifieeConst;

  PtrInterface(const PtrInterface&) = delete;
  PtrInterface& operator=(const PtrInterface&) = delete;

  void newRef() const {
    if (ptrMode() == PtrMode::threadSafe) {
      refs_.fetch_add(1, std::memory_order_relaxed);
    } else {
      refs_.store(refs_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    }
  }
  void deleteRef() const {
    if (dropRef() == 0) delete this;
  }
  // Number of handles; for tests and diagnostics.
  uint32_t references() const { return refs_.load(std::memory_order_relaxed); }
  // Number of notifiees that would hear of a change now.
  size_t notifiees() const;

 protected:
  PtrInterface() = default;
  virtual ~PtrInterface();

  // Tells every notifiee that `attr` changed; `key` names the changed element of a collection, or
  // is null. A notifiee may leave, or a new one may join, while this runs: one that has left hears
  // nothing more, one that joined hears from the next change on. An exception from a notifiee
  // keeps none of the others from hearing; the first one passes on when all have been told.
  void notify(AttributeId attr, const void* key) const;

 private:
  uint32_t dropRef() const {
    if (ptrMode() == PtrMode::threadSafe) {
      return refs_.fetch_sub(1, std::memory_order_acq_rel) - 1;
    }
    const uint32_t left = refs_.load(std::memory_order_relaxed) - 1;
    refs_.store(left, std::memory_order_relaxed);
    return left;
  }
  void join(NotifieeConst* notifiee) const;
  void leave(NotifieeConst* notifiee) const;

  mutable std::atomic<uint32_t> refs_{0};
  // Empty places are left while a notification runs and swept when the outermost one ends.
  mutable std::vector<NotifieeConst*> notifiees_;
  mutable uint32_t notifying_ = 0;  // depth of notifications under way
  mutable bool hasEmptyPlaces_ = false;
};

template <class T>
class Ptr {
 public:
  Ptr() = default;
  Ptr(std::nullptr_t) {}                        // NOLINT(google-explicit-constructor)
  Ptr(T* entity) : entity_(entity) { take(); }  // NOLINT(google-explicit-constructor)
  Ptr(const Ptr& other) : entity_(other.entity_) { take(); }
  Ptr(Ptr&& other) noexcept : entity_(std::exchange(other.entity_, nullptr)) {}
  template <class U>
  requires std::is_convertible_v<U*, T*> Ptr(const Ptr<U>& other)
      : entity_(other.get()) {  // NOLINT(google-explicit-constructor)
    take();
  }
  ~Ptr() { drop(); }

  Ptr& operator=(Ptr other) noexcept {
    std::swap(entity_, other.entity_);
    return *this;
  }

  T* get() const { return entity_; }
  // Use of an empty handle is a standard assertion.
  T* operator->() const { return held(); }
  T& operator*() const { return *held(); }
  explicit operator bool() const { return entity_ != nullptr; }

  // Identity, not equality of contents.
  template <class U>
  friend bool operator==(const Ptr& a, const Ptr<U>& b) {
    return a.get() == b.get();
  }
  friend bool operator==(const Ptr& a, std::nullptr_t) { return a.entity_ == nullptr; }

 private:
  T* held() const {
    Guard::standardAssert(entity_ != nullptr, "handle holds an entity");
    return entity_;
  }
  void take() {
    if (entity_) entity_->newRef();
  }
  void drop() {
    if (entity_) entity_->deleteRef();
  }

  T* entity_ = nullptr;
};

// The handle as one of another type; empty when the entity is not of that type.
template <class T, class U>
Ptr<T> dynamicCast(const Ptr<U>& p) {
  return Ptr<T>(dynamic_cast<T*>(p.get()));
}

// Listens to one notifier, from its construction to its destruction, and keeps it alive meanwhile.
class PtrInterface::NotifieeConst {
 public:
  NotifieeConst(const NotifieeConst&) = delete;
  NotifieeConst& operator=(const NotifieeConst&) = delete;
  virtual ~NotifieeConst();

  const Ptr<const PtrInterface>& notifier() const { return notifier_; }

  // One attribute of the notifier changed. `key` points to the key of the changed element when the
  // attribute is a collection and is null otherwise; it is valid during the call only. The base
  // form ignores the change.
  virtual void onAttribute(AttributeId attr, const void* key);

 protected:
  explicit NotifieeConst(Ptr<const PtrInterface> notifier);

 private:
  Ptr<const PtrInterface> notifier_;
};

}  // namespace Kit
