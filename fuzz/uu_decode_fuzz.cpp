// Uuencoded lines: every form that the processor can run against the plain one, in buffers of the
// stated size.
#include <cstdlib>
#include <vector>

#include "mime/conversions/conversions.h"

namespace conversions = korvane::conversions;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::vector<char> input(data, data + size);
  std::vector<char> plain(size * 3 / 4);
  plain.resize(conversions::portable::UuDecode(input.data(), size, plain.data()));
  for (const conversions::Forms& form : conversions::AvailableForms()) {
    std::vector<char> output(size * 3 / 4);
    output.resize(form.uu_decode(input.data(), size, output.data()));
    if (output != plain) std::abort();
  }
  return 0;
}
