// Applies an input line by line; reports each line that cannot be used and goes on.
#pragma once

#include <exception>
#include <string>
#include <string_view>

#include "agent/LineSplitter.h"
#include "agent/Log.h"

namespace Agent {

struct LoadCounts {
  uint64_t ok = 0;      // rows applied
  uint64_t failed = 0;  // lines refused
};

class LineLoader : public LineConsumer {
 public:
  // `strict`: a refused line ends the input.
  LineLoader(std::string inputName, bool strict, LoadCounts& counts)
      : inputName_(std::move(inputName)), strict_(strict), counts_(counts) {}

  bool line(uint64_t number, std::string_view text) final {
    if (isBlank(text)) return true;
    try {
      if (apply(text)) ++counts_.ok;
      return true;
    } catch (const std::exception& refusal) {
      return refuse(number, refusal.what());
    }
  }

  bool lineTooLong(uint64_t number, uint64_t length) final {
    return refuse(number, fmt::format("expected at most {} bytes, found {}",
                                      LineSplitter::maxLineLength, length));
  }

 protected:
  // Whether the line was a row (or a clear), not a comment or a sync. Throws anything for a line
  // that cannot be applied.
  virtual bool apply(std::string_view text) = 0;

 private:
  static bool isBlank(std::string_view text) {
    return text.find_first_not_of(" \t") == std::string_view::npos;
  }
  bool refuse(uint64_t number, std::string_view cause) {
    ++counts_.failed;
    Log::error("lineRefused", {{"input", inputName_}, {"line", number}}, "{}: line {}: {}",
               inputName_, number, cause);
    return !strict_;
  }

  std::string inputName_;
  bool strict_;
  LoadCounts& counts_;
};

}  // namespace Agent
