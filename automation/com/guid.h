// Identifiers from their texts.
#pragma once

#include <guiddef.h>

#include <cstdint>
#include <string_view>

namespace korvane::com {

/// "5f3aea16-a508-59ac-8f13-85621b3ccdb8"
constexpr GUID ToGuid(std::string_view text) {
  uint8_t bytes[16] = {};
  size_t digits = 0;
  for (const char c : text) {
    if (c == '-') continue;
    const int digit = c <= '9' ? c - '0' : c - 'a' + 10;
    bytes[digits / 2] = static_cast<uint8_t>(bytes[digits / 2] << 4 | digit);
    ++digits;
  }
  GUID guid = {};
  guid.Data1 = static_cast<uint32_t>(bytes[0]) << 24 | static_cast<uint32_t>(bytes[1]) << 16 |
               static_cast<uint32_t>(bytes[2]) << 8 | bytes[3];
  guid.Data2 = static_cast<uint16_t>(bytes[4] << 8 | bytes[5]);
  guid.Data3 = static_cast<uint16_t>(bytes[6] << 8 | bytes[7]);
  for (size_t i = 0; i < 8; ++i) guid.Data4[i] = bytes[8 + i];
  return guid;
}

}  // namespace korvane::com
