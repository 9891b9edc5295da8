#include "platform/Shoal/WriterLock.h"

#include <pthread.h>

#include <mutex>
#include <utility>

namespace Shoal {

namespace {

std::mutex all;  // guards the list; held across a fork, so that a child finds it whole
WriterLock* first = nullptr;

}  // namespace

WriterLock::WriterLock(Kit::FileDescriptor file) : file_(std::move(file)) {
  static const int registered =
      ::pthread_atfork([] { all.lock(); }, [] { all.unlock(); }, giveUpAll);
  (void)registered;
  const std::lock_guard guard(all);
  next_ = std::exchange(first, this);
}

WriterLock::~WriterLock() {
  const std::lock_guard guard(all);
  WriterLock** at = &first;
  while (*at != this) at = &(*at)->next_;
  *at = next_;
}

// In a child process.
void WriterLock::giveUpAll() {
  for (WriterLock* lock = first; lock != nullptr; lock = lock->next_)
    lock->file_ = Kit::FileDescriptor();
  all.unlock();
}

}  // namespace Shoal
