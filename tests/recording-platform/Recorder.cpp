#include "tests/recording-platform/Recorder.h"

#include <utility>

namespace Recording {

Recorder& Recorder::instance() {
  static Recorder& recorder = *new Recorder;
  return recorder;
}

void Recorder::call(const std::string& text) {
  const bool fails = failAt_ == lines_.size();
  lines_.push_back(text);
  isCall_.push_back(true);
  if (fails) throw InjectedFailure(text);
}

void Recorder::event(const std::string& text) {
  lines_.push_back(text);
  isCall_.push_back(false);
}

void Recorder::reset() {
  if (!std::exchange(loaded_, true)) {
    loadLines_ = lines_;
    loadTraceHandles_ = traceHandles;
  }
  lines_.clear();
  isCall_.clear();
  failAt_.reset();
  argument = nullptr;
}

}  // namespace Recording
