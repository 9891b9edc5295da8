#include "bench/Processes.h"

#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <exception>
#include <iostream>
#include <new>
#include <system_error>

namespace Bench {

Child::Child(const std::function<void(SharedWords&)>& run) {
  void* const memory = ::mmap(nullptr, sizeof(SharedWords), PROT_READ | PROT_WRITE,
                              MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "mmap");
  words_ = new (memory) SharedWords{};
  pid_ = ::fork();
  if (pid_ < 0) throw std::system_error(errno, std::generic_category(), "fork");
  if (pid_ != 0) return;
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  int status = 0;
  try {
    run(*words_);
  } catch (const std::exception& failure) {
    std::cerr << "benchmarks: in a child: " << failure.what() << std::endl;
    status = 1;
  }
  ::_exit(status);
}

Child::~Child() {
  if (pid_ > 0) {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
  ::munmap(words_, sizeof *words_);
}

void Child::join() {
  int status = -1;
  ::waitpid(pid_, &status, 0);
  pid_ = -1;
  check(status == 0, "a child that ends in order");
}

void Child::await(const std::atomic<uint64_t>& word, uint64_t value) {
  constexpr uint64_t looksBetweenChecks = 1 << 16;
  for (uint64_t looks = 1; word.load() < value; ++looks) {
    if (looks % looksBetweenChecks == 0) checkAlive();
  }
}

void Child::checkAlive() {
  int status = 0;
  if (::waitpid(pid_, &status, WNOHANG) != pid_) return;
  pid_ = -1;
  check(false, "a child that goes on until it is told to end");
}

void sleepFor(uint64_t nanoseconds) {
  const timespec span{0, static_cast<long>(nanoseconds)};
  ::nanosleep(&span, nullptr);
}

}  // namespace Bench
