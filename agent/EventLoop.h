// The agent's one thread: waits for input, signals and posted work, and runs one piece at a time.
//
// Work that takes long is cut into pieces that post the next one, so that signals are seen between
// them.
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

namespace Agent {

// An open descriptor, closed with its owner. -1: none.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~Descriptor();
  int get() const { return fd_; }

 private:
  int fd_ = -1;
};

class EventLoop {
 public:
  // SIGINT and SIGTERM are blocked from here on and arrive through the loop; SIGPIPE is ignored.
  EventLoop();

  // Runs `work` later, after the present piece of work and those posted before it. From any thread.
  void post(std::function<void()> work);
  // Calls `onReadable` whenever the descriptor has bytes or its end to read. False for a descriptor
  // that is always readable (a regular file) and so cannot be waited for.
  bool watch(int fd, std::function<void()> onReadable);
  void unwatch(int fd);

  // Runs until stop(), or a signal. Returns the signal's number, 0 for stop().
  int run();
  void stop() { stopped_ = true; }

 private:
  void runPosted();
  void wait();

  Descriptor epoll_;
  Descriptor signals_;
  Descriptor wake_;  // readable: there is posted work
  std::map<int, std::function<void()>> watched_;
  std::mutex mutex_;  // guards posted_
  std::vector<std::function<void()>> posted_;
  int signal_ = 0;
  bool stopped_ = false;
};

}  // namespace Agent
