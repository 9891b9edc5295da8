#include "platform/Kit/Ptr.h"

#include <algorithm>
#include <exception>

#include "platform/Guard/Assert.h"

namespace Kit {

PtrInterface::~PtrInterface() = default;

size_t PtrInterface::notifiees() const {
  return notifiees_.size() - static_cast<size_t>(std::ranges::count(notifiees_, nullptr));
}

void PtrInterface::notify(AttributeId attr, const void* key) const {
  if (notifiees_.empty()) return;
  // The last notifiee may take the last handle with it when it leaves.
  const Ptr<const PtrInterface> alive(this);
  struct Round {
    explicit Round(const PtrInterface& notifier) : of(notifier) { ++of.notifying_; }
    ~Round() {
      if (--of.notifying_ == 0 && of.hasEmptyPlaces_) {
        std::erase(of.notifiees_, nullptr);
        of.hasEmptyPlaces_ = false;
      }
    }
    const PtrInterface& of;
  } const round(*this);
  // By index and up to the length at the start: whoever joins meanwhile is appended.
  std::exception_ptr failure;
  for (size_t i = 0, end = notifiees_.size(); i < end; ++i) {
    try {
      if (NotifieeConst* notifiee = notifiees_[i]) notifiee->onAttribute(attr, key);
    } catch (...) {
      if (!failure) failure = std::current_exception();
    }
  }
  if (failure) std::rethrow_exception(failure);
}

void PtrInterface::join(NotifieeConst* notifiee) const { notifiees_.push_back(notifiee); }

void PtrInterface::leave(NotifieeConst* notifiee) const {
  const auto place = std::ranges::find(notifiees_, notifiee);
  if (place == notifiees_.end()) return;
  if (notifying_ != 0) {
    *place = nullptr;
    hasEmptyPlaces_ = true;
  } else {
    notifiees_.erase(place);
  }
}

PtrInterface::NotifieeConst::NotifieeConst(Ptr<const PtrInterface> notifier)
    : notifier_(std::move(notifier)) {
  Guard::standardAssert(static_cast<bool>(notifier_), "notifier");
  notifier_->join(this);
}

PtrInterface::NotifieeConst::~NotifieeConst() { notifier_->leave(this); }

void PtrInterface::NotifieeConst::onAttribute(AttributeId, const void*) {}

}  // namespace Kit
