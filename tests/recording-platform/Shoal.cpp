// The recording platform's tables.
#include <algorithm>

#include "tests/recording-platform/Platform.h"

namespace Recording {

bool Store::copyOut(const Entries& entries, Entries::const_iterator at, Shoal::MutableBytes entry) {
  if (at == entries.end()) return false;
  std::ranges::copy(at->second, entry.begin());
  return true;
}

bool Store::lookup(Shoal::Bytes key, Shoal::MutableBytes entry) const {
  return copyOut(entries_, entries_.find(block(key)), entry);
}
bool Store::first(Shoal::IterHint&, Shoal::MutableBytes entry) const {
  return copyOut(entries_, entries_.begin(), entry);
}
bool Store::next(Shoal::Bytes key, Shoal::IterHint&, Shoal::MutableBytes entry) const {
  return copyOut(entries_, entries_.upper_bound(block(key)), entry);
}
bool Store::set(Shoal::Bytes key, Shoal::Bytes entry) {
  call("set " + path_);
  return entries_.insert_or_assign(block(key), block(entry)).second;
}
bool Store::erase(Shoal::Bytes key) {
  call("erase " + path_);
  return entries_.erase(block(key)) != 0;
}
void Store::clear() {
  call("clear " + path_);
  entries_.clear();
}

}  // namespace Recording
