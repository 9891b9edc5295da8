// Reads CSV by RFC 4180; throws where a text is none.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace ToolsTest {

inline std::vector<std::vector<std::string>> parseCsv(std::string_view text) {
  std::vector<std::vector<std::string>> records;
  size_t at = 0;
  const auto expect = [&](char c) {
    if (at >= text.size() || text[at++] != c) throw std::runtime_error("not CSV");
  };
  const auto field = [&] {
    std::string value;
    if (at < text.size() && text[at] == '"') {
      for (++at;; ++at) {
        if (at >= text.size()) throw std::runtime_error("a quote without an end");
        if (text[at] == '"' && (at + 1 >= text.size() || text[at + 1] != '"')) break;
        if (text[at] == '"') ++at;
        value += text[at];
      }
      expect('"');
      return value;
    }
    while (at < text.size() && text[at] != ',' && text[at] != '\r') {
      if (text[at] == '"' || text[at] == '\n')
        throw std::runtime_error("a bare quote or line feed");
      value += text[at++];
    }
    return value;
  };
  while (at < text.size()) {
    auto& record = records.emplace_back();
    record.push_back(field());
    while (at < text.size() && text[at] == ',') {
      ++at;
      record.push_back(field());
    }
    expect('\r');
    expect('\n');
  }
  return records;
}

}  // namespace ToolsTest
