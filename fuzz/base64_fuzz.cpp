// Base64: the form that the processor runs against the plain one, in buffers of the stated size.
#include <cstdlib>
#include <vector>

#include "mime/conversions/conversions.h"

namespace conversions = korvane::conversions;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::vector<char> input(data, data + size);
  std::vector<char> plain(size * 3 / 4), chosen(size * 3 / 4);
  plain.resize(conversions::portable::Base64Decode(input.data(), size, plain.data()));
  chosen.resize(conversions::Chosen().base64_decode(input.data(), size, chosen.data()));
  if (plain != chosen) std::abort();
  return 0;
}
