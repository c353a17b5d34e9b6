#include "frame/settings_text.h"

#include <cstdint>

namespace korvane::settings_text {

namespace {

void AppendUnit(std::string& bytes, uint32_t unit, bool big_endian) {
  const char high = static_cast<char>(unit >> 8);
  const char low = static_cast<char>(unit);
  bytes += big_endian ? high : low;
  bytes += big_endian ? low : high;
}

}  // namespace

std::string Folded(std::string_view text) {
  std::string folded(text);
  for (char& c : folded) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
  }
  return folded;
}

std::string FoldedKey(std::string_view key) {
  while (!key.empty() && key.back() == '\\') key.remove_suffix(1);
  return Folded(key);
}

std::string Quoted(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '\\' || c == '"') quoted += '\\';
    quoted += c;
  }
  return quoted + '"';
}

std::string Utf16ToText(std::string_view bytes, bool big_endian) {
  std::string text;
  text.reserve(bytes.size());
  const auto unit_at = [&](size_t i) {
    const auto first = static_cast<unsigned char>(bytes[i]);
    const auto second = static_cast<unsigned char>(bytes[i + 1]);
    return static_cast<uint32_t>(big_endian ? first << 8 | second : second << 8 | first);
  };
  for (size_t i = 0; i + 1 < bytes.size(); i += 2) {
    uint32_t c = unit_at(i);
    if (c >= 0xD800 && c < 0xDC00 && i + 3 < bytes.size()) {
      const uint32_t low = unit_at(i + 2);
      if (low >= 0xDC00 && low < 0xE000) {
        c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
        i += 2;
      }
    }
    if (c < 0x80) {
      text += static_cast<char>(c);
    } else if (c < 0x800) {
      text += static_cast<char>(0xC0 | c >> 6);
      text += static_cast<char>(0x80 | (c & 0x3F));
    } else {
      if (c < 0x10000) {
        text += static_cast<char>(0xE0 | c >> 12);
      } else {
        text += static_cast<char>(0xF0 | c >> 18);
        text += static_cast<char>(0x80 | (c >> 12 & 0x3F));
      }
      text += static_cast<char>(0x80 | (c >> 6 & 0x3F));
      text += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return text;
}

std::string TextToUtf16(std::string_view text, bool big_endian) {
  std::string bytes;
  bytes.reserve(text.size() * 2);
  const auto at = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
  const auto continues = [&](size_t i, size_t n) {
    if (i + n >= text.size()) return false;
    for (size_t k = 1; k <= n; ++k) {
      if ((at(i + k) & 0xC0) != 0x80) return false;
    }
    return true;
  };
  for (size_t i = 0; i < text.size();) {
    const uint32_t lead = at(i);
    if (lead >= 0xF0 && lead < 0xF5 && continues(i, 3)) {
      const uint32_t c = (lead & 0x07) << 18 | (at(i + 1) & 0x3Fu) << 12 |
                         (at(i + 2) & 0x3Fu) << 6 | (at(i + 3) & 0x3Fu);
      AppendUnit(bytes, 0xD800 + ((c - 0x10000) >> 10), big_endian);
      AppendUnit(bytes, 0xDC00 + ((c - 0x10000) & 0x3FF), big_endian);
      i += 4;
    } else if (lead >= 0xE0 && lead < 0xF0 && continues(i, 2)) {
      AppendUnit(bytes, (lead & 0x0F) << 12 | (at(i + 1) & 0x3Fu) << 6 | (at(i + 2) & 0x3Fu),
                 big_endian);
      i += 3;
    } else if (lead >= 0xC2 && lead < 0xE0 && continues(i, 1)) {
      AppendUnit(bytes, (lead & 0x1F) << 6 | (at(i + 1) & 0x3Fu), big_endian);
      i += 2;
    } else {
      AppendUnit(bytes, lead, big_endian);
      ++i;
    }
  }
  return bytes;
}

}  // namespace korvane::settings_text
