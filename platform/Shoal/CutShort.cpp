#include "platform/Shoal/CutShort.h"

#include <unistd.h>

#include <csignal>
#include <cstring>

#include "platform/Shoal/SharedTable.h"

namespace Shoal {
namespace {

const char* attachedProgram = "";
int statusAtEnd = 0;

// Only what a signal handler may call.
void write(const char* text) {
  // Nobody is left to tell that this could not be written.
  [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, text, std::strlen(text));
}

// What is not a table cut short is left to the signal's own way: it comes again at once.
extern "C" void onBusError(int, siginfo_t* info, void*) {
  const char* table = tableAtAddress(info->si_addr);
  if (table == nullptr) {
    std::signal(SIGBUS, SIG_DFL);
    return;
  }
  write(attachedProgram);
  write(": shared table \"");
  write(table);
  write("\": its file was cut short while it was attached\n");
  ::_exit(statusAtEnd);
}

}  // namespace

void endWhenCutShort(const char* program, int status) {
  attachedProgram = program;
  statusAtEnd = status;
  struct sigaction action {};
  action.sa_sigaction = onBusError;
  action.sa_flags = SA_SIGINFO;
  ::sigaction(SIGBUS, &action, nullptr);
}

}  // namespace Shoal
