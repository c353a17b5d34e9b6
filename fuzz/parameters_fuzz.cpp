// Parameters of a field value, plain and extended, and what is read beside them.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "mime/header_fields.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace korvane;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  for (const std::string_view name : {"name", "boundary", "x"}) {
    const std::string value = Parameter(text, name);
    if (value.size() > 3 * size) std::abort();
  }
  MediaType(text);
  Unquote(text);
  WithoutAngleBrackets(text);
  FileNameFromPath(text);
  for (int32_t n = 0; n < 4; ++n) NthToken(text, '/', n);
  for (int32_t encoding = 0; encoding < 6; ++encoding) {
    const std::string body =
        DecodeTransferEncoding(EEntityType::Text, ECharset::us_ascii,
                               static_cast<EContentTransferEncoding>(encoding), text);
    if (body.size() > size) std::abort();
  }
  return 0;
}
