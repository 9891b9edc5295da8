// The owner of a row's bytes: one block from the C allocator, exactly as long as was asked for.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace Vane {

// Every row length, column offset and fixed-data length, in bytes.
using len_t = uint16_t;

inline constexpr len_t maxRowLength = 65535;  // of a row and of a buffer
inline constexpr len_t va_contentOffset = 4;  // the first byte after a row's header

// Always held through std::shared_ptr: its use count is what copy-on-write reads.
class VaRowBuf {
 public:
  // Zero-filled.
  explicit VaRowBuf(len_t len) : data_(static_cast<uint8_t*>(std::calloc(len, 1))), length_(len) {
    if (data_ == nullptr && len != 0) [[unlikely]]
      throwNoMemory("calloc()", len);
  }
  // A copy of `len` bytes at `src`.
  VaRowBuf(const uint8_t* src, len_t len)
      : data_(static_cast<uint8_t*>(std::malloc(len))), length_(len) {
    if (data_ == nullptr && len != 0) [[unlikely]]
      throwNoMemory("malloc()", len);
    if (len != 0) std::memcpy(data_, src, len);
  }
  VaRowBuf(const VaRowBuf&) = delete;
  VaRowBuf& operator=(const VaRowBuf&) = delete;
  ~VaRowBuf() { std::free(data_); }

  uint8_t* data() { return data_; }
  const uint8_t* data() const { return data_; }
  // The capacity; a row may use less of it.
  len_t length() const { return length_; }

  // Makes the capacity exactly `newLen`, keeps the leading bytes and zeroes the new ones; returns
  // the new data(). 32 bits wide, so that a length that no buffer can have is recognised. On an
  // exception the buffer is as it was.
  uint8_t* resize(uint32_t newLen);

 private:
  [[noreturn]] static void throwNoMemory(const char* call, len_t wanted);

  uint8_t* data_;
  len_t length_;
};

}  // namespace Vane
