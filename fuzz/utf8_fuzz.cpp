// UTF-8 behind code page characters: the conversion to UTF-16 against the code page of the system,
// which makes UTF-8 of the same bytes in another way.
#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "frame/code_page.h"
#include "mime/conversions/conversions.h"

namespace {

// What well-formed UTF-8 stands for.
std::u16string Utf16(const std::string& text) {
  std::u16string units;
  for (size_t i = 0; i < text.size();) {
    const auto lead = static_cast<uint8_t>(text[i]);
    const size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    uint32_t character = length == 1 ? lead : lead & (0x7F >> length);
    for (size_t k = 1; k < length; ++k) {
      character = character << 6 | (static_cast<uint8_t>(text[i + k]) & 0x3F);
    }
    i += length;
    if (character >= 0x10000) {
      units += static_cast<char16_t>(0xD7C0 + (character >> 10));
      character = 0xDC00 | (character & 0x3FF);
    }
    units += static_cast<char16_t>(character);
  }
  return units;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string bytes(data, data + size);
  std::erase(bytes, '\0');
  // Each byte as the code page shows it.
  std::vector<uint16_t> text;
  for (const char byte : bytes) {
    for (const char16_t unit : Utf16(korvane::ToUtf8({byte}))) text.push_back(unit);
  }
  if (text.size() != bytes.size()) std::abort();
  text.push_back(0);
  korvane::conversions::portable::Utf8Decode(text.data());

  std::u16string wanted = Utf16(korvane::ToUtf8(bytes));
  wanted.resize(text.size());
  if (!std::equal(text.begin(), text.end(), wanted.begin())) std::abort();
  return 0;
}
