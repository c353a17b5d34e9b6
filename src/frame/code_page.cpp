#include "frame/code_page.h"

#include <cstdint>
#include <cstring>

namespace korvane {

namespace {

// The characters of Windows-1252 from 0x80 to 0x9F; the five unassigned bytes stand for themselves.
constexpr char16_t kUpperControls[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

uint8_t At(std::string_view bytes, size_t i) { return static_cast<uint8_t>(bytes[i]); }

bool Continues(std::string_view bytes, size_t i, uint8_t low = 0x80, uint8_t high = 0xBF) {
  return i < bytes.size() && At(bytes, i) >= low && At(bytes, i) <= high;
}

// The length of the well-formed sequence at `i` (RFC 3629 section 4), 0 when there is none.
size_t SequenceLength(std::string_view bytes, size_t i) {
  const uint8_t lead = At(bytes, i);
  if (lead < 0x80) return 1;
  if (lead < 0xC2) return 0;
  if (lead < 0xE0) return Continues(bytes, i + 1) ? 2 : 0;
  if (lead < 0xF0) {
    const uint8_t low = lead == 0xE0 ? 0xA0 : 0x80;
    const uint8_t high = lead == 0xED ? 0x9F : 0xBF;
    return Continues(bytes, i + 1, low, high) && Continues(bytes, i + 2) ? 3 : 0;
  }
  if (lead > 0xF4) return 0;
  const uint8_t low = lead == 0xF0 ? 0x90 : 0x80;
  const uint8_t high = lead == 0xF4 ? 0x8F : 0xBF;
  return Continues(bytes, i + 1, low, high) && Continues(bytes, i + 2) && Continues(bytes, i + 3)
             ? 4
             : 0;
}

// The first position at or after `i` that is not ASCII; eight bytes at a time.
size_t SkipAscii(std::string_view bytes, size_t i) {
  while (i + 8 <= bytes.size()) {
    uint64_t block;
    std::memcpy(&block, bytes.data() + i, 8);
    if (block & 0x8080808080808080u) break;
    i += 8;
  }
  while (i < bytes.size() && At(bytes, i) < 0x80) ++i;
  return i;
}

// The first position at or after `i` that does not continue well-formed UTF-8.
size_t SkipUtf8(std::string_view bytes, size_t i) {
  for (i = SkipAscii(bytes, i); i < bytes.size(); i = SkipAscii(bytes, i)) {
    const size_t length = SequenceLength(bytes, i);
    if (length == 0) break;
    i += length;
  }
  return i;
}

void AppendCharacter(std::string& text, char32_t character) {
  if (character < 0x800) {
    text += static_cast<char>(0xC0 | (character >> 6));
  } else {
    text += static_cast<char>(0xE0 | (character >> 12));
    text += static_cast<char>(0x80 | ((character >> 6) & 0x3F));
  }
  text += static_cast<char>(0x80 | (character & 0x3F));
}

// The Windows-1252 byte of a character from 0x80 up, 0 when it has none.
uint8_t CodePageByte(char32_t character) {
  if (character >= 0xA0 && character <= 0xFF) return static_cast<uint8_t>(character);
  for (size_t i = 0; i < 32; ++i) {
    if (kUpperControls[i] == character) return static_cast<uint8_t>(0x80 + i);
  }
  return 0;
}

}  // namespace

bool IsUtf8(std::string_view bytes) { return SkipUtf8(bytes, 0) == bytes.size(); }

std::string ToUtf8(std::string bytes) {
  size_t good = SkipUtf8(bytes, 0);
  if (good == bytes.size()) return bytes;
  std::string text;
  text.reserve(bytes.size() + (bytes.size() - good) / 2 + 4);
  const std::string_view all = bytes;
  size_t from = 0;
  while (good < all.size()) {
    text += all.substr(from, good - from);
    const uint8_t byte = At(all, good);
    AppendCharacter(text, byte < 0xA0 ? kUpperControls[byte - 0x80] : byte);
    from = good + 1;
    good = SkipUtf8(all, from);
  }
  text += all.substr(from);
  return text;
}

std::string FromUtf8(std::string_view text) {
  std::string bytes;
  bytes.reserve(text.size());
  for (size_t i = 0; i < text.size();) {
    const size_t next = SkipAscii(text, i);
    bytes += text.substr(i, next - i);
    if ((i = next) == text.size()) break;
    const size_t length = SequenceLength(text, i);
    char32_t character = 0;
    if (length == 2) {
      character = static_cast<char32_t>((At(text, i) & 0x1F) << 6 | (At(text, i + 1) & 0x3F));
    } else if (length == 3) {
      character = static_cast<char32_t>((At(text, i) & 0x0F) << 12 | (At(text, i + 1) & 0x3F) << 6 |
                                        (At(text, i + 2) & 0x3F));
    }
    if (const uint8_t byte = CodePageByte(character); byte != 0) {
      bytes += static_cast<char>(byte);
    } else {
      bytes += text.substr(i, length == 0 ? 1 : length);
    }
    i += length == 0 ? 1 : length;
  }
  // Neighbouring bytes may happen to form UTF-8 and would then be read as another character: such a
  // text stays what it is.
  if (ToUtf8(bytes) != text) return std::string(text);
  return bytes;
}

std::string_view CutCharacters(std::string_view text, size_t characters) {
  if (text.size() <= characters) return text;
  for (size_t i = 0; i < text.size(); ++i) {
    if ((At(text, i) & 0xC0) == 0x80) continue;
    if (characters == 0) return text.substr(0, i);
    --characters;
  }
  return text;
}

}  // namespace korvane
