// A campaign provokes one kind of fault, again and again, and compares what comes of it with an
// oracle outside the tables. What it may find is counted under four heads, each of which must stay
// zero; everything else is the account of what was done.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace Torture {

struct Tally {
  uint64_t rounds = 0;  // states, kills or images that were looked at
  uint64_t faults = 0;  // faults that were injected
  uint64_t reads = 0;   // entries that were read and verified

  uint64_t torn = 0;    // an entry, a count or a message that no writer ever made
  uint64_t hung = 0;    // a process that did not answer within its bound
  uint64_t lost = 0;    // a finished operation that is not there, or one that nobody asked for
  uint64_t leaked = 0;  // what should have gone and has stayed: files, memory, descriptors, locks

  std::vector<std::string> findings;  // the first of them in words, with how to provoke them again

  bool clean() const { return torn + hung + lost + leaked == 0; }
  // Counts a finding under one of the four heads and keeps its text, if it is one of the first.
  void found(uint64_t Tally::*head, const std::string& what);
  Tally& operator+=(const Tally& other);
};

// Everything takes ten times as long under a sanitizer: a slice is smaller then.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr uint64_t slowness = 10;
#else
inline constexpr uint64_t slowness = 1;
#endif

struct Setting {
  uint64_t seed = 0;     // of every choice that the campaign makes
  bool slice = false;    // where the amount is fixed, only some of it is done, chosen by the seed
  bool verbose = false;  // it prints what it did, beyond the numbers
  std::chrono::steady_clock::time_point until;  // one that goes by time ends here

  bool timeLeft() const { return std::chrono::steady_clock::now() < until; }
};

struct Campaign {
  const char* name;
  const char* what;  // one line for --list
  bool timed;        // goes by time; others do all that there is to do, or a slice of it
  Tally (*run)(const Setting&);
};

// Every campaign, in the order in which they run.
const std::vector<Campaign>& campaigns();

}  // namespace Torture
