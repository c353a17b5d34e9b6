#include "frame/utf16.h"

#include <cstdint>

#include "frame/code_page.h"

namespace korvane {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool IsHigh(char16_t unit) { return unit >= 0xD800 && unit < 0xDC00; }
bool IsLow(char16_t unit) { return unit >= 0xDC00 && unit < 0xE000; }

char Byte(char32_t value) { return static_cast<char>(static_cast<uint8_t>(value)); }

void Append(std::string& text, char32_t character) {
  if (character < 0x80) {
    text += Byte(character);
  } else if (character < 0x800) {
    text += Byte(0xC0 | (character >> 6));
    text += Byte(0x80 | (character & 0x3F));
  } else if (character < 0x10000) {
    text += Byte(0xE0 | (character >> 12));
    text += Byte(0x80 | ((character >> 6) & 0x3F));
    text += Byte(0x80 | (character & 0x3F));
  } else {
    text += Byte(0xF0 | (character >> 18));
    text += Byte(0x80 | ((character >> 12) & 0x3F));
    text += Byte(0x80 | ((character >> 6) & 0x3F));
    text += Byte(0x80 | (character & 0x3F));
  }
}

}  // namespace

std::string FromUtf16(std::u16string_view text) {
  std::string utf8;
  utf8.reserve(text.size() + text.size() / 8);
  for (size_t i = 0; i < text.size(); ++i) {
    const char16_t unit = text[i];
    if (IsHigh(unit) && i + 1 < text.size() && IsLow(text[i + 1])) {
      const char32_t high = unit - 0xD800u;
      const char32_t low = text[++i] - 0xDC00u;
      Append(utf8, 0x10000 + (high << 10) + low);
    } else {
      Append(utf8, IsHigh(unit) || IsLow(unit) ? kReplacement : unit);
    }
  }
  return utf8;
}

std::u16string ToUtf16(std::string_view utf8) {
  std::u16string text;
  text.reserve(utf8.size());
  for (size_t i = 0; i < utf8.size();) {
    const auto lead = static_cast<uint8_t>(utf8[i]);
    const size_t length = lead < 0x80 ? 1 : lead < 0xC2 ? 0 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    if (length == 1) {
      text += static_cast<char16_t>(lead);
      ++i;
      continue;
    }
    if (length == 0 || !IsUtf8(utf8.substr(i, length))) {
      text += static_cast<char16_t>(kReplacement);
      ++i;
      continue;
    }
    char32_t character = lead & (0x7F >> length);
    for (size_t at = 1; at < length; ++at) {
      character = (character << 6) | (static_cast<uint8_t>(utf8[i + at]) & 0x3F);
    }
    i += length;
    if (character < 0x10000) {
      text += static_cast<char16_t>(character);
    } else {
      text += static_cast<char16_t>(0xD800 + ((character - 0x10000) >> 10));
      text += static_cast<char16_t>(0xDC00 + ((character - 0x10000) & 0x3FF));
    }
  }
  return text;
}

}  // namespace korvane
