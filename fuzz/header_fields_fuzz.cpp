// Unfolding in place and reading without a copy must agree on every header.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "mime/header_fields.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace korvane;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  std::string header(text);
  HeaderReader reader(text);
  for (const std::string_view line : UnfoldHeader(header)) {
    const size_t colon = line.find(':');
    if (colon == line.npos || colon == 0) continue;
    if (!reader.Next()) std::abort();
    const std::string name = LowerCase(TrimBlanks(line.substr(0, colon)));
    if (reader.Name() != (name.size() > 32 ? "" : name)) std::abort();
    if (reader.Value() != TrimBlanks(line.substr(colon + 1))) std::abort();
  }
  if (reader.Next()) std::abort();
  return 0;
}
