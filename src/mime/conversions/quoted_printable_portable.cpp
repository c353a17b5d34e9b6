// Quoted-printable, one "=" at a time.
#include <cstring>

#include "mime/conversions/conversions.h"
#include "mime/conversions/quoted_printable_escape.h"

namespace korvane::conversions::portable {

size_t QuotedPrintableDecode(char* buffer, size_t size) {
  const char* in = buffer;
  const char* const end = buffer + size;
  char* out = buffer;
  while (in < end) {
    const auto* escape =
        static_cast<const char*>(std::memchr(in, '=', static_cast<size_t>(end - in)));
    if (escape == nullptr) escape = end;
    const auto plain = static_cast<size_t>(escape - in);
    std::memmove(out, in, plain);
    out += plain;
    in = escape;
    if (in < end) in = DecodeEscape(in, end, out);
  }
  return static_cast<size_t>(out - buffer);
}

}  // namespace korvane::conversions::portable
