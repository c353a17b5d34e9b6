// Base64, one character at a time.
#include "mime/conversions/base64_alphabet.h"
#include "mime/conversions/conversions.h"

namespace korvane::conversions::portable {

size_t Base64Decode(const char* input, size_t size, char* output) {
  char* out = output;
  uint32_t bits = 0;
  int held = 0;  // characters of the quantum under way
  // What an unfinished quantum holds: two characters one byte, three characters two.
  const auto end_quantum = [&] {
    if (held == 2) *out++ = static_cast<char>(bits >> 4);
    if (held == 3) {
      *out++ = static_cast<char>(bits >> 10);
      *out++ = static_cast<char>(bits >> 2);
    }
    bits = 0;
    held = 0;
  };
  for (size_t i = 0; i < size; ++i) {
    const uint8_t value = kBase64Values[static_cast<uint8_t>(input[i])];
    if (value == kBase64Padding) {
      end_quantum();
    } else if (value != kBase64Skipped) {
      bits = bits << 6 | value;
      if (++held == 4) {
        *out++ = static_cast<char>(bits >> 16);
        *out++ = static_cast<char>(bits >> 8);
        *out++ = static_cast<char>(bits);
        bits = 0;
        held = 0;
      }
    }
  }
  end_quantum();
  return static_cast<size_t>(out - output);
}

}  // namespace korvane::conversions::portable
