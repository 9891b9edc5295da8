#include "Vane/rowBuffer.h"

#include <sstream>

#include "platform/Guard/Exception.h"
#include "platform/Vane/VaExceptions.h"

namespace Vane {
namespace {

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

}  // namespace

void VaRowBuf::throwNoMemory(const char* call, len_t wanted) {
  std::ostringstream message;
  message << call << " failed requested length: " << wanted;
  Guard::MemoryResourceException::throwException(message.str());
}

uint8_t* VaRowBuf::resize(uint32_t newLen) {
  if (newLen > maxRowLength) throwTooLong(newLen);
  auto* const moved = static_cast<uint8_t*>(std::realloc(data_, newLen));
  if (moved == nullptr && newLen != 0) throwNoMemoryToResize(length_, newLen);
  if (newLen > length_) std::memset(moved + length_, 0, newLen - length_);
  data_ = moved;
  length_ = static_cast<len_t>(newLen);
  return data_;
}

}  // namespace Vane
