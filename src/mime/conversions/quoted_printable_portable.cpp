// Quoted-printable, one "=" at a time.
#include <cstring>

#include "mime/conversions/conversions.h"
#include "mime/conversions/quoted_printable_escape.h"

namespace korvane::conversions::portable {

const char* QuotedPrintableDecode(const char* in, const char* until, const char* end, char*& out) {
  while (in < until) {
    const auto* escape =
        static_cast<const char*>(std::memchr(in, '=', static_cast<size_t>(until - in)));
    if (escape == nullptr) escape = until;
    const auto plain = static_cast<size_t>(escape - in);
    std::memmove(out, in, plain);
    out += plain;
    in = escape;
    if (in < until) in = DecodeEscape(in, end, out);
  }
  return in;
}

size_t QuotedPrintableDecode(char* buffer, size_t size) {
  char* out = buffer;
  const char* const end = buffer + size;
  QuotedPrintableDecode(buffer, end, end, out);
  return static_cast<size_t>(out - buffer);
}

}  // namespace korvane::conversions::portable
