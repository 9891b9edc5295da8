#include "tools/common/Output.h"

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <nlohmann/json.hpp>
#include <utility>

#include "tools/common/Exit.h"
#include "tools/common/Nearest.h"

namespace Tools {
namespace {

constexpr std::string_view bold = "\033[1m";
constexpr std::string_view usual = "\033[0m";

constexpr std::string_view startOf(Style style) {
  return style == Style::good ? "\033[32m" : style == Style::bad ? "\033[31m" : "";
}

constexpr bool isControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }

bool isSet(const char* variable) {
  const char* value = std::getenv(variable);
  return value != nullptr && *value != '\0';
}

}  // namespace

// --- Output -------------------------------------------------------------------------------------

Output::~Output() {
  try {
    flush();
  } catch (const Failure&) {
  }
}

void Output::flush() {
  // Emptied first: what could not be written is not tried again.
  std::string_view left = buffer_;
  while (!left.empty()) {
    const ssize_t written = ::write(descriptor_, left.data(), left.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) {
      const int cause = errno;
      buffer_.clear();
      throw Failure(ExitCode::failed, fmt::format("standard output: {}", std::strerror(cause)));
    }
    left.remove_prefix(static_cast<size_t>(written));
  }
  buffer_.clear();
}

bool Output::isTerminal() const { return ::isatty(descriptor_) == 1; }

void Output::endIfUnread() const {
  pollfd end{descriptor_, 0, 0};
  if (::poll(&end, 1, 0) > 0 && (end.revents & POLLERR) != 0) std::raise(SIGPIPE);
}

Format formatOf(const OutputOptions& options, const Output& out) {
  return options.format.value_or(out.isTerminal() ? Format::table : Format::plain);
}

bool isColored(const OutputOptions& options, const Output& out) {
  if (formatOf(options, out) != Format::table) return false;
  if (options.color != Color::automatic) return options.color == Color::always;
  const char* terminal = std::getenv("TERM");
  const bool dumb = terminal != nullptr && std::string_view(terminal) == "dumb";
  return out.isTerminal() && !isSet("NO_COLOR") && !dumb;
}

// --- Records ------------------------------------------------------------------------------------

RecordWriter::RecordWriter(Output& out, const OutputOptions& options, std::vector<Column> columns)
    : out_(out),
      columns_(std::move(columns)),
      format_(formatOf(options, out)),
      colored_(isColored(options, out)),
      headingDue_(options.headings && format_ != Format::json),
      isChosen_(columns_.size()),
      cells_(columns_.size()) {
  choose(options.columns);
  for (Column& column : columns_) {
    appendJson(keys_.emplace_back(), column.name);
    keys_.back() += ':';
    column.width = std::max(column.width, static_cast<uint32_t>(column.name.size()));
  }
}

void RecordWriter::choose(const std::vector<std::string>& names) {
  std::vector<std::string> known;
  for (const Column& column : columns_) known.push_back(column.name);
  for (const std::string& name : names.empty() ? known : names) {
    const auto found = std::ranges::find(known, name);
    if (found == known.end()) {
      throw Failure(ExitCode::usage, unknownName("column", name, known));
    }
    chosen_.push_back(static_cast<size_t>(found - known.begin()));
    isChosen_[chosen_.back()] = true;
  }
}

// requires: the text needs no quotes in any format.
RecordWriter& RecordWriter::verbatim(std::string_view text) {
  if (isChosen_[next_]) cells_[next_].text.assign(text);
  ++next_;
  return *this;
}

RecordWriter& RecordWriter::operator<<(std::string_view value) {
  const size_t at = next_++;
  if (!isChosen_[at]) return *this;
  std::string& text = cells_[at].text;
  text.clear();
  if (format_ == Format::csv) {
    appendCsv(text, value);
  } else if (format_ != Format::json) {
    appendPlain(text, value);
  } else if (columns_[at].type == ColumnType::object) {
    text.assign(value);
  } else {
    appendJson(text, value);
  }
  return *this;
}

RecordWriter& RecordWriter::operator<<(std::span<const uint32_t> elements) {
  const size_t at = next_++;
  if (!isChosen_[at]) return *this;
  const bool json = format_ == Format::json;
  const std::string_view between = json ? ", " : " ";
  std::string& text = cells_[at].text;
  text.assign(json ? "[" : "");
  for (const uint32_t& element : elements) {
    fmt::format_to(std::back_inserter(text), "{}{}", &element == elements.data() ? "" : between,
                   element);
  }
  if (json) text += ']';
  return *this;
}

RecordWriter& RecordWriter::operator<<(Absent) {
  return verbatim(format_ == Format::json ? "null" : format_ == Format::table ? "-" : "");
}

RecordWriter& RecordWriter::operator<<(Style style) {
  cells_[next_ - 1].style = style;
  return *this;
}

void RecordWriter::endRecord() {
  if (std::exchange(headingDue_, false)) writeHeading();
  writeLine();
  for (Cell& cell : cells_) cell.style = Style::usual;
  next_ = 0;
}

void RecordWriter::finish() {
  if (std::exchange(headingDue_, false)) writeHeading();
  out_.flush();
}

// The cells are borrowed, and given back.
void RecordWriter::writeHeading() {
  std::vector<Cell> record(columns_.size());
  for (size_t i = 0; i < columns_.size(); ++i) {
    std::string& text = record[i].text;
    format_ == Format::csv ? appendCsv(text, columns_[i].name)
                           : appendPlain(text, columns_[i].name);
  }
  cells_.swap(record);
  format_ == Format::table ? writeTableLine(true) : writeLine();
  cells_.swap(record);
}

void RecordWriter::writeLine() {
  switch (format_) {
    case Format::table:
      return writeTableLine(false);
    case Format::json:
      return writeJson();
    case Format::csv:
      return writeSeparated(',', "\r\n");
    case Format::plain:
      return writeSeparated('\t', "\n");
  }
}

// Nothing follows the last value, so that lines end where they seem to.
void RecordWriter::writeTableLine(bool heading) {
  line_.clear();
  for (size_t i = 0; i < chosen_.size(); ++i) {
    const Column& column = columns_[chosen_[i]];
    const Cell& cell = cells_[chosen_[i]];
    const size_t width = column.width;
    const size_t blanks = width - std::min(width, cell.text.size());
    const bool right = column.type == ColumnType::number;
    const std::string_view start = !colored_ ? "" : heading ? bold : startOf(cell.style);
    if (i != 0) line_.append(2, ' ');
    if (right) line_.append(blanks, ' ');
    line_.append(start).append(cell.text).append(start.empty() ? "" : usual);
    if (!right && i + 1 < chosen_.size()) line_.append(blanks, ' ');
  }
  line_ += '\n';
  out_.write(line_);
}

void RecordWriter::writeSeparated(char separator, std::string_view end) {
  line_.clear();
  for (size_t i = 0; i < chosen_.size(); ++i) {
    if (i != 0) line_ += separator;
    line_ += cells_[chosen_[i]].text;
  }
  out_.write(line_.append(end));
}

void RecordWriter::writeJson() {
  line_ = "{";
  for (size_t i = 0; i < chosen_.size(); ++i) {
    if (i != 0) line_ += ", ";
    line_.append(keys_[chosen_[i]]).append(cells_[chosen_[i]].text);
  }
  out_.write(line_.append("}\n"));
}

// --- Text ---------------------------------------------------------------------------------------

void appendJson(std::string& to, std::string_view text) {
  const bool simple = std::ranges::all_of(
      text, [](char c) { return c >= 0x20 && c < 0x7F && c != '"' && c != '\\'; });
  if (simple) {
    to.append("\"").append(text).append("\"");
  } else {
    const nlohmann::json value{std::string(text)};
    to += value[0].dump(-1, ' ', true, nlohmann::json::error_handler_t::replace);
  }
}

void appendCsv(std::string& to, std::string_view text) {
  if (text.find_first_of(",\"\r\n") == std::string_view::npos) {
    to += text;
    return;
  }
  to += '"';
  for (const char c : text) to.append(c == '"' ? 2 : 1, c);
  to += '"';
}

void appendPlain(std::string& to, std::string_view text) {
  for (const char c : text) {
    if (!isControl(c) && c != '\\') {
      to += c;
    } else if (c == '\t' || c == '\n' || c == '\\') {
      to.append("\\").append(c == '\t' ? "t" : c == '\n' ? "n" : "\\");
    } else {
      fmt::format_to(std::back_inserter(to), "\\x{:02X}", static_cast<unsigned char>(c));
    }
  }
}

}  // namespace Tools
