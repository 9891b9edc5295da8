// A child process with pipes to its standard input and output.
#pragma once

#include <sys/types.h>

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Demo {

// Ctrl-C or SIGTERM arrived while the demo waited.
class Interrupted final : public std::exception {
 public:
  const char* what() const noexcept override { return "interrupted"; }
};

// Turns SIGINT and SIGTERM into Interrupted at the next wait; SIGPIPE is ignored.
void catchInterrupts();
bool interrupted();

// A child that ended when it should not have. The text says how.
class ChildEnded final : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class Process {
 public:
  // Starts the program. The child has a process group of its own, so that a terminal's Ctrl-C
  // reaches only its parent, and is killed when its parent dies. Throws std::system_error.
  Process(std::string name, const std::vector<std::string>& arguments);
  // Asks a child that still runs to end, and kills it if it takes too long.
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  const std::string& name() const { return name_; }
  pid_t pid() const { return pid_; }

  // Throw ChildEnded when the child is gone, Interrupted on a signal.
  void write(std::string_view bytes);
  std::string readLine();

  void closeInput();
  // Asks the child to end and waits; the wait status. Nothing is sent to a child that has ended.
  int end(int signal);
  // Sleeps until the child ends (true) or an interrupt arrives (false).
  bool waitUntilEndOrInterrupt();
  // "exit status 1", "killed by signal 9 (KILL)".
  static std::string described(int waitStatus);

 private:
  [[noreturn]] void throwEnded();
  int wait();

  std::string name_;
  pid_t pid_ = -1;
  int input_ = -1;   // our end of the child's standard input
  int output_ = -1;  // our end of its standard output
  int status_ = 0;   // wait status, once ended_
  bool ended_ = false;
  std::string unread_;
};

// A program that lies beside this one.
std::string siblingProgram(const std::string& name);

}  // namespace Demo
