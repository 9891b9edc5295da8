// The system calls of a thread, each before the kernel sees it: listed, and refused with an error
// of one's choice.
//
// A filter has the kernel ask about every call, and another thread of the process answers: go on,
// or this error. The filter stays until the process ends, so each try has a process of its own.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace Torture {

// Calls are refused by number, too: the C library makes some of its own now and then, which push
// the others back in the list.
struct Refusal {
  uint32_t at = 0;      // no call before this place in the list is refused, from 0
  uint16_t number = 0;  // and only calls of this number
  uint32_t times = 0;   // so many of them
  int error = 0;
};

// The numbers of the calls, in their order. May lie in memory that processes share.
struct CallList {
  static constexpr size_t most = 4000;
  uint32_t count = 0;  // also of those that there was no more room for
  std::array<uint16_t, most> numbers{};
};

class SystemCalls {
 public:
  // For the thread that makes the object. Throws std::runtime_error where the kernel does not offer
  // it. requires: `list` lives as long as the process.
  SystemCalls(CallList& list, const Refusal& refusal);

  // Calls `body`; what it calls in turn is listed, and refused when its time has come.
  template <class Body>
  void during(Body&& body) {
    const Listing listing(isListing());
    body();
  }

 private:
  class Judge;

  struct Listing {
    explicit Listing(std::atomic<bool>& flag) : flag_(flag) { flag_ = true; }
    ~Listing() { flag_ = false; }
    std::atomic<bool>& flag_;
  };
  std::atomic<bool>& isListing();

  std::shared_ptr<Judge> judge_;  // which the thread that answers keeps as well
};

}  // namespace Torture
