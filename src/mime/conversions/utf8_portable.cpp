// UTF-8 that passed byte by byte through the code page, back to the UTF-16 that it encodes.
#include "mime/conversions/conversions.h"

namespace korvane::conversions::portable {

namespace {

// No byte is shown as this character; it continues no sequence either.
constexpr unsigned kNoByte = 0;

// The byte that Windows-1252 shows as this character. The control characters from U+0080 count as
// the bytes of their own value: so systems show the bytes that the code page leaves unassigned, and
// some all of them.
unsigned ByteOf(uint16_t character) {
  if (character <= 0xFF) return character;
  switch (character) {
    case 0x20AC:
      return 0x80;
    case 0x201A:
      return 0x82;
    case 0x0192:
      return 0x83;
    case 0x201E:
      return 0x84;
    case 0x2026:
      return 0x85;
    case 0x2020:
      return 0x86;
    case 0x2021:
      return 0x87;
    case 0x02C6:
      return 0x88;
    case 0x2030:
      return 0x89;
    case 0x0160:
      return 0x8A;
    case 0x2039:
      return 0x8B;
    case 0x0152:
      return 0x8C;
    case 0x017D:
      return 0x8E;
    case 0x2018:
      return 0x91;
    case 0x2019:
      return 0x92;
    case 0x201C:
      return 0x93;
    case 0x201D:
      return 0x94;
    case 0x2022:
      return 0x95;
    case 0x2013:
      return 0x96;
    case 0x2014:
      return 0x97;
    case 0x02DC:
      return 0x98;
    case 0x2122:
      return 0x99;
    case 0x0161:
      return 0x9A;
    case 0x203A:
      return 0x9B;
    case 0x0153:
      return 0x9C;
    case 0x017E:
      return 0x9E;
    case 0x0178:
      return 0x9F;
    default:
      return kNoByte;
  }
}

struct Sequence {
  unsigned length;  // 0: none that is well-formed
  uint32_t character;
};

// The sequence that starts at `text`, which ends with a 0 (no part of any sequence).
Sequence SequenceAt(const uint16_t* text) {
  const unsigned lead = ByteOf(text[0]);
  if (lead < 0xC2 || lead > 0xF4) return {0, 0};
  const unsigned length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  uint32_t character = lead & (0xFFu >> (length + 1));
  for (unsigned i = 1; i < length; ++i) {
    const unsigned byte = ByteOf(text[i]);
    if ((byte & 0xC0) != 0x80) return {0, 0};
    character = character << 6 | (byte & 0x3F);
  }
  // Neither longer than it needs to be, nor half of a surrogate pair, nor beyond Unicode.
  if (length == 3 && (character < 0x800 || (character >= 0xD800 && character <= 0xDFFF))) {
    return {0, 0};
  }
  if (length == 4 && (character < 0x10000 || character > 0x10FFFF)) return {0, 0};
  return {length, character};
}

}  // namespace

void Utf8Decode(uint16_t* text) {
  const uint16_t* in = text;
  uint16_t* out = text;
  while (*in != 0) {
    if (*in < 0x80) {
      *out++ = *in++;
      continue;
    }
    const Sequence sequence = SequenceAt(in);
    if (sequence.length == 0) {
      *out++ = *in++;
      continue;
    }
    in += sequence.length;
    if (sequence.character < 0x10000) {
      *out++ = static_cast<uint16_t>(sequence.character);
    } else {
      const uint32_t offset = sequence.character - 0x10000;
      *out++ = static_cast<uint16_t>(0xD800 | offset >> 10);
      *out++ = static_cast<uint16_t>(0xDC00 | (offset & 0x3FF));
    }
  }
  while (out < in) *out++ = 0;
}

}  // namespace korvane::conversions::portable
