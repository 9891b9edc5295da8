#include "agent/EventLoop.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>

namespace Agent {
namespace {

Descriptor opened(int fd, const char* what) {
  if (fd < 0) throw std::system_error(errno, std::generic_category(), what);
  return Descriptor(fd);
}

sigset_t endingSignals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  return set;
}

}  // namespace

Descriptor::~Descriptor() {
  if (fd_ >= 0) ::close(fd_);
}

EventLoop::EventLoop() {
  std::signal(SIGPIPE, SIG_IGN);
  const sigset_t ending = endingSignals();
  ::pthread_sigmask(SIG_BLOCK, &ending, nullptr);
  epoll_ = opened(::epoll_create1(EPOLL_CLOEXEC), "epoll_create1");
  signals_ = opened(::signalfd(-1, &ending, SFD_CLOEXEC | SFD_NONBLOCK), "signalfd");
  wake_ = opened(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd");
  watch(signals_.get(), [this] {
    signalfd_siginfo info;
    if (::read(signals_.get(), &info, sizeof info) == sizeof info) {
      signal_ = static_cast<int>(info.ssi_signo);
    }
  });
  watch(wake_.get(), [this] {
    uint64_t count;
    if (::read(wake_.get(), &count, sizeof count) == sizeof count) runPosted();
  });
}

void EventLoop::post(std::function<void()> work) {
  const std::lock_guard lock(mutex_);
  posted_.push_back(std::move(work));
  if (posted_.size() > 1) return;  // awake already
  const uint64_t one = 1;
  // Cannot fail: the counter is far from its end.
  static_cast<void>(!::write(wake_.get(), &one, sizeof one));
}

bool EventLoop::watch(int fd, std::function<void()> onReadable) {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.fd = fd;
  if (::epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, fd, &event) != 0) {
    if (errno == EPERM) return false;
    throw std::system_error(errno, std::generic_category(), "epoll_ctl");
  }
  watched_[fd] = std::move(onReadable);
  return true;
}

void EventLoop::unwatch(int fd) {
  if (watched_.erase(fd) != 0) ::epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, fd, nullptr);
}

int EventLoop::run() {
  while (!stopped_ && signal_ == 0) wait();
  return signal_;
}

void EventLoop::runPosted() {
  std::vector<std::function<void()>> ready;
  {
    const std::lock_guard lock(mutex_);
    ready.swap(posted_);
  }
  for (const auto& work : ready) work();
}

void EventLoop::wait() {
  std::array<epoll_event, 8> events;
  const int count = ::epoll_wait(epoll_.get(), events.data(), events.size(), -1);
  if (count < 0 && errno != EINTR) {
    throw std::system_error(errno, std::generic_category(), "epoll_wait");
  }
  for (int i = 0; i < count; ++i) {
    // An earlier event of this round may have ended this watch.
    const auto found = watched_.find(events[i].data.fd);
    if (found == watched_.end()) continue;
    const auto onReadable = found->second;
    onReadable();
  }
}

}  // namespace Agent
