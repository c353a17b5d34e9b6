// Quoted-printable: every form that the processor can run against the plain one, each in place.
#include <cstdlib>
#include <vector>

#include "mime/conversions/conversions.h"

namespace conversions = korvane::conversions;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<char> plain(data, data + size);
  plain.resize(conversions::portable::QuotedPrintableDecode(plain.data(), size));
  for (const conversions::Forms& form : conversions::AvailableForms()) {
    std::vector<char> buffer(data, data + size);
    buffer.resize(form.quoted_printable_decode(buffer.data(), size));
    if (buffer != plain) std::abort();
  }
  return 0;
}
