// What each byte means in Base64.
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

}  // namespace korvane::conversions
