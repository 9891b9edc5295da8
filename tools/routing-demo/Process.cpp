#include "tools/routing-demo/Process.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <system_error>
#include <utility>

namespace Demo {
namespace {

volatile std::sig_atomic_t interruptSeen = 0;

void noteInterrupt(int) { interruptSeen = 1; }

[[noreturn]] void throwErrno(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

void closeFd(int& fd) {
  if (fd >= 0) ::close(std::exchange(fd, -1));
}

// In the child, after fork: only calls that are safe there.
[[noreturn]] void become(char* const* arguments, int input, int output, pid_t parent) {
  ::setpgid(0, 0);
  ::prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (::getppid() != parent) ::_exit(1);  // it died before the line above
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  ::signal(SIGPIPE, SIG_DFL);
  ::dup2(input, STDIN_FILENO);
  ::dup2(output, STDOUT_FILENO);
  ::execv(arguments[0], arguments);
  constexpr std::string_view failure = "routing-demo: cannot run the program\n";
  static_cast<void>(!::write(STDERR_FILENO, failure.data(), failure.size()));
  ::_exit(127);
}

}  // namespace

void catchInterrupts() {
  struct sigaction action = {};
  action.sa_handler = noteInterrupt;  // without SA_RESTART: a wait ends
  ::sigaction(SIGINT, &action, nullptr);
  ::sigaction(SIGTERM, &action, nullptr);
  ::signal(SIGPIPE, SIG_IGN);
}

bool interrupted() { return interruptSeen != 0; }

Process::Process(std::string name, const std::vector<std::string>& arguments)
    : name_(std::move(name)) {
  int toChild[2];
  int fromChild[2];
  if (::pipe2(toChild, O_CLOEXEC) != 0) throwErrno("pipe");
  if (::pipe2(fromChild, O_CLOEXEC) != 0) throwErrno("pipe");
  std::vector<char*> argv;
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  const pid_t parent = ::getpid();
  pid_ = ::fork();
  if (pid_ == 0) become(argv.data(), toChild[0], fromChild[1], parent);
  ::close(toChild[0]);
  ::close(fromChild[1]);
  input_ = toChild[1];
  output_ = fromChild[0];
  if (pid_ < 0) throwErrno("fork");
}

Process::~Process() {
  closeFd(input_);
  closeFd(output_);
  if (!ended_) ::kill(pid_, SIGTERM);
  constexpr timespec aWhile{0, 10'000'000};
  for (int i = 0; i < 500 && !ended_; ++i) {
    ended_ = ::waitpid(pid_, &status_, WNOHANG) != 0;
    if (!ended_) ::nanosleep(&aWhile, nullptr);
  }
  if (!ended_) ::kill(pid_, SIGKILL);
  wait();
}

void Process::write(std::string_view bytes) {
  while (!bytes.empty()) {
    if (interrupted()) throw Interrupted();
    const ssize_t count = ::write(input_, bytes.data(), bytes.size());
    if (count >= 0) {
      bytes.remove_prefix(static_cast<size_t>(count));
    } else if (errno != EINTR) {
      throwEnded();
    }
  }
}

std::string Process::readLine() {
  for (;;) {
    if (const size_t end = unread_.find('\n'); end != std::string::npos) {
      std::string line = unread_.substr(0, end);
      unread_.erase(0, end + 1);
      return line;
    }
    if (interrupted()) throw Interrupted();
    char piece[65536];
    const ssize_t count = ::read(output_, piece, sizeof piece);
    if (count > 0) {
      unread_.append(piece, static_cast<size_t>(count));
    } else if (count == 0 || errno != EINTR) {
      throwEnded();
    }
  }
}

void Process::closeInput() { closeFd(input_); }

int Process::end(int signal) {
  if (!ended_) ::kill(pid_, signal);
  return wait();
}

bool Process::waitUntilEndOrInterrupt() {
  sigset_t wanted;
  sigset_t before;
  sigemptyset(&wanted);
  for (const int signal : {SIGINT, SIGTERM, SIGCHLD}) sigaddset(&wanted, signal);
  ::sigprocmask(SIG_BLOCK, &wanted, &before);
  bool ended = false;
  while (!interrupted() && !ended) {
    ended = ::waitpid(pid_, &status_, WNOHANG) == pid_;
    if (ended || interrupted()) break;
    const int signal = ::sigwaitinfo(&wanted, nullptr);
    if (signal == SIGINT || signal == SIGTERM) noteInterrupt(signal);
  }
  ended_ = ended_ || ended;
  ::sigprocmask(SIG_SETMASK, &before, nullptr);
  return ended;
}

int Process::wait() {
  while (!ended_) {
    const pid_t got = ::waitpid(pid_, &status_, 0);
    ended_ = got == pid_ || (got < 0 && errno != EINTR);
  }
  return status_;
}

void Process::throwEnded() {
  // Its pipe is gone; the child itself follows, or has closed the pipe and would never answer.
  throw ChildEnded(fmt::format("{} has ended: {}", name_, described(end(SIGTERM))));
}

std::string Process::described(int waitStatus) {
  if (WIFSIGNALED(waitStatus)) {
    const int signal = WTERMSIG(waitStatus);
    return fmt::format("killed by signal {} ({})", signal, sigabbrev_np(signal));
  }
  return fmt::format("exit status {}", WEXITSTATUS(waitStatus));
}

std::string siblingProgram(const std::string& name) {
  return (std::filesystem::read_symlink("/proc/self/exe").parent_path() / name).string();
}

}  // namespace Demo
