// Which form of the conversions this processor runs.
#include "mime/conversions/conversions.h"

namespace korvane::conversions {

namespace {

size_t PortableHtmlSize(const char* input, size_t size) {
  return portable::HtmlSize(input, size, SIZE_MAX);
}

size_t PortableTextToHtml(const char* input, size_t size, char* output) {
  return portable::TextToHtml(input, size, output, SIZE_MAX);
}

Forms Choose() {
#ifdef KORVANE_WIDE_CONVERSIONS
  if (wide::Available()) {
    return {wide::Base64Decode, wide::QuotedPrintableDecode, wide::UuDecode, wide::HtmlSize,
            wide::TextToHtml};
  }
#endif
  return {portable::Base64Decode, portable::QuotedPrintableDecode, portable::UuDecode,
          PortableHtmlSize, PortableTextToHtml};
}

}  // namespace

const Forms& Chosen() {
  static const Forms forms = Choose();
  return forms;
}

#ifdef KORVANE_WIDE_CONVERSIONS
bool wide::Available() {
  return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi") &&
         __builtin_cpu_supports("bmi2") && __builtin_cpu_supports("popcnt");
}
#endif

}  // namespace korvane::conversions
