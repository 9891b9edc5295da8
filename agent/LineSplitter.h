// Cuts a stream of bytes into lines.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Agent {

// Is given an input line by line.
class LineConsumer {
 public:
  virtual ~LineConsumer() = default;
  // One line without its end. Numbers count from 1. False: no more is wanted of this input.
  virtual bool line(uint64_t number, std::string_view text) = 0;
  // A line above maxLineLength, whose bytes were dropped.
  virtual bool lineTooLong(uint64_t number, uint64_t length) = 0;
};

class LineSplitter {
 public:
  static constexpr size_t maxLineLength = 1024 * 1024;  // bytes, without the line's end

  explicit LineSplitter(LineConsumer& consumer) : consumer_(consumer) {}

  // Both answer whether the consumer wants more.
  bool feed(std::string_view bytes);
  // The input has ended; its last line may lack an end.
  bool finish();

 private:
  bool give(std::string_view end);

  LineConsumer& consumer_;
  std::string partial_;   // the start of the line that has not ended yet
  uint64_t dropped_ = 0;  // bytes of an overlong line so far; 0: the line is not overlong
  uint64_t number_ = 0;
};

}  // namespace Agent
