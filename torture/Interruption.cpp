#include "torture/Interruption.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace Torture {

namespace {

volatile sig_atomic_t noted = 0;

// The process in the name of a PrivateDirectory, or 0 if it is the name of something else.
pid_t makerOf(const std::string& name) {
  constexpr std::string_view prefix = "torture-";
  if (!name.starts_with(prefix)) return 0;
  pid_t maker = 0;
  const char* end = name.data() + name.size();
  const auto number = std::from_chars(name.data() + prefix.size(), end, maker);
  return number.ec == std::errc() && number.ptr != end && *number.ptr == '-' ? maker : 0;
}

// Also if its parent has not taken note of it yet: then it has a number, but no program any more.
bool isDead(pid_t process) {
  char program;
  const std::string link = "/proc/" + std::to_string(process) + "/exe";
  return ::readlink(link.c_str(), &program, 1) < 0 && errno == ENOENT;
}

template <class Condition>
size_t removeDirectories(Condition&& isToGo) {
  namespace fs = std::filesystem;
  std::vector<fs::path> chosen;
  for (const auto& entry : fs::directory_iterator("/dev/shm")) {
    const pid_t maker = makerOf(entry.path().filename());
    if (maker > 0 && isToGo(maker)) chosen.push_back(entry.path());
  }
  std::error_code ignored;
  for (const fs::path& path : chosen) fs::remove_all(path, ignored);
  return chosen.size();
}

// Whoever loses its parent becomes this process's child, so that none is missed.
void endDescendants(pid_t campaign) {
  ::prctl(PR_SET_CHILD_SUBREAPER, 1);
  ::kill(-campaign, SIGKILL);
  while (::waitpid(-1, nullptr, 0) > 0 || errno == EINTR) {
  }
}

}  // namespace

void noteSignals() {
  struct sigaction note {};
  note.sa_handler = [](int signal) { noted = signal; };
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction before {};
    ::sigaction(signal, nullptr, &before);
    if (before.sa_handler != SIG_IGN) ::sigaction(signal, &note, nullptr);
  }
}

void endIfAsked(pid_t campaign) {
  if (noted == 0) return;
  endDescendants(campaign);
  removeDirectoriesOfTheDead();
  ::signal(noted, SIG_DFL);
  ::raise(noted);
}

size_t removeDirectoriesOf(pid_t process) {
  return removeDirectories([&](pid_t maker) { return maker == process; });
}

size_t removeDirectoriesOfTheDead() { return removeDirectories(isDead); }

}  // namespace Torture
