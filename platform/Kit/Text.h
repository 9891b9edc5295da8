// The entity system's text types.
//
// Kit::String is any text. Kit::Name is the name of an entity: one part of a path, so it is not
// empty and holds no '/'.
#pragma once

#include <compare>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>

#include "platform/Guard/Exception.h"

namespace Kit {

class String {
 public:
  String() = default;
  String(const char* text) : text_(text) {}             // NOLINT(google-explicit-constructor)
  String(std::string text) : text_(std::move(text)) {}  // NOLINT(google-explicit-constructor)
  explicit String(std::string_view text) : text_(text) {}

  const std::string& str() const { return text_; }
  const char* c_str() const { return text_.c_str(); }
  size_t size() const { return text_.size(); }
  bool empty() const { return text_.empty(); }

  friend String operator+(const String& a, const String& b) { return String(a.text_ + b.text_); }
  friend bool operator==(const String&, const String&) = default;
  friend auto operator<=>(const String&, const String&) = default;
  friend std::ostream& operator<<(std::ostream& out, const String& s) { return out << s.text_; }

 private:
  std::string text_;
};

class Name {
 public:
  Name(const char* text) : Name(std::string(text)) {}  // NOLINT(google-explicit-constructor)
  // Throws Guard::RangeException for a text that cannot be one part of a path.
  Name(std::string text) : text_(std::move(text)) {  // NOLINT(google-explicit-constructor)
    if (text_.empty() || text_.find('/') != std::string::npos) {
      Guard::RangeException::throwException("entity name \"" + text_ +
                                            "\": expected a non-empty text without '/'");
    }
  }

  const std::string& str() const { return text_; }

  friend bool operator==(const Name&, const Name&) = default;
  friend auto operator<=>(const Name&, const Name&) = default;
  friend std::ostream& operator<<(std::ostream& out, const Name& n) { return out << n.text_; }

 private:
  std::string text_;
};

}  // namespace Kit

template <>
struct std::hash<Kit::String> {
  size_t operator()(const Kit::String& s) const { return std::hash<std::string>{}(s.str()); }
};
