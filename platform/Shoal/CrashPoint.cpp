#include "platform/Shoal/CrashPoint.h"

#ifdef SHOAL_CRASH_POINTS

#include <signal.h>
#include <unistd.h>

namespace Shoal {

CrashPoint*& crashPoints() {
  static CrashPoint* first = nullptr;
  return first;
}

CrashPoint::CrashPoint(const char* pointName) : name(pointName), next(crashPoints()) {
  crashPoints() = this;
}

void CrashPoint::reach() {
  if (++reached == dieAt) ::kill(::getpid(), SIGKILL);
}

}  // namespace Shoal

#endif
