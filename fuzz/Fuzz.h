// What the fuzz targets are written with: an input taken apart, and what ends the process.
//
// A target is one function, LLVMFuzzerTestOneInput. It is run by libFuzzer, which makes up inputs
// and is told by a dying process that it has found something; and by replay.cpp over the inputs
// that are kept in corpus/<target>/. What an operation may refuse, the target says by the
// exception's class; any other exception ends the process, as does whatever a sanitizer finds.
#pragma once

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace Fuzz {

[[noreturn]] inline void fail(std::string_view what, const char* file = __builtin_FILE(),
                              int line = __builtin_LINE()) {
  std::fprintf(stderr, "%s:%d: %.*s\n", file, line, static_cast<int>(what.size()), what.data());
  std::abort();
}

// `what` says what holds if all is well.
inline void need(bool holds, std::string_view what, const char* file = __builtin_FILE(),
                 int line = __builtin_LINE()) {
  if (!holds) [[unlikely]]
    fail(what, file, line);
}

// Whether the action refuses with one of these exceptions.
template <class... Refusals>
bool isRefused(const auto& action) {
  try {
    action();
    return false;
  } catch (const std::exception& failure) {
    if (((dynamic_cast<const Refusals*>(&failure) != nullptr) || ...)) return true;
    throw;
  }
}

// Bytes taken from the front; zeros when they are used up.
class Input {
 public:
  Input(const uint8_t* data, size_t size) : left_(data, size) {}

  bool isEmpty() const { return left_.empty(); }
  size_t size() const { return left_.size(); }

  template <std::integral T>
  T take() {
    uint64_t value = 0;
    for (size_t i = 0; i < sizeof(T); ++i) value |= uint64_t{byte()} << 8 * i;
    return static_cast<T>(value);
  }
  // 0 to bound - 1.
  uint32_t below(uint32_t bound) {
    const uint32_t taken = bound <= 256 ? byte() : take<uint16_t>();
    return taken % bound;
  }
  std::span<const uint8_t> bytes(size_t most) {
    const auto taken = left_.first(std::min(most, left_.size()));
    left_ = left_.subspan(taken.size());
    return taken;
  }
  std::string text(size_t most) {
    const auto taken = bytes(most);
    return {taken.begin(), taken.end()};
  }
  std::span<const uint8_t> rest() { return bytes(left_.size()); }

 private:
  uint8_t byte() {
    const auto taken = bytes(1);
    return taken.empty() ? 0 : taken[0];
  }

  std::span<const uint8_t> left_;
};

}  // namespace Fuzz
