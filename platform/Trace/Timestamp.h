// The moment of a log record.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <ctime>

namespace Trace {

struct Timestamp {
  int64_t microseconds = 0;  // since 1970, UTC

  static Timestamp now() {
    using namespace std::chrono;
    return {
        duration_cast<std::chrono::microseconds>(system_clock::now().time_since_epoch()).count()};
  }

  // "2026-11-21 09:45:44.000123", ended by a zero byte.
  std::array<char, 48> text() const {
    const auto seconds = static_cast<time_t>(microseconds / 1000000);
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    std::array<char, 48> out{};
    const size_t used = std::strftime(out.data(), out.size(), "%Y-%m-%d %H:%M:%S", &parts);
    std::snprintf(out.data() + used, out.size() - used, ".%06d",
                  static_cast<int>(microseconds % 1000000));
    return out;
  }
};

}  // namespace Trace
