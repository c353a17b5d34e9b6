// What each byte means in Base64, and one quantum of it: four characters that are three bytes.
#pragma once

#include <array>
#include <cstdint>

namespace korvane::conversions {

constexpr uint8_t kBase64Padding = 64;
constexpr uint8_t kBase64Skipped = 65;

constexpr std::array<uint8_t, 256> MakeBase64Values() {
  std::array<uint8_t, 256> values{};
  for (auto& value : values) value = kBase64Skipped;
  constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  for (uint8_t i = 0; i < 64; ++i) values[static_cast<uint8_t>(kAlphabet[i])] = i;
  values['='] = kBase64Padding;
  return values;
}

inline constexpr std::array<uint8_t, 256> kBase64Values = MakeBase64Values();

/// Decodes up to the end of the quantum that starts at or behind `in`, which is before `end`, and
/// returns what is behind it. Padding and the end of the input end a quantum early: two characters
/// then hold one byte, three hold two. What is not in the alphabet is skipped.
inline const char* DecodeQuantum(const char* in, const char* end, char*& out) {
  uint32_t bits = 0;
  int held = 0;
  while (in < end) {
    const uint8_t value = kBase64Values[static_cast<uint8_t>(*in++)];
    if (value == kBase64Skipped) continue;
    if (value == kBase64Padding) break;
    bits = bits << 6 | value;
    if (++held == 4) {
      *out++ = static_cast<char>(bits >> 16);
      *out++ = static_cast<char>(bits >> 8);
      *out++ = static_cast<char>(bits);
      return in;
    }
  }
  if (held == 2) *out++ = static_cast<char>(bits >> 4);
  if (held == 3) {
    *out++ = static_cast<char>(bits >> 10);
    *out++ = static_cast<char>(bits >> 2);
  }
  return in;
}

}  // namespace korvane::conversions
