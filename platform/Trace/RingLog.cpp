#include <algorithm>
#include <mutex>
#include <ostream>

#include "platform/Trace/Timestamp.h"
#include "platform/Trace/Trace.h"

namespace RingLog {
namespace {

// Text in a record: cut off at its end when it does not fit.
template <size_t Capacity>
class Text {
 public:
  void operator=(std::string_view text) {
    size_ = static_cast<uint8_t>(std::min(text.size(), Capacity));
    text.copy(bytes_.data(), size_);
  }
  operator std::string_view() const { return {bytes_.data(), size_}; }

 private:
  static_assert(Capacity < 256);
  std::array<char, Capacity> bytes_{};
  uint8_t size_ = 0;
};

// All texts are copies: the library that logged may be gone when they are read.
struct Record {
  Trace::Timestamp time;
  int64_t value = 0;
  int32_t line = 0;
  bool hasValue = false;
  Text<pathCapacity> path;
  Text<formatCapacity> format;
};

// Of static storage without a constructor or destructor to run, so that logging works at any time
// and takes no memory.
struct Ring {
  std::mutex mutex;
  uint64_t logged = 0;  // messages ever; message n lies in record n % capacity
  std::array<Record, capacity> records;
};
constinit Ring ring;

bool copyOut(uint64_t number, Record& record) {
  const std::lock_guard lock(ring.mutex);
  if (number + capacity < ring.logged) return false;  // overwritten meanwhile
  record = ring.records[number % capacity];
  return true;
}

void print(std::ostream& out, const Record& record) {
  out << record.time.text().data() << ' ' << std::string_view(record.path) << ':' << record.line
      << ' ';
  const std::string_view format = record.format;
  const size_t place = record.hasValue ? format.find("%s") : format.npos;
  out << format.substr(0, place);
  if (place != format.npos) out << record.value << format.substr(place + 2);
  out << '\n';
}

}  // namespace

void log(Trace::Location where, std::string_view format, std::string_view arguments,
         int64_t value) {
  const std::lock_guard lock(ring.mutex);
  Record& record = ring.records[ring.logged++ % capacity];
  record.time = Trace::Timestamp::now();
  record.value = value;
  record.line = where.line;
  record.hasValue = arguments.starts_with('i');
  record.path = where.path;
  record.format = format;
}

void dump(std::ostream& out) {
  uint64_t end;
  {
    const std::lock_guard lock(ring.mutex);
    end = ring.logged;
  }
  Record record;
  for (uint64_t number = end - std::min<uint64_t>(end, capacity); number < end; ++number) {
    if (copyOut(number, record)) print(out, record);
  }
}

}  // namespace RingLog
