// Quoted-printable: the form that the processor runs against the plain one, each in place.
#include <cstdlib>
#include <vector>

#include "mime/conversions/conversions.h"

namespace conversions = korvane::conversions;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<char> plain(data, data + size), chosen(data, data + size);
  plain.resize(conversions::portable::QuotedPrintableDecode(plain.data(), size));
  chosen.resize(conversions::Chosen().quoted_printable_decode(chosen.data(), size));
  if (plain != chosen) std::abort();
  return 0;
}
