// Whatever a value holds, its decoded text is well-formed and has no control characters.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "frame/code_page.h"
#include "mime/header_fields.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace korvane;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  for (const bool address_field : {false, true}) {
    const std::string decoded = DecodeEncodedWords(text, address_field);
    if (!IsUtf8(decoded)) std::abort();
    for (const char c : decoded) {
      if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) std::abort();
    }
    // At most three bytes for one of the code page, and a pair of quotes for a word.
    if (decoded.size() > 3 * size + 2) std::abort();
  }
  return 0;
}
