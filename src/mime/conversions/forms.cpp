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

constexpr Forms kPortable = {portable::Base64Decode, portable::QuotedPrintableDecode,
                             portable::UuDecode, PortableHtmlSize, PortableTextToHtml};

#ifdef KORVANE_WIDE_CONVERSIONS
constexpr Forms kAll[] = {kPortable,
                          {wide::Base64Decode, wide::QuotedPrintableDecode, wide::UuDecode,
                           wide::HtmlSize, wide::TextToHtml},
                          {wide::Base64Decode, widest::QuotedPrintableDecode, wide::UuDecode,
                           wide::HtmlSize, widest::TextToHtml}};

size_t CountAvailable() {
  if (!__builtin_cpu_supports("avx2") || !__builtin_cpu_supports("bmi") ||
      !__builtin_cpu_supports("bmi2") || !__builtin_cpu_supports("popcnt")) {
    return 1;
  }
  if (!__builtin_cpu_supports("avx512f") || !__builtin_cpu_supports("avx512bw") ||
      !__builtin_cpu_supports("avx512vbmi") || !__builtin_cpu_supports("avx512vbmi2")) {
    return 2;
  }
  return 3;
}
#else
constexpr Forms kAll[] = {kPortable};

size_t CountAvailable() { return 1; }
#endif

}  // namespace

std::span<const Forms> AvailableForms() {
  static const size_t count = CountAvailable();
  return std::span(kAll).first(count);
}

const Forms& Chosen() { return AvailableForms().back(); }

}  // namespace korvane::conversions
