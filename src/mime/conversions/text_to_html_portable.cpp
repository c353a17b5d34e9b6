// Plain text as HTML, one character at a time. The size and the text come from one walk, so that
// they cannot disagree.
#include <cstring>
#include <string_view>

#include "mime/conversions/conversions.h"
#include "mime/conversions/html_pieces.h"

namespace korvane::conversions::portable {

namespace {

// Hands the HTML to `put` piece by piece; `put` returns false to stop.
template <typename Put>
void Walk(std::string_view text, Put put) {
  size_t column = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    const char character = text[i];
    const bool last_stays = TextFollows(text.data() + i, text.data() + text.size());
    if (IsLineEnd(character)) {
      if (!put(ReplacementOf(character))) return;
      if (text.substr(i, 2) == "\r\n") ++i;
      column = 0;
    } else if (character == '\t') {
      const size_t stop = (column / kTabStop + 1) * kTabStop;
      for (; column + 1 < stop; ++column) {
        if (!put(kHardBlank)) return;
      }
      if (!put(last_stays ? " " : kHardBlank)) return;
      ++column;
    } else if (character == ' ') {
      // At the start of a line browsers swallow it too.
      if (!put(last_stays && column > 0 ? " " : kHardBlank)) return;
      ++column;
    } else {
      const std::string_view replacement = ReplacementOf(character);
      if (!put(replacement.empty() ? text.substr(i, 1) : replacement)) return;
      // The later bytes of a UTF-8 character take no column of their own.
      if ((static_cast<uint8_t>(character) & 0xC0) != 0x80 || column == 0) ++column;
    }
  }
}

}  // namespace

size_t HtmlSize(const char* input, size_t size, size_t limit) {
  size_t html = 0;
  Walk({input, size}, [&](std::string_view piece) {
    if (piece.size() > limit - html) return false;
    html += piece.size();
    return true;
  });
  return html;
}

size_t TextToHtml(const char* input, size_t size, char* output, size_t limit) {
  char* out = output;
  Walk({input, size}, [&](std::string_view piece) {
    if (piece.size() > limit - static_cast<size_t>(out - output)) return false;
    std::memcpy(out, piece.data(), piece.size());
    out += piece.size();
    return true;
  });
  return static_cast<size_t>(out - output);
}

}  // namespace korvane::conversions::portable
