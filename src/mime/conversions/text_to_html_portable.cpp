// Plain text as HTML, one character at a time. The size and the text come from one walk, so that
// they cannot disagree.
#include <cstring>
#include <string_view>

#include "mime/conversions/conversions.h"

namespace korvane::conversions::portable {

namespace {

constexpr size_t kTabStop = 8;
constexpr std::string_view kHardBlank = "&nbsp;";

bool EndsLine(char character) { return character == '\r' || character == '\n'; }

// Hands the HTML to `put` piece by piece; `put` returns false to stop.
template <typename Put>
void Walk(std::string_view text, Put put) {
  size_t column = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    const char character = text[i];
    const char next = i + 1 < text.size() ? text[i + 1] : '\n';
    // A blank that a browser keeps in running text: something stands before it in its line, and
    // what follows is neither a blank nor the end of the line.
    const bool last_blank_stays = next != ' ' && next != '\t' && !EndsLine(next);
    switch (character) {
      case '&':
        if (!put("&amp;")) return;
        break;
      case '<':
        if (!put("&lt;")) return;
        break;
      case '>':
        if (!put("&gt;")) return;
        break;
      case '"':
        if (!put("&quot;")) return;
        break;
      case '\'':
        if (!put("&#39;")) return;
        break;
      case '\r':
      case '\n':
        if (!put("<br>")) return;
        if (character == '\r' && next == '\n' && i + 1 < text.size()) ++i;
        column = 0;
        continue;
      case ' ':
        if (!put(last_blank_stays && column > 0 ? " " : kHardBlank)) return;
        break;
      case '\t': {
        const size_t stop = (column / kTabStop + 1) * kTabStop;
        for (; column + 1 < stop; ++column) {
          if (!put(kHardBlank)) return;
        }
        if (!put(last_blank_stays && column > 0 ? " " : kHardBlank)) return;
        column = stop;
        continue;
      }
      default:
        if (!put(text.substr(i, 1))) return;
        // The later bytes of a UTF-8 character take no column of their own.
        if ((static_cast<uint8_t>(character) & 0xC0) == 0x80 && column > 0) continue;
    }
    ++column;
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
