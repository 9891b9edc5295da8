#include "Vane/rowBuffer.h"

#include <cstdlib>
#include <cstring>
#include <sstream>

#include "platform/Guard/Exception.h"
#include "platform/Vane/VaExceptions.h"

namespace Vane {
namespace {

[[noreturn]] void throwNoMemory(const char* call, len_t wanted) {
  std::ostringstream message;
  message << call << " failed requested length: " << wanted;
  Guard::MemoryResourceException::throwException(message.str());
}

[[noreturn]] void throwNoMemoryToResize(len_t length, uint32_t wanted) {
  std::ostringstream message;
  message << "realloc() failed. previous length: " << length << " requested new length: " << wanted;
  Guard::MemoryResourceException::throwException(message.str());
}

[[noreturn]] void throwTooLong(uint32_t wanted) {
  std::ostringstream message;
  message << "resizing row to len " << wanted << " bytes exceeds maximum row length of "
          << maxRowLength << " bytes";
  VaOutOfRange::throwException(message.str());
}

uint8_t* bytesOf(void* block) { return static_cast<uint8_t*>(block); }

}  // namespace

VaRowBuf::VaRowBuf(len_t len) : data_(bytesOf(std::calloc(len, 1))), length_(len) {
  if (data_ == nullptr && len != 0) throwNoMemory("calloc()", len);
}

VaRowBuf::VaRowBuf(const uint8_t* src, len_t len) : data_(bytesOf(std::malloc(len))), length_(len) {
  if (data_ == nullptr && len != 0) throwNoMemory("malloc()", len);
  if (len != 0) std::memcpy(data_, src, len);
}

VaRowBuf::~VaRowBuf() { std::free(data_); }

uint8_t* VaRowBuf::resize(uint32_t newLen) {
  if (newLen > maxRowLength) throwTooLong(newLen);
  uint8_t* const moved = bytesOf(std::realloc(data_, newLen));
  if (moved == nullptr && newLen != 0) throwNoMemoryToResize(length_, newLen);
  if (newLen > length_) std::memset(moved + length_, 0, newLen - length_);
  data_ = moved;
  length_ = static_cast<len_t>(newLen);
  return data_;
}

}  // namespace Vane
