// Records with named, typed columns on standard output, one after the other, in constant memory.
//
//   table   aligned, with a heading; the width of a column is declared, not measured, so that the
//           first line can go out before the last is known. A value that is wider takes its room.
//   plain   a tab between values; a tab, line break, other control character or backslash inside a
//           value is written \t, \n, \xNN, \\.
//   csv     RFC 4180: commas, quotes where needed, CR LF.
//   json    one object a line.
//
// Without a format asked for, it is table on a terminal and plain elsewhere.
//
//   RecordWriter records(out, options, {number("id"), text("prefix", 18), list("members")});
//   records << 7u << "10.0.0.0/8" << std::vector<uint32_t>{1, 2};
//   records.endRecord();
//   records.finish();
#pragma once

#include <charconv>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Tools {

enum class Format : uint8_t { table, json, csv, plain };
enum class Color : uint8_t { automatic, always, never };

struct OutputOptions {
  std::optional<Format> format;
  std::vector<std::string> columns;  // those shown, in this order; empty: all
  bool headings = true;
  Color color = Color::automatic;
};

// Standard output, or another descriptor, written in large pieces. Throws Failure when it cannot be
// written.
class Output {
 public:
  explicit Output(int descriptor = 1) : descriptor_(descriptor) {}
  ~Output();  // what is left is lost without a word: flush() tells
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  void write(std::string_view text) {
    buffer_.append(text);
    if (buffer_.size() >= pieceSize) [[unlikely]]
      flush();
  }
  void flush();
  bool isTerminal() const;
  // Ends the process as the next write would if the reader at the other end of a pipe has gone. For
  // those who follow something that may not happen for a long time.
  void endIfUnread() const;

 private:
  static constexpr size_t pieceSize = 64u << 10;  // bytes

  int descriptor_;
  std::string buffer_;
};

// The format that the options, or else the kind of output, ask for.
Format formatOf(const OutputOptions& options, const Output& out);
// Whether text is coloured: only tables are. NO_COLOR and a dumb terminal say no to `automatic`.
bool isColored(const OutputOptions& options, const Output& out);

// How a value reads: numbers stand to the right; an object is given as the text of a JSON object,
// which JSON output holds as it is.
enum class ColumnType : uint8_t { number, truth, text, list, object };

struct Column {
  std::string name;
  ColumnType type = ColumnType::text;
  uint32_t width = 0;  // in characters; the heading's if that is wider
};
inline Column number(std::string name, uint32_t width = 10) {
  return {std::move(name), ColumnType::number, width};
}
inline Column truth(std::string name) { return {std::move(name), ColumnType::truth, 5}; }
inline Column text(std::string name, uint32_t width) {
  return {std::move(name), ColumnType::text, width};
}
inline Column list(std::string name, uint32_t width = 16) {
  return {std::move(name), ColumnType::list, width};
}
inline Column object(std::string name) { return {std::move(name), ColumnType::object, 16}; }

// No value: null in JSON, "-" in a table, nothing elsewhere.
struct Absent {};
inline constexpr Absent absent{};

// How a table's cell stands out where colours are used.
enum class Style : uint8_t { usual, good, bad };

// A value with a text of its own, such as an address.
template <class T>
concept HasText = requires(const T& value) {
  { value.text() } -> std::convertible_to<std::string_view>;
};

class RecordWriter {
 public:
  // Throws Failure (usage) if a column is asked for that there is not; the nearest name is told.
  RecordWriter(Output& out, const OutputOptions& options, std::vector<Column> columns);

  // The value of the next column. requires: the record is not full; its kind is the column's.
  RecordWriter& operator<<(bool value) { return verbatim(value ? "true" : "false"); }
  RecordWriter& operator<<(std::integral auto value) {
    char digits[24];
    return verbatim({digits, std::to_chars(digits, digits + sizeof digits, value).ptr});
  }
  RecordWriter& operator<<(std::string_view value);
  RecordWriter& operator<<(const std::string& value) { return *this << std::string_view(value); }
  RecordWriter& operator<<(const char* value) { return *this << std::string_view(value); }
  RecordWriter& operator<<(std::span<const uint32_t> elements);
  RecordWriter& operator<<(const std::vector<uint32_t>& elements) {
    return *this << std::span<const uint32_t>(elements);
  }
  RecordWriter& operator<<(const HasText auto& value) {
    return *this << std::string_view(value.text());
  }
  RecordWriter& operator<<(Absent);
  template <class T>
  RecordWriter& operator<<(const std::optional<T>& value) {
    return value ? *this << *value : *this << absent;
  }
  // The style of the value before.
  RecordWriter& operator<<(Style style);

  // requires: every column has its value.
  void endRecord();
  // Writes the heading if no record has done so, and everything to the reader. Also between
  // records, when the next may be long in coming.
  void finish();

 private:
  struct Cell {
    std::string text;
    Style style = Style::usual;
  };

  void choose(const std::vector<std::string>& names);
  RecordWriter& verbatim(std::string_view text);
  void writeHeading();
  void writeLine();
  void writeTableLine(bool heading);
  void writeSeparated(char separator, std::string_view end);
  void writeJson();

  Output& out_;
  std::vector<Column> columns_;
  Format format_;
  bool colored_;
  bool headingDue_;
  std::vector<size_t> chosen_;     // columns to write, in order
  std::vector<bool> isChosen_;     // by column
  std::vector<std::string> keys_;  // JSON: `"name":`, by column
  std::vector<Cell> cells_;        // of the record under construction, by column
  size_t next_ = 0;                // the column that is next
  std::string line_;
};

// The text as a JSON string, with quotes; bytes that are not UTF-8 become U+FFFD.
void appendJson(std::string& to, std::string_view text);
// One field of CSV.
void appendCsv(std::string& to, std::string_view text);
// The text without control characters, as in the plain format.
void appendPlain(std::string& to, std::string_view text);

}  // namespace Tools
