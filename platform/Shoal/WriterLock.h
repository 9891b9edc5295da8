// The lock that makes a process the writer of a table, for as long as this object holds it.
//
// The kernel drops the lock when the last process that has the open file closes it or ends. A child
// process that goes on without executing another program would have it too and keep it after the
// writer has died; so a child gives up all locks of its parent as its first act. What it has
// inherited of them holds nothing.
#pragma once

#include "platform/Kit/FileDescriptor.h"

namespace Shoal {

class WriterLock {
 public:
  // Takes the locked file; none: holds nothing.
  explicit WriterLock(Kit::FileDescriptor file);
  ~WriterLock();
  WriterLock(const WriterLock&) = delete;
  WriterLock& operator=(const WriterLock&) = delete;

  bool isHeld() const { return static_cast<bool>(file_); }

 private:
  static void giveUpAll();

  Kit::FileDescriptor file_;
  WriterLock* next_ = nullptr;  // in the list of all
};

}  // namespace Shoal
