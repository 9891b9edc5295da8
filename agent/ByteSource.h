// The bytes of an input, read in bounded pieces and unpacked if they are gzip's.
#pragma once

#include <zlib.h>

#include <memory>
#include <string>
#include <vector>

#include "agent/EventLoop.h"
#include "platform/Guard/Exception.h"

namespace Agent {

// An input that cannot be opened, read or unpacked. The text names it and the cause.
class InputException final : public Guard::Throwable<InputException> {
 public:
  using Throwable::Throwable;
};

class ByteSource {
 public:
  // "-" is standard input. Throws InputException.
  explicit ByteSource(const std::string& name);
  ByteSource(const ByteSource&) = delete;
  ByteSource& operator=(const ByteSource&) = delete;
  ~ByteSource();

  // Puts the next bytes, at most pieceLength of them, into `out`; possibly none. Makes at most one
  // read(2), and none while hasPending(). False: the input has ended and `out` is empty.
  bool read(std::string& out);
  // There are bytes that were read but not given out yet.
  bool hasPending() const { return detected_ && (begin_ != end_ || outputWasFull_); }
  int fd() const { return fd_; }
  const std::string& name() const { return name_; }

  static constexpr size_t pieceLength = 256 * 1024;

 private:
  void fill();
  void detectGzip();
  void inflateInto(std::string& out);

  std::string name_;
  Descriptor owned_;
  int fd_ = -1;
  std::vector<unsigned char> buffer_;
  size_t begin_ = 0;  // of what has not been given out yet
  size_t end_ = 0;
  bool ended_ = false;
  bool detected_ = false;  // whether the input is gzip's is known
  std::unique_ptr<z_stream> inflater_;
  bool memberOpen_ = false;     // inside a gzip member: the input must not end here
  bool outputWasFull_ = false;  // the inflater may hold more
};

}  // namespace Agent
