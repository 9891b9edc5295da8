#include "torture/SharedTally.h"

#include <fmt/format.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <thread>

namespace Torture {

using std::chrono::steady_clock;

void* sharedMemory(size_t bytes) {
  void* memory = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::runtime_error("no memory to share with child processes");
  return memory;
}

void freeSharedMemory(void* memory, size_t bytes) { ::munmap(memory, bytes); }

void SharedTally::add(const Tally& other) {
  for (const auto what : {&Tally::rounds, &Tally::faults, &Tally::reads, &Tally::torn, &Tally::hung,
                          &Tally::lost, &Tally::leaked}) {
    add(what, other.*what);
  }
  for (const std::string& finding : other.findings) keep(finding);
}

void SharedTally::found(uint64_t Tally::*head, const std::string& what) {
  add(head);
  keep(what);
}

void SharedTally::keep(const std::string& what) {
  const uint32_t place = shared_->findings.fetch_add(1);
  if (place < findingsKept) what.copy(shared_->texts[place].data(), findingLength - 1);
}

Tally SharedTally::tally() const {
  Tally result = shared_->numbers;
  const size_t kept = std::min<size_t>(shared_->findings, findingsKept);
  for (size_t at = 0; at < kept; ++at) result.findings.emplace_back(shared_->texts[at].data());
  return result;
}

std::string ChildEnd::text() const {
  if (timedOut) return "did not end in time";
  if (WIFSIGNALED(status)) {
    return fmt::format("was killed by signal {} ({})", WTERMSIG(status),
                       ::strsignal(WTERMSIG(status)));
  }
  return fmt::format("ended with status {}", WEXITSTATUS(status));
}

void dieWithParent(pid_t parent) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != parent) ::_exit(99);
}

pid_t startChild(const std::function<int()>& body) {
  const pid_t parent = ::getpid();
  const pid_t child = ::fork();
  if (child < 0) throw std::runtime_error("cannot make a child process");
  if (child != 0) return child;
  dieWithParent(parent);
  int answer = 99;
  try {
    answer = body();
  } catch (const std::exception& error) {
    fmt::print(stderr, "torture: child {}: {}\n", ::getpid(), error.what());
  }
  ::_exit(answer);
}

ChildEnd endOfChild(pid_t child, std::chrono::seconds limit) {
  const auto until = steady_clock::now() + limit;
  ChildEnd end;
  while (::waitpid(child, &end.status, WNOHANG) == 0) {
    if (steady_clock::now() >= until) {
      end.timedOut = true;
      ::kill(child, SIGKILL);
      ::waitpid(child, &end.status, 0);
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return end;
}

PrivateDirectory::PrivateDirectory(const std::string& parent) : maker_(::getpid()) {
  std::string name = fmt::format("{}/torture-{}-XXXXXX", parent, maker_);
  if (::mkdtemp(name.data()) == nullptr) {
    throw std::runtime_error(
        fmt::format("cannot make a directory in {}: {}", parent, std::strerror(errno)));
  }
  path_ = name;
}

PrivateDirectory::~PrivateDirectory() {
  std::error_code ignored;
  if (::getpid() == maker_) std::filesystem::remove_all(path_, ignored);
}

}  // namespace Torture
