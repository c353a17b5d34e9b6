// What the two forms of the conversion to HTML write for single characters, and how wide a tab is.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace korvane::conversions {

constexpr std::string_view kHardBlank = "&nbsp;";
constexpr size_t kTabStop = 8;

constexpr bool IsLineEnd(char character) { return character == '\r' || character == '\n'; }
constexpr bool IsBlank(char character) {
  return character == ' ' || character == '\t' || IsLineEnd(character);
}

/// The HTML of a character that never stands for itself; empty for all others, and for a tab,
/// whose HTML depends on where it is.
constexpr std::string_view ReplacementOf(char character) {
  switch (character) {
    case '&':
      return "&amp;";
    case '<':
      return "&lt;";
    case '>':
      return "&gt;";
    case '"':
      return "&quot;";
    case '\'':
      return "&#39;";
    case '\r':
    case '\n':
      return "<br>";
    default:
      return {};
  }
}

/// Whether what follows the blank at `at` lets its last column stay an ordinary blank: browsers
/// swallow one before another blank and before the end of a line.
constexpr bool TextFollows(const char* at, const char* end) {
  return at + 1 < end && !IsBlank(at[1]);
}

/// The columns of a text's tabs, asked from the first tab to the last. Each byte is looked at once
/// or twice however many tabs there are.
class Columns {
 public:
  explicit Columns(const char* start) : known_(start) {}

  /// How many columns the tab fills.
  size_t WidthOf(const char* tab) {
    const char* from = tab;
    while (from > known_ && !IsLineEnd(from[-1])) --from;
    if (from > known_) column_ = 0;
    for (; from < tab; ++from) {
      // The later bytes of a UTF-8 character take no column of their own.
      if ((static_cast<uint8_t>(*from) & 0xC0) != 0x80 || column_ == 0) ++column_;
    }
    const size_t width = kTabStop - column_ % kTabStop;
    column_ += width;
    known_ = tab + 1;
    return width;
  }

 private:
  const char* known_;  // up to here, with column_, the columns are counted
  size_t column_ = 0;
};

}  // namespace korvane::conversions
