#include "cli/terminal_text.h"

#include <sys/ioctl.h>
#include <unistd.h>
#include <wchar.h>

#include <cstdlib>

namespace korvane::cli {
namespace {

constexpr size_t kWidthWithoutTerminal = 100;
constexpr size_t kNarrowest = 40;
constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

/// Embeddings, overrides and isolates.
bool TurnsDirection(char32_t code) {
  return (code >= 0x202A && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069) ||
         code == 0x200E || code == 0x200F || code == 0x061C;
}

bool IsControl(char32_t code) {
  return code < 0x20 || (code >= 0x7F && code < 0xA0) || code == 0x2028 || code == 0x2029;
}

size_t WidthOf(char32_t code) {
  const int width = wcwidth(static_cast<wchar_t>(code));
  return width < 0 ? 1 : static_cast<size_t>(width);
}

}  // namespace

Character TakeCharacter(std::string_view& text) {
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char first = byte(0);
  const size_t length = first < 0x80                    ? 1
                        : first >= 0xC2 && first < 0xE0 ? 2
                        : first >= 0xE0 && first < 0xF0 ? 3
                        : first >= 0xF0 && first < 0xF5 ? 4
                                                        : 0;
  char32_t code = length == 1 ? first : first & (0x7Fu >> length);
  bool good = length > 0 && length <= text.size();
  for (size_t i = 1; good && i < length; ++i) {
    good = (byte(i) & 0xC0) == 0x80;
    code = code << 6 | (byte(i) & 0x3Fu);
  }
  good = good && !(length == 3 && code < 0x800) && !(length == 4 && code < 0x10000) &&
         code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
  const Character character =
      good ? Character{code, text.substr(0, length)} : Character{0xFFFD, kReplacement};
  text.remove_prefix(good ? length : 1);
  return character;
}

std::string Printable(std::string_view text) {
  std::string printable;
  printable.reserve(text.size());
  while (!text.empty()) {
    const Character character = TakeCharacter(text);
    if (TurnsDirection(character.code)) continue;
    if (IsControl(character.code)) {
      if (!printable.ends_with(' ')) printable += ' ';
    } else {
      printable += character.bytes;
    }
  }
  return printable;
}

size_t DisplayWidth(std::string_view text) {
  size_t width = 0;
  while (!text.empty()) width += WidthOf(TakeCharacter(text).code);
  return width;
}

std::string Fit(std::string_view text, size_t width, bool right) {
  std::string fitted;
  size_t used = DisplayWidth(text);
  if (used <= width) {
    fitted = text;
  } else {
    used = 0;
    while (!text.empty()) {
      const Character character = TakeCharacter(text);
      const size_t more = WidthOf(character.code);
      if (used + more + 1 > width) break;
      fitted += character.bytes;
      used += more;
    }
    if (width > 0) {
      fitted += "…";
      ++used;
    }
  }
  const std::string blanks(width - used, ' ');
  return right ? blanks + fitted : fitted + blanks;
}

size_t TerminalWidth() {
  winsize size{};
  if (isatty(STDOUT_FILENO) && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
    return size.ws_col < kNarrowest ? kNarrowest : size.ws_col;
  }
  const char* columns = std::getenv("COLUMNS");
  const long width = columns ? std::strtol(columns, nullptr, 10) : 0;
  return width >= static_cast<long>(kNarrowest) && width < 10000 ? static_cast<size_t>(width)
                                                                 : kWidthWithoutTerminal;
}

}  // namespace korvane::cli
