// A runner for builds without Google Benchmark, which knows of its interface as much as the
// subjects use.
#pragma once

#include <cstdint>
#include <ctime>
#include <map>
#include <string>

namespace Bench {

template <class T>
void DoNotOptimize(const T& value) {
  asm volatile("" : : "r,m"(value) : "memory");
}
template <class T>
void DoNotOptimize(T& value) {
  asm volatile("" : "+m,r"(value) : : "memory");
}

class State {
 public:
  State(uint64_t iterations, int64_t range) : iterations_(iterations), range_(range) {}

  // Counts down the steps; the time runs from the first to the last.
  struct End {};
  class Iterator {
   public:
    explicit Iterator(State& state) : state_(state), left_(state.iterations_) {}
    bool operator!=(End) {
      if (left_ != 0) [[likely]]
        return true;
      state_.PauseTiming();
      return false;
    }
    void operator++() { --left_; }
    struct [[maybe_unused]] Step {};
    Step operator*() const { return {}; }

   private:
    State& state_;
    uint64_t left_;
  };
  Iterator begin() {
    ResumeTiming();
    return Iterator(*this);
  }
  End end() { return {}; }

  uint64_t iterations() const { return iterations_; }
  int64_t range() const { return range_; }
  void PauseTiming() { nanoseconds_ += now() - started_; }
  void ResumeTiming() { started_ = now(); }
  void SetItemsProcessed(int64_t items) { items_ = items; }
  void SetIterationTime(double seconds) { manual_ += static_cast<int64_t>(seconds * 1e9); }
  std::map<std::string, double> counters;

  int64_t nanoseconds() const { return manual_ != 0 ? manual_ : nanoseconds_; }
  int64_t items() const { return items_; }

 private:
  // Of this thread's processor time.
  static int64_t now() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return int64_t{time.tv_sec} * 1000000000 + time.tv_nsec;
  }

  uint64_t iterations_;
  int64_t range_;
  int64_t started_ = 0;
  int64_t nanoseconds_ = 0;
  int64_t manual_ = 0;
  int64_t items_ = 0;
};

struct SmallSubject {
  std::string name;
  void (*measure)(State&);
  int64_t range;
  bool once;  // its time is for one step
};
void addSmall(SmallSubject subject);
// As the library's own: --benchmark_filter, _min_time, _repetitions, _out.
int runSmall(int argc, char** argv);

}  // namespace Bench
