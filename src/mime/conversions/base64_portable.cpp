// Base64, one quantum at a time.
#include "mime/conversions/base64_quantum.h"
#include "mime/conversions/conversions.h"

namespace korvane::conversions::portable {

size_t Base64Decode(const char* input, size_t size, char* output) {
  const char* in = input;
  const char* const end = input + size;
  char* out = output;
  while (in < end) in = DecodeQuantum(in, end, out);
  return static_cast<size_t>(out - output);
}

}  // namespace korvane::conversions::portable
