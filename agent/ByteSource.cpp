#include "agent/ByteSource.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace Agent {
namespace {

constexpr int gzipWindow = 15 + 16;  // the largest window, gzip's header

[[noreturn]] void throwInput(const std::string& name, std::string_view cause) {
  InputException::throwException(fmt::format("{}: {}", name, cause));
}

}  // namespace

ByteSource::ByteSource(const std::string& name)
    : name_(name == "-" ? "standard input" : name), buffer_(pieceLength) {
  if (name == "-") {
    fd_ = STDIN_FILENO;
    return;
  }
  owned_ = Descriptor(::open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  fd_ = owned_.get();
  if (fd_ < 0) throwInput(name_, std::strerror(errno));
}

ByteSource::~ByteSource() {
  if (inflater_) inflateEnd(inflater_.get());
}

bool ByteSource::read(std::string& out) {
  out.clear();
  if (!hasPending() && !ended_) fill();
  if (!detected_) detectGzip();
  if (!detected_) return true;
  if (inflater_) {
    inflateInto(out);
  } else {
    out.assign(reinterpret_cast<const char*>(buffer_.data()) + begin_, end_ - begin_);
    begin_ = end_ = 0;
  }
  return !ended_ || hasPending() || !out.empty();
}

void ByteSource::fill() {
  const ssize_t count = ::read(fd_, buffer_.data() + end_, buffer_.size() - end_);
  if (count < 0) {
    if (errno == EAGAIN || errno == EINTR) return;
    throwInput(name_, std::strerror(errno));
  }
  ended_ = count == 0;
  end_ += static_cast<size_t>(count);
  if (ended_ && memberOpen_) throwInput(name_, "ends in the middle of its gzip data");
}

void ByteSource::detectGzip() {
  const size_t have = end_ - begin_;
  if (have < 2 && !ended_ && !(have == 1 && buffer_[begin_] != 0x1F)) return;
  detected_ = true;
  if (have < 2 || buffer_[begin_] != 0x1F || buffer_[begin_ + 1] != 0x8B) return;
  inflater_ = std::make_unique<z_stream>();
  if (inflateInit2(inflater_.get(), gzipWindow) != Z_OK)
    throwInput(name_, "no memory to unpack it");
  memberOpen_ = true;
}

void ByteSource::inflateInto(std::string& out) {
  out.resize(pieceLength);
  inflater_->next_out = reinterpret_cast<Bytef*>(out.data());
  inflater_->avail_out = static_cast<uInt>(out.size());
  inflater_->next_in = buffer_.data() + begin_;
  inflater_->avail_in = static_cast<uInt>(end_ - begin_);
  while (inflater_->avail_in != 0 || outputWasFull_) {
    outputWasFull_ = false;
    // A file may hold several members, one after the other.
    if (!memberOpen_) inflateReset(inflater_.get());
    memberOpen_ = true;
    const int result = inflate(inflater_.get(), Z_NO_FLUSH);
    if (result == Z_STREAM_END) {
      memberOpen_ = false;
    } else if (result != Z_OK && result != Z_BUF_ERROR) {
      throwInput(name_, fmt::format("not gzip data: {}",
                                    inflater_->msg ? inflater_->msg : "unknown cause"));
    }
    if (inflater_->avail_out == 0) {
      outputWasFull_ = memberOpen_;
      break;
    }
    if (result == Z_BUF_ERROR) break;
  }
  out.resize(out.size() - inflater_->avail_out);
  begin_ = end_ - inflater_->avail_in;
  if (begin_ == end_) begin_ = end_ = 0;
}

}  // namespace Agent
