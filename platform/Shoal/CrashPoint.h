// Named moments in the writing of a table at which a test can have the writer killed.
//
// A point names what has just been done, so that the points of a function tell its story. In the
// library as it is installed they are nothing. A library that is built with SHOAL_CRASH_POINTS
// lists every point in it, reached or not, and exports the list under the symbol
// "shoal_crash_points", by which a test finds out whether it runs on such a library.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace Shoal {

struct CrashPoint {
  explicit CrashPoint(const char* name);  // joins the list
  // Kills the process, as SIGKILL does, if this is the time at which it is to die.
  void reach();

  const char* name;
  uint64_t reached = 0;  // times, in this process
  uint64_t dieAt = 0;    // the time at which the process dies; 0: never
  CrashPoint* next;
};

// The first of the list.
CrashPoint*& crashPoints() __asm__("shoal_crash_points");

template <size_t size>
struct PointName {
  consteval PointName(const char (&name)[size]) { std::copy_n(name, size, text); }
  char text[size];
};

#ifdef SHOAL_CRASH_POINTS
template <PointName name>
struct NamedPoint {
  static inline CrashPoint point{name.text};
};
template <PointName name>
void crashPoint() {
  NamedPoint<name>::point.reach();
}
#else
template <PointName>
void crashPoint() {}
#endif

}  // namespace Shoal
