#include "agent/LineSplitter.h"

namespace Agent {

bool LineSplitter::feed(std::string_view bytes) {
  while (!bytes.empty()) {
    const size_t end = bytes.find('\n');
    if (end == std::string_view::npos) {
      if (dropped_ != 0 || partial_.size() + bytes.size() > maxLineLength + 1) {
        dropped_ += partial_.size() + bytes.size();
        partial_.clear();
      } else {
        partial_ += bytes;
      }
      return true;
    }
    if (!give(bytes.substr(0, end))) return false;
    bytes.remove_prefix(end + 1);
  }
  return true;
}

bool LineSplitter::finish() { return (partial_.empty() && dropped_ == 0) || give({}); }

bool LineSplitter::give(std::string_view end) {
  ++number_;
  std::string_view line = end;
  if (!partial_.empty()) line = partial_ += end;
  if (line.ends_with('\r')) line.remove_suffix(1);
  const uint64_t length = dropped_ + line.size();
  const bool more = length > maxLineLength ? consumer_.lineTooLong(number_, length)
                                           : consumer_.line(number_, line);
  partial_.clear();
  dropped_ = 0;
  return more;
}

}  // namespace Agent
