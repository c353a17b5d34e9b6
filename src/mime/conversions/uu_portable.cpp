// The data lines of a uuencoded file, one group of four at a time.
#include <algorithm>
#include <cstring>

#include "mime/conversions/conversions.h"

namespace korvane::conversions::portable {

namespace {

uint32_t Value(char character) { return (static_cast<uint8_t>(character) - 32u) & 63u; }

}  // namespace

size_t UuDecode(const char* input, size_t size, char* output) {
  const char* in = input;
  const char* const end = input + size;
  char* out = output;
  while (in < end) {
    const auto* feed =
        static_cast<const char*>(std::memchr(in, '\n', static_cast<size_t>(end - in)));
    const char* line_end = feed == nullptr ? end : feed;
    const char* const next = feed == nullptr ? end : feed + 1;
    if (feed != nullptr && line_end > in && line_end[-1] == '\r') --line_end;
    if (in < line_end) {
      const size_t count = Value(*in++);
      // Four characters hold three bytes; of a group that the line cuts off, two hold one byte and
      // three two.
      size_t left = std::min(count, static_cast<size_t>(line_end - in) * 3 / 4);
      while (left >= 3) {
        const uint32_t bits =
            Value(in[0]) << 18 | Value(in[1]) << 12 | Value(in[2]) << 6 | Value(in[3]);
        *out++ = static_cast<char>(bits >> 16);
        *out++ = static_cast<char>(bits >> 8);
        *out++ = static_cast<char>(bits);
        in += 4;
        left -= 3;
      }
      if (left >= 1) *out++ = static_cast<char>(Value(in[0]) << 2 | Value(in[1]) >> 4);
      if (left == 2) *out++ = static_cast<char>(Value(in[1]) << 4 | Value(in[2]) >> 2);
    }
    in = next;
  }
  return static_cast<size_t>(out - output);
}

}  // namespace korvane::conversions::portable
