// vanectl load: rows from lines of JSON, as dump writes them.
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>

#include "tools/common/Exit.h"
#include "tools/vanectl/Client.h"
#include "tools/vanectl/Commands.h"

namespace VaneCtl {
namespace {

using Json = nlohmann::ordered_json;
using Tools::ExitCode;
using Tools::Failure;
using Clock = std::chrono::steady_clock;

constexpr size_t batchBytes = size_t{256} << 10;
constexpr int batchChanges = 2048;
constexpr size_t longestLine = size_t{1} << 20;  // bytes

// On a terminal: how far, and how fast.
class Progress {
 public:
  void show(uint64_t rows, bool last = false) {
    if (!isTerminal_) return;
    const auto now = Clock::now();
    if (!last && now < next_) return;
    next_ = now + std::chrono::milliseconds(200);
    const double seconds = std::chrono::duration<double>(now - begun_).count();
    fmt::print(stderr, "\r{} rows, {:.0f} rows/s\x1b[K{}", rows,
               seconds > 0 ? static_cast<double>(rows) / seconds : 0.0, last ? "\n" : "");
  }
  // Makes room for another line.
  void clear() const {
    if (isTerminal_) fmt::print(stderr, "\r\x1b[K");
  }

 private:
  const bool isTerminal_ = ::isatty(STDERR_FILENO) == 1;
  const Clock::time_point begun_ = Clock::now();
  Clock::time_point next_ = begun_;
};

class Loader {
 public:
  explicit Loader(const Options& options) : options_(options), client_(options.socket) {}

  void load(std::istream& in) {
    std::string line;
    while (std::getline(in, line)) {
      ++line_;
      if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
      takeLine(line);
      if (batch_.changes_size() == batchChanges || bytes_ >= batchBytes) send();
    }
    send();
    progress_.show(applied_, true);
    if (in.bad()) throw Failure(ExitCode::failed, name() + ": cannot be read");
    if (refused_ != 0) {
      throw Failure(ExitCode::failed, fmt::format("{}: {} of {} rows were refused", name(),
                                                  refused_, applied_ + refused_));
    }
  }

 private:
  std::string name() const { return options_.file == "-" ? "standard input" : options_.file; }

  void takeLine(const std::string& line) {
    try {
      if (line.size() > longestLine) {
        throw std::runtime_error(
            fmt::format("expected at most {} bytes, found {}", longestLine, line.size()));
      }
      const Json command = Json::parse(line);
      const std::string table = command.at("table");
      const std::string op = command.value("op", "set");
      if (op == "clear") return clear(table);
      if (op != "set" && op != "del") {
        throw std::runtime_error(fmt::format("op: expected set, del or clear, found \"{}\"", op));
      }
      std::string row = command.at("row").dump();
      v1::RowChange& change = *batch_.add_changes();
      change.set_table(table);
      (op == "set" ? change.mutable_set() : change.mutable_del())->set_json(std::move(row));
      lines_.push_back(line_);
      bytes_ += line.size();
    } catch (const nlohmann::json::exception& error) {
      bad(line_, withoutName(error.what()));
    } catch (const Failure&) {
      throw;
    } catch (const std::exception& error) {
      bad(line_, error.what());
    }
  }

  // What comes before it is applied before it.
  void clear(const std::string& table) {
    send();
    v1::ClearTableRequest request;
    request.set_table(table);
    grpc::ClientContext context;
    v1::ClearTableResponse response;
    const grpc::Status status = client_.stub().ClearTable(&context, request, &response);
    if (status.error_code() == grpc::StatusCode::NOT_FOUND) {
      return bad(line_, status.error_message());
    }
    check(status);
  }

  void send() {
    if (batch_.changes().empty()) return;
    batch_.set_stop_at_error(options_.strict);
    const auto response = client_.call(&v1::RowDatabase::Stub::WriteRows, batch_);
    const auto lines = std::move(lines_);
    batch_.Clear();
    lines_.clear();
    bytes_ = 0;
    applied_ += response.applied();
    for (const auto& failure : response.failures()) {
      bad(lines.at(failure.index()), failure.message());
    }
    progress_.show(applied_);
  }

  // Lines are told in their order, and what comes before a bad one is applied.
  void bad(uint64_t line, const std::string& cause) {
    send();
    ++refused_;
    progress_.clear();
    const std::string text = fmt::format("{}: line {}: {}", name(), line, cause);
    if (options_.strict) throw Failure(ExitCode::failed, text);
    Tools::complain("vanectl", text);
  }

  // "[json.exception.parse_error.101] parse error at line 1, column 2: syntax error ...": without
  // the library's own name and places.
  static std::string withoutName(const std::string& text) {
    const size_t syntax = text.find("syntax error");
    const size_t end = text.find("] ");
    if (syntax != std::string::npos) return text.substr(syntax);
    return end == std::string::npos ? text : text.substr(end + 2);
  }

  const Options& options_;
  Client client_;
  v1::WriteRowsRequest batch_;
  std::vector<uint64_t> lines_;  // of the changes in the batch
  size_t bytes_ = 0;
  uint64_t line_ = 0;
  uint64_t applied_ = 0;
  uint64_t refused_ = 0;
  Progress progress_;
};

}  // namespace

void loadRows(const Options& options, Tools::Output&) {
  if (options.file == "-") return Loader(options).load(std::cin);
  std::ifstream in(options.file);
  if (!in) {
    const ExitCode code = errno == ENOENT   ? ExitCode::absent
                          : errno == EACCES ? ExitCode::permission
                                            : ExitCode::failed;
    throw Failure(code, fmt::format("{}: {}", options.file, std::strerror(errno)));
  }
  Loader(options).load(in);
}

}  // namespace VaneCtl
