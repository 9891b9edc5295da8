#include "tests/e2e/Programs.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace E2e {
namespace {

void closeFd(int& fd) {
  if (fd >= 0) ::close(fd);
  fd = -1;
}

}  // namespace

std::string program(const std::string& name) { return std::string(ROUTING_BIN_DIR) + "/" + name; }

Child::Child(const std::vector<std::string>& arguments)
    : deadline_(std::chrono::steady_clock::now() + std::chrono::minutes(1)) {
  std::signal(SIGPIPE, SIG_IGN);
  int in[2];
  int out[2];
  int err[2];
  if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0) {
    throw std::runtime_error("pipe");
  }
  std::vector<char*> argv;
  for (const auto& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  pid_ = ::fork();
  if (pid_ == 0) {
    ::dup2(in[0], 0);
    ::dup2(out[1], 1);
    ::dup2(err[1], 2);
    ::execv(argv[0], argv.data());
    ::_exit(127);
  }
  for (int fd : {in[0], out[1], err[1]}) ::close(fd);
  input_ = in[1];
  streams_[0] = out[0];
  streams_[1] = err[0];
}

Child::~Child() {
  closeFd(input_);
  for (int& fd : streams_) closeFd(fd);
  if (pid_ < 0) return;
  ::kill(pid_, SIGKILL);
  ::waitpid(pid_, nullptr, 0);
}

bool Child::write(const std::string& text) {
  for (size_t at = 0; at < text.size();) {
    const ssize_t count = ::write(input_, text.data() + at, text.size() - at);
    if (count < 0) return false;
    at += static_cast<size_t>(count);
  }
  return true;
}

void Child::closeInput() { closeFd(input_); }

void Child::signal(int number) { ::kill(pid_, number); }

bool Child::take() {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
      deadline_ - std::chrono::steady_clock::now());
  pollfd waits[2] = {{streams_[0], POLLIN, 0}, {streams_[1], POLLIN, 0}};
  if (streams_[0] < 0 && streams_[1] < 0) return false;
  if (left.count() <= 0 || ::poll(waits, 2, static_cast<int>(left.count())) <= 0) {
    throw std::runtime_error("no answer within a minute; so far: " + read_[0] + read_[1]);
  }
  for (int i = 0; i < 2; ++i) {
    if (waits[i].revents == 0) continue;
    char piece[65536];
    const ssize_t count = ::read(streams_[i], piece, sizeof piece);
    if (count > 0) {
      read_[i].append(piece, static_cast<size_t>(count));
    } else {
      closeFd(streams_[i]);
    }
  }
  return true;
}

const std::string& Child::waitFor(int stream, const std::string& text) {
  while (read_[stream].find(text) == std::string::npos) {
    if (!take()) {
      throw std::runtime_error("it ended without saying \"" + text + "\"; it said: " + read_[0] +
                               read_[1]);
    }
  }
  return read_[stream];
}

std::string Child::readLine() {
  for (;;) {
    const size_t end = read_[0].find('\n', linesRead_);
    if (end != std::string::npos) {
      std::string line = read_[0].substr(linesRead_, end - linesRead_);
      linesRead_ = end + 1;
      return line;
    }
    if (!take()) throw std::runtime_error("it ended; it said: " + read_[0] + read_[1]);
  }
}

Child::Result Child::wait() {
  closeInput();
  while (take()) {
  }
  int status = 0;
  ::waitpid(pid_, &status, 0);
  pid_ = -1;
  return {WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status), read_[0], read_[1]};
}

Child::Result run(const std::vector<std::string>& arguments, const std::string& input) {
  Child child(arguments);
  child.write(input);
  return child.wait();
}

Scratch::Scratch() {
  std::string name = "/dev/shm/routing-e2e-XXXXXX";
  if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error(name);
  path_ = name;
}

Scratch::~Scratch() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string Scratch::file(const std::string& name, const std::string& content) const {
  std::ofstream(path_ / name, std::ios::binary) << content;
  return (path_ / name).string();
}

std::string Scratch::gzipFile(const std::string& name, const std::string& content) const {
  const std::string path = (path_ / name).string();
  gzFile out = gzopen(path.c_str(), "wb");
  gzwrite(out, content.data(), static_cast<unsigned>(content.size()));
  gzclose(out);
  return path;
}

std::vector<std::string> agentOn(const std::string& root, const std::vector<std::string>& more) {
  // Small tables: the buckets of a large one cost more than what the tests put in.
  std::vector<std::string> arguments{
      program("p4rt-agent"), "--plugin", ROUTING_PLUGIN_FILE, "--shoal-root", root,
      "--default-capacity",  "4096"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  // Several agents run at a time: one listens when its test says where.
  if (std::find(more.begin(), more.end(), "--listen") == more.end() &&
      std::find(more.begin(), more.end(), "--once") == more.end()) {
    arguments.insert(arguments.end(), {"--listen", "none"});
  }
  return arguments;
}

std::vector<std::string> demo(const std::vector<std::string>& more) {
  std::vector<std::string> arguments{program("routing-demo"), "--plugin", ROUTING_PLUGIN_FILE};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return arguments;
}

Child::Result shoalctl(const std::string& root, const std::vector<std::string>& arguments) {
  std::vector<std::string> all{program("shoalctl"), "--root", root};
  all.insert(all.end(), arguments.begin(), arguments.end());
  return run(all);
}

std::vector<Json> shownRows(const std::string& root, const std::string& table) {
  std::vector<Json> rows;
  const auto shown = shoalctl(root, {"--json", "show", table});
  if (shown.status != 0) throw std::runtime_error(shown.err);
  for (const std::string& line : lines(shown.out)) rows.push_back(Json::parse(line));
  return rows;
}

std::map<std::string, uint64_t> entries(const std::string& root) {
  std::map<std::string, uint64_t> found;
  const auto shown = shoalctl(root, {"--json", "tables"});
  if (shown.status != 0) throw std::runtime_error(shown.err);
  for (const std::string& line : lines(shown.out)) {
    const Json table = Json::parse(line);
    found[table.at("name")] = table.at("entries");
  }
  return found;
}

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> found;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) found.push_back(line);
  return found;
}

namespace {

// Takes a value, in quotes or plain, off the front of `rest`.
std::string takeValue(std::string& rest) {
  if (!rest.starts_with('"')) {
    const std::string value = rest.substr(0, rest.find(' '));
    rest.erase(0, value.size());
    return value;
  }
  std::string value;
  for (size_t i = 1; i < rest.size(); ++i) {
    if (rest[i] == '"') {
      rest.erase(0, i + 1);
      return value;
    }
    if (rest[i] == '\\') ++i;
    value += rest.at(i);
  }
  throw std::runtime_error("a quote that does not end: " + rest);
}

}  // namespace

std::vector<std::map<std::string, std::string>> logged(const std::string& log) {
  std::vector<std::map<std::string, std::string>> events;
  for (const std::string& line : lines(log)) {
    auto& event = events.emplace_back();
    event["time"] = line.substr(0, line.find(' '));
    std::string rest = line.substr(event["time"].size());
    while (!rest.empty()) {
      const size_t equals = rest.find('=');
      if (rest[0] != ' ' || equals == std::string::npos) {
        throw std::runtime_error("not a line of a log: " + line);
      }
      const std::string key = rest.substr(1, equals - 1);
      rest.erase(0, equals + 1);
      event[key] = takeValue(rest);
    }
  }
  return events;
}

std::vector<std::string> loggedTexts(const std::string& log) {
  std::vector<std::string> texts;
  for (const auto& event : logged(log)) texts.push_back(event.at("text"));
  return texts;
}

}  // namespace E2e
