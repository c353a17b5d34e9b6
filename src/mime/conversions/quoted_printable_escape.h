// One "=" of a quoted-printable text: an escaped byte, a soft line break, or a stray character.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>

namespace korvane::conversions {

constexpr uint8_t kNoDigit = 0xFF;

constexpr std::array<uint8_t, 256> MakeHexValues() {
  std::array<uint8_t, 256> values{};
  for (auto& value : values) value = kNoDigit;
  for (uint8_t i = 0; i < 10; ++i) values['0' + i] = i;
  for (uint8_t i = 0; i < 6; ++i) {
    values['A' + i] = static_cast<uint8_t>(10 + i);
    values['a' + i] = static_cast<uint8_t>(10 + i);
  }
  return values;
}

inline constexpr std::array<uint8_t, 256> kHexValues = MakeHexValues();

/// `in` is at a "=" and before `end`. Writes at most one byte at `out`, which may be `in` itself,
/// and returns where the text goes on.
///
/// A soft break ends with CR LF, with a bare LF (a text that lost its CRs somewhere), or with the
/// text: the line end behind a part's last line belongs to the boundary.
inline const char* DecodeEscape(const char* in, const char* end, char*& out) {
  const char* next = in + 1;
  if (end - next >= 2) {
    const uint8_t high = kHexValues[static_cast<uint8_t>(next[0])];
    const uint8_t low = kHexValues[static_cast<uint8_t>(next[1])];
    if ((high | low) < 16) {
      *out++ = static_cast<char>(high << 4 | low);
      return next + 2;
    }
  }
  const char* line_end = next;
  while (line_end < end && (*line_end == ' ' || *line_end == '\t')) ++line_end;
  if (line_end == end) return end;
  if (*line_end == '\n') return line_end + 1;
  if (*line_end == '\r' && end - line_end >= 2 && line_end[1] == '\n') return line_end + 2;
  *out++ = '=';
  return next;
}

/// Decodes in place from `out` on, up to and with the first escape that makes the text shorter;
/// until then nothing moves. Moves `out` on and returns where the text goes on: at least two bytes
/// behind `out`, or at the end.
inline const char* DecodeFirstEscape(const char* end, char*& out) {
  const char* in = out;
  while (in < end && out == in) {
    auto* const sign = static_cast<char*>(std::memchr(out, '=', static_cast<size_t>(end - in)));
    if (sign == nullptr) {
      out += end - in;
      return end;
    }
    out = sign;
    in = DecodeEscape(sign, end, out);
  }
  return in;
}

namespace portable {

/// Decodes from `in` to `out`, which may be `in` or before it, until `in` has reached `until`; an
/// escape may reach beyond that, up to `end`. Moves `out` on and returns where the text goes on.
const char* QuotedPrintableDecode(const char* in, const char* until, const char* end, char*& out);

}  // namespace portable

}  // namespace korvane::conversions
